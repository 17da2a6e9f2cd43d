/**
 * @file errors.hpp
 * How both programs end, and what they say of errors.
 */
#ifndef OLV_APPS_ERRORS_HPP
#define OLV_APPS_ERRORS_HPP

#include <exception>
#include <string>

namespace olv_apps {

enum exit_status : int {
    exit_good = 0,
    exit_failed = 1, ///< It ran, and something was not as it should be.
    exit_usage = 2   ///< It could not begin.
};

/** What went wrong, in words: where memory is short, there is nothing else to tell. */
[[nodiscard]] std::string text_of(const std::exception &error);

/** Write "program: message" and a newline to standard error, after everything on standard output. */
[[gnu::format(printf, 2, 3)]] void report_error(const char *program, const char *format, ...);

} // namespace olv_apps

#endif
