/**
 * @file help_format.hpp
 * Help that fits a terminal of 80 columns.
 */
#ifndef OLV_APPS_HELP_FORMAT_HPP
#define OLV_APPS_HELP_FORMAT_HPP

#include <string>

#include <CLI/CLI.hpp>

namespace olv_apps {

/** Breaks lines between words, and names the value of an option without the limits that are checked. */
class help_format : public CLI::Formatter {
  public:
    help_format();

    [[nodiscard]] std::string make_description(const CLI::App *app) const override;
    [[nodiscard]] std::string make_option_opts(const CLI::Option *option) const override;
    [[nodiscard]] std::string make_option_desc(const CLI::Option *option) const override;
};

/** Give a program and its subcommands this help. */
void use_help_format(CLI::App &app);

} // namespace olv_apps

#endif
