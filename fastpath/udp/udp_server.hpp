/**
 * @file udp_server.hpp
 * Moves test packets between UDP sockets and a reflector.
 *
 *     olv_fastpath::reflector reflector{processor};
 *     olv_fastpath::udp_server server{reflector};
 *     server.add(olv_net::parse_socket_address("127.0.0.1:0"), {.responder_id = 1, .bind_key = 5});
 *     server.start();
 */
#ifndef OLV_FASTPATH_UDP_SERVER_HPP
#define OLV_FASTPATH_UDP_SERVER_HPP

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "fastpath/core/own_endpoints.hpp"
#include "fastpath/core/reflector.hpp"
#include "fastpath/core/responder_limits.hpp"
#include "fastpath/udp/arrival_clock.hpp"
#include "fastpath/udp/idle_wait.hpp"
#include "fastpath/udp/listening_socket.hpp"
#include "net/address_prefix.hpp"
#include "net/descriptor.hpp"
#include "net/socket_address.hpp"

namespace olv_fastpath {

class datagram_batch;

/** Which datagrams a server hands to its reflector, and how long they may be. */
struct udp_server_options {
    olv_net::prefix_list allowed_sources{}; ///< Senders that are answered; empty: all.
    std::uint16_t lowest_source_port = 1; ///< Well-known services, reflectors among them, answer at low ports.
    std::uint32_t packets_per_second = 0; ///< Of each responder, on all its sockets together; 0: no limit.
    std::size_t longest_datagram = 65535; ///< Octets, 44 at least; no UDP payload is longer.
    /** How long the thread goes on looking for packets before it sleeps, while they come as often; 0: it never
     *  does. Waking it takes about as long as this, so that looking never costs much more than sleeping would.
     *  Packets that come less often find it asleep: a quiet reflector uses no processor time. On a system with
     *  one core it always sleeps. */
    std::uint32_t busy_poll_microseconds = 20;
    bool segments = true; ///< Replies to one sender may leave as one segmented datagram where there are many.
    /** Requests of one sender that the system has together are received as one message; with the full
     *  longest_datagram only. */
    bool together = true;
    /** Other servers' reflectors have sessions of the same responders: those that are idle here end within a
     *  second even though no packet comes, so that others may begin there. */
    bool shares_responders = false;
};

/** Counters of a socket, or of all sockets of a server, since it was opened. Each datagram that was taken from
 *  a socket is counted in exactly one of `received` and the six reasons to drop it before. */
struct udp_statistics {
    std::uint64_t socket_full = 0;        ///< Never taken: the system dropped them, as the socket had no room.
    std::uint64_t received = 0;           ///< Handed to the reflector, which counts them from there.
    std::uint64_t source_not_allowed = 0; ///< From none of the allowed prefixes.
    std::uint64_t source_port = 0;        ///< From a port below the lowest.
    std::uint64_t own_source = 0;         ///< As if from one of the server's own sockets, or from no address.
    std::uint64_t truncated = 0;          ///< Longer than may be.
    std::uint64_t answers = 0;            ///< Another reflector's, to replies.
    std::uint64_t rate_limited = 0;       ///< More than the responder takes in a second.
    std::uint64_t sent = 0;               ///< Replies that the system took.
    std::uint64_t send_failures = 0; ///< Replies that it did not; the reflector counts them as transmitted.

    udp_statistics &operator+=(const udp_statistics &other);
};

/**
 * Sockets and the thread that serves them.
 *
 * A reply leaves by the socket, and with the address, that the request was sent to; its TTL or hop limit is
 * 255, its DSCP the reflector's. Packets are received in batches, and counted by the module before the replies
 * of the batch leave. The arrival time of a packet is when the system received it, in ticks of the processor's
 * timer, so that packets that waited in the socket together have their own; where the system does not tell, or
 * the timer has been set by hand, it is the timer read right after the call that received the batch.
 *
 * A hostile network: datagrams are dropped, by their source first, before the reflector sees and counts them,
 * in the order of udp_statistics; that a request is too short is the reflector's to say. Always dropped is what
 * would have reflectors answer each other for ever: packets that seem to come from the server's own sockets,
 * and answers to its replies. Other services that answer whatever comes are kept off by the lowest source
 * port, the allowed sources and the limit of packets. Sockets are served in turn, so many packets each, so that
 * a flood at one holds up neither the others nor calls of the control side.
 *
 * The reflector belongs to the thread while it runs, and has to outlive the server. All calls may come from
 * any thread, start() and stop() from one at a time. Sockets can be added, removed and moved to another path
 * while the thread runs.
 */
class udp_server {
  public:
    /** @param limits  That it shares with other servers; NULL: its own, by the options.
     *  @throw std::runtime_error  The system has no descriptors left. */
    explicit udp_server(reflector &reflector, const udp_server_options &options = {},
                        std::shared_ptr<responder_limits> limits = nullptr);
    /** Stops and closes. */
    ~udp_server();
    udp_server(const udp_server &) = delete;
    udp_server &operator=(const udp_server &) = delete;

    /**
     * Open a socket. Its packets wait in it until the thread runs.
     * @return Its index; indices of removed sockets are not used again.
     * @throw std::runtime_error  One line: the address, and why it cannot be listened on. Nothing is left open.
     */
    std::size_t add(const olv_net::socket_address &address, const packet_path &path)
    {
        return add(listening_socket{address}, path);
    }
    /** The same with a socket that is open, and let in to here. */
    std::size_t add(listening_socket socket, const packet_path &path);
    /** Close a socket. @throw std::out_of_range  No socket has this index, here and below. */
    void remove(std::size_t index) { (void)release(index); /* closes it */ }
    /** Serve a socket no more, without closing it. */
    listening_socket release(std::size_t index);
    void set_path(std::size_t index, const packet_path &path);
    [[nodiscard]] packet_path path(std::size_t index) const;
    /** The address with the port that the socket really has. */
    [[nodiscard]] olv_net::socket_address local_address(std::size_t index) const;
    [[nodiscard]] std::uint16_t port(std::size_t index) const { return local_address(index).port(); }

    /** Start the thread; nothing when it runs. @throw std::runtime_error  There is no thread to be had. */
    void start();
    /** End the thread and wait for it; nothing when there is none. It can be started again. */
    void stop();
    [[nodiscard]] bool running() const { return worker_.joinable(); }

    /** Of all sockets, removed ones included. */
    [[nodiscard]] udp_statistics statistics() const;
    [[nodiscard]] udp_statistics statistics(std::size_t index) const;
    /** The reflector's sessions at this instant, the longest idle one first; while the thread runs, too. */
    [[nodiscard]] std::vector<session> sessions() const;

  private:
    /** A mutex that whoever waits for it gets next, however soon its holder wants it again. */
    class fair_mutex {
      public:
        void lock()
        {
            const std::lock_guard turn{next_};
            mutex_.lock();
        }
        void unlock() { mutex_.unlock(); }

      private:
        std::mutex next_; ///< Held while waiting.
        std::mutex mutex_;
    };

    struct endpoint {
        listening_socket socket;
        packet_path path;
        std::shared_ptr<token_bucket> bucket; ///< The responder's; NULL where there is no limit.
        udp_statistics counters;
        bool segments = false; ///< Its replies may leave in segments.
        idle_wait wait{std::chrono::nanoseconds::zero()};
    };

    [[nodiscard]] const endpoint &open_at(std::size_t index) const;
    /** With what only its socket knows. */
    [[nodiscard]] static udp_statistics counters_of(const endpoint &which);
    void note_own_endpoints();
    void run();
    /** How long to wait for packets, in milliseconds as epoll takes them. */
    [[nodiscard]] int longest_wait() const;
    void end_idle_sessions();
    /** Serve a socket that epoll told of. */
    void serve_woken(std::uint64_t data);
    /** Serve the busy sockets, and let epoll watch those that are busy no more. @return Messages received. */
    std::size_t serve_busy();
    /** Let epoll watch the socket at a place of the busy ones. */
    void watch_again(std::size_t place);
    struct served {
        std::size_t messages = 0;
        bool is_busy = false; ///< Look at the socket again soon.
    };
    served serve(endpoint &from);
    std::size_t serve_batches(endpoint &from);
    [[nodiscard]] arrival_clock read_clocks() const;
    /** Hand the datagrams of a message of the batch to the reflector, or drop them. */
    void take(endpoint &from, std::size_t index, const arrival_clock &clock);
    void take_datagram(endpoint &from, std::size_t datagram, const arrival_clock &clock, bool may_segment);
    void send(endpoint &from);
    /** The counter of the reason to answer nothing to a sender; NULL: there is none. */
    [[nodiscard]] std::uint64_t *reason_against(const olv_net::ip_endpoint &sender, std::uint64_t now,
                                                udp_statistics &counters);

    reflector &reflector_;
    udp_server_options options_;
    std::uint64_t ticks_per_second_;
    std::shared_ptr<responder_limits> limits_;
    mutable fair_mutex mutex_; ///< Guards the endpoints; the thread holds it while it serves packets.
    std::vector<endpoint> endpoints_;
    own_endpoints own_;
    olv_net::descriptor epoll_;
    olv_net::descriptor wake_;
    /** Sockets that packets come to so fast that the thread looks by itself. Epoll does not watch them: telling
     *  it of each packet received and of each one sent would cost both sides more than looking. */
    std::vector<std::size_t> busy_;
    std::unique_ptr<datagram_batch> batch_;
    std::thread worker_;
    std::atomic<bool> stopping_{false};
};

} // namespace olv_fastpath

#endif
