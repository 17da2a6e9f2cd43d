/**
 * @file module_log.hpp
 * How the module's messages look on the console and in the traces, in literals of the tests' own.
 */
#ifndef OLV_TESTS_MODULE_LOG_HPP
#define OLV_TESTS_MODULE_LOG_HPP

#include <cstdarg>
#include <cstdint>
#include <string>
#include <string_view>

namespace olv_test {

enum class severity : std::uint8_t { fatal, error, info, entry, exit, state_dump, learnt, removed };

/** What a severity is on the console and in the trace. */
struct severity_rule {
    const char *keyword;
    std::uint32_t trace_level;
    std::uint32_t mask; ///< Of a log word; shown from the threshold on.
    std::uint32_t threshold;

    [[nodiscard]] bool is_shown_with(std::uint32_t word) const { return (word & mask) >= threshold; }
};
[[nodiscard]] const severity_rule &rule(severity how);

[[nodiscard]] std::string formatted(const char *format, std::va_list list);
[[nodiscard]] [[gnu::format(printf, 1, 2)]] std::string formatted(const char *format, ...);

/** A message on the console: one without arguments is a line of its own, but for two that no newline follows.
 */
[[nodiscard]] std::string as_printed(std::string_view format, const std::string &text);

} // namespace olv_test

#endif
