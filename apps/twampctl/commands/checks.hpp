/**
 * @file checks.hpp
 * What names and numbers in commands have to be like.
 */
#ifndef OLV_TWAMPCTL_CHECKS_HPP
#define OLV_TWAMPCTL_CHECKS_HPP

#include <cstdint>
#include <string>

namespace twampctl {

/** For commands that take some things by their names, or all of them with --all.
 *  @throw usage_error  Both or neither was asked for: "COMMAND: give WHAT, or --all". */
void require_some_or_all(const char *command, const char *what, bool some, bool all);

/** @return Why this is no name that can be typed again as it is; empty: it is one, of 1 to 64 bytes, not an
 *  option's nor a comment's beginning, without blanks, quotes, backslashes and control characters. */
[[nodiscard]] std::string reason_against_name(const std::string &name);

/** @return Why this number has a sign; empty: it has none. As 64 bits, negative ones would be taken for very
 * large ones. */
[[nodiscard]] std::string reason_against_sign(const std::string &number);

/** The largest key of a classifier tree. */
inline constexpr std::int64_t largest_key = 0xFFFFFF;

} // namespace twampctl

#endif
