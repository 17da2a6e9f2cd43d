#include "apps/twamp-probe/histogram.hpp"

#include <algorithm>
#include <cinttypes>
#include <numeric>

#include "apps/common/formatted.hpp"

namespace olv_probe {
namespace {

using olv_apps::append;

constexpr std::size_t longest_bar = 38;

/** The smallest of 1, 2, 5, 10, 20, 50, … of which @p bars cover @p range. */
std::int64_t round_width(std::int64_t range, std::int64_t bars)
{
    std::int64_t width = 1;
    for (int step = 0; range / width >= bars; ++step) {
        width = step % 3 == 1 ? width / 2 * 5 : width * 2;
    }
    return width;
}

std::int64_t floor_to(std::int64_t value, std::int64_t width)
{
    const std::int64_t rest = value % width;
    return value - (rest < 0 ? rest + width : rest);
}

} // namespace

histogram histogram_of(std::vector<std::int64_t> samples, std::size_t most)
{
    histogram result;
    if (samples.empty()) {
        return result;
    }
    const auto upper = samples.begin() + static_cast<std::ptrdiff_t>((samples.size() * 99 + 99) / 100 - 1);
    std::nth_element(samples.begin(), upper, samples.end());
    const std::int64_t high = *upper;
    const auto [minimum, maximum] = std::minmax_element(samples.begin(), samples.end());
    // One bar less: rounding the start down can add one.
    result.width = round_width(high - *minimum, static_cast<std::int64_t>(most) - 1);
    result.start = floor_to(*minimum, result.width);
    const std::int64_t count = (high - result.start) / result.width + 1;
    result.bars.resize(static_cast<std::size_t>(count));
    result.has_above = *maximum >= result.start + count * result.width;
    for (const std::int64_t sample : samples) {
        ++result.bars[static_cast<std::size_t>(std::min((sample - result.start) / result.width, count - 1))];
    }
    return result;
}

std::string histogram_text(const histogram &figures)
{
    std::string text;
    // Some bar has a sample in it; the 1 is for a histogram of nothing but zeros.
    const std::uint64_t highest = std::accumulate(figures.bars.begin(), figures.bars.end(), std::uint64_t{1},
                                                  [](auto left, auto right) { return std::max(left, right); });
    for (std::size_t index = 0; index < figures.bars.size(); ++index) {
        const std::uint64_t count = figures.bars[index];
        const std::int64_t from = figures.start + figures.width * static_cast<std::int64_t>(index);
        const std::string bar(static_cast<std::size_t>((count * longest_bar + highest - 1) / highest), '#');
        append(text, "%12.3f ", static_cast<double>(from) / 1000);
        if (figures.has_above && index + 1 == figures.bars.size()) {
            text += "and above      ";
        } else {
            append(text, "to %12.3f", static_cast<double>(from + figures.width) / 1000);
        }
        append(text, " |%s%s%" PRIu64 "\n", bar.c_str(), bar.empty() ? "" : " ", count);
    }
    return text;
}

} // namespace olv_probe
