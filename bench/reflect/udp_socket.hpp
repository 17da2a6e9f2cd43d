/**
 * @file udp_socket.hpp
 * A UDP socket of IPv4 with room for bursts, and what the kernel dropped at it.
 */
#ifndef REFLECT_BENCH_UDP_SOCKET_HPP
#define REFLECT_BENCH_UDP_SOCKET_HPP

#include <cstdint>
#include <istream>
#include <optional>

#include "net/socket_address.hpp"

namespace reflect_bench {

class udp_socket {
  public:
    /** @throw std::runtime_error  It cannot be bound to the address. */
    explicit udp_socket(const olv_net::socket_address &address);
    ~udp_socket();
    udp_socket(const udp_socket &) = delete;
    udp_socket &operator=(const udp_socket &) = delete;

    [[nodiscard]] int number() const { return number_; }
    /** With the port that it really has. */
    [[nodiscard]] const olv_net::socket_address &local_address() const { return local_; }

  private:
    int number_;
    olv_net::socket_address local_;
};

/** Datagrams that the kernel dropped at the socket of a port, from text like that of /proc/net/udp; nothing: no
 *  socket has the port. */
[[nodiscard]] std::optional<std::uint64_t> dropped_at(std::istream &sockets, std::uint16_t port);
/** The same of this system's sockets; 0 where it does not tell. */
[[nodiscard]] std::uint64_t dropped_at(std::uint16_t port);

} // namespace reflect_bench

#endif
