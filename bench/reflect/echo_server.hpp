/**
 * @file echo_server.hpp
 * Servers that send back what they get and do nothing else: what the system's sockets alone can do.
 */
#ifndef OLV_BENCH_ECHO_SERVER_HPP
#define OLV_BENCH_ECHO_SERVER_HPP

#include <atomic>
#include <optional>
#include <thread>

#include "server.hpp"
#include "udp_socket.hpp"

namespace olv_bench {

/** Echoes what a socket gets. Once it is to stop, the next datagram ends it. */
using echo_loop = void (*)(int socket, const std::atomic<bool> &stopping);
/** One datagram at a time: recvfrom, sendto. */
void echo_one_by_one(int socket, const std::atomic<bool> &stopping);
/** Batches: recvmmsg, sendmmsg. */
void echo_in_batches(int socket, const std::atomic<bool> &stopping);

class echo_server final : public server {
  public:
    explicit echo_server(echo_loop loop) : loop_(loop) {}
    ~echo_server() override;

    void start() override;
    void stop() override;
    [[nodiscard]] olv_net::socket_address address() const override { return socket_->local_address(); }
    [[nodiscard]] std::uint64_t dropped() const override { return socket_->dropped(); }
    [[nodiscard]] std::size_t number_position() const override { return 0; }

  private:
    void end_thread();

    echo_loop loop_;
    std::optional<udp_socket> socket_;
    std::thread thread_;
    std::atomic<bool> stopping_{false};
};

} // namespace olv_bench

#endif
