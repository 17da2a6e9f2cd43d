/**
 * @file many_senders.hpp
 * Many senders that do not wait for replies.
 */
#ifndef OLV_BENCH_MANY_SENDERS_HPP
#define OLV_BENCH_MANY_SENDERS_HPP

#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>

#include "net/socket_address.hpp"
#include "udp_socket.hpp"

namespace olv_bench {

/** Sockets at 127.0.0.1, each with a port of its own. */
class many_senders {
  public:
    explicit many_senders(std::size_t senders);

    /** Send requests of 44 octets, so many from each sender. The senders are dealt out to the servers in turn.
     *  @return Requests that the system took. */
    std::uint64_t send(std::span<const olv_net::socket_address> servers, std::uint32_t requests_each) const;
    /** Take the replies that wait. @return How many there were. */
    std::uint64_t take_replies() const;

  private:
    std::deque<udp_socket> senders_;
};

} // namespace olv_bench

#endif
