/**
 * @file crowd.hpp
 * Many senders that do not wait for replies.
 */
#ifndef REFLECT_BENCH_CROWD_HPP
#define REFLECT_BENCH_CROWD_HPP

#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>

#include "net/socket_address.hpp"
#include "udp_socket.hpp"

namespace reflect_bench {

/** Sockets at 127.0.0.1, each with a port of its own. */
class crowd {
  public:
    explicit crowd(std::size_t senders);

    [[nodiscard]] std::size_t size() const { return senders_.size(); }
    /** Send requests of 44 octets, so many from each sender, who all send to one of the servers each; the
     * servers have as many senders. @return Requests that the system took. */
    std::uint64_t send(std::span<const olv_net::socket_address> servers, std::uint32_t requests_each) const;
    /** Take what waits. @return Datagrams. */
    std::uint64_t take_replies() const;

  private:
    std::deque<udp_socket> senders_;
};

} // namespace reflect_bench

#endif
