/**
 * @file udp_server.hpp
 * Moves test packets between UDP sockets and a reflector.
 *
 *     olv_fastpath::reflector reflector{processor};
 *     olv_fastpath::udp_server server{reflector};
 *     server.add(olv_fastpath::parse_listen_address("127.0.0.1:0"), {.responder_id = 1, .bind_key = 5});
 *     server.start();
 */
#ifndef OLV_FASTPATH_UDP_SERVER_HPP
#define OLV_FASTPATH_UDP_SERVER_HPP

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "fastpath/listen_address.hpp"
#include "fastpath/reflector.hpp"

namespace olv_fastpath {

class datagram_batch;

/** Counters of a server since it was made. */
struct udp_statistics {
    std::uint32_t received = 0; ///< Datagrams that were handed to the reflector.
    std::uint32_t sent = 0;     ///< Replies that the system took.
    std::uint32_t send_failures =
        0;                       ///< Replies that it did not take; the reflector counts them as transmitted.
    std::uint32_t truncated = 0; ///< Datagrams longer than any can be; not handed to the reflector.
};

/**
 * Sockets and the thread that serves them.
 *
 * A reply leaves by the socket, and with the address, that the request was sent to; its TTL or hop limit is
 * 255, its DSCP the reflector's. Packets are received in batches. The arrival time of a packet is the
 * processor's timer read right after the call that received its batch, so that packets that waited in the
 * socket together arrive together.
 *
 * The reflector belongs to the thread while it runs, and has to outlive the server. All calls may come from
 * any thread, start() and stop() from one at a time. Sockets can be added, removed and moved to another path
 * while the thread runs.
 */
class udp_server {
  public:
    /** @throw std::runtime_error  The system has no descriptors left. */
    explicit udp_server(reflector &reflector);
    /** Stops and closes. */
    ~udp_server();
    udp_server(const udp_server &) = delete;
    udp_server &operator=(const udp_server &) = delete;

    /**
     * Open a socket. Its packets wait in it until the thread runs.
     * @return Its index; indices of removed sockets are not used again.
     * @throw std::runtime_error  One line: the address, and why it cannot be listened on. Nothing is left open.
     */
    std::size_t add(const listen_address &address, const packet_path &path);
    /** Close a socket. @throw std::out_of_range  No socket has this index, here and below. */
    void remove(std::size_t index);
    void set_path(std::size_t index, const packet_path &path);
    [[nodiscard]] packet_path path(std::size_t index) const;
    /** The address with the port that the socket really has. */
    [[nodiscard]] listen_address local_address(std::size_t index) const;
    [[nodiscard]] std::uint16_t port(std::size_t index) const { return local_address(index).port(); }

    /** Start the thread; nothing when it runs. @throw std::runtime_error  There is no thread to be had. */
    void start();
    /** End the thread and wait for it; nothing when there is none. It can be started again. */
    void stop();
    [[nodiscard]] bool running() const { return worker_.joinable(); }

    /** Each counter is whole; together they are no snapshot. */
    [[nodiscard]] udp_statistics statistics() const;

  private:
    /** A descriptor that closes itself. */
    class descriptor {
      public:
        explicit descriptor(int number = -1) : number_(number) {}
        ~descriptor();
        descriptor(descriptor &&other) noexcept : number_(other.release()) {}
        descriptor &operator=(descriptor &&other) noexcept;
        [[nodiscard]] int number() const { return number_; }
        [[nodiscard]] bool is_open() const { return number_ >= 0; }
        int release();

      private:
        int number_;
    };

    struct endpoint {
        descriptor socket;
        listen_address local;
        packet_path path;
    };

    [[nodiscard]] static endpoint open_endpoint(const listen_address &address, const packet_path &path);
    [[nodiscard]] const endpoint &open_at(std::size_t index) const;
    void run();
    void serve(endpoint &from);

    reflector &reflector_;
    mutable std::mutex mutex_; ///< Guards the endpoints; the thread holds it while it serves packets.
    std::vector<endpoint> endpoints_;
    descriptor epoll_;
    descriptor wake_;
    std::unique_ptr<datagram_batch> batch_;
    std::thread worker_;
    std::atomic<bool> stopping_{false};
    std::atomic<std::uint32_t> received_{0};
    std::atomic<std::uint32_t> sent_{0};
    std::atomic<std::uint32_t> send_failures_{0};
    std::atomic<std::uint32_t> truncated_{0};
};

} // namespace olv_fastpath

#endif
