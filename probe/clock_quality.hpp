/**
 * @file clock_quality.hpp
 * What a reflector says of its clock.
 */
#ifndef OLV_PROBE_CLOCK_QUALITY_HPP
#define OLV_PROBE_CLOCK_QUALITY_HPP

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "net/twamp_wire.hpp"

namespace olv_probe {

/** Collected from the error estimates of replies. */
struct clock_quality {
    std::uint64_t replies = 0;
    std::uint64_t synchronized = 0; ///< With the S bit.
    /** By which the clock may be wrong, in nanoseconds. */
    double least_error = std::numeric_limits<double>::infinity();
    double greatest_error = 0;

    /** @param estimate  As in a packet, its multiplier not 0. */
    void add(std::uint16_t estimate)
    {
        ++replies;
        synchronized += (estimate & olv_net::error_estimate::synchronized) != 0 ? 1 : 0;
        const double error = nanoseconds_of(estimate);
        least_error = std::min(least_error, error);
        greatest_error = std::max(greatest_error, error);
    }

    void add(const clock_quality &other)
    {
        replies += other.replies;
        synchronized += other.synchronized;
        least_error = std::min(least_error, other.least_error);
        greatest_error = std::max(greatest_error, other.greatest_error);
    }

    /** Multiplier * 2^(scale - 32) seconds. */
    [[nodiscard]] static double nanoseconds_of(std::uint16_t estimate)
    {
        return std::ldexp((estimate & 0xFF) * 1e9, (estimate >> 8 & 0x3F) - 32);
    }
};

} // namespace olv_probe

#endif
