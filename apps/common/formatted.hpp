/**
 * @file formatted.hpp
 * printf to the end of a string.
 */
#ifndef OLV_PROBE_FORMATTED_HPP
#define OLV_PROBE_FORMATTED_HPP

#include <string>

namespace olv_probe {

[[gnu::format(printf, 2, 3)]] void append(std::string &text, const char *format, ...);

} // namespace olv_probe

#endif
