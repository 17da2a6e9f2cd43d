/**
 * @file stamp_clock.hpp
 * From the system's time stamps, which are of the wall clock, to the monotonic clock.
 */
#ifndef OLV_PROBE_STAMP_CLOCK_HPP
#define OLV_PROBE_STAMP_CLOCK_HPP

#include <chrono>
#include <cstdint>
#include <optional>

#include "net/clock_reading.hpp"
#include "net/wall_clock.hpp"

namespace olv_probe {

/** Both clocks at this instant; the timer is the monotonic clock in nanoseconds. */
[[nodiscard]] inline olv_net::clock_reading read_clocks()
{
    constexpr std::uint64_t apart = 2000; // nanoseconds
    return olv_net::read_together(
        [] {
            const auto since_start = std::chrono::steady_clock::now().time_since_epoch();
            return static_cast<std::uint64_t>(std::chrono::nanoseconds(since_start).count());
        },
        [] { return olv_net::nanoseconds_of(olv_net::wall_time()); }, apart);
}

[[nodiscard]] inline std::chrono::steady_clock::time_point instant_of(const olv_net::clock_reading &reading)
{
    return std::chrono::steady_clock::time_point{std::chrono::nanoseconds(reading.timer)};
}

/**
 * The system slews both clocks alike, so that the difference between them changes only when the wall clock is
 * set. Stamps from between two readings with different differences say nothing: nobody knows which of the two
 * holds for them.
 */
class stamp_clock {
  public:
    /** Nanoseconds by which two readings of unchanged clocks may differ. */
    static constexpr std::int64_t tolerance = 100'000;
    /** Nothing waits longer in the system. */
    static constexpr std::int64_t longest_wait = 60'000'000'000;

    void read(const olv_net::clock_reading &now)
    {
        const std::int64_t before = difference_;
        difference_ = static_cast<std::int64_t>(now.wall_nanoseconds - now.timer);
        const std::int64_t moved = difference_ - before;
        was_set_ = has_reading_ && (moved > tolerance || moved < -tolerance);
        has_reading_ = true;
        now_ = now;
    }

    /** @param stamp  Nanoseconds since 1970. @return Nothing: it is not from between the last two readings, or
     *  the wall clock was set between them. Later ones of the same packet may tell. */
    [[nodiscard]] std::optional<std::chrono::steady_clock::time_point>
    instant_of_stamp(std::uint64_t stamp) const
    {
        const auto waited = static_cast<std::int64_t>(now_.wall_nanoseconds - stamp);
        if (was_set_ || waited < 0 || waited > longest_wait) {
            return std::nullopt;
        }
        return instant_of(now_) - std::chrono::nanoseconds(waited);
    }

    /** Between the last two readings. */
    [[nodiscard]] bool was_set() const { return was_set_; }

  private:
    olv_net::clock_reading now_;
    std::int64_t difference_ = 0;
    bool has_reading_ = false;
    bool was_set_ = false;
};

} // namespace olv_probe

#endif
