#include <ctime>

#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

using time_sources = sim_test;

TEST_F(time_sources, timer_runs_or_stands_where_it_is_set)
{
    EXPECT_EQ(processor.timer_frequency(), 1000000000u);
    EXPECT_TRUE(processor.timer_runs());
    std::uint64_t first = 0;
    std::uint64_t second = 0;
    ASSERT_EQ(hyx_timer_get_timestamp(rte, 0, &first), 0u);
    for (const deadline patience; second <= first && !patience.over();) {
        ASSERT_EQ(hyx_timer_get_timestamp(rte, 0, &second), 0u);
    }
    EXPECT_GT(second, first);

    processor.set_timer(0x123456789ABCDEF0);
    EXPECT_FALSE(processor.timer_runs());
    EXPECT_EQ(hyx_timer_get_timestamp(rte, 0, &first), 0u);
    EXPECT_EQ(hyx_timer_get_timestamp(rte, 1, &first), 0x105u); // there is no other
    EXPECT_EQ(first, 0x123456789ABCDEF0u);
    processor.set_timer(UINT64_MAX);
    EXPECT_EQ(processor.timer_now(), UINT64_MAX);
    processor.run_timer();
    EXPECT_TRUE(processor.timer_runs());
    EXPECT_NE(processor.timer_now(), UINT64_MAX);
}

TEST_F(time_sources, wall_clock_runs_or_stands_where_it_is_set)
{
    hyx_time now{};
    set_wall_clock(hyx_time{1700000000, 999999});
    hyx_gettime(&now);
    EXPECT_EQ(now.seconds, 1700000000u);
    EXPECT_EQ(now.microseconds, 999999u);
    set_wall_clock(std::nullopt);
    const auto before = static_cast<unsigned long>(std::time(nullptr));
    hyx_gettime(&now);
    EXPECT_GE(now.seconds + 1, before); // time() may be of a coarser clock
    EXPECT_LE(now.seconds, before + 60);
    EXPECT_LT(now.microseconds, 1000000u);
}

} // namespace
