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

TEST(Histogram, HasRoundEdgesBelowAndAboveZero)
{
    const struct {
        std::vector<std::int64_t> samples;
        std::size_t most;
        std::int64_t start;
        std::int64_t width;
        std::vector<std::uint64_t> bars;
    } rows[] = {{{12'345}, 20, 12'345, 1, {1}},
                {{1'700, 2'100, 2'900, 11'300}, 10, 0, 2'000, {1, 2, 0, 0, 0, 1}},
                {{-1'700, -100, 900}, 4, -2'000, 1'000, {1, 1, 1}}};
    for (const auto &row : rows) {
        const histogram figures = histogram_of(row.samples, row.most);
        EXPECT_EQ(figures.start, row.start);
        EXPECT_EQ(figures.width, row.width);
        EXPECT_EQ(figures.bars, row.bars);
        EXPECT_FALSE(figures.has_above) << row.start;
    }
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
