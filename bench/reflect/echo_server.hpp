/**
 * @file echo_server.hpp
 * Servers that send back what they get and do nothing else: what the system's sockets alone can do.
 */
#ifndef REFLECT_BENCH_ECHO_SERVER_HPP
#define REFLECT_BENCH_ECHO_SERVER_HPP

#include <atomic>
#include <memory>
#include <thread>

#include "server.hpp"
#include "udp_socket.hpp"

namespace reflect_bench {

class echo_server : public server {
  public:
    ~echo_server() override = default;

    void start() override;
    void stop() override;
    [[nodiscard]] olv_net::socket_address address() const override { return socket_->local_address(); }
    [[nodiscard]] std::size_t number_position() const override { return 0; }

  protected:
    /** Echo until is_stopping(); each datagram may be the one that wakes it for that. */
    virtual void echo(int socket) = 0;
    [[nodiscard]] bool is_stopping() const { return stopping_.load(std::memory_order_relaxed); }

  private:
    std::unique_ptr<udp_socket> socket_;
    std::thread thread_;
    std::atomic<bool> stopping_{false};
};

/** One datagram at a time: recvfrom, sendto. */
class plain_echo final : public echo_server {
  public:
    ~plain_echo() override { stop(); }

  private:
    void echo(int socket) override;
};

/** Batches: recvmmsg, sendmmsg. */
class batched_echo final : public echo_server {
  public:
    ~batched_echo() override { stop(); }

  private:
    void echo(int socket) override;
};

} // namespace reflect_bench

#endif
