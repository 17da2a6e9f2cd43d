// Distributions, order of arrival, numbers that come again.

#include "probe/statistics.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>

#include <gtest/gtest.h>

namespace olv_probe {
namespace {

/** From the last one down to 1. */
std::vector<std::int64_t> numbers_to(std::int64_t last)
{
    std::vector<std::int64_t> all(static_cast<std::size_t>(last));
    std::iota(all.rbegin(), all.rend(), 1);
    return all;
}

using percentiles = std::array<std::optional<std::int64_t>, 5>;

TEST(Distribution, HasWhatItsSamplesSay)
{
    const struct {
        std::vector<std::int64_t> samples;
        std::int64_t minimum;
        std::int64_t maximum;
        double mean;
        double mean_magnitude;
        double standard_deviation;
    } rows[] = {{{}, 0, 0, 0, 0, 0},
                {{-7}, -7, -7, -7, 7, 0},
                {{-1, 0, 1}, -1, 1, 0, 2.0 / 3, std::sqrt(2.0 / 3)},
                {{2, 4, 4, 4, 5, 5, 7, 9}, 2, 9, 5, 5, 2}};
    for (const auto &row : rows) {
        const distribution figures = distribution_of(row.samples);
        EXPECT_EQ(figures.count, row.samples.size());
        EXPECT_EQ(figures.minimum, row.minimum);
        EXPECT_EQ(figures.maximum, row.maximum);
        EXPECT_DOUBLE_EQ(figures.mean, row.mean);
        EXPECT_DOUBLE_EQ(figures.mean_magnitude, row.mean_magnitude);
        EXPECT_DOUBLE_EQ(figures.standard_deviation, row.standard_deviation);
    }
}

TEST(Distribution, HasPercentilesOfNearestRankThatItsSamplesCarry)
{
    constexpr auto none = std::nullopt;
    const std::pair<std::int64_t, percentiles> rows[] = {
        {0, {none, none, none, none, none}}, {1, {1, none, none, none, none}},
        {2, {1, none, none, none, none}},    {9, {5, none, none, none, none}},
        {10, {5, 9, none, none, none}},      {19, {10, 18, none, none, none}},
        {20, {10, 18, 19, none, none}},      {99, {50, 90, 95, none, none}},
        {100, {50, 90, 95, 99, none}},       {999, {500, 900, 950, 990, none}},
        {1000, {500, 900, 950, 990, 999}},   {1001, {501, 901, 951, 991, 1000}}};
    for (const auto &[samples, expected] : rows) {
        const distribution figures = distribution_of(numbers_to(samples));
        EXPECT_EQ(figures.percentiles, expected) << samples;
        EXPECT_EQ(figures.median(), expected[percentile_50].value_or(0)) << samples;
    }
}

TEST(Distribution, KeepsSmallDifferencesOfLongDelays)
{
    const std::int64_t years = 1'000'000'000'000'000'000;
    const distribution figures = distribution_of({years - 128, years + 128});
    EXPECT_DOUBLE_EQ(figures.standard_deviation, 128);
}

using sequence = std::vector<std::uint32_t>;

struct arrival_row {
    sequence arrivals;
    sequence found;
};

/** Expects that of the numbers those are found, as they arrive, that are what they are asked to be. */
template <typename Memory>
void expect_found(bool (Memory::*is_it)(std::uint32_t), const std::vector<arrival_row> &rows)
{
    for (const arrival_row &row : rows) {
        Memory memory;
        sequence found;
        std::copy_if(row.arrivals.begin(), row.arrivals.end(), std::back_inserter(found),
                     [&](std::uint32_t number) { return (memory.*is_it)(number); });
        EXPECT_EQ(found, row.found) << testing::PrintToString(row.arrivals);
    }
}

TEST(ArrivalOrder, WhatIsBelowTheExpectedNumberIsLate)
{
    expect_found(&arrival_order::is_late, {{{0, 1, 2, 3}, {}},
                                           {{0, 5, 9}, {}}, // loss makes nothing late
                                           {{0, 3, 1, 2, 4}, {1, 2}},
                                           {{3, 2, 1, 0}, {2, 1, 0}},
                                           {{4294967294, 4294967295, 0, 1}, {}},
                                           {{4294967294, 0, 4294967295, 1}, {4294967295}}});
}

TEST(NumberMemory, TellsLateFromRepeated)
{
    expect_found(&number_memory::is_repeated, {{{0, 1, 2, 3}, {}},
                                               {{7, 9, 8, 10}, {}},
                                               {{7, 9, 8, 8, 10, 7, 10}, {8, 7, 10}},
                                               {{4294967295, 1, 0, 4294967295, 0}, {4294967295, 0}}});
}

TEST(NumberMemory, ForgetsNumbersOfOneRoundBefore)
{
    expect_found(&number_memory::is_repeated,
                 {{{5, 65541, 65540}, {}}, {{5, 100, 65541, 6}, {}}, {{5, 200000, 199999}, {}}});
}

TEST(NumberMemory, TakesWhatIsTooFarBelowForRepeated)
{
    expect_found(&number_memory::is_repeated, {{{100000, 34464, 34465}, {34464}}});
}

} // namespace
} // namespace olv_probe
