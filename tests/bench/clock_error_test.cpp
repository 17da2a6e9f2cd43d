// How far a reflector's clock is from the wall clock, by its replies.
#include "clock_error.hpp"

#include <map>
#include <string>

#include <gtest/gtest.h>

namespace olv_bench {
namespace {

constexpr std::int64_t second = 1'000'000'000;

/** Sent within 4 microseconds from an instant on, back 20 microseconds later. T2 and T3 are after that instant.
 */
stamped_reply reply_at(std::int64_t instant, std::int64_t received, std::int64_t replied)
{
    return {.before_send = instant,
            .after_send = instant + 4000,
            .received = instant + received,
            .replied = instant + replied,
            .arrival = instant + 24000};
}

TEST(clock_error, is_the_distance_from_the_middle_of_the_sending)
{
    const run row =
        clock_figures({reply_at(0, 2500, 9000), reply_at(second, 3000, 9000), reply_at(0, 5000, 2000)});
    const std::map<std::string, double> expected{{"replies", 3},        {"offset_us", 1},  // of the second
                                                 {"uncertainty_us", 2}, {"outside_us", 1}, // of the third
                                                 {"error_us", 3},       {"reversed", 1}};
    EXPECT_EQ(row.figures, expected);
}

TEST(clock_error, is_at_least_how_far_a_time_stamp_is_outside_of_what_it_stamps)
{
    const auto figure = [](const char *name, std::int64_t received, std::int64_t replied) {
        return clock_figures({reply_at(second, received, replied)}).figures.at(name);
    };
    EXPECT_EQ(figure("error_us", -7000, 9000), 11); // 9 from the middle, and 2
    EXPECT_EQ(figure("outside_us", -7000, 9000), 7);
    EXPECT_EQ(figure("error_us", 2000, 34000), 10);
    EXPECT_EQ(figure("offset_us", -1000, 9000), -3);
    EXPECT_EQ(figure("reversed", 2000, 2000), 0);
}

TEST(clock_error, is_measured_in_intervals)
{
    using namespace std::chrono_literals;
    const std::vector<run> rows = measure_clock({.intervals = 2, .interval = 50ms, .pause = 5ms});
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_LT(rows[0].figures.at("begin_seconds"), rows[1].figures.at("begin_seconds"));
    for (const run &each : rows) {
        EXPECT_GE(each.figures.at("replies"), 1);
        EXPECT_EQ(each.figures.at("reversed"), 0);
    }
}

} // namespace
} // namespace olv_bench
