// When packets leave: planned, stamped by the system, also while the wall clock is set, and kept.

#include "probe/stamp_clock.hpp"

#include <gtest/gtest.h>

#include "packets.hpp"
#include "probe/packet_times.hpp"

namespace olv_probe {
namespace {

constexpr std::uint64_t second = 1'000'000'000;

TEST(StampClock, TellsWhenAStampWasTakenUnlessTheWallClockWasSet)
{
    struct reading {
        std::uint64_t timer;
        std::uint64_t wall;
    };
    const struct {
        const char *label;
        reading before;
        reading now;
        std::uint64_t stamp;
        std::optional<std::uint64_t> instant; ///< Of the timer.
    } rows[] = {
        {"a microsecond ago",
         {1 * second, 101 * second},
         {2 * second, 102 * second},
         101'999'999'000,
         1'999'999'000},
        {"just now", {1 * second, 101 * second}, {2 * second, 102 * second}, 102 * second, 2 * second},
        {"in the future",
         {1 * second, 101 * second},
         {2 * second, 102 * second},
         102 * second + 1,
         std::nullopt},
        {"a minute ago", {1 * second, 101 * second}, {90 * second, 190 * second}, 130 * second, 30 * second},
        {"longer ago", {1 * second, 101 * second}, {90 * second, 190 * second}, 130 * second - 1, std::nullopt},
        {"read a little apart",
         {1 * second, 101 * second},
         {2 * second, 102'000'100'000},
         102 * second,
         1'999'900'000},
        {"set forward", {1 * second, 101 * second}, {2 * second, 102'000'100'001}, 102 * second, std::nullopt},
        {"set back", {1 * second, 101 * second}, {2 * second, 101'999'899'999}, 101 * second, std::nullopt},
    };
    for (const auto &row : rows) {
        stamp_clock clock;
        clock.read({.timer = row.before.timer, .wall_nanoseconds = row.before.wall});
        clock.read({.timer = row.now.timer, .wall_nanoseconds = row.now.wall});
        const auto instant = clock.instant_of_stamp(row.stamp);
        ASSERT_EQ(instant.has_value(), row.instant.has_value()) << row.label;
        if (instant) {
            EXPECT_EQ(instant->time_since_epoch().count(), *row.instant) << row.label;
        }
        EXPECT_EQ(clock.was_set(), std::string_view(row.label).starts_with("set ")) << row.label;
    }
}

TEST(StampClock, HoldsAgainAfterTheWallClockWasSet)
{
    stamp_clock clock;
    clock.read({.timer = 1 * second, .wall_nanoseconds = 101 * second});
    clock.read({.timer = 2 * second, .wall_nanoseconds = 5 * second});
    clock.read({.timer = 3 * second, .wall_nanoseconds = 6 * second});
    EXPECT_EQ(clock.instant_of_stamp(5 * second)->time_since_epoch().count(), 2'000'000'000);
}

TEST(Departure, IsCorrectedBeforeAndAfterTheReply)
{
    for (const bool before : {true, false}) {
        scripted_session session{1};
        const auto correct = [&] {
            EXPECT_EQ(session.result.departure_of(0), session.instant(0));
            session.result.correct_departure(0, std::chrono::microseconds(300));
        };
        if (before) {
            correct();
        }
        session.receive(0, {.received = quarter, .sent_back = quarter}, 250'900'000);
        if (!before) {
            correct();
        }
        const packet_record &record = session.result.records()[0];
        EXPECT_EQ(record.sent_at, 300'000) << before;
        EXPECT_EQ(record.delay(path::forward), 249'700'000) << before;
        EXPECT_EQ(record.delay(path::backward), 900'000) << before;
        EXPECT_EQ(record.delay(path::round_trip), 250'600'000) << before;
    }
}

TEST(Kept, AreTheLastRequests)
{
    scripted_session session;
    session.result.keep(2);
    session.send(4);
    EXPECT_EQ(session.result.forgotten(), 2u);
    EXPECT_EQ(session.result.departure_of(1), std::nullopt);
    EXPECT_EQ(session.result.departure_of(4), std::nullopt);
    EXPECT_EQ(session.receive(1, {.number = 0}, 1000), std::nullopt);
    EXPECT_EQ(session.receive(2, {.number = 1}, 1000), 1000);
    std::vector<std::uint8_t> unsent = session.reply(3, {.number = 2});
    unsent[27] = 4; // the sender's sequence number
    EXPECT_EQ(session.receive_octets(3, unsent, 1000), std::nullopt);
    const packet_counts &counts = session.result.counts();
    EXPECT_EQ(counts.sent, 4u);
    EXPECT_EQ(counts.forgotten, 1u);
    EXPECT_EQ(counts.invalid(), 1u);
    EXPECT_EQ(counts.of(reply_fault::sender_sequence), 1u);
    EXPECT_EQ(session.result.on_their_way(), 1u) << "what is forgotten is waited for no longer";
    session.result.expire(session.instant(3));
    EXPECT_EQ(session.result.settled(), 4u);
}

TEST(PacketTimes, AreTheIntervalOrExponentialAroundIt)
{
    packet_times periodic{packet_schedule::periodic, std::chrono::milliseconds(20), 1};
    EXPECT_EQ(periodic.next(), std::chrono::milliseconds(20));
    EXPECT_EQ(periodic.next(), std::chrono::milliseconds(20));
    packet_times poisson{packet_schedule::poisson, std::chrono::milliseconds(20), 1};
    constexpr int draws = 100'000;
    double sum = 0;
    int below_half = 0;
    int above_double = 0;
    for (int draw = 0; draw < draws; ++draw) {
        const double milliseconds = std::chrono::duration<double, std::milli>(poisson.next()).count();
        sum += milliseconds;
        below_half += milliseconds < 10 ? 1 : 0;
        above_double += milliseconds > 40 ? 1 : 0;
    }
    EXPECT_NEAR(sum / draws, 20, 0.3);
    EXPECT_NEAR(below_half, 39'347, 600);   // 1 - e^-0.5
    EXPECT_NEAR(above_double, 13'534, 500); // e^-2
}

TEST(ClockQuality, IsWhatErrorEstimatesSay)
{
    clock_quality clock;
    clock.add(std::uint16_t{0x8a01}); // S, 1 * 2^10 * 2^-32 s
    clock.add(std::uint16_t{0x1601}); // 1 * 2^22 * 2^-32 s
    clock_quality all;
    all.add(clock);
    EXPECT_EQ(all.replies, 2u);
    EXPECT_EQ(all.synchronized, 1u);
    EXPECT_DOUBLE_EQ(all.least_error, 238.418579101562500);
    EXPECT_DOUBLE_EQ(all.greatest_error, 976562.5);
}

} // namespace
} // namespace olv_probe
