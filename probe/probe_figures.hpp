/**
 * @file probe_figures.hpp
 * The figures of one session, or of several together.
 */
#ifndef OLV_PROBE_PROBE_FIGURES_HPP
#define OLV_PROBE_PROBE_FIGURES_HPP

#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include "probe/measurement.hpp"
#include "probe/statistics.hpp"

namespace olv_probe {

struct path_figures {
    distribution delay;
    distribution variation;     ///< From packet to packet (IPDV).
    distribution above_minimum; ///< Above the session's shortest delay (PDV).
};

struct probe_figures {
    packet_counts counts;
    std::array<path_figures, path_count> paths;
    /** Nanoseconds by which the reflector's clock is ahead, if both ways take equally long: half the difference
     *  of the two one-way delays of the packet with the shortest round trip. */
    std::optional<std::int64_t> clock_offset;

    [[nodiscard]] const path_figures &of(path which) const { return paths[static_cast<std::size_t>(which)]; }
};

/** Variations are taken inside each session, whose packets follow each other, and then put together. */
[[nodiscard]] probe_figures figures_of(std::span<const measurement *const> sessions);

/** Routers that a packet passed that arrived with this TTL: from @p initial down. */
[[nodiscard]] unsigned hops_from(unsigned initial, unsigned ttl);
/** The lowest of the usual initial TTLs, 64, 128 and 255, that a packet with this TTL can have begun with. */
[[nodiscard]] unsigned usual_initial_ttl(unsigned ttl);

} // namespace olv_probe

#endif
