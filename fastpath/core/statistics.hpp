/**
 * @file statistics.hpp
 * What a fast path tells of its listeners and sessions, besides the module's counters.
 */
#ifndef OLV_FASTPATH_STATISTICS_HPP
#define OLV_FASTPATH_STATISTICS_HPP

#include <cstdint>

#include "fastpath/core/drop_reasons.hpp"
#include "net/ip_address.hpp"

namespace olv_fastpath {

/**
 * Counters of a listener, or of several, since it was opened. A datagram that was taken from its socket counts
 * once: as received, or as dropped for one of the listener's reasons. Those that count as dropped for
 * socket_full the system dropped before.
 */
struct listener_statistics {
    std::uint64_t received_packets = 0; ///< Taken by the reflector, which counts them from there.
    drop_counts dropped_packets;
    std::uint64_t sent_replies = 0;   ///< That the system took.
    std::uint64_t failed_replies = 0; ///< That it did not take; the reflector has counted them as transmitted.

    listener_statistics &operator+=(const listener_statistics &other)
    {
        received_packets += other.received_packets;
        dropped_packets += other.dropped_packets;
        sent_replies += other.sent_replies;
        failed_replies += other.failed_replies;
        return *this;
    }
};

/** A session as it is listed. */
struct session_summary {
    std::uint32_t responder_id = 0;
    olv_net::ip_endpoint sender;
    std::uint32_t replies = 0;
    double idle_seconds = 0; ///< Since the sender's last packet.
};

/** The order in which sessions are listed. */
[[nodiscard]] inline bool is_idle_longer(const session_summary &one, const session_summary &other)
{
    return one.idle_seconds > other.idle_seconds;
}

} // namespace olv_fastpath

#endif
