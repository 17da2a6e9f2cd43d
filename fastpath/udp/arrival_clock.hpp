/**
 * @file arrival_clock.hpp
 * From the system's time stamps to ticks of the processor's timer.
 */
#ifndef OLV_FASTPATH_ARRIVAL_CLOCK_HPP
#define OLV_FASTPATH_ARRIVAL_CLOCK_HPP

#include <cstdint>
#include <optional>

#include "net/clock_reading.hpp"

namespace olv_fastpath {

using olv_net::clock_reading;
using olv_net::read_together;

/** Both clocks at one instant. */
class arrival_clock {
  public:
    /** Where a packet seems to have waited longer, the wall clock was set meanwhile. */
    static constexpr std::uint64_t longest_wait_seconds = 60;

    /**
     * @param timer             The timer, read right after the wall clock: no arrival is then too early.
     * @param wall_nanoseconds  Since 1970. Nothing: the timer is not the system's, stamps tell nothing.
     */
    arrival_clock(std::uint64_t timer, std::optional<std::uint64_t> wall_nanoseconds,
                  std::uint64_t ticks_per_second)
        : timer_(timer), wall_(wall_nanoseconds), ticks_per_second_(ticks_per_second)
    {}

    [[nodiscard]] std::uint64_t timer() const { return timer_; }

    /** What the timer said when the system stamped a packet. For packets without a stamp, and for stamps that
     *  cannot be, it is the reading of the timer here; it is never later. */
    [[nodiscard]] std::uint64_t arrival(const std::optional<std::uint64_t> &stamp) const
    {
        if (!wall_ || !stamp || *stamp >= *wall_) {
            return timer_;
        }
        const std::uint64_t waited = *wall_ - *stamp;
        if (waited > longest_wait_seconds * nanoseconds_per_second) {
            return timer_;
        }
        const std::uint64_t ticks = ticks_of(waited);
        return ticks < timer_ ? timer_ - ticks : 0;
    }

  private:
    static constexpr std::uint64_t nanoseconds_per_second = 1000000000;

    [[nodiscard]] std::uint64_t ticks_of(std::uint64_t nanoseconds) const
    {
        if (ticks_per_second_ == nanoseconds_per_second) {
            return nanoseconds;
        }
        return nanoseconds / nanoseconds_per_second * ticks_per_second_ +
               nanoseconds % nanoseconds_per_second * ticks_per_second_ / nanoseconds_per_second;
    }

    std::uint64_t timer_;
    std::optional<std::uint64_t> wall_;
    std::uint64_t ticks_per_second_;
};

} // namespace olv_fastpath

#endif
