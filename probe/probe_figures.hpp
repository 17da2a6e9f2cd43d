/**
 * @file probe_figures.hpp
 * The figures of one session, or of several together.
 */
#ifndef OLV_PROBE_PROBE_FIGURES_HPP
#define OLV_PROBE_PROBE_FIGURES_HPP

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "probe/measurement.hpp"
#include "probe/statistics.hpp"

namespace olv_probe {

struct path_figures {
    distribution delay;
    distribution variation;     ///< From packet to packet (IPDV).
    distribution above_minimum; ///< Above the session's shortest delay (PDV).
};

/** Between two settings of a clock, or before the first, or after the last. */
struct period_figures {
    std::uint64_t begin = 0;        ///< The first session's first request in it.
    std::chrono::nanoseconds at{0}; ///< When that was sent.
    path_figures forward;
    path_figures backward;
    /** Nanoseconds by which the reflector's clock is ahead, if both ways take equally long: half the difference
     *  of the two one-way delays of the packet with the shortest round trip. */
    std::optional<std::int64_t> clock_offset;
};

struct probe_figures {
    packet_counts counts;
    path_figures round_trip;
    /** One, and more when clocks were set; none, when they were not set equally often in all sessions. */
    std::vector<period_figures> periods;
    std::vector<session_event> events; ///< Of a single session.
    /** How the reflector numbers its replies, if in all sessions alike. */
    std::optional<numbering> numbers;
    way_counts lost;
    way_counts duplicates;
    way_counts reordered; ///< A packet can be overtaken on both ways.
    /** Of the reflector's time stamps, if in all sessions alike. */
    std::optional<time_scale> scale;

    /** The one-way delays of the whole run, if no clock was set. */
    [[nodiscard]] const period_figures *whole_run() const
    {
        return periods.size() == 1 ? &periods[0] : nullptr;
    }
};

/** Variations are taken inside each session, whose packets follow each other, and then put together. */
[[nodiscard]] probe_figures figures_of(std::span<const measurement *const> sessions);

/** Routers that a packet passed that arrived with this TTL: from @p initial down. */
[[nodiscard]] unsigned hops_from(unsigned initial, unsigned ttl);
/** The lowest of the usual initial TTLs, 64, 128 and 255, that a packet with this TTL can have begun with. */
[[nodiscard]] unsigned usual_initial_ttl(unsigned ttl);

} // namespace olv_probe

#endif
