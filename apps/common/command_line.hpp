/**
 * @file command_line.hpp
 * What both programs do about their command lines: errors, help.
 */
#ifndef OLV_APPS_COMMAND_LINE_HPP
#define OLV_APPS_COMMAND_LINE_HPP

#include <optional>

#include <CLI/CLI.hpp>

#include "apps/common/report.hpp"

namespace olv_apps {

/** Takes numbers from @p minimum to @p maximum. CLI::Range would let "nan" through, which is never outside. */
[[nodiscard]] CLI::Validator number_between(double minimum, double maximum);

/** @return The status to exit with at once: help was printed, or an error reported; otherwise nothing. */
[[nodiscard]] std::optional<int> parse_command_line(CLI::App &app, const char *program, int argc, char **argv);

} // namespace olv_apps

#endif
