// Database strings on a terminal: the phone's texts may hold control
// characters (ESC, BEL, LF, ...) that would act on the terminal or break the
// one-line-per-item output of the tools.
#ifndef MOX_TOOLS_TEXTESCAPE_H
#define MOX_TOOLS_TEXTESCAPE_H

#include <string>

// Writes every control character (bytes 0x00 to 0x1f and 0x7f) as \xNN with
// lower-case hexadecimal digits and a backslash as "\\"; every other byte,
// UTF-8 sequences included, stays as it is.
std::string escapeControlCharacters(const std::string& text);

#endif  // MOX_TOOLS_TEXTESCAPE_H
