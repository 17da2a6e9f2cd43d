/**
 * @file output.hpp
 * The ways out of the module.
 */
#ifndef OLV_TWAMPCTL_OUTPUT_HPP
#define OLV_TWAMPCTL_OUTPUT_HPP

#include <cstdint>

namespace twampctl {

/** The modules that packets can leave by. */
enum class output : std::uint8_t { ipv4, ipv6 };

/** "IPv4", "IPv6". */
[[nodiscard]] const char *name_of(output to);
/** The key that a bind gets when none is given. */
[[nodiscard]] std::uint32_t usual_bind_key(output to);
/** @param family  AF_INET or AF_INET6. */
[[nodiscard]] output output_for(int family);

} // namespace twampctl

#endif
