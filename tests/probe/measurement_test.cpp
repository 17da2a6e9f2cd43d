// What replies of all kinds do to the counts, and delays with their variation.

#include "probe/probe_figures.hpp"

#include <gtest/gtest.h>

#include "packets.hpp"

namespace olv_probe {
namespace {

using samples = std::vector<std::int64_t>;
using append_samples = void (measurement::*)(path, packet_range, samples &) const;

samples of(const scripted_session &session, append_samples append, path which = path::round_trip)
{
    samples taken;
    (session.result.*append)(which, {}, taken);
    return taken;
}

samples delays(const scripted_session &session, path which)
{
    return of(session, &measurement::append_delays, which);
}

TEST(Delays, AreNetOfTheReflector)
{
    scripted_session session{1};
    // T2 = T1 + 1/4 s, T3 = T1 + 1/2 s, T4 = T1 + 3/4 s
    EXPECT_EQ(session.receive(0, {.received = quarter, .sent_back = 2 * quarter}, 750'000'000), 500'000'000);
    EXPECT_EQ(delays(session, path::round_trip), samples{500'000'000});
    EXPECT_EQ(delays(session, path::forward), samples{250'000'000});
    EXPECT_EQ(delays(session, path::backward), samples{250'000'000});
}

TEST(Delays, OneWayHaveTheSignOfTheClocksDifference)
{
    for (const std::int64_t ahead : {1, -1}) { // seconds, of the reflector's clock
        scripted_session session{1};
        session.receive(0, {.received = ahead * 4 * quarter, .sent_back = ahead * 4 * quarter}, 500'000'000);
        EXPECT_EQ(delays(session, path::forward), samples{ahead * 1'000'000'000});
        EXPECT_EQ(delays(session, path::backward), samples{500'000'000 - ahead * 1'000'000'000});
        EXPECT_EQ(delays(session, path::round_trip), samples{500'000'000});
    }
}

TEST(Delays, HoldAcrossTheWrapOfSeconds)
{
    scripted_session session{3}; // the last one leaves in second 0
    EXPECT_EQ(session.receive(1, {.number = 0, .received = 2 * quarter, .sent_back = 2 * quarter}, 600'000'000),
              600'000'000);
    EXPECT_EQ(delays(session, path::forward), samples{500'000'000});
}

/** Packets 0, 1, 3, 4 come back in 100, 160, 130, 110 ms; 2 is lost. */
scripted_session with_one_lost()
{
    scripted_session session{5};
    session.receive(0, {.number = 0}, 100'000'000);
    session.receive(1, {.number = 1}, 160'000'000);
    session.receive(3, {.number = 2}, 130'000'000);
    session.receive(4, {.number = 3}, 110'000'000);
    return session;
}

TEST(Variation, IsBetweenNeighboursThatBothCameBack)
{
    const scripted_session session = with_one_lost();
    const append_samples variation = &measurement::append_delay_variation;
    EXPECT_EQ(of(session, variation), (samples{60'000'000, -20'000'000}));
    EXPECT_EQ(of(session, variation, path::forward), (samples{0, 0}));
    EXPECT_EQ(of(session, variation, path::backward), (samples{60'000'000, -20'000'000}));
}

TEST(Variation, AboveTheMinimumIsOfEachPacket)
{
    const scripted_session session = with_one_lost();
    EXPECT_EQ(of(session, &measurement::append_delay_above_minimum),
              (samples{0, 60'000'000, 30'000'000, 10'000'000}));
}

TEST(Variation, OfNothingIsNothing)
{
    scripted_session session{2};
    EXPECT_EQ(of(session, &measurement::append_delay_variation), samples{});
    EXPECT_EQ(of(session, &measurement::append_delay_above_minimum), samples{});
}

TEST(Counts, AreOfWhatComesBack)
{
    constexpr std::uint32_t last = 4294967295;
    const struct {
        const char *label;
        std::vector<std::pair<std::uint32_t, std::uint32_t>>
            replies;                         ///< Of four: sequence, reflector's number.
        std::array<std::uint64_t, 5> counts; ///< Valid, odd, duplicates, lost, late.
    } rows[] = {{"in order", {{0, 0}, {1, 1}, {2, 2}, {3, 3}}, {4, 0, 0, 0, 0}},
                {"loss", {{0, 0}, {3, 1}}, {2, 0, 0, 2, 0}},
                {"late ones are valid", {{0, 0}, {3, 3}, {1, 1}, {2, 2}}, {4, 0, 0, 0, 2}},
                {"duplicates are neither", {{0, 0}, {0, 0}, {0, 1}}, {1, 0, 2, 3, 0}},
                {"a reflector's number twice", {{0, 7}, {1, 8}, {2, 7}}, {2, 1, 0, 1, 0}},
                {"a reflector's numbers go round", {{0, last}, {1, 0}, {2, 1}}, {3, 0, 0, 1, 0}}};
    for (const auto &row : rows) {
        scripted_session session{4};
        for (const auto &[sequence, number] : row.replies) {
            session.receive(sequence, {.number = number}, 1000);
        }
        const packet_counts &counts = session.result.counts();
        EXPECT_EQ(counts.sent, 4u);
        EXPECT_EQ(counts.received, row.replies.size()) << row.label;
        const std::array<std::uint64_t, 5> found{counts.valid, counts.odd, counts.duplicates, counts.lost(),
                                                 counts.reordered};
        EXPECT_EQ(found, row.counts) << row.label;
        EXPECT_EQ(counts.of(reply_fault::reflector_sequence), row.counts[1]);
    }
}

TEST(Counts, AreKeptOfEachPacketToo)
{
    scripted_session session{3};
    session.receive(0, {.number = 0}, 1000);
    EXPECT_EQ(session.receive(0, {.number = 0}, 2000), std::nullopt);
    session.receive(2, {.number = 1}, 1000);
    session.receive(1, {.number = 2}, 1000);
    const auto &records = session.result.records();
    EXPECT_EQ(records[0].duplicates, 1u);
    EXPECT_EQ(records[0].round_trip, 1000) << "of the first reply";
    EXPECT_FALSE(records[2].late);
    EXPECT_TRUE(records[1].late);
}

TEST(Counts, DuplicatesOfOnePacketStopAt65535)
{
    scripted_session session{1};
    for (int reply = 0; reply < 65538; ++reply) {
        session.receive(0, {}, 1000);
    }
    EXPECT_EQ(session.result.counts().duplicates, 65537u);
    EXPECT_EQ(session.result.records()[0].duplicates, 65535u);
}

TEST(Counts, TtlsAreThoseOfReplies)
{
    scripted_session session{4, {.ttl = 64, .judged = judging::strict}};
    EXPECT_TRUE(session.result.counts().request_ttl.is_empty());
    session.receive(0, {.number = 0, .request_ttl = 60, .reply_ttl = 250}, 1000);
    session.receive(1, {.number = 1, .request_ttl = 62, .reply_ttl = 0}, 1000);
    session.receive(2, {.number = 2, .request_ttl = 64, .reply_ttl = 251}, 1000);
    session.receive(3, {.number = 2, .request_ttl = 1, .reply_ttl = 1}, 1000);
    const packet_counts &counts = session.result.counts();
    EXPECT_EQ(counts.request_ttl.minimum, 60);
    EXPECT_EQ(counts.request_ttl.maximum, 64);
    EXPECT_EQ(counts.reply_ttl.minimum, 250);
    EXPECT_EQ(counts.reply_ttl.maximum, 251);
    EXPECT_EQ(counts.other_ttl, 2u);
}

TEST(Window, LosesWhatIsAnsweredOrExpired)
{
    scripted_session session{3};
    EXPECT_EQ(session.result.on_their_way(), 3u);
    session.receive(1, {}, 1000);
    EXPECT_EQ(session.result.on_their_way(), 2u);
    session.result.expire(session.instant(0));
    EXPECT_EQ(session.result.on_their_way(), 1u);
    EXPECT_EQ(session.result.oldest_departure(), session.instant(2));
    session.receive(0, {.number = 1}, 300'000'000); // late, and still counted
    EXPECT_EQ(session.result.on_their_way(), 1u);
    EXPECT_EQ(session.result.counts().valid, 2u);
    session.result.expire(session.instant(2));
    EXPECT_EQ(session.result.on_their_way(), 0u);
    EXPECT_EQ(session.result.counts().lost(), 1u);
}

TEST(Figures, OfSeveralSessionsAreTheirSum)
{
    const scripted_session one = with_one_lost();
    scripted_session other{2};
    other.receive(0, {.number = 0, .request_ttl = 200, .reply_ttl = 64}, 300'000'000);
    other.receive(1, {.number = 1}, 310'000'000);
    const std::array<const measurement *, 2> both{&one.result, &other.result};
    const probe_figures figures = figures_of(both);
    EXPECT_EQ(figures.counts.sent, 7u);
    EXPECT_EQ(figures.counts.valid, 6u);
    EXPECT_EQ(figures.counts.other_ttl, 1u);
    EXPECT_EQ(figures.counts.request_ttl.minimum, 200);
    EXPECT_EQ(figures.counts.reply_ttl.minimum, 64);
    const path_figures &round_trip = figures.round_trip;
    EXPECT_EQ(round_trip.delay.count, 6u);
    EXPECT_EQ(round_trip.delay.minimum, 100'000'000);
    EXPECT_EQ(round_trip.delay.maximum, 310'000'000);
    EXPECT_EQ(round_trip.variation.count, 3u);
    EXPECT_EQ(round_trip.variation.maximum, 60'000'000);
    EXPECT_EQ(round_trip.above_minimum.count, 6u);
    EXPECT_EQ(round_trip.above_minimum.maximum, 60'000'000); // each above its own session's shortest
}

TEST(Figures, EstimateTheClocksDifferenceFromTheQuickestPacket)
{
    scripted_session session{3};
    EXPECT_EQ(figures_of(std::array<const measurement *, 1>{&session.result}).whole_run()->clock_offset,
              std::nullopt);
    session.receive(0, {.number = 0, .received = 4 * quarter, .sent_back = 4 * quarter}, 500'000'000);
    session.receive(1, {.number = 1, .received = 5 * quarter, .sent_back = 5 * quarter}, 700'000'000);
    // (1000 ms - (500 ms - 1000 ms)) / 2
    EXPECT_EQ(figures_of(std::array<const measurement *, 1>{&session.result}).whole_run()->clock_offset,
              750'000'000);
}

TEST(Hops, AreFromTheInitialTtlDown)
{
    EXPECT_EQ(hops_from(255, 255), 0u);
    EXPECT_EQ(hops_from(255, 250), 5u);
    EXPECT_EQ(hops_from(64, 255), 0u);
    for (const auto &[ttl, initial] :
         {std::pair{1u, 64u}, {64u, 64u}, {65u, 128u}, {128u, 128u}, {129u, 255u}}) {
        EXPECT_EQ(usual_initial_ttl(ttl), initial) << ttl;
    }
}

} // namespace
} // namespace olv_probe
