/**
 * @file histogram.hpp
 * How often delays of which length occurred.
 */
#ifndef OLV_PROBE_HISTOGRAM_HPP
#define OLV_PROBE_HISTOGRAM_HPP

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace olv_probe {

/** Bars of equal width; the last one also has everything above it. */
struct histogram {
    std::int64_t start = 0; ///< Nanoseconds: lower edge of the first bar.
    std::int64_t width = 1; ///< Nanoseconds: 1, 2 or 5 and zeros.
    std::vector<std::uint64_t> bars;
    bool has_above = false; ///< The last bar reaches beyond its width.
};

/** @param samples  Nanoseconds; the upper hundredth decides nothing, so that a few outliers leave the rest
 *                  readable. @param most  Bars, at least 2. */
[[nodiscard]] histogram histogram_of(std::vector<std::int64_t> samples, std::size_t most);

/** A line of at most 79 columns for each bar; "" without samples. */
[[nodiscard]] std::string histogram_text(const histogram &figures);

} // namespace olv_probe

#endif
