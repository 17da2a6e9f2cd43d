/**
 * @file status_text.hpp
 * A status for people: its number, its name, the framework's text.
 */
#ifndef OLV_TWAMPCTL_STATUS_TEXT_HPP
#define OLV_TWAMPCTL_STATUS_TEXT_HPP

#include <cstdint>
#include <string>
#include <string_view>

#include "olv.h"

namespace twampctl {

/** Its name in the headers, such as "TWAMP_STATUS_NO_MEMORY"; empty where it has none. */
[[nodiscard]] std::string_view status_name(std::uint32_t status);

/** "status 0x30012 TWAMP_STATUS_NO_MEMORY: TWAMP: out of memory". */
[[nodiscard]] std::string status_text(const olv_system_handle *system, std::uint32_t status);

} // namespace twampctl

#endif
