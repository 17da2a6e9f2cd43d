/**
 * @file socket_options.hpp
 * What the system is told about UDP sockets. A call that can fail returns false, or nothing, with errno set.
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

/**
 * Prepare a socket for listening at an address. With each packet, the system then tells TTL, traffic class and
 * time of arrival, and where the address stands for several, a group or all hosts, the one that the packet was
 * sent to. Replies leave with a TTL of 255.
 */
[[nodiscard]] std::optional<socket_abilities> prepare_socket(int socket, const sockaddr_storage &address);

/** Let a socket share its address with all others that this was called for: for the first one before any other
 *  is bound to the address, for each other one before it is bound. The system hands all packets of a sender to
 *  the same socket. */
[[nodiscard]] bool share_address(int socket);

/** Have a socket get no copy of what is sent to a group, where the system can do that. */
void leave_groups_to_others(int socket, int family);

/** Whether a socket gets the packets to its address; the system drops them otherwise. */
[[nodiscard]] bool let_in_packets(int socket, bool on);

/** Receive datagrams of one sender as one message, where the system has merged them. A message has at most as
 *  many octets as the longest datagram may have. Nothing changes where the system merges none. */
void receive_together(int socket);

/** Packets that the system has dropped at the socket so far, because there was no room or because they are not
 *  to be kept; 0 where it does not tell. */
[[nodiscard]] std::uint32_t dropped_packets(int socket);

} // namespace olv_fastpath

#endif
