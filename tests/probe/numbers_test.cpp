// What the reflector's sequence numbers say: loss, duplicates and reordering by direction, and new beginnings.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "packets.hpp"
#include "probe/probe_figures.hpp"

namespace olv_probe {
namespace {

/** Sequence number of the request, number of the reply. */
using pairs = std::vector<std::pair<std::uint32_t, std::uint32_t>>;
/** Forward, backward, not known. */
using ways = std::array<std::uint64_t, 3>;

probe_figures figures_after(int sent, const pairs &replies)
{
    scripted_session session{sent};
    for (const auto &[sequence, number] : replies) {
        session.receive(sequence, {.number = number}, 1000);
    }
    const measurement *result = &session.result;
    return figures_of({&result, 1});
}

ways of(const way_counts &counts)
{
    return {counts.forward, counts.backward, counts.unknown};
}

TEST(Directions, AreThoseOfTheNumbers)
{
    constexpr std::uint32_t top = 4294967295;
    using enum numbering;
    const struct {
        const char *label;
        int sent;
        pairs replies;
        numbering how;
        ways lost;
        ways duplicates;
        ways reordered;
    } rows[] = {
        {"nothing", 2, {}, unknown, {0, 0, 2}, {}, {}},
        {"all is well", 3, {{0, 0}, {1, 1}, {2, 2}}, by_request, {}, {}, {}},
        {"one lost forward", 4, {{0, 0}, {2, 1}, {3, 2}}, by_session, {1, 0, 0}, {}, {}},
        {"one lost on each way", 5, {{0, 0}, {2, 1}, {4, 3}}, by_session, {1, 1, 0}, {}, {}},
        {"the first lost forward", 3, {{1, 0}, {2, 1}}, by_session, {1, 0, 0}, {}, {}},
        {"the last ones", 6, {{0, 0}, {2, 1}, {3, 2}}, by_session, {1, 0, 2}, {}, {}},
        {"numbers of the requests", 4, {{0, 0}, {2, 2}, {3, 3}}, by_request, {0, 0, 1}, {}, {}},
        {"requests' numbers, overtaken", 3, {{1, 1}, {0, 0}, {2, 2}}, by_request, {}, {}, {0, 0, 1}},
        {"requests' numbers, doubled", 2, {{0, 0}, {0, 0}, {1, 1}}, by_request, {}, {0, 0, 1}, {}},
        {"doubled forward", 3, {{0, 0}, {0, 1}, {1, 2}, {2, 3}}, by_session, {}, {1, 0, 0}, {}},
        {"doubled backward", 4, {{1, 0}, {1, 0}, {2, 1}, {3, 2}}, by_session, {1, 0, 0}, {0, 1, 0}, {}},
        {"doubled on both", 3, {{0, 0}, {0, 1}, {0, 1}, {1, 2}, {2, 3}}, by_session, {}, {1, 1, 0}, {}},
        {"doubled forward, one lost",
         4,
         {{0, 0}, {0, 1}, {1, 3}, {3, 5}},
         by_session,
         {0, 1, 0},
         {1, 0, 0},
         {}},
        {"overtaken forward", 4, {{1, 0}, {0, 1}, {2, 2}, {3, 3}}, by_session, {}, {}, {1, 0, 0}},
        {"overtaken backward", 4, {{2, 1}, {1, 0}, {3, 2}}, by_session, {1, 0, 0}, {}, {0, 1, 0}},
        {"overtaken on both", 3, {{0, 1}, {1, 0}, {2, 2}}, by_session, {}, {}, {1, 1, 0}},
        {"two late forward", 4, {{2, 0}, {0, 1}, {1, 2}, {3, 3}}, by_session, {}, {}, {2, 0, 0}},
        {"numbers go round", 4, {{0, top}, {1, 0}, {3, 1}}, by_session, {1, 0, 0}, {}, {}},
        {"began at another number", 5, {{1, 100}, {2, 101}, {4, 102}}, by_session, {1, 0, 1}, {}, {}},
        {"the same, first two swapped", 3, {{1, 101}, {0, 100}, {2, 102}}, by_session, {}, {}, {0, 1, 0}},
        {"perhaps begun anew, at the end", 4, {{0, 0}, {1, 1}, {2, 2}, {3, 0}}, by_session, {}, {}, {}},
        {"for others, too", 4, {{0, 0}, {1, 2}, {3, 6}}, by_reflector, {0, 0, 1}, {}, {}},
        {"for others, overtaken", 3, {{1, 2}, {0, 5}, {2, 9}}, by_reflector, {}, {}, {1, 0, 0}},
        {"always 0", 4, {{0, 0}, {1, 0}, {3, 0}}, constant, {0, 0, 1}, {}, {}},
        {"downwards", 6, {{0, 900}, {1, 800}, {2, 700}, {3, 600}, {4, 500}}, irregular, {0, 0, 1}, {}, {}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.label);
        const probe_figures figures = figures_after(row.sent, row.replies);
        EXPECT_STREQ(name_of(figures.numbers.value()), name_of(row.how));
        EXPECT_EQ(of(figures.lost), row.lost);
        EXPECT_EQ(of(figures.duplicates), row.duplicates);
        EXPECT_EQ(of(figures.reordered), row.reordered);
    }
}

/** Sequence numbers before which the reflector began anew, and of replies with a number used before. */
struct found {
    std::vector<std::uint64_t> beginnings;
    std::vector<std::uint32_t> repeated;

    friend bool operator==(const found &, const found &) = default;
};

found found_in(const measurement &session)
{
    found all;
    for (const session_event &event : session.events()) {
        EXPECT_EQ(event.what, session_event::kind::reflector_restart);
        EXPECT_EQ(event.at.count(), static_cast<std::int64_t>(event.sequence) * quarter_nanoseconds);
        all.beginnings.push_back(event.sequence);
    }
    for (std::uint32_t sequence = 0; sequence < session.sent(); ++sequence) {
        if (session.records()[sequence].faults().has(reply_fault::reflector_sequence)) {
            all.repeated.push_back(sequence);
        }
    }
    return all;
}

TEST(Beginning, IsToldFromWhatLooksLikeIt)
{
    constexpr std::uint32_t top = 4294967295;
    const struct {
        const char *label;
        pairs replies;
        found expected;
    } rows[] = {
        {"none", {{0, 0}, {1, 1}, {2, 2}, {3, 3}}, {}},
        {"a new one", {{0, 0}, {1, 1}, {2, 2}, {3, 0}, {4, 1}, {5, 2}}, {{3}, {}}},
        {"a new one after loss", {{0, 0}, {1, 1}, {6, 0}, {7, 1}}, {{6}, {}}},
        {"the first of it lost", {{0, 0}, {1, 1}, {2, 2}, {4, 1}, {5, 2}}, {{4}, {}}},
        {"at once", {{0, 0}, {1, 0}, {2, 1}, {3, 2}}, {{1}, {}}},
        {"two", {{0, 0}, {1, 1}, {2, 0}, {3, 1}, {4, 0}, {5, 1}}, {{2, 4}, {}}},
        {"of a high number", {{0, 5000}, {1, 5001}, {2, 0}, {3, 1}}, {{2}, {}}},
        {"of a reflector with others", {{0, 5000}, {1, 5009}, {2, 30}, {3, 37}}, {{2}, {}}},
        {"a late one of before", {{0, 0}, {2, 2}, {3, 0}, {4, 1}, {1, 1}, {5, 2}}, {{3}, {}}},
        {"numbers go round", {{0, top - 1}, {1, top}, {2, 0}, {3, 1}}, {}},
        {"the first overtaken on both ways", {{0, 1}, {1, 0}, {2, 2}, {3, 3}}, {}},
        {"a late reply", {{0, 0}, {1, 1}, {3, 3}, {2, 2}, {4, 4}}, {}},
        {"one number again", {{0, 0}, {1, 1}, {2, 2}, {3, 0}, {4, 4}, {5, 5}}, {{}, {3}}},
        {"the number before again", {{0, 0}, {1, 1}, {2, 1}, {3, 3}}, {{}, {2}}},
        {"always 0", {{0, 0}, {1, 0}, {2, 0}, {3, 0}}, {{}, {1, 2, 3}}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.label);
        for (const judging judged : {judging::lenient, judging::strict}) {
            scripted_session session{8, {.judged = judged}};
            for (const auto &[sequence, number] : row.replies) {
                session.receive(sequence, {.number = number}, 1000);
            }
            const found all = found_in(session.result);
            EXPECT_EQ(all.beginnings, row.expected.beginnings);
            EXPECT_EQ(all.repeated, row.expected.repeated);
            const packet_counts &counts = session.result.counts();
            EXPECT_EQ(counts.restarts, row.expected.beginnings.size());
            EXPECT_EQ(counts.valid, row.replies.size() - row.expected.repeated.size());
            EXPECT_EQ(judged == judging::strict ? counts.invalid() : counts.odd, row.expected.repeated.size());
            EXPECT_EQ(counts.measured, judged == judging::strict ? counts.valid : row.replies.size());
        }
    }
}

TEST(Beginning, KeepsTheLossesOfBeforeAndLeavesThoseMeanwhileOpen)
{
    const struct {
        const char *label;
        int sent;
        pairs replies;
        ways lost;
    } rows[] = {{"one on each way before", 8, {{0, 0}, {2, 1}, {4, 3}, {5, 0}, {6, 1}, {7, 2}}, {1, 1, 0}},
                {"one on each way behind", 8, {{0, 0}, {1, 1}, {2, 0}, {3, 1}, {5, 2}, {7, 4}}, {1, 1, 0}},
                {"three meanwhile", 8, {{0, 0}, {1, 1}, {5, 0}, {6, 1}, {7, 2}}, {0, 0, 3}},
                {"one answered meanwhile", 8, {{0, 0}, {1, 1}, {5, 1}, {6, 2}, {7, 3}}, {0, 1, 2}},
                {"a late one of before", 6, {{0, 0}, {2, 2}, {3, 0}, {4, 1}, {1, 1}, {5, 2}}, {0, 0, 0}}};
    for (const auto &row : rows) {
        EXPECT_EQ(of(figures_after(row.sent, row.replies).lost), row.lost) << row.label;
    }
}

TEST(Beginning, MayComeAfterEveryFewPackets)
{
    scripted_session session{1000};
    for (std::uint32_t sequence = 0; sequence < 1000; ++sequence) {
        session.receive(sequence, {.number = sequence % 4}, 1000);
    }
    EXPECT_EQ(session.result.counts().restarts, 249u);
    EXPECT_EQ(session.result.counts().valid, 1000u);
    EXPECT_EQ(session.result.events().size(), 32u);
    const measurement *result = &session.result;
    EXPECT_EQ(of(figures_of({&result, 1}).reordered), (ways{0, 0, 0}));
}

/** Both counters go round, a request and a reply are lost; then the reflector forgets the session. */
TEST(Numbers, GoOnBehindTheLastOfThirtyTwoBits)
{
    constexpr std::uint64_t round = std::uint64_t{1} << 32;
    reflector_numbers numbers;
    const auto reply = [&numbers](std::uint64_t sequence, std::uint64_t number) {
        return numbers.reply({.sequence = sequence, .number = static_cast<std::uint32_t>(number)},
                             sequence + 1);
    };
    constexpr std::uint64_t first = round - 100'000;
    for (std::uint64_t sequence = first; sequence < round + 100'000; ++sequence) {
        if (sequence != first + 10 && sequence != first + 20) {
            EXPECT_FALSE(reply(sequence, sequence + (sequence > first + 10 ? 4 : 5)).is_repeated);
        }
    }
    EXPECT_STREQ(name_of(numbers.how()), "session");
    EXPECT_EQ(of(numbers.losses(2)), (ways{1, 1, 0}));
    (void)reply(round + 100'000, 0);
    EXPECT_EQ(reply(round + 100'001, 1).began_anew, round + 100'000);
}

TEST(Directions, OfSeveralSessionsAreTheirSum)
{
    scripted_session one{4};
    scripted_session other{2};
    for (const auto &[sequence, number] : pairs{{0, 0}, {2, 1}, {3, 2}}) {
        one.receive(sequence, {.number = number}, 1000);
    }
    other.receive(0, {.number = 0}, 1000);
    const std::array<const measurement *, 2> both{&one.result, &other.result};
    const probe_figures figures = figures_of(both);
    EXPECT_EQ(of(figures.lost), (ways{1, 0, 1}));
    EXPECT_EQ(figures.numbers, std::nullopt);
}

} // namespace
} // namespace olv_probe
