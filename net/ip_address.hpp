/**
 * @file ip_address.hpp
 * Addresses of both families in one form.
 */
#ifndef OLV_NET_IP_ADDRESS_HPP
#define OLV_NET_IP_ADDRESS_HPP

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <tuple>

#include <sys/socket.h>

namespace olv_net {

/** An IPv6 address, or an IPv4 address in its mapped form ::ffff:a.b.c.d; network order. */
using ip_address = std::array<std::uint8_t, 16>;

/** What the mapped form has in front of an IPv4 address. */
inline constexpr std::array<std::uint8_t, 12> mapped_prefix{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
inline constexpr unsigned mapped_prefix_bits = mapped_prefix.size() * 8;

[[nodiscard]] inline bool is_ipv4(const ip_address &address)
{
    return std::memcmp(address.data(), mapped_prefix.data(), mapped_prefix.size()) == 0;
}
/** The unspecified address of the family that @p address is of. */
[[nodiscard]] inline ip_address unspecified_like(const ip_address &address)
{
    return is_ipv4(address) ? ip_address{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF} : ip_address{};
}
/** "192.0.2.1", "2001:db8::1". */
[[nodiscard]] std::string text_of(const ip_address &address);

/** Where a datagram comes from, or where one can be sent to. */
struct ip_endpoint {
    ip_address address{};
    std::uint16_t port = 0; ///< Host order.

    friend bool operator==(const ip_endpoint &left, const ip_endpoint &right)
    {
        return std::memcmp(left.address.data(), right.address.data(), sizeof(ip_address)) == 0 &&
               left.port == right.port;
    }
    friend bool operator<(const ip_endpoint &left, const ip_endpoint &right)
    {
        return std::tie(left.address, left.port) < std::tie(right.address, right.port);
    }
};

/** "192.0.2.1:862", "[2001:db8::1]:862". */
[[nodiscard]] std::string text_of(const ip_endpoint &endpoint);

/** @param address  Of IPv4 or IPv6. */
[[nodiscard]] ip_endpoint endpoint_of(const sockaddr_storage &address);

} // namespace olv_net

#endif
