/**
 * @file udp_workers.hpp
 * Several servers that answer as one, so that a flood of packets may keep several cores busy.
 *
 *     olv_fastpath::udp_workers workers{processor, {.count = 4}};
 *     workers.add(olv_net::parse_socket_address("127.0.0.1:0"), {.responder_id = 1, .bind_key = 5});
 *     workers.start();
 */
#ifndef OLV_FASTPATH_UDP_WORKERS_HPP
#define OLV_FASTPATH_UDP_WORKERS_HPP

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include "fastpath/udp/udp_server.hpp"

namespace olv_fastpath {

struct udp_workers_options {
    static constexpr std::uint32_t most_workers = 64;

    std::uint32_t count = 1; ///< Of the workers; less than 1 is taken as 1, more than most_workers as that.
    /** The session capacity is that of all workers together: each has its part of it, rounded up. As the system
     *  decides which worker a sender belongs to, one may have no room left while another still has. */
    reflector_options reflector{};
    udp_server_options server{}; ///< The limit of packets is each responder's, whichever workers it has.
};

/**
 * Workers, each a udp_server with a reflector and a thread of its own. What is said there holds here.
 *
 * One worker is one udp_server. Of several, each has a socket at each address; the system hands all packets
 * that a sender's address and port sends to an address to the same one, whose reflector has the session. What
 * it sends to another address of the same responder may be another worker's, and a session of its own then.
 * Packets to a group of hosts, or to all, are the first worker's. Workers share what the control side reads,
 * where they count packets once for each batch, and the limit of packets; they wait for no lock of each other.
 * All counters and maxima are exact for all together.
 *
 * While an address is added its packets are dropped by the system until all its sockets are open, while it is
 * removed until all are closed, and those that wait in them then: a session that one worker has is never begun
 * by another one, too. Nobody else can have an address of several workers, just as with one.
 *
 * A session that is idle ends without a packet, too, within a second, so that the workers that packets come to
 * find its place free.
 */
class udp_workers {
  public:
    /** @throw std::runtime_error  The system has no descriptors left. */
    explicit udp_workers(olv_sim::processor &processor, const udp_workers_options &options = {});

    /**
     * Open the sockets of an address; a port 0 is the same port for all of them. Packets wait in them until the
     * threads run.
     * @return The index of the address; those of removed ones are not used again.
     * @throw std::runtime_error  One line: the address, and why it cannot be listened on. Nothing is left open.
     */
    std::size_t add(const olv_net::socket_address &address, const packet_path &path);
    /** Close the sockets of an address. @throw std::out_of_range  No address has this index, here and below. */
    void remove(std::size_t index);
    void set_path(std::size_t index, const packet_path &path);
    [[nodiscard]] packet_path path(std::size_t index) const;
    /** The address with the port that the sockets really have. */
    [[nodiscard]] olv_net::socket_address local_address(std::size_t index) const;
    [[nodiscard]] std::uint16_t port(std::size_t index) const { return local_address(index).port(); }

    /** Start all threads; nothing when they run. @throw std::runtime_error  There are not as many to be had;
     * none runs then. */
    void start();
    /** End all threads and wait for them. */
    void stop();
    [[nodiscard]] bool running() const { return workers_.front().server.running(); }

    /** Of all sockets, removed ones included. */
    [[nodiscard]] udp_statistics statistics() const;
    /** Of all sockets of an address. */
    [[nodiscard]] udp_statistics statistics(std::size_t index) const;
    /** Of each worker's sockets. */
    [[nodiscard]] std::vector<udp_statistics> statistics_by_worker() const;
    /** The sessions of all workers at this instant, the longest idle one first; while the threads run, too. */
    [[nodiscard]] std::vector<session> sessions() const;

  private:
    struct worker {
        worker(olv_sim::processor &processor, const udp_workers_options &options,
               const std::shared_ptr<responder_limits> &limits)
            : reflecting(processor, options.reflector), server(reflecting, options.server, limits)
        {}

        reflector reflecting;
        udp_server server;
    };
    /** The index, at each worker, of the address's socket. */
    using socket_indices = std::vector<std::size_t>;

    /** Serve the sockets, one at each worker, or none of them. */
    socket_indices serve(std::vector<listening_socket> sockets, const packet_path &path);
    /** Close the sockets of the first workers, so many as there are indices. */
    void close(const socket_indices &sockets);
    [[nodiscard]] const socket_indices &sockets_of(std::size_t index) const;

    std::deque<worker> workers_;
    mutable std::mutex mutex_;              ///< Guards the addresses. Workers do not take it.
    std::vector<socket_indices> addresses_; ///< Empty where it was removed.
};

} // namespace olv_fastpath

#endif
