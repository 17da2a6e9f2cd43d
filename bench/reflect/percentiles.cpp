#include "percentiles.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace reflect_bench {

std::uint32_t percentile(std::vector<std::uint32_t> &samples, double percent)
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

double median(std::vector<double> values)
{
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

} // namespace reflect_bench
