/**
 * @file tick_scale.hpp
 * From ticks of a timer to instants in NTP format.
 */
#ifndef OLV_FASTPATH_TICK_SCALE_HPP
#define OLV_FASTPATH_TICK_SCALE_HPP

#include <cstdint>

namespace olv_fastpath {

/** A timer's frequency. All results are exact, rounded down to 2^-32 seconds. */
class tick_scale {
  public:
    /** @param ticks_per_second  Not 0. */
    explicit tick_scale(std::uint64_t ticks_per_second) : frequency_(ticks_per_second) {}

    [[nodiscard]] std::uint64_t ticks_per_second() const { return frequency_; }

    /** The instant so many ticks after another one, both in units of ntp_time; seconds wrap. */
    [[nodiscard]] std::uint64_t after(std::uint64_t start, std::uint64_t ticks) const
    {
        return start + (ticks / frequency_ << 32) + fraction_of(ticks % frequency_);
    }

  private:
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

} // namespace olv_fastpath

#endif
