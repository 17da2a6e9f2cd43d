/**
 * @file socket_options.hpp
 * What the system is asked for about a UDP socket. Calls that can fail return false, or nothing, with errno
 * set.
 */
#ifndef OLV_FASTPATH_SOCKET_OPTIONS_HPP
#define OLV_FASTPATH_SOCKET_OPTIONS_HPP

#include <cstdint>
#include <optional>

#include <sys/socket.h>

namespace olv_fastpath {

/** What a socket can do. */
struct socket_abilities {
    bool segments = false; ///< Send segmented datagrams.
};

[[nodiscard]] bool set_option(int socket, int level, int option, int value);

/** Ask for the IP header's fields, the time of arrival and, where the socket listens at several addresses, the
 *  one that a datagram was sent to; hop limit 255 for replies.
 *  @param address  That the socket is going to listen at. */
[[nodiscard]] std::optional<socket_abilities> prepare_socket(int socket, const sockaddr_storage &address);

/** Have several sockets listen at the address: those that are bound after this call at where one is bound that
 *  it was called for, too. The system hands all packets of a sender to one of them. */
[[nodiscard]] bool share_address(int socket);

/** Packets that the system keeps for a socket; it drops the others as if the socket were not there. */
enum class kept_packets : std::uint8_t {
    none,
    to_this_host, ///< To an address of its own. Packets to a group, or to all, every socket there gets.
    all
};

[[nodiscard]] bool keep_packets(int socket, int family, kept_packets which);

/** Have the socket receive datagrams of one sender that the system has together as one message; a buffer has to
 *  have room for the longest there can be. Nothing changes where the system cannot. */
void receive_together(int socket);

/** Packets that the system dropped at the socket so far: the socket's buffer was full, or packets are not kept.
 * 0 where it does not tell. */
[[nodiscard]] std::uint32_t dropped_packets(int socket);

} // namespace olv_fastpath

#endif
