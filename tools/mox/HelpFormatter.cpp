#include "HelpFormatter.h"

#include <sstream>

std::string HelpFormatter::valueName(const CLI::Option* option) {
    if (!option->get_option_text().empty()) {
        return option->get_option_text();
    }
    // The parser's own names carry its notes after the type: "UINT:INT in
    // [0 - 255]", "FLOAT:POSITIVE"; the tools' names ("N", "FILE") do not.
    const std::string name = option->get_type_name();
    const std::string type = name.substr(0, name.find_first_of(": "));
    if (type == "UINT" || type == "INT" || type == "FLOAT" || type == "NUMBER") {
        return "N";
    }
    return type.empty() ? std::string("TEXT") : type;
}

std::string HelpFormatter::make_option_opts(const CLI::Option* option) const {
    if (option->get_expected_max() == 0 || option->get_positional()) {
        return std::string();
    }
    std::string out = " " + valueName(option);
    if (option->get_expected_max() == CLI::detail::expected_max_vector_size) {
        out += " ...";
    }
    return out;
}

std::string HelpFormatter::make_description(const CLI::App* app) const {
    const std::string description = app->get_description();
    return description.empty() ? std::string() : description + "\n";
}

std::string HelpFormatter::make_subcommand(const CLI::App* sub) const {
    std::stringstream out;
    CLI::detail::format_help(out, sub->get_display_name(true), summary(sub->get_description()),
                             get_column_width());
    return out.str();
}

std::string HelpFormatter::summary(const std::string& text) {
    const size_t end = std::min(text.find(". "), text.find('\n'));
    std::string first = text.substr(0, end);
    if (!first.empty() && first.back() == '.') {
        first.pop_back();
    }
    return first;
}
