/**
 * @file arrival_clock.hpp
 * From the system's time stamps to ticks of the processor's timer.
 */
#ifndef OLV_FASTPATH_ARRIVAL_CLOCK_HPP
#define OLV_FASTPATH_ARRIVAL_CLOCK_HPP

#include <algorithm>
#include <cstdint>
#include <optional>

#include "fastpath/core/system_clock.hpp"

namespace olv_fastpath {

/** Both clocks at one instant. */
class arrival_clock {
  public:
    /** The timer is not the system's, stamps tell nothing. */
    explicit arrival_clock(std::uint64_t timer) : timer_(timer) {}

    /** @param now          The timer was read right after the wall clock: no arrival is then too early.
     *  @param set_forward  Nanoseconds by which the wall clock was set lately; negative: back. */
    arrival_clock(const clock_reading &now, const tick_scale &scale, std::int64_t set_forward)
        : timer_(now.timer), wall_(now.wall_nanoseconds), scale_(&scale), set_forward_(set_forward)
    {}

    [[nodiscard]] std::uint64_t timer() const { return timer_; }

    /** What the timer said when the system stamped a packet. For packets without a stamp, and for stamps that
     *  cannot be, it is the reading of the timer here; it is never later. */
    [[nodiscard]] std::uint64_t arrival(const std::optional<std::uint64_t> &stamp) const
    {
        if (scale_ == nullptr || !stamp) {
            return timer_;
        }
        std::uint64_t waited = wall_ - *stamp; // a stamp that is later than now makes it very long
        if (set_forward_ != 0) {
            // One of the two is right, as the stamp is from before or after; the other one is far too long.
            waited = std::min(waited, waited - static_cast<std::uint64_t>(set_forward_));
        }
        if (waited > longest_wait_seconds * 1'000'000'000) {
            return timer_; // the stamp tells nothing
        }
        const std::uint64_t ticks = scale_->ticks_of(waited);
        return ticks < timer_ ? timer_ - ticks : 0;
    }

  private:
    std::uint64_t timer_;
    std::uint64_t wall_ = 0;
    const tick_scale *scale_ = nullptr;
    std::int64_t set_forward_ = 0;
};

} // namespace olv_fastpath

#endif
