#include "probe/statistics.hpp"

#include <algorithm>
#include <cmath>

namespace olv_probe {
namespace {

/** Largest, smallest and the sums' figures need one pass; the squares are taken around the mean, which is known
 *  then, so that long delays with small differences keep their digits. */
void fill_moments(const std::vector<std::int64_t> &samples, distribution &result)
{
    const auto count = static_cast<double>(samples.size());
    double sum = 0;
    double magnitudes = 0;
    for (const std::int64_t sample : samples) {
        sum += static_cast<double>(sample);
        magnitudes += std::abs(static_cast<double>(sample));
    }
    result.mean = sum / count;
    result.mean_magnitude = magnitudes / count;
    double squares = 0;
    for (const std::int64_t sample : samples) {
        const double difference = static_cast<double>(sample) - result.mean;
        squares += difference * difference;
    }
    result.standard_deviation = std::sqrt(squares / count);
}

/** Puts the samples of the ranks into their places, each search in what the one before left to its right. */
void fill_percentiles(std::vector<std::int64_t> &samples, distribution &result)
{
    auto begin = samples.begin();
    for (std::size_t index = 0; index < percentile_ranks.size(); ++index) {
        if (samples.size() < percentile_ranks[index].least_count) {
            return; // nor do they carry a higher one
        }
        const std::size_t rank = (samples.size() * percentile_ranks[index].thousandths + 999) / 1000;
        const auto place = samples.begin() + static_cast<std::ptrdiff_t>(rank) - 1;
        std::nth_element(begin, place, samples.end());
        result.percentiles[index] = *place;
        begin = place;
    }
}

} // namespace

distribution distribution_of(std::vector<std::int64_t> samples)
{
    distribution result;
    if (samples.empty()) {
        return result;
    }
    result.count = samples.size();
    const auto [minimum, maximum] = std::minmax_element(samples.begin(), samples.end());
    result.minimum = *minimum;
    result.maximum = *maximum;
    fill_moments(samples, result);
    fill_percentiles(samples, result);
    return result;
}

bool arrival_order::is_late(std::uint32_t number)
{
    if (expected_ && number != *expected_ && !is_above(number, *expected_)) {
        return true;
    }
    expected_ = number + 1;
    return false;
}

bool number_memory::knows(std::uint32_t number) const
{
    if (!highest_ || is_above(number, *highest_)) {
        return false;
    }
    return *highest_ - number >= depth || seen_[number % depth];
}

bool number_memory::is_repeated(std::uint32_t number)
{
    if (knows(number)) {
        return true;
    }
    if (!highest_ || is_above(number, *highest_)) {
        advance_to(number);
    } else {
        seen_[number % depth] = true;
    }
    return false;
}

void number_memory::advance_to(std::uint32_t number)
{
    if (!highest_ || number - *highest_ >= depth) {
        seen_.reset();
    } else {
        for (std::uint32_t skipped = *highest_ + 1; skipped != number; ++skipped) {
            seen_[skipped % depth] = false;
        }
    }
    seen_[number % depth] = true;
    highest_ = number;
}

} // namespace olv_probe
