/**
 * @file command_line.hpp
 * What both programs do about their command lines: exit statuses, one-line errors, help.
 */
#ifndef OLV_APPS_COMMAND_LINE_HPP
#define OLV_APPS_COMMAND_LINE_HPP

#include <optional>

#include <CLI/CLI.hpp>

namespace olv_apps {

enum exit_status : int {
    exit_good = 0,
    exit_failed = 1, ///< It ran, and something was not as it should be.
    exit_usage = 2   ///< It could not begin.
};

/** Write "program: message" and a newline to standard error, after everything on standard output. */
[[gnu::format(printf, 2, 3)]] void report_error(const char *program, const char *format, ...);

/** Takes numbers from @p minimum to @p maximum. CLI::Range would let "nan" through, which is never outside. */
[[nodiscard]] CLI::Validator number_between(double minimum, double maximum);

/** @return The status to exit with at once: help was printed, or an error reported; otherwise nothing. */
[[nodiscard]] std::optional<int> parse_command_line(CLI::App &app, const char *program, int argc, char **argv);

} // namespace olv_apps

#endif
