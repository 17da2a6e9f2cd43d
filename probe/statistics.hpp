/**
 * @file statistics.hpp
 * What a row of samples says: distribution, variation between neighbours, order of arrival.
 */
#ifndef OLV_PROBE_STATISTICS_HPP
#define OLV_PROBE_STATISTICS_HPP

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace olv_probe {

struct percentile_rank {
    unsigned thousandths;    ///< Of the samples that are no larger.
    std::size_t least_count; ///< Of so many samples one is above it. The median is given of any.
};
inline constexpr std::array<percentile_rank, 5> percentile_ranks{
    {{500, 1}, {900, 10}, {950, 20}, {990, 100}, {999, 1000}}};
enum percentile : std::size_t { percentile_50, percentile_90, percentile_95, percentile_99, percentile_99_9 };

/** Nanoseconds. Without samples, everything is 0. */
struct distribution {
    std::size_t count = 0;
    std::int64_t minimum = 0;
    std::int64_t maximum = 0;
    double mean = 0;
    double mean_magnitude = 0;     ///< Of the samples without their signs.
    double standard_deviation = 0; ///< Divided by the number of samples, not by one less.
    /** Nearest rank: each is a sample. Only those that the samples carry. */
    std::array<std::optional<std::int64_t>, percentile_ranks.size()> percentiles{};

    [[nodiscard]] std::int64_t median() const { return percentiles[percentile_50].value_or(0); }
};

[[nodiscard]] distribution distribution_of(std::vector<std::int64_t> samples);

/** Sequence numbers wrap at 2^32: above is less than half the circle ahead. */
[[nodiscard]] constexpr bool is_above(std::uint32_t number, std::uint32_t other)
{
    return number - other - 1 < std::uint32_t{1} << 31;
}

/** Lateness as in RFC 4737: below the number that is expected next. */
class arrival_order {
  public:
    [[nodiscard]] bool is_late(std::uint32_t number);

  private:
    std::optional<std::uint32_t> expected_;
};

/** Tells numbers that come again from numbers that come late, as far as it remembers. */
class number_memory {
  public:
    /** How far below the highest number a late one may be. */
    static constexpr std::uint32_t depth = 65536;

    /** @return Whether the number was there before, or is too far below the highest to know. */
    [[nodiscard]] bool is_repeated(std::uint32_t number);
    /** The same, and does not remember it. */
    [[nodiscard]] bool knows(std::uint32_t number) const;

  private:
    void advance_to(std::uint32_t number);

    std::bitset<depth> seen_; ///< By number modulo depth.
    std::optional<std::uint32_t> highest_;
};

} // namespace olv_probe

#endif
