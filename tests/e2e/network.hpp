/**
 * @file network.hpp
 * The test's own end of the network: sockets, and what is left in those of a program.
 */
#ifndef OLV_TESTS_NETWORK_HPP
#define OLV_TESTS_NETWORK_HPP

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "net/socket_address.hpp"

namespace e2e {

using octets = std::vector<std::uint8_t>;

/** A UDP socket on a port of this host that the system chose. */
class loopback_socket {
  public:
    /** @param host  "127.0.0.1", "[::1]". @throw std::runtime_error  This host has no such address. */
    explicit loopback_socket(const std::string &host = "127.0.0.1");
    ~loopback_socket();
    loopback_socket(const loopback_socket &) = delete;
    loopback_socket &operator=(const loopback_socket &) = delete;

    /** "127.0.0.1:PORT". */
    [[nodiscard]] std::string address() const { return local_.text(); }

    /** Wait for a datagram and remember who sent it. @throw std::runtime_error  None comes. */
    octets receive();
    /** The same for so long at most. */
    [[nodiscard]] std::optional<octets> receive_within(std::chrono::milliseconds limit);
    /** To whoever sent the last one. */
    void answer(const octets &datagram);
    /** To "127.0.0.1:PORT", "[::1]:PORT". */
    void send_to(const std::string &address, const octets &datagram);

  private:
    olv_net::socket_address local_;
    olv_net::socket_address peer_;
    int socket_;
};

/** An address that nobody listens at. */
[[nodiscard]] std::string closed_address();

/** A good reply to a request, with its number as the reflector's. */
[[nodiscard]] octets reply_to(const octets &request);

/** UDP sockets of this system that are bound to "127.0.0.1:PORT". */
struct bound_sockets {
    int count = 0;
    bool hold_packets = false; ///< That nobody has taken yet.
};
[[nodiscard]] bound_sockets sockets_at(const std::string &address);
/** Wait until the program that listens at "127.0.0.1:PORT" has taken all that was sent there.
 *  @return Whether it has. */
[[nodiscard]] bool wait_until_taken(const std::string &address);

/** All that the HTTP server at "127.0.0.1:PORT" answers to a GET; empty when there is none. */
[[nodiscard]] std::string http_get(const std::string &host, const std::string &path);

} // namespace e2e

#endif
