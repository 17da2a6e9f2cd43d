/**
 * @file listen_addresses.hpp
 * Where to listen, as users write it.
 */
#ifndef OLV_NET_LISTEN_ADDRESSES_HPP
#define OLV_NET_LISTEN_ADDRESSES_HPP

#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "net/socket_address.hpp"

namespace olv_net {

/**
 * The addresses that a text stands for, IPv4 first:
 *  - "127.0.0.1:862", "[::1]:862": itself, see parse_socket_address();
 *  - ":862", "*:862": all addresses of this host, by 0.0.0.0:862 and, where the system knows IPv6, [::]:862;
 *  - "localhost:862": those of the name's addresses that this host has; where it has none, all of them.
 * @throw std::runtime_error  One line that says what is wrong with the text.
 */
[[nodiscard]] std::vector<socket_address> listen_addresses(std::string_view text);

/** Two of the addresses that one program cannot listen at: twice the same, or one and all of its family at the
 *  same port. Port 0 is always another one. */
[[nodiscard]] std::optional<std::pair<socket_address, socket_address>>
overlapping(const std::vector<socket_address> &addresses);

} // namespace olv_net

#endif
