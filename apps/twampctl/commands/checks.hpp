/**
 * @file checks.hpp
 * What names and numbers in commands have to be like.
 */
#ifndef OLV_TWAMPCTL_CHECKS_HPP
#define OLV_TWAMPCTL_CHECKS_HPP

#include <CLI/CLI.hpp>

namespace twampctl {

/** For commands that take things one by one, or all of them.
 *  @throw usage_error  Both or neither was asked for: "COMMAND: give WHAT, or --all". */
void require_some_or_all(const char *command, const char *what, bool some, bool all);

/** Takes names that can be typed again as they are: of 1 to 64 bytes, not an option's nor a comment's
 * beginning, without blanks, quotes, backslashes and control characters. */
[[nodiscard]] CLI::Validator name_check();

/** Takes numbers without a sign: as 64 bits, others would be taken for very large ones. */
[[nodiscard]] CLI::Validator not_negative();

/** Takes numbers that fit a classifier tree's key. */
[[nodiscard]] CLI::Validator of_24_bits();

} // namespace twampctl

#endif
