// Edges and bars of histograms.

#include "apps/twamp-probe/histogram.hpp"

#include <gtest/gtest.h>

namespace olv_probe {
namespace {

TEST(Histogram, OfNothingHasNoBars)
{
    EXPECT_TRUE(histogram_of({}, 20).bars.empty());
    EXPECT_EQ(histogram_text(histogram_of({}, 20)), "");
}

TEST(Histogram, OfOneValueHasOneBar)
{
    const histogram figures = histogram_of({12'345}, 20);
    EXPECT_EQ(figures.start, 12'345);
    EXPECT_EQ(figures.width, 1);
    EXPECT_EQ(figures.bars, (std::vector<std::uint64_t>{1}));
    EXPECT_FALSE(figures.has_above);
}

TEST(Histogram, HasRoundEdges)
{
    const histogram figures = histogram_of({1'700, 2'100, 2'900, 11'300}, 10);
    EXPECT_EQ(figures.width, 2'000);
    EXPECT_EQ(figures.start, 0);
    EXPECT_EQ(figures.bars, (std::vector<std::uint64_t>{1, 2, 0, 0, 0, 1}));
}

TEST(Histogram, TakesNegativeDelays)
{
    const histogram figures = histogram_of({-1'700, -100, 900}, 4);
    EXPECT_EQ(figures.width, 1'000);
    EXPECT_EQ(figures.start, -2'000);
    EXPECT_EQ(figures.bars, (std::vector<std::uint64_t>{1, 1, 1}));
}

TEST(Histogram, PutsOutliersIntoTheLastBar)
{
    std::vector<std::int64_t> samples(200, 10);
    samples.push_back(15);
    samples.push_back(15);
    samples.push_back(1'000'000);
    const histogram figures = histogram_of(samples, 20);
    EXPECT_EQ(figures.width, 1);
    EXPECT_TRUE(figures.has_above);
    EXPECT_EQ(figures.bars, (std::vector<std::uint64_t>{200, 0, 0, 0, 0, 3}));
}

TEST(Histogram, IsDrawnInBarsOfItsHighest)
{
    const histogram figures{.start = 1'000, .width = 500, .bars = {38, 0, 19, 1}, .has_above = true};
    EXPECT_EQ(histogram_text(figures),
              "       1.000 to        1.500 |###################################### 38\n"
              "       1.500 to        2.000 |0\n"
              "       2.000 to        2.500 |################### 19\n"
              "       2.500 and above       |# 1\n");
}

} // namespace
} // namespace olv_probe
