// Clocks that are set during a run: noticed, and told from slow adjustment, coarse clocks and single mistakes.

#include <gtest/gtest.h>

#include "packets.hpp"
#include "probe/probe_figures.hpp"

namespace olv_probe {
namespace {

constexpr std::int64_t millisecond = second / 1000;

/** When and by how much, in milliseconds. */
struct setting {
    session_event::kind what;
    std::uint64_t sequence;
    std::int64_t by;

    friend bool operator==(const setting &, const setting &) = default;
};

std::vector<setting> settings_of(const measurement &session)
{
    std::vector<setting> all;
    for (const session_event &event : session.events()) {
        const auto by = std::chrono::round<std::chrono::milliseconds>(event.by);
        all.push_back({event.what, event.sequence, by.count()});
    }
    return all;
}

using kind = session_event::kind;

/** For each packet, by how many milliseconds the sender's and the reflector's clock are ahead of the true time.
 * Each packet takes 2 ms on both ways. */
using clocks = std::vector<std::pair<std::int64_t, std::int64_t>>;

scripted_session session_with(const clocks &ahead)
{
    scripted_session session;
    std::int64_t own = 0;
    for (std::uint32_t sequence = 0; sequence < ahead.size(); ++sequence) {
        const auto &[sender, reflector] = ahead[sequence];
        session.set_clock((sender - own) * millisecond);
        own = sender;
        session.send();
        const std::int64_t times = (reflector - sender + 2) * millisecond;
        session.receive(sequence, {.number = sequence, .received = times, .sent_back = times}, 4'000'000);
    }
    return session;
}

TEST(Clock, ThatIsSetIsNoticed)
{
    const struct {
        const char *label;
        clocks ahead;
        std::vector<setting> expected;
    } rows[] = {
        {"none", {{0, 0}, {0, 0}, {0, 0}, {0, 0}}, {}},
        {"apart all the time", {{0, 9000}, {0, 9000}, {0, 9000}}, {}},
        {"the sender's, forward",
         {{0, 0}, {0, 0}, {3000, 0}, {3000, 0}, {3000, 0}},
         {{kind::sender_clock_set, 2, 3000}}},
        {"the sender's, back",
         {{0, 0}, {0, 0}, {-500, 0}, {-500, 0}, {-500, 0}},
         {{kind::sender_clock_set, 2, -500}}},
        {"the reflector's, forward",
         {{0, 0}, {0, 0}, {0, 700}, {0, 700}},
         {{kind::reflector_clock_set, 2, 700}}},
        {"the reflector's, back",
         {{0, 0}, {0, -700}, {0, -700}, {0, -700}},
         {{kind::reflector_clock_set, 1, -700}}},
        {"both at once",
         {{0, 0}, {500, 200}, {500, 200}, {500, 200}},
         {{kind::sender_clock_set, 1, 500}, {kind::reflector_clock_set, 1, 200}}},
        {"one after the other",
         {{0, 0}, {0, 300}, {0, 300}, {300, 300}, {300, 300}},
         {{kind::reflector_clock_set, 1, 300}, {kind::sender_clock_set, 3, 300}}},
        {"there and back",
         {{0, 0}, {0, 400}, {0, 400}, {0, 0}, {0, 0}},
         {{kind::reflector_clock_set, 1, 400}, {kind::reflector_clock_set, 3, -400}}},
        {"adjusted slowly", {{0, 0}, {0, 20}, {20, 40}, {40, 40}, {60, 20}, {80, 0}}, {}},
        {"less than the round trip", {{0, 0}, {0, 3}, {0, 0}, {0, 3}}, {}},
    };
    for (const auto &row : rows) {
        const scripted_session session = session_with(row.ahead);
        EXPECT_EQ(settings_of(session.result), row.expected) << row.label;
        EXPECT_EQ(session.result.counts().valid, row.ahead.size()) << row.label;
    }
}

TEST(Clock, OfOneReplyThatIsElsewhereHasNoOneWayDelays)
{
    const scripted_session session = session_with({{0, 0}, {0, 5000}, {0, 0}, {0, 0}, {0, -5000}});
    EXPECT_EQ(settings_of(session.result), std::vector<setting>{});
    const packet_counts &counts = session.result.counts();
    EXPECT_EQ(counts.of(reply_fault::clock_jump), 1u) << "of the last one nobody knows";
    EXPECT_EQ(counts.odd, 1u);
    EXPECT_EQ(counts.measured, 5u);
    std::vector<std::int64_t> forward;
    session.result.append_delays(path::forward, {}, forward);
    EXPECT_EQ(forward.size(), 3u);
}

TEST(Clock, ThatIsCoarseIsNotSet)
{
    scripted_session session{200};
    // Ticks of 10 ms, said to be off by 16 ms.
    for (std::uint32_t sequence = 0; sequence < 200; ++sequence) {
        const std::int64_t tick = sequence * 7 % 10 * millisecond;
        std::vector<std::uint8_t> reply =
            session.reply(sequence, {.number = sequence, .received = -tick, .sent_back = -tick});
        olv_net::store_16(&reply[12], 26 << 8 | 1);
        session.receive_octets(sequence, reply, 200'000);
    }
    EXPECT_TRUE(session.result.events().empty());
    EXPECT_EQ(session.result.counts().valid, 200u);
}

std::int64_t median(const distribution &delay)
{
    return (delay.median() + 500'000) / 1'000'000;
}

TEST(Periods, KeepTheOneWayDelaysOfBeforeAndAfterApart)
{
    const scripted_session session =
        session_with({{0, 0}, {0, 0}, {0, 1000}, {0, 1000}, {0, 1000}, {-300, 1000}, {-300, 1000}});
    const measurement *result = &session.result;
    const probe_figures figures = figures_of({&result, 1});
    EXPECT_EQ(figures.whole_run(), nullptr);
    EXPECT_EQ(figures.round_trip.delay.count, 7u);
    ASSERT_EQ(figures.periods.size(), 3u);
    const struct {
        std::uint32_t begin;
        std::size_t count;
        std::int64_t forward; ///< Milliseconds.
        std::int64_t ahead;
    } rows[] = {{0, 2, 2, 0}, {2, 3, 1002, 1000}, {5, 2, 1302, 1300}};
    for (std::size_t index = 0; index < 3; ++index) {
        const period_figures &period = figures.periods[index];
        EXPECT_EQ(period.begin, rows[index].begin);
        EXPECT_EQ(period.at.count(), rows[index].begin * quarter_nanoseconds);
        EXPECT_EQ(period.forward.delay.count, rows[index].count);
        EXPECT_EQ(period.forward.variation.count, rows[index].count - 1);
        EXPECT_EQ(median(period.forward.delay), rows[index].forward);
        EXPECT_EQ((*period.clock_offset + 500'000) / 1'000'000, rows[index].ahead);
    }
}

TEST(Periods, OfSeveralSessionsGoTogetherWhereTheyAreEqual)
{
    const scripted_session one = session_with({{0, 0}, {0, 1000}, {0, 1000}});
    const scripted_session other = session_with({{0, 0}, {0, 0}, {0, 1000}, {0, 1000}});
    const scripted_session ended = session_with({{0, 0}});
    const std::array<const measurement *, 2> both{&one.result, &other.result};
    const probe_figures figures = figures_of(both);
    ASSERT_EQ(figures.periods.size(), 2u);
    EXPECT_EQ(figures.periods[0].forward.delay.count, 3u);
    EXPECT_EQ(figures.periods[1].forward.delay.count, 4u);
    const std::array<const measurement *, 2> unequal{&one.result, &ended.result};
    EXPECT_TRUE(figures_of(unequal).periods.empty());
}

} // namespace
} // namespace olv_probe
