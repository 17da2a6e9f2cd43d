#include "apps/common/command_line.hpp"

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <string>

#include "apps/common/help_format.hpp"

namespace olv_apps {

CLI::Validator number_between(double minimum, double maximum)
{
    const auto refuse = [minimum, maximum](const std::string &text) -> std::string {
        double value = 0;
        if (CLI::detail::lexical_cast(text, value) && value >= minimum && value <= maximum) {
            return {};
        }
        std::ostringstream reason;
        reason << "Value " << text << " not in range " << minimum << " to " << maximum;
        return reason.str();
    };
    return CLI::Validator{refuse, CLI::Range(minimum, maximum).get_description()};
}

std::optional<int> parse_command_line(CLI::App &app, const char *program, int argc, char **argv)
{
    use_help_format(app);
    try {
        app.parse(argc, argv);
        return std::nullopt;
    } catch (const CLI::CallForHelp &) {
        // A subcommand that was named explains itself.
        (void)std::fputs(app.help().c_str(), stdout);
        return exit_good;
    } catch (const CLI::ParseError &error) {
        std::string message = error.what();
        std::replace(message.begin(), message.end(), '\n', ' ');
        report_error(program, "%s; try %s --help", message.c_str(), program);
        return exit_usage;
    }
}

} // namespace olv_apps
