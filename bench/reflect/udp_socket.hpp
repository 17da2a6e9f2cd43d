/**
 * @file udp_socket.hpp
 * A UDP socket of IPv4 with room for bursts.
 */
#ifndef OLV_BENCH_UDP_SOCKET_HPP
#define OLV_BENCH_UDP_SOCKET_HPP

#include <cstdint>

#include "net/descriptor.hpp"
#include "net/socket_address.hpp"

namespace olv_bench {

class udp_socket {
  public:
    /** @param text  Its address. @throw std::runtime_error  It cannot be bound to that. */
    explicit udp_socket(const char *text = "127.0.0.1:0");

    [[nodiscard]] int number() const { return socket_.number(); }
    /** With the port that it really has. */
    [[nodiscard]] const olv_net::socket_address &local_address() const { return local_; }
    /** Datagrams that the kernel has dropped here, as the socket was full. */
    [[nodiscard]] std::uint64_t dropped() const;

  private:
    olv_net::descriptor socket_;
    olv_net::socket_address local_;
};

} // namespace olv_bench

#endif
