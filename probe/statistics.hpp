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

/** The percentiles that are given, in thousandths of the samples. */
inline constexpr std::array<unsigned, 5> percentile_ranks{500, 900, 950, 990, 999};
enum percentile : std::size_t { percentile_50, percentile_90, percentile_95, percentile_99, percentile_99_9 };

/** Nanoseconds. Without samples, everything is 0. */
struct distribution {
    std::size_t count = 0;
    std::int64_t minimum = 0;
    std::int64_t maximum = 0;
    double mean = 0;
    double mean_magnitude = 0;     ///< Of the samples without their signs.
    double standard_deviation = 0; ///< Divided by the number of samples, not by one less.
    std::array<std::int64_t, percentile_ranks.size()> percentiles{}; ///< Nearest rank: each is a sample.
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
