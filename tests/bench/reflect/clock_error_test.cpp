// How far a reflector's clock is from the wall clock, by replies.
#include "clock_error.hpp"

#include <gtest/gtest.h>

namespace {

using namespace reflect_bench;

constexpr std::int64_t second = 1'000'000'000;

/** Sent within 4 microseconds from an instant on, back 20 microseconds later. */
stamped_reply reply_at(std::int64_t instant, std::int64_t received, std::int64_t replied)
{
    return {.before_send = instant,
            .after_send = instant + 4000,
            .received = received,
            .replied = replied,
            .arrival = instant + 24000};
}

TEST(clock_error, is_the_distance_from_the_middle_of_the_sending)
{
    clock_error error{60};
    error.add(reply_at(0, 5000, 9000));
    error.add(reply_at(second, second + 3000, second + 9000));
    error.add(reply_at(2 * second, 2 * second + 2500, 2 * second + 9000));
    const std::vector<clock_row> rows = error.rows();
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0].replies, 3u);
    EXPECT_DOUBLE_EQ(rows[0].offset, 1.0);
    EXPECT_DOUBLE_EQ(rows[0].uncertainty, 2.0);
    EXPECT_DOUBLE_EQ(rows[0].bound(), 3.0);
    EXPECT_DOUBLE_EQ(rows[0].outside, 1.0); // the first one came 1 microsecond after its sending
    EXPECT_DOUBLE_EQ(worst_error(rows), 3.0);
}

TEST(clock_error, counts_time_stamps_that_lie_before_or_after_what_they_stamp)
{
    clock_error error{60};
    error.add(reply_at(0, -7000, 9000));
    EXPECT_DOUBLE_EQ(error.rows()[0].outside, 7.0);
    error.add(reply_at(second, second + 2000, second + 34000));
    EXPECT_DOUBLE_EQ(error.rows()[0].outside, 10.0);
    EXPECT_DOUBLE_EQ(worst_error(error.rows()), 10.0);
    EXPECT_EQ(error.reversed(), 0u);
}

TEST(clock_error, counts_replies_that_leave_before_they_come)
{
    clock_error error{60};
    error.add(reply_at(0, 2000, 1999));
    error.add(reply_at(second, second + 2000, second + 2000));
    EXPECT_EQ(error.reversed(), 1u);
}

TEST(clock_error, drifts_by_the_slope_of_its_rows)
{
    clock_error error{10};
    for (int row = 0; row < 4; ++row) {
        const std::int64_t instant = row * 10 * second;
        error.add(reply_at(instant, instant + 2000 + row * 100, instant + 9000));
    }
    ASSERT_EQ(error.rows().size(), 4u);
    EXPECT_DOUBLE_EQ(error.rows()[3].begin_seconds, 30.0);
    EXPECT_NEAR(drift_per_hour(error.rows()), 36.0, 1e-9); // 0.1 microseconds in 10 seconds
    EXPECT_DOUBLE_EQ(drift_per_hour({}), 0.0);
}

} // namespace
