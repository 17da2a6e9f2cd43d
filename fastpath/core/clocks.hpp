/**
 * @file clocks.hpp
 * A processor's timer, and the instants in NTP format that it stands for.
 */
#ifndef OLV_FASTPATH_CLOCKS_HPP
#define OLV_FASTPATH_CLOCKS_HPP

#include <algorithm>
#include <cstdint>
#include <optional>

#include "net/twamp_wire.hpp"
#include "olv_sim/processor.hpp"

namespace olv_fastpath {

/** A timer's frequency. All results are exact, rounded down to 2^-32 seconds. */
class tick_scale {
  public:
    /** @param ticks_per_second  0 is taken as 1. */
    explicit tick_scale(std::uint64_t ticks_per_second)
        : frequency_(std::max<std::uint64_t>(ticks_per_second, 1))
    {}

    [[nodiscard]] std::uint64_t ticks_per_second() const { return frequency_; }

    /** The instant so many ticks after another one, both in units of ntp_time; seconds wrap. */
    [[nodiscard]] std::uint64_t after(std::uint64_t start, std::uint64_t ticks) const
    {
        return start + (ticks / frequency_ << 32) + fraction_of(ticks % frequency_);
    }

    [[nodiscard]] std::uint64_t nanoseconds_of(std::uint64_t ticks) const
    {
        return converted(ticks, frequency_, nanoseconds_per_second);
    }
    [[nodiscard]] std::uint64_t ticks_of(std::uint64_t nanoseconds) const
    {
        return converted(nanoseconds, nanoseconds_per_second, frequency_);
    }

  private:
    static constexpr std::uint64_t nanoseconds_per_second = 1'000'000'000;

    /** Right while a second in the one, times a second in the other, is less than 2^64. */
    static std::uint64_t converted(std::uint64_t duration, std::uint64_t second, std::uint64_t other_second)
    {
        return second == other_second
                   ? duration
                   : duration / second * other_second + duration % second * other_second / second;
    }

    /** In units of 2^-32 seconds. */
    [[nodiscard]] std::uint64_t fraction_of(std::uint64_t rest) const
    {
        return frequency_ <= UINT32_MAX ? (rest << 32) / frequency_ : divided_bit_by_bit(rest);
    }

    [[nodiscard]] std::uint64_t divided_bit_by_bit(std::uint64_t rest) const
    {
        std::uint64_t fraction = 0;
        for (int bit = 0; bit < 32; ++bit) {
            const bool is_set = rest >= frequency_ - rest;
            rest = is_set ? rest - (frequency_ - rest) : rest * 2;
            fraction = fraction << 1 | (is_set ? 1u : 0u);
        }
        return fraction;
    }

    std::uint64_t frequency_;
};

/** What the times of replies follow from: an instant, and the timer at that instant. It is the creation of a
 * responder, by its state entry, or an instant of the system's clock. */
struct reply_clock {
    std::uint64_t instant = 0; ///< In units of ntp_time.
    std::uint64_t ticks = 0;   ///< The timer then.

    /** The instant of a reading of the timer. An earlier reading stands for the instant itself. */
    [[nodiscard]] std::uint64_t instant_of(std::uint64_t reading, const tick_scale &scale) const
    {
        return scale.after(instant, reading <= ticks ? 0 : reading - ticks);
    }

    friend bool operator==(const reply_clock &, const reply_clock &) = default;
};

/** The time of replies that are made together. */
struct reply_time {
    /** About a millisecond, 2^22 * 2^-32 s, for what a state entry's time was written with: the wall clock and
     * the timer, read one after the other. Not synchronised as far as known. */
    static constexpr std::uint16_t of_state_entries = olv_net::error_estimate::make(22, 1);

    std::optional<reply_clock> system; ///< Nothing: times follow from each responder's state entry.
    std::uint16_t error_estimate = of_state_entries;
    std::int32_t tai_ahead = 0; ///< Seconds that PTP's time is ahead.
};

/** Timer 0 of a processor, which has to outlive it. */
class processor_clock {
  public:
    explicit processor_clock(const olv_sim::processor &processor)
        : processor_(&processor), scale_(processor.timer_frequency())
    {}

    [[nodiscard]] std::uint64_t now() const { return processor_->timer_now(); } ///< Ticks.
    /** Whether the timer runs by itself, as the system's clock does. */
    [[nodiscard]] bool runs() const { return processor_->timer_runs(); }
    [[nodiscard]] const tick_scale &scale() const { return scale_; }
    [[nodiscard]] std::uint64_t ticks_per_second() const { return scale_.ticks_per_second(); }

  private:
    const olv_sim::processor *processor_;
    tick_scale scale_;
};

} // namespace olv_fastpath

#endif
