/**
 * @file percentiles.hpp
 * Figures of many samples.
 */
#ifndef REFLECT_BENCH_PERCENTILES_HPP
#define REFLECT_BENCH_PERCENTILES_HPP

#include <cstdint>
#include <vector>

namespace reflect_bench {

/** The smallest sample that at least @p percent of 100 do not exceed; 0 when there are none. Changes the order.
 */
[[nodiscard]] std::uint32_t percentile(std::vector<std::uint32_t> &samples, double percent);
/** The one in the middle, or halfway between the two that are; 0 when there are none. */
[[nodiscard]] double median(std::vector<double> values);

} // namespace reflect_bench

#endif
