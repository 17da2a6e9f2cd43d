/**
 * @file interval_figures.hpp
 * A run's figures interval by interval, while it goes on.
 */
#ifndef OLV_PROBE_INTERVAL_FIGURES_HPP
#define OLV_PROBE_INTERVAL_FIGURES_HPP

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "probe/measurement.hpp"

namespace olv_probe {

/** Of the packets that were sent in an interval, of all sessions. */
struct interval_figures {
    std::chrono::nanoseconds from{0}; ///< Since the run began.
    std::chrono::nanoseconds to{0};
    std::uint64_t sent = 0;
    std::uint64_t answered = 0;
    std::uint64_t valid = 0;
    std::uint64_t duplicates = 0;
    std::uint64_t reordered = 0;
    std::array<distribution, path_count> delays; ///< Of what was measured, by path.

    [[nodiscard]] std::uint64_t lost() const { return sent - answered; }
    /** Also where what is odd is to be invalid. */
    [[nodiscard]] std::uint64_t odd() const { return answered - valid; }
    [[nodiscard]] const distribution &of(path which) const { return delays[static_cast<std::size_t>(which)]; }
};

/** The intervals of a run, one after the other. */
class interval_sequence {
  public:
    interval_sequence(std::chrono::nanoseconds length, std::size_t sessions)
        : length_(length), first_(sessions), behind_(sessions)
    {}

    /** When the interval is over whose figures come next. */
    [[nodiscard]] std::chrono::nanoseconds end() const { return from_ + length_; }

    /**
     * The next interval's figures, once it is over and each of its packets was answered or given up.
     * @param now           Since the run began.
     * @param sending_over  No packet is sent any more: intervals without packets that follow have no figures.
     * @param ended         The run is over: what was not answered is lost, and the last interval is shorter.
     */
    [[nodiscard]] std::optional<interval_figures> next(std::span<const measurement *const> sessions,
                                                       std::chrono::nanoseconds now, bool sending_over,
                                                       bool ended);

  private:
    void find_packets(std::span<const measurement *const> sessions);
    [[nodiscard]] bool has_packets_left(std::span<const measurement *const> sessions) const;
    [[nodiscard]] bool is_settled(std::span<const measurement *const> sessions) const;

    std::chrono::nanoseconds length_;
    std::chrono::nanoseconds from_{0};
    std::vector<std::uint64_t> first_;  ///< Of each session: the interval's first packet,
    std::vector<std::uint64_t> behind_; ///< and the one behind its last, as far as they are known.
};

} // namespace olv_probe

#endif
