#include <ctime>

#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

using time_sources = sim_test;

TEST_F(time_sources, timer_runs)
{
    std::uint64_t first = 0;
    std::uint64_t second = 0;
    EXPECT_EQ(processor.timer_frequency(), 1000000000u);
    ASSERT_EQ(hyx_timer_get_timestamp(rte, 0, &first), 0u);
    do {
        ASSERT_EQ(hyx_timer_get_timestamp(rte, 0, &second), 0u);
    } while (second == first);
    EXPECT_GT(second, first);
}

TEST_F(time_sources, timer_stands_where_it_is_set)
{
    std::uint64_t ticks = 0;
    EXPECT_TRUE(processor.timer_runs());
    processor.set_timer(0x123456789ABCDEF0);
    EXPECT_FALSE(processor.timer_runs());
    EXPECT_EQ(hyx_timer_get_timestamp(rte, 0, &ticks), 0u);
    EXPECT_EQ(ticks, 0x123456789ABCDEF0u);
    EXPECT_EQ(processor.timer_now(), 0x123456789ABCDEF0u);
    processor.set_timer(UINT64_MAX);
    EXPECT_EQ(processor.timer_now(), UINT64_MAX);
    processor.run_timer();
    EXPECT_TRUE(processor.timer_runs());
    EXPECT_NE(processor.timer_now(), UINT64_MAX);
}

TEST_F(time_sources, other_timers_do_not_exist)
{
    std::uint64_t ticks = 7;
    EXPECT_EQ(hyx_timer_get_timestamp(rte, 1, &ticks), 0x105u);
    EXPECT_EQ(ticks, 7u);
}

TEST_F(time_sources, wall_clock)
{
    hyx_time now{};
    const std::time_t before = std::time(nullptr);
    hyx_gettime(&now);
    EXPECT_GE(now.seconds + 1, static_cast<unsigned long>(before));
    EXPECT_LT(now.microseconds, 1000000u);
}

TEST_F(time_sources, wall_clock_that_is_set)
{
    hyx_time now{};
    set_wall_clock(hyx_time{1700000000, 999999});
    hyx_gettime(&now);
    EXPECT_EQ(now.seconds, 1700000000u);
    EXPECT_EQ(now.microseconds, 999999u);
    set_wall_clock(std::nullopt);
    hyx_gettime(&now);
    EXPECT_NE(now.seconds, 1700000000u);
}

} // namespace
