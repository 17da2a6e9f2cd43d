/**
 * @file server.hpp
 * What is measured: a server that answers datagrams with datagrams of the same length.
 */
#ifndef OLV_BENCH_SERVER_HPP
#define OLV_BENCH_SERVER_HPP

#include <cstddef>
#include <cstdint>

#include "net/socket_address.hpp"

namespace olv_bench {

class server {
  public:
    server() = default;
    virtual ~server() = default;
    server(const server &) = delete;
    server &operator=(const server &) = delete;

    /** Open a socket at a free port of 127.0.0.1 and start the thread, which stays on the caller's core. */
    virtual void start() = 0;
    /** End the thread and close the socket. It can be started again. */
    virtual void stop() = 0;
    /** Of the socket, while it is started. */
    [[nodiscard]] virtual olv_net::socket_address address() const = 0;
    /** Datagrams that the kernel has dropped at its sockets. */
    [[nodiscard]] virtual std::uint64_t dropped() const = 0;
    /** Where a reply has the four octets that the request begins with. */
    [[nodiscard]] virtual std::size_t number_position() const = 0;
};

} // namespace olv_bench

#endif
