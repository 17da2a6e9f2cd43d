/**
 * @file system_clock.hpp
 * The system's clock: what it says beside a processor's timer, whether it was set, and how far it is believed.
 */
#ifndef OLV_FASTPATH_SYSTEM_CLOCK_HPP
#define OLV_FASTPATH_SYSTEM_CLOCK_HPP

#include <algorithm>
#include <cstdint>
#include <optional>

#include "fastpath/core/clocks.hpp"
#include "net/clock_reading.hpp"
#include "net/twamp_wire.hpp"

namespace olv_fastpath {

using olv_net::clock_reading;
using olv_net::read_together;

/** What the system tells of its clock. */
struct clock_state {
    bool synchronized = false; ///< It follows another clock.
    /** By how much it may be wrong. Systems that follow nothing say 16 seconds. */
    std::uint64_t maximum_error_microseconds = 16'000'000;
    std::int32_t tai_ahead = 0; ///< Seconds that TAI is ahead of it; 0: nobody has told.

    friend bool operator==(const clock_state &, const clock_state &) = default;
};

/** How the system's clock is read. */
struct system_clock_calls {
    std::uint64_t (*nanoseconds)() = nullptr; ///< Since 1970. NULL: the system's own call, here and below.
    clock_state (*state)() = nullptr;
};

/** The error estimate of time stamps that follow the system's clock: the smallest that covers its error, and a
 *  microsecond at least, within which it is read. */
[[nodiscard]] constexpr std::uint16_t error_estimate_of(const clock_state &state)
{
    constexpr std::uint64_t most = 1u << 31; // microseconds, more than half an hour
    const std::uint64_t error = std::clamp<std::uint64_t>(state.maximum_error_microseconds, 1, most);
    const std::uint64_t units = ((error << 32) + 999'999) / 1'000'000;
    return static_cast<std::uint16_t>(olv_net::error_estimate::covering(units) |
                                      (state.synchronized ? olv_net::error_estimate::synchronized : 0));
}

/** Seconds that a packet is believed to have waited at most. */
inline constexpr std::uint64_t longest_wait_seconds = 60;

/** The clock of replies that follow the system's: the instant of a reading that the timer had the longest wait
 * ago, or as long ago as it runs. No instant is earlier than the wall clock's, it is rounded up. */
[[nodiscard]] inline reply_clock clock_at(const clock_reading &now, const tick_scale &scale)
{
    constexpr std::uint64_t second = 1'000'000'000;
    constexpr std::uint64_t lost_later = 1; // by rounding down the fraction of the ticks since then
    const std::uint64_t back = std::min(now.timer / scale.ticks_per_second(), longest_wait_seconds + 1);
    const std::uint64_t seconds = now.wall_nanoseconds / second + olv_net::ntp_unix_offset - back;
    const std::uint64_t fraction = ((now.wall_nanoseconds % second << 32) + second - 1) / second;
    return {.instant = (seconds << 32) + fraction + lost_later,
            .ticks = now.timer - back * scale.ticks_per_second()};
}

/** Notices when the wall clock is set: it goes on by more or less than the timer then. */
class setting_watch {
  public:
    /** What two readings differ by at least. Both clocks are slowed and hastened together; less is taken for
     *  what reading them one after the other makes wrong. */
    static constexpr std::int64_t least_nanoseconds = 1'000'000;
    /** For so long, packets that came before may still wait. */
    static constexpr std::uint64_t remembered_seconds = 1;

    /** @return Nanoseconds by which the wall clock was set forward since a second ago; negative: back; 0: it
     * was not set. */
    std::int64_t note(const clock_reading &now, const tick_scale &scale)
    {
        if (last_) {
            const std::uint64_t expected =
                last_->wall_nanoseconds + scale.nanoseconds_of(now.timer - last_->timer);
            const auto ahead = static_cast<std::int64_t>(now.wall_nanoseconds - expected);
            if (ahead >= least_nanoseconds || ahead <= -least_nanoseconds) {
                set_forward_ = ahead;
                noticed_ = now.timer;
            } else if (set_forward_ != 0 &&
                       now.timer - noticed_ > remembered_seconds * scale.ticks_per_second()) {
                set_forward_ = 0;
            }
        }
        last_ = now;
        return set_forward_;
    }

  private:
    std::optional<clock_reading> last_;
    std::int64_t set_forward_ = 0;
    std::uint64_t noticed_ = 0; ///< When, by the timer.
};

} // namespace olv_fastpath

#endif
