// Figures of a run's intervals: when they are there, and of which packets.

#include "apps/common/json_report.hpp"
#include "apps/common/text_report.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "packets.hpp"

namespace olv_probe {
namespace {

using std::chrono::milliseconds;

/** Intervals of a second, in which a session sends four packets. */
class Intervals : public testing::Test {
  protected:
    std::optional<interval_figures> next(milliseconds now, bool sending_over = false, bool ended = false)
    {
        const measurement *all = &session_.result;
        return intervals_.next({&all, 1}, now, sending_over, ended);
    }
    /** @param now  What was sent a second before is given up. */
    void settle(milliseconds now)
    {
        session_.result.expire(session_.instant(0) + now - std::chrono::seconds(1));
    }

    scripted_session session_;
    interval_sequence intervals_{std::chrono::seconds(1), 1};
};

TEST_F(Intervals, WaitForTheirLastReplies)
{
    session_.send(5); // at 0, 250, 500, 750, 1000 ms
    session_.receive(0, {.number = 0}, 100'000);
    session_.receive(1, {.number = 1}, 300'000);
    session_.receive(1, {.number = 1}, 400'000);
    session_.receive(2, {.number = 2, .request_ttl = 0}, 200'000);
    settle(milliseconds(1100));
    EXPECT_FALSE(next(milliseconds(999)));
    EXPECT_FALSE(next(milliseconds(1100))) << "a reply may come";
    settle(milliseconds(1750));
    const auto figures = next(milliseconds(1750));
    ASSERT_TRUE(figures);
    EXPECT_EQ(figures->from, milliseconds(0));
    EXPECT_EQ(figures->to, milliseconds(1000));
    EXPECT_EQ(figures->sent, 4u);
    EXPECT_EQ(figures->valid, 2u);
    EXPECT_EQ(figures->odd(), 1u);
    EXPECT_EQ(figures->lost(), 1u);
    EXPECT_EQ(figures->duplicates, 1u);
    EXPECT_EQ(interval_text(*figures),
              "0.00 to 1.00 s: sent 4 lost 1 odd 1, min 100.0 median 200.0 p99 - max 300.0 us\n");
    EXPECT_THAT(interval_json(*figures, 1'795'387'251'446'565'999),
                testing::StartsWith("{\"interval\":{\"started\":\"2026-11-22T22:40:51.446565Z\",\"from_s\":0.0,"
                                    "\"to_s\":1.0},\"sent\":4,\"valid\":2,\"odd\":1,\"lost\":1,"
                                    "\"duplicates\":1,\"reordered\":0,\"round_trip_us\":{\"count\":3,"));
    EXPECT_FALSE(next(milliseconds(1750)));
}

TEST_F(Intervals, HaveFiguresWithoutPacketsToo)
{
    ASSERT_TRUE(next(milliseconds(1000)));
    const auto empty = next(milliseconds(2500));
    ASSERT_TRUE(empty);
    EXPECT_EQ(interval_text(*empty), "1.00 to 2.00 s: sent 0 lost 0\n");
    EXPECT_FALSE(next(milliseconds(3500), true)) << "nothing comes any more";
}

TEST_F(Intervals, EndWithTheRun)
{
    session_.send(5);
    const auto whole = next(milliseconds(1300), true, true);
    ASSERT_TRUE(whole);
    EXPECT_EQ(whole->lost(), 4u);
    const auto rest = next(milliseconds(1300), true, true);
    ASSERT_TRUE(rest);
    EXPECT_EQ(rest->from, milliseconds(1000));
    EXPECT_EQ(rest->to, milliseconds(1300));
    EXPECT_EQ(rest->sent, 1u);
    EXPECT_FALSE(next(milliseconds(1300), true, true));
}

TEST_F(Intervals, AreOfWhatIsKept)
{
    session_.result.keep(3);
    session_.send(5);
    const auto figures = next(milliseconds(1300), true, true);
    ASSERT_TRUE(figures);
    EXPECT_EQ(figures->sent, 2u); // the third and the fourth
}

} // namespace
} // namespace olv_probe
