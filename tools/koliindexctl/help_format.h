// How --help looks: 80 columns, and a value by its name alone.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Formatter.hpp>
#include <string>

namespace koli::ctl {

class HelpFormat : public CLI::Formatter {
  public:
    HelpFormat() { label("SUBCOMMAND", "COMMAND"), label("Positionals", "Arguments"); }

    std::string make_description(const CLI::App* app) const override;
    std::string make_option(const CLI::Option* option, bool is_positional) const override;
    std::string make_subcommand(const CLI::App* command) const override;
};

/// The text in lines of 80 columns, each with its newline.
std::string WrappedText(const std::string& text);

/// What the help calls an option's value, such as NUMBER; "" for one without a value.
std::string PlaceholderOf(const CLI::Option& option);

}  // namespace koli::ctl
