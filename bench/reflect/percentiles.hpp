/**
 * @file percentiles.hpp
 * Percentiles and medians.
 */
#ifndef OLV_BENCH_PERCENTILES_HPP
#define OLV_BENCH_PERCENTILES_HPP

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace olv_bench {

/** The smallest sample that at least @p percent of 100 do not exceed; 0 when there are none. Changes the order.
 */
template <typename Sample> [[nodiscard]] Sample percentile(std::vector<Sample> &samples, double percent)
{
    if (samples.empty()) {
        return 0;
    }
    const double rank = std::ceil(percent / 100 * static_cast<double>(samples.size()));
    const auto place = static_cast<std::ptrdiff_t>(std::clamp(rank, 1.0, static_cast<double>(samples.size())));
    const auto found = samples.begin() + (place - 1);
    std::nth_element(samples.begin(), found, samples.end());
    return *found;
}

} // namespace olv_bench

#endif
