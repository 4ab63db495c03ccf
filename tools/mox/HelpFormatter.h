// The help of the mox CLI, and so its manual pages (help2man reads the
// help): the parser's type notes ("UINT:INT in [0 - 255]=0", "TEXT
// REQUIRED", "[Exactly 1 of the following options is required]") are left
// out, since the descriptions say what each option takes. An option that
// takes a value shows its value's name: the name it was given (type_name or
// option_text), or N for a number and TEXT otherwise. The list of
// subcommands shows the first sentence of each description.
#ifndef MOX_TOOLS_HELPFORMATTER_H
#define MOX_TOOLS_HELPFORMATTER_H

#include <CLI/CLI.hpp>
#include <string>

class HelpFormatter : public CLI::Formatter {
public:
    std::string make_option_opts(const CLI::Option* option) const override;
    std::string make_description(const CLI::App* app) const override;
    std::string make_subcommand(const CLI::App* sub) const override;

    // The first sentence of `text`: up to its first ". " or line feed,
    // without the full stop.
    static std::string summary(const std::string& text);

    // The name of the value that `option` takes, as the help shows it.
    static std::string valueName(const CLI::Option* option);
};

#endif  // MOX_TOOLS_HELPFORMATTER_H
