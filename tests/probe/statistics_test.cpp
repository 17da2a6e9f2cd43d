// Distributions, order of arrival, numbers that come again.

#include "probe/statistics.hpp"

#include <gtest/gtest.h>

namespace olv_probe {
namespace {

std::vector<std::int64_t> numbers(std::int64_t first, std::int64_t last)
{
    std::vector<std::int64_t> all;
    for (std::int64_t number = last; number >= first; --number) {
        all.push_back(number);
    }
    return all;
}

TEST(Distribution, OfNothingIsZero)
{
    const distribution figures = distribution_of({});
    EXPECT_EQ(figures.count, 0u);
    EXPECT_EQ(figures.minimum, 0);
    EXPECT_EQ(figures.maximum, 0);
    EXPECT_EQ(figures.mean, 0);
}

TEST(Distribution, OfOneSampleIsThatSample)
{
    const distribution figures = distribution_of({-7});
    EXPECT_EQ(figures.count, 1u);
    EXPECT_EQ(figures.minimum, -7);
    EXPECT_EQ(figures.maximum, -7);
    EXPECT_EQ(figures.mean, -7);
    EXPECT_EQ(figures.mean_magnitude, 7);
    EXPECT_EQ(figures.standard_deviation, 0);
    EXPECT_EQ(figures.percentiles, (std::array<std::int64_t, 5>{-7, -7, -7, -7, -7}));
}

TEST(Distribution, HasPercentilesOfNearestRank)
{
    EXPECT_EQ(distribution_of(numbers(1, 1000)).percentiles,
              (std::array<std::int64_t, 5>{500, 900, 950, 990, 999}));
    EXPECT_EQ(distribution_of(numbers(1, 10)).percentiles, (std::array<std::int64_t, 5>{5, 9, 10, 10, 10}));
    EXPECT_EQ(distribution_of(numbers(1, 2)).percentiles, (std::array<std::int64_t, 5>{1, 2, 2, 2, 2}));
    EXPECT_EQ(distribution_of(numbers(1, 1001)).percentiles,
              (std::array<std::int64_t, 5>{501, 901, 951, 991, 1000}));
}

TEST(Distribution, HasMeanAndDeviation)
{
    const distribution figures = distribution_of({2, 4, 4, 4, 5, 5, 7, 9});
    EXPECT_EQ(figures.count, 8u);
    EXPECT_EQ(figures.minimum, 2);
    EXPECT_EQ(figures.maximum, 9);
    EXPECT_DOUBLE_EQ(figures.mean, 5);
    EXPECT_DOUBLE_EQ(figures.standard_deviation, 2);
}

TEST(Distribution, KeepsSmallDifferencesOfLongDelays)
{
    const std::int64_t years = 1'000'000'000'000'000'000;
    const distribution figures = distribution_of({years - 128, years + 128});
    EXPECT_DOUBLE_EQ(figures.standard_deviation, 128);
}

TEST(Distribution, MeanMagnitudeForgetsSigns)
{
    const distribution figures = distribution_of({-3, 1, 2});
    EXPECT_DOUBLE_EQ(figures.mean, 0);
    EXPECT_DOUBLE_EQ(figures.mean_magnitude, 2);
}

std::vector<std::uint32_t> late_ones(const std::vector<std::uint32_t> &arrivals)
{
    arrival_order order;
    std::vector<std::uint32_t> late;
    for (const std::uint32_t number : arrivals) {
        if (order.is_late(number)) {
            late.push_back(number);
        }
    }
    return late;
}

TEST(ArrivalOrder, InOrderNothingIsLate)
{
    EXPECT_EQ(late_ones({0, 1, 2, 3}), (std::vector<std::uint32_t>{}));
}

TEST(ArrivalOrder, LossMakesNothingLate)
{
    EXPECT_EQ(late_ones({0, 5, 9}), (std::vector<std::uint32_t>{}));
}

TEST(ArrivalOrder, WhatIsBelowTheExpectedNumberIsLate)
{
    EXPECT_EQ(late_ones({0, 3, 1, 2, 4}), (std::vector<std::uint32_t>{1, 2}));
    EXPECT_EQ(late_ones({3, 2, 1, 0}), (std::vector<std::uint32_t>{2, 1, 0}));
}

TEST(ArrivalOrder, HoldsAcrossTheWrap)
{
    EXPECT_EQ(late_ones({4294967294, 4294967295, 0, 1}), (std::vector<std::uint32_t>{}));
    EXPECT_EQ(late_ones({4294967294, 0, 4294967295, 1}), (std::vector<std::uint32_t>{4294967295}));
}

std::vector<std::uint32_t> repeated_ones(const std::vector<std::uint32_t> &arrivals)
{
    number_memory memory;
    std::vector<std::uint32_t> repeated;
    for (const std::uint32_t number : arrivals) {
        if (memory.is_repeated(number)) {
            repeated.push_back(number);
        }
    }
    return repeated;
}

TEST(NumberMemory, TellsLateFromRepeated)
{
    EXPECT_EQ(repeated_ones({0, 1, 2, 3}), (std::vector<std::uint32_t>{}));
    EXPECT_EQ(repeated_ones({7, 9, 8, 10}), (std::vector<std::uint32_t>{}));
    EXPECT_EQ(repeated_ones({7, 9, 8, 8, 10, 7, 10}), (std::vector<std::uint32_t>{8, 7, 10}));
}

TEST(NumberMemory, HoldsAcrossTheWrap)
{
    EXPECT_EQ(repeated_ones({4294967295, 1, 0, 4294967295, 0}), (std::vector<std::uint32_t>{4294967295, 0}));
}

TEST(NumberMemory, ForgetsNumbersOfOneRoundBefore)
{
    EXPECT_EQ(repeated_ones({5, 65541, 65540}), (std::vector<std::uint32_t>{}));
    EXPECT_EQ(repeated_ones({5, 100, 65541, 6}), (std::vector<std::uint32_t>{}));
    EXPECT_EQ(repeated_ones({5, 200000, 199999}), (std::vector<std::uint32_t>{}));
}

TEST(NumberMemory, TakesWhatIsTooFarBelowForRepeated)
{
    EXPECT_EQ(repeated_ones({100000, 34464, 34465}), (std::vector<std::uint32_t>{34464}));
}

} // namespace
} // namespace olv_probe
