/**
 * @file socket_address.hpp
 * Socket addresses, and as text.
 */
#ifndef OLV_NET_SOCKET_ADDRESS_HPP
#define OLV_NET_SOCKET_ADDRESS_HPP

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <sys/socket.h>

namespace olv_net {

/** An address and port of IPv4 or IPv6. */
struct socket_address {
    sockaddr_storage address{};
    socklen_t length = 0;

    /** As the system's calls take it. */
    [[nodiscard]] const sockaddr *generic() const { return reinterpret_cast<const sockaddr *>(&address); }
    [[nodiscard]] sockaddr *generic() { return reinterpret_cast<sockaddr *>(&address); }
    [[nodiscard]] int family() const { return address.ss_family; }
    [[nodiscard]] std::uint16_t port() const;
    /** "127.0.0.1:862", "[::1]:862". */
    [[nodiscard]] std::string text() const;
};

/** @return The address that a socket has; nothing, with errno set: the system does not tell. */
[[nodiscard]] std::optional<socket_address> local_address_of(int socket);

/**
 * Parse "127.0.0.1:862", "0.0.0.0:0", "[::1]:862" or "[fe80::1%eth0]:862". Names are not resolved; port 0
 * stands for one that the system chooses.
 * @throw std::runtime_error  One line that says what is wrong with the text.
 */
[[nodiscard]] socket_address parse_socket_address(std::string_view text);

} // namespace olv_net

#endif
