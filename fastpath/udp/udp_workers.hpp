/**
 * @file udp_workers.hpp
 * Several servers that answer as one, so that a flood of packets may keep several cores busy.
 *
 *     olv_fastpath::udp_workers workers{processor, {.workers = 4}};
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
#include <optional>
#include <vector>

#include "fastpath/udp/udp_server.hpp"

namespace olv_fastpath {

/**
 * Workers, each a udp_server with a reflector, a thread, and a socket at each address. What is said of a server
 * holds of one worker alone.
 *
 * Of several, the system hands all packets from a sender's address and port to an address to the same worker,
 * whose reflector has the session. Packets of the sender to another address may be another worker's, and are
 * another session then. Packets to a group, or to all hosts, are the first worker's.
 *
 * All workers count in the same words of state memory, once for each batch, and take from the same limit of
 * packets. They do not wait for each other. All counters and maxima are exact for all together.
 *
 * A session never moves to another worker: while an address is added, the system drops its packets until all
 * sockets are open; while it is removed, it drops those that come and those that wait. An idle session ends
 * within a second although no packet comes, as another worker may want its place. Where a new session finds all
 * places taken and none of its own worker's sessions may give way, the others are asked: the first that has one
 * that may ends it. The new sender has lost a packet by then, or a few where several begin at once; which
 * session gives way is the oldest of that worker, not of all.
 */
class udp_workers {
  public:
    /** @param options  Each worker has an equal part of the session capacity, rounded up. As the system decides
     *                  which worker a sender belongs to, one may have no room left while another still has.
     *  @throw std::runtime_error  The system has no descriptors left. */
    explicit udp_workers(olv_sim::processor &processor, const fast_path_options &options = {});

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

    /** Start all threads; nothing when they run. @throw std::runtime_error  There are not as many to be had;
     * none runs then. */
    void start();
    /** End all threads and wait for them. */
    void stop();
    [[nodiscard]] bool running() const { return workers_.front().server.running(); }

    /** Of all sockets, removed ones included. */
    [[nodiscard]] listener_statistics statistics() const;
    /** Of all sockets of an address. */
    [[nodiscard]] listener_statistics statistics(std::size_t index) const;
    /** Of each worker's sockets. */
    [[nodiscard]] std::vector<listener_statistics> statistics_by_worker() const;
    /** The sessions of all workers at this instant, the longest idle one first; while the threads run, too. */
    [[nodiscard]] std::vector<session_summary> sessions() const;
    /** End the sessions of a responder, or all. @return How many. */
    std::uint32_t clear_sessions(std::optional<std::uint32_t> responder_id);
    /** Sessions that ended so that others could begin. */
    [[nodiscard]] std::uint64_t sessions_that_gave_way() const;

  private:
    struct worker {
        worker(olv_sim::processor &processor, const fast_path_options &options,
               const std::shared_ptr<responder_limits> &limits, const std::shared_ptr<reflector_peers> &peers)
            : reflecting(processor, options, peers), server(reflecting, options, limits)
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
    /** Wake all threads, one of which asks the others for a place. */
    void ring() const;

    processor_clock clock_;
    std::deque<worker> workers_;
    mutable std::mutex mutex_;              ///< Guards the addresses. Workers do not take it.
    std::vector<socket_indices> addresses_; ///< Empty where it was removed.
};

} // namespace olv_fastpath

#endif
