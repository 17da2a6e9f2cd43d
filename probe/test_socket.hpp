/**
 * @file test_socket.hpp
 * The socket of a session.
 */
#ifndef OLV_PROBE_TEST_SOCKET_HPP
#define OLV_PROBE_TEST_SOCKET_HPP

#include <cstdint>
#include <string>

#include <sys/socket.h>

#include "net/descriptor.hpp"
#include "probe/session_options.hpp"

namespace olv_probe {

/**
 * Bound as the options say, connected to the reflector, never waiting.
 * @param sender  Which of several.
 * @throw std::runtime_error  One line: there is no socket to be had, or no way to the reflector.
 */
[[nodiscard]] olv_net::descriptor open_test_socket(const session_options &options, unsigned sender);

/** What the IP header of a datagram said; 0 where the system does not tell. */
struct ip_header_fields {
    std::uint8_t ttl = 0;
    std::uint8_t traffic_class = 0; ///< DSCP and ECN.
};
[[nodiscard]] ip_header_fields header_fields_of(msghdr &message);

/** @param what  "cannot send to 192.0.2.1:862". @return That, why (errno), and where it helps, what to do. */
[[nodiscard]] std::string refusal_text(const std::string &what, int socket, const session_options &options);

} // namespace olv_probe

#endif
