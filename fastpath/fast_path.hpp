/**
 * @file fast_path.hpp
 * What answers the packets of a processor, whichever way they come. The only header of the fast path that its
 * users include.
 *
 *     olv_fastpath::fast_path fast_path{processor, {.packets_per_second = 1000}};
 *     fast_path.add(olv_net::parse_socket_address("127.0.0.1:0"), {.responder_id = 1, .bind_key = 5});
 *     fast_path.start();
 */
#ifndef OLV_FASTPATH_FAST_PATH_HPP
#define OLV_FASTPATH_FAST_PATH_HPP

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "fastpath/core/drop_reasons.hpp"
#include "fastpath/core/options.hpp"
#include "fastpath/core/packet.hpp"
#include "fastpath/core/statistics.hpp"
#include "net/socket_address.hpp"

namespace olv_sim {
class processor;
}

namespace olv_fastpath {

class udp_workers;

/**
 * Listeners, each an address whose packets take a path to a responder and an output.
 *
 * All calls may come from any thread, start() and stop() from one at a time. Listeners can be added, removed
 * and moved to another path while packets are answered. The processor has to outlive the fast path.
 */
class fast_path {
  public:
    /** @throw std::runtime_error  The system has no descriptors left. */
    explicit fast_path(olv_sim::processor &processor, const fast_path_options &options = {});
    /** Stops and closes. */
    ~fast_path();
    fast_path(const fast_path &) = delete;
    fast_path &operator=(const fast_path &) = delete;

    /**
     * Listen at an address; at port 0, at one that the system chooses. Packets wait there until start().
     * @return Which listener it is; numbers of removed ones are not used again.
     * @throw std::runtime_error  One line: the address, and why it cannot be listened on. Nothing is left open.
     */
    std::size_t add(const olv_net::socket_address &address, const packet_path &path);
    /** @throw std::out_of_range  There is no such listener, here and below. */
    void remove(std::size_t listener);
    void set_path(std::size_t listener, const packet_path &path);
    [[nodiscard]] packet_path path(std::size_t listener) const;
    /** The address with the port that it really has. */
    [[nodiscard]] olv_net::socket_address local_address(std::size_t listener) const;

    /** Answer packets; nothing when they are answered. @throw std::runtime_error  There are no threads to be
     * had. */
    void start();
    /** Answer no more. Packets that come then wait; nothing when none are answered. */
    void stop();
    [[nodiscard]] bool running() const;

    /** Of all listeners, removed ones included. */
    [[nodiscard]] listener_statistics statistics() const;
    [[nodiscard]] listener_statistics statistics(std::size_t listener) const;
    /** The sessions at this instant, the longest idle one first. */
    [[nodiscard]] std::vector<session_summary> sessions() const;
    /** End the sessions of a responder, or all. @return How many. */
    std::uint32_t clear_sessions(std::optional<std::uint32_t> responder_id = {});
    /** Sessions that ended so that others could begin, since the fast path was made. */
    [[nodiscard]] std::uint64_t sessions_that_gave_way() const;

  private:
    std::unique_ptr<udp_workers> udp_; ///< By way of sockets.
};

} // namespace olv_fastpath

#endif
