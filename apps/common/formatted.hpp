/**
 * @file formatted.hpp
 * printf to the end of a string.
 */
#ifndef OLV_APPS_FORMATTED_HPP
#define OLV_APPS_FORMATTED_HPP

#include <string>

namespace olv_apps {

/** Append to @p text what printf() would print. */
[[gnu::format(printf, 2, 3)]] void append(std::string &text, const char *format, ...);
/** What printf() would print. */
[[gnu::format(printf, 1, 2)]] std::string formatted(const char *format, ...);

} // namespace olv_apps

#endif
