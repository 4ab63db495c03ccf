// Database strings on a terminal: the phone's texts may hold control
// characters (ESC, BEL, LF, CSI ...), line separators and bidirectional
// overrides that would act on the terminal, reorder what follows them or
// break the one-line-per-item output of the tools. Columns are lined up in
// terminal cells: a full-width character takes two, a combining mark none.
#ifndef MOX_TOOLS_TEXTESCAPE_H
#define MOX_TOOLS_TEXTESCAPE_H

#include <cstddef>
#include <string>

// Writes a backslash as "\\", every C0 control byte (0x00 to 0x1f) and DEL
// as \xNN, every C1 control (U+0080 to U+009F), the line and paragraph
// separators (U+2028, U+2029) and the bidirectional embeddings, overrides
// and isolates (U+202A to U+202E, U+2066 to U+2069) as \uNNNN, and every byte
// that is not part of a valid UTF-8 sequence as \xNN; hexadecimal digits are
// lower-case. Every other character stays as it is.
std::string escapeControlCharacters(const std::string& text);

// The cells that `text` takes on a terminal: per grapheme cluster the width
// of its widest character (2 for East Asian wide and full-width characters
// and emoji, 0 for a cluster of combining marks alone), as libutf8proc tells
// it. Meant for escaped text; a byte that is not valid UTF-8 counts one cell.
size_t terminalCells(const std::string& text);

// `text` followed by spaces up to `cells` terminal cells; as it is when it
// is already as wide or wider.
std::string padToCells(const std::string& text, size_t cells);

#endif  // MOX_TOOLS_TEXTESCAPE_H
