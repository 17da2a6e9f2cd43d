/**
 * @file packet_stamps.hpp
 * When packets left and came, as the system or the network interface says.
 */
#ifndef OLV_PROBE_PACKET_STAMPS_HPP
#define OLV_PROBE_PACKET_STAMPS_HPP

#include <cstdint>
#include <memory>

#include <sys/socket.h>

#include "probe/hardware_clock.hpp"
#include "probe/measurement.hpp"
#include "probe/session_options.hpp"
#include "probe/stamp_clock.hpp"

namespace olv_probe {

/** How many packets have a stamp of the chosen source. */
struct stamp_counts {
    std::uint64_t requests = 0;
    std::uint64_t replies = 0;
};

/** Of one socket. Without stamps, everything is as the program sees it. */
class packet_stamps {
  public:
    /** Ask the system for stamps, before anything is sent.
     *  @throw std::runtime_error  One line: there are none of the kind that was asked for. */
    void enable(int socket, const session_options &options);
    /** Which there are: what was asked for, or the best that works. */
    [[nodiscard]] timestamp_source source() const { return source_; }
    [[nodiscard]] const stamp_counts &counts() const { return counts_; }

    /** The first packet leaves from now on. */
    void begin() { clock_.read(read_clocks()); }
    /** The system did not take a packet. */
    void note_refused() { ++refused_; }
    /** When a datagram that has just been read came. */
    [[nodiscard]] steady_clock::time_point arrival_of(msghdr &message);
    /** Correct the departures of what has left since the last call. */
    void take_departures(int socket, measurement &sent);

  private:
    void read_at(const olv_net::clock_reading &now);
    [[nodiscard]] std::optional<steady_clock::time_point> instant_of_message(msghdr &message) const;
    void correct(std::uint32_t key, steady_clock::time_point left, measurement &sent);

    timestamp_source source_ = timestamp_source::user;
    stamp_clock clock_;
    std::unique_ptr<hardware_clock> hardware_;
    stamp_counts counts_;
    std::uint32_t refused_ = 0;      ///< Packets that were not sent.
    std::uint32_t skipped_keys_ = 0; ///< Numbers that the system used up for them.
};

} // namespace olv_probe

#endif
