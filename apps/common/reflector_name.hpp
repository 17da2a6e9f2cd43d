/**
 * @file reflector_name.hpp
 * Where to measure to and from, as written: an address or a name, and a port.
 */
#ifndef OLV_PROBE_REFLECTOR_NAME_HPP
#define OLV_PROBE_REFLECTOR_NAME_HPP

#include <cstdint>
#include <string>
#include <string_view>

#include <sys/socket.h>

#include "net/socket_address.hpp"

namespace olv_probe {

struct reflector_name {
    std::string host; ///< Without brackets.
    std::uint16_t port = 0;
};

/**
 * Take "192.0.2.1:862", "[2001:db8::1]:862", "reflector.example:862" apart, or the same without a port, which
 * is then 862, and without brackets; resolves nothing.
 * @throw std::runtime_error  One line that says what is wrong with the text, and what to type.
 */
[[nodiscard]] reflector_name parse_reflector_name(std::string_view text);

/**
 * "192.0.2.9", "192.0.2.9:40000", "2001:db8::9", "[2001:db8::9]:40000"; without a port it is 0.
 * @throw std::runtime_error  One line that says what is wrong with the text.
 */
[[nodiscard]] olv_net::socket_address parse_source(std::string_view text);

/**
 * The first address that the system finds for a name.
 * @param family  AF_INET, AF_INET6 or, to take what comes, AF_UNSPEC.
 * @throw std::runtime_error  One line: the name does not resolve, or not to an address of this family.
 */
[[nodiscard]] olv_net::socket_address resolve(const reflector_name &name, int family);

} // namespace olv_probe

#endif
