#include "tools/koliindexctl/help_format.h"

#include <sstream>

namespace koli::ctl {
namespace {

constexpr size_t kColumns = 80, kTextColumn = 24;

/// The text from column `margin` on, where the first line is at column `at`.
std::string Wrapped(const std::string& text, size_t at, size_t margin) {
    std::istringstream words(text);
    std::string lines, word;
    if (margin > 0 && at + 2 > margin) lines = "\n", at = 0;
    while (words >> word) {
        if (at > margin && at + 1 + word.size() > kColumns) lines += "\n", at = 0;
        const size_t blanks = at > margin ? 1 : margin - at;
        lines.append(blanks, ' ').append(word);
        at += blanks + word.size();
    }
    return lines + "\n";
}

std::string Row(const std::string& name, const std::string& text) {
    return "  " + name + Wrapped(text, name.size() + 2, kTextColumn);
}

}  // namespace

std::string WrappedText(const std::string& text) {
    return Wrapped(text, 0, 0);
}

std::string PlaceholderOf(const CLI::Option& option) {
    if (option.get_type_size() == 0) return "";
    const std::string type = option.get_type_name();
    return type.substr(0, type.find(':'));  // what it is checked for follows
}

std::string HelpFormat::make_description(const CLI::App* app) const {
    return WrappedText(app->get_description());
}

std::string HelpFormat::make_option(const CLI::Option* option, bool is_positional) const {
    const std::string name = option->get_name(is_positional, !is_positional);
    const std::string value = is_positional ? "" : PlaceholderOf(*option);
    return Row(name + (value.empty() ? "" : " " + value), option->get_description());
}

std::string HelpFormat::make_subcommand(const CLI::App* command) const {
    return Row(command->get_name(), command->get_description());
}

}  // namespace koli::ctl
