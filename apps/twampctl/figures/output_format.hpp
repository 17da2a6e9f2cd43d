/**
 * @file output_format.hpp
 * The formats that figures are written in.
 */
#ifndef OLV_TWAMPCTL_OUTPUT_FORMAT_HPP
#define OLV_TWAMPCTL_OUTPUT_FORMAT_HPP

#include <cstdint>
#include <map>
#include <string>

namespace twampctl {

enum class output_format : std::uint8_t { text, json, prometheus };

/** By the names that users type. */
inline const std::map<std::string, output_format> output_formats = {
    {"json", output_format::json}, {"prometheus", output_format::prometheus}, {"text", output_format::text}};

} // namespace twampctl

#endif
