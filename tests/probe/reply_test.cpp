// Replies of all kinds, lawful and not: which request they answer, what is odd about them, what is measured.

#include <functional>
#include <numeric>

#include <gtest/gtest.h>

#include "packets.hpp"

namespace olv_probe {
namespace {

using octets = std::vector<std::uint8_t>;
using olv_net::ptp_time;
using olv_net::store;
using olv_net::store_16;
using olv_net::store_32;
using olv_net::store_ptp;

constexpr std::int64_t day = 86400 * second;
/** Of the request to which the reply comes: T1 is 2036-02-07 06:28:15.5, T2 a quarter later, T3 a half. */
constexpr std::int64_t away = 750'000'000;
constexpr std::int64_t round_trip = 500'000'000;

std::uint32_t bits_of(std::initializer_list<reply_fault> faults)
{
    fault_set set;
    for (const reply_fault fault : faults) {
        set.add(fault);
    }
    return set.bits();
}

/** A session's first reply with a change; T2 and T3 stand for themselves when it leaves them alone. */
struct changed_reply {
    const char *label;
    std::function<void(octets &)> change;
    std::initializer_list<reply_fault> faults;
    bool measured = true;
};

void shift(octets &reply, std::size_t place, std::int64_t units)
{
    store(&reply[place], olv_net::load<std::uint64_t>(&reply[place]) + static_cast<std::uint64_t>(units));
}

void expect_judged(const script &told, const std::vector<changed_reply> &rows)
{
    for (const changed_reply &row : rows) {
        SCOPED_TRACE(row.label);
        for (const judging judged : {judging::lenient, judging::strict}) {
            script now = told;
            now.judged = judged;
            scripted_session session{1, now};
            octets reply = session.reply(0, {.received = quarter, .sent_back = 2 * quarter});
            row.change(reply);
            const bool good = row.faults.size() == 0;
            const bool measured = row.measured && (good || judged == judging::lenient);
            EXPECT_EQ(session.receive_octets(0, reply, away),
                      measured ? std::optional(round_trip) : std::nullopt);
            const packet_counts &counts = session.result.counts();
            EXPECT_EQ(session.result.records()[0].fault_bits, bits_of(row.faults));
            EXPECT_EQ(counts.valid, good ? 1u : 0u);
            EXPECT_EQ(counts.odd, !good && judged == judging::lenient ? 1u : 0u);
            EXPECT_EQ(counts.invalid(), !good && judged == judging::strict ? 1u : 0u);
            EXPECT_EQ(counts.measured, measured ? 1u : 0u);
            EXPECT_EQ(counts.lost(), 0u);
            for (const reply_fault fault : row.faults) {
                EXPECT_EQ(counts.of(fault), 1u) << text_of(fault);
            }
        }
    }
}

TEST(Reply, IsMeasuredWithWhatIsOddAboutIt)
{
    using enum reply_fault;
    expect_judged({.size = 50, .zeros = false},
                  {{"as it should be", [](octets &) {}, {}},
                   {"padding changed", [](octets &reply) { reply[49] ^= 0x80; }, {padding}},
                   {"padding of zeros", [](octets &reply) { std::fill(&reply[41], &reply[50], 0); }, {padding}},
                   {"an octet less", [](octets &reply) { reply.pop_back(); }, {length}},
                   {"an octet more", [](octets &reply) { reply.push_back(7); }, {length, padding}},
                   {"a header alone", [](octets &reply) { reply.resize(41); }, {length}},
                   {"no sender TTL", [](octets &reply) { reply.resize(40); }, {header}},
                   {"no zeros at the end", [](octets &reply) { reply.resize(38); }, {header}},
                   {"sender TTL 0", [](octets &reply) { reply[40] = 0; }, {sender_ttl}},
                   {"first zeros", [](octets &reply) { reply[15] = 1; }, {must_be_zero}},
                   {"second zeros", [](octets &reply) { reply[38] = 1; }, {must_be_zero}},
                   {"estimate of 0", [](octets &reply) { reply[13] = 0; }, {error_estimate}},
                   {"sender's estimate", [](octets &reply) { reply[36] ^= 1; }, {sender_error_estimate}},
                   {"sender's stamp rounded", [](octets &reply) { shift(reply, 28, 4); }, {sender_timestamp}},
                   {"sender's stamp elsewhere",
                    [](octets &reply) { std::swap_ranges(&reply[28], &reply[32], &reply[32]); },
                    {sender_timestamp}},
                   {"no sender's stamp", [](octets &reply) { reply.resize(28); }, {header, sender_timestamp}},
                   {"all at once",
                    [](octets &reply) {
                        reply[14] = reply[39] = 9;
                        reply[13] = reply[40] = 0;
                        reply[37] ^= 1;
                        reply.pop_back();
                    },
                    {length, must_be_zero, sender_error_estimate, sender_ttl, error_estimate}}});
}

TEST(Reply, OfOtherKindsOfReflectorsIsMeasured)
{
    using enum reply_fault;
    const auto copy_ssid = [](octets &reply) { std::copy_n(&reply[41], 2, &reply[14]); };
    expect_judged({.size = 50, .zeros = false}, {{"one that returns octets 14-15", copy_ssid, {ssid}},
                                                 {"one that returns them twice",
                                                  [&](octets &reply) {
                                                      copy_ssid(reply);
                                                      std::copy_n(&reply[14], 2, &reply[38]);
                                                  },
                                                  {ssid}}});
    const auto stamp_base = [](octets &reply) {
        reply.assign(reply.begin(), reply.begin() + 41), reply.resize(44);
    };
    expect_judged({.size = 14, .zeros = false}, {{"STAMP's base for a short request", stamp_base, {length}}});
    expect_judged({.size = 41, .zeros = false}, {{"STAMP's base for a longer one", stamp_base, {length}}});
    expect_judged({.size = 44, .zeros = false}, {{"STAMP's base for one of its length", stamp_base, {}}});
    expect_judged({.size = 14}, {{"38 octets", [](octets &reply) { reply.resize(38); }, {header}}});
}

TEST(Reply, WithTimesThatCannotBeIsNotMeasured)
{
    using enum reply_fault;
    const auto set = [](std::size_t place, std::uint64_t units) {
        return [=](octets &reply) { store(&reply[place], units); };
    };
    const auto move = [](std::int64_t received, std::int64_t sent_back) {
        return [=](octets &reply) {
            shift(reply, 16, received);
            shift(reply, 4, sent_back);
        };
    };
    expect_judged({}, {{"no T2", set(16, 0), {zero_timestamp}, false},
                       {"no T3", set(4, 0), {zero_timestamp}, false},
                       {"T2 a day early", move(-day - second, 0), {far_timestamp}, false},
                       {"T3 a day late", move(0, day + second), {far_timestamp}, false},
                       {"both years early", move(-1000 * day, -1000 * day), {far_timestamp}, false},
                       {"T3 before T2", move(0, -quarter - 5), {timestamps}, false},
                       {"longer there than away", move(0, 3 * quarter), {reflector_time}, false},
                       {"both almost a day late", move(day - second, day - second), {}}});
}

TEST(Reply, MayHaveBeenInTheReflectorAsLongAsItWasAwayButForRounding)
{
    const struct {
        std::int64_t away; ///< Of a reply that was a quarter of a second in the reflector.
        bool measured;
    } rows[] = {{250'000'000, true},
                {250'000'000 - 250'000, true}, // a clock that is a thousandth faster
                {250'000'000 - 300'000, false}};
    for (const auto &row : rows) {
        scripted_session session{1};
        EXPECT_EQ(session.receive(0, {.received = 0, .sent_back = quarter}, row.away).has_value(), row.measured)
            << row.away;
    }
}

/** Of the request's T1 in PTP's format and UTC: 4294967295.5 - 2208988800 s. */
constexpr std::uint32_t unix_second = 2085978495;

void write_ptp(octets &reply, std::uint32_t seconds, std::uint16_t mark)
{
    store_ptp(&reply[16], {seconds, 750'000'000});
    store_ptp(&reply[4], {seconds + 1, 0});
    store_16(&reply[12], 0x1601 | mark);
}

TEST(ReplyTimes, AreReadInTheFormatThatTheyAreIn)
{
    using enum reply_fault;
    const auto ptp = [](std::uint32_t tai, std::uint16_t mark) {
        return [=](octets &reply) { write_ptp(reply, unix_second + tai, mark); };
    };
    const auto wrong_mark = [](octets &reply) { reply[12] ^= 0x40; };
    expect_judged({}, {{"PTP and UTC", ptp(0, 0x4000), {other_format}},
                       {"PTP and TAI", ptp(37, 0x4000), {other_format}},
                       {"PTP without a mark", ptp(0, 0), {other_format, format_mark}},
                       {"NTP with PTP's mark", wrong_mark, {format_mark}}});
    for (const std::int32_t tai : {0, 37}) {
        const script told{.stamps = stamp_format::ptp, .tai_ahead = tai};
        expect_judged(told, {{"PTP, asked for, and UTC", ptp(0, 0x4000), {}},
                             {"PTP, asked for, and TAI", ptp(37, 0x4000), {}},
                             {"NTP where PTP was asked for", [](octets &) {}, {other_format}},
                             {"a stamp that went through NTP's format",
                              [&](octets &reply) {
                                  write_ptp(reply, unix_second, 0x4000);
                                  store(&reply[28], 0xFFFFFFFF'80000001u);
                              },
                              {sender_timestamp}}});
    }
}

TEST(ReplyTimes, OfTaiAreNoClockAhead)
{
    for (const auto &[tai, scale] : {std::pair{0u, time_scale::ptp_utc}, {37u, time_scale::ptp_tai}}) {
        scripted_session session{1, {.stamps = stamp_format::ptp}};
        octets reply = session.reply(0, {});
        write_ptp(reply, unix_second + tai, 0x4000);
        session.receive_octets(0, reply, away);
        EXPECT_EQ(session.result.records()[0].forward, 250'000'000);
        EXPECT_EQ(session.result.reflector_scale(), scale);
    }
}

TEST(Request, HasPtpTimeStampsWithTheirMark)
{
    for (const std::uint32_t tai : {0u, 37u}) {
        const scripted_session session{
            1, {.stamps = stamp_format::ptp, .tai_ahead = static_cast<std::int32_t>(tai)}};
        const octets request = session.request(0);
        EXPECT_EQ(olv_net::load_ptp(&request[4]), (ptp_time{unix_second + tai, 500'000'000}));
        EXPECT_EQ(olv_net::load_16(&request[12]), 0x5601);
    }
}

// Which request a reply answers

TEST(Match, IsByTheSequenceNumberInAReplyThatHasOne)
{
    scripted_session session{2};
    octets short_one = session.reply(0, {.number = 7});
    short_one.resize(27);
    octets unknown = session.reply(0, {});
    store_32(&unknown[24], 2);
    for (const octets &reply : {octets{}, short_one, unknown}) {
        EXPECT_EQ(session.receive_octets(0, reply, 1000), std::nullopt);
    }
    const packet_counts &counts = session.result.counts();
    EXPECT_EQ(counts.of(reply_fault::too_short), 2u);
    EXPECT_EQ(counts.of(reply_fault::sender_sequence), 1u);
    EXPECT_EQ(counts.invalid(), 3u);
    EXPECT_EQ(counts.lost(), 2u);
}

TEST(Match, TellsARequestThatComesBackAsItWasSent)
{
    for (const bool zeros : {false, true}) {
        for (const stamp_format stamps : {stamp_format::ntp, stamp_format::ptp}) {
            for (const std::size_t length : {14u, 20u, 41u, 100u}) {
                SCOPED_TRACE(length);
                scripted_session session{3, {.size = 100, .stamps = stamps, .zeros = zeros}};
                for (const std::uint32_t sequence : {0u, 1u, 2u}) {
                    octets echo = session.request(sequence);
                    echo.resize(length);
                    EXPECT_EQ(session.receive_octets(sequence, echo, 1000), std::nullopt);
                }
                const packet_counts &counts = session.result.counts();
                EXPECT_EQ(counts.of(reply_fault::echo), 3u);
                EXPECT_EQ(std::accumulate(counts.faults.begin(), counts.faults.end(), 0u), 3u);
                EXPECT_EQ(counts.invalid(), 3u);
                EXPECT_EQ(counts.lost(), 3u);
            }
        }
    }
}

TEST(Match, TakesNoReplyForItsRequest)
{
    for (const std::size_t place : {3u, 11u, 13u}) { // number, T3, error estimate
        scripted_session session{2, {.size = 41}};
        octets reply = session.request(1);
        reply[place] ^= 1;
        session.receive_octets(1, reply, 1000);
        EXPECT_EQ(session.result.counts().of(reply_fault::echo), 0u) << place;
    }
    // All three can be the request's; the request's header stands in the reply a second time.
    scripted_session session{2};
    EXPECT_EQ(session.receive(1, {.number = 1}, 1000), 1000);
    EXPECT_EQ(session.result.counts().valid, 1u);
}

/** What somebody sends who guesses sequence numbers, but never saw a request. */
octets forged(const scripted_session &session, std::uint32_t sequence)
{
    octets reply = session.reply(sequence, {.number = 77, .request_ttl = 3});
    shift(reply, 28, second);
    return reply;
}

TEST(Forger, DoesNotTakeThePlaceOfAReflectorThatReturnsStamps)
{
    scripted_session session{3};
    session.receive(0, {.number = 0}, 1000);
    EXPECT_EQ(session.receive_octets(1, forged(session, 1), 500), std::nullopt);
    EXPECT_EQ(session.receive(1, {.number = 1}, 1000), 1000);
    EXPECT_EQ(session.receive_octets(1, forged(session, 1), 2000), std::nullopt);
    EXPECT_EQ(session.receive_octets(2, forged(session, 2), 2000), std::nullopt);
    const packet_counts &counts = session.result.counts();
    EXPECT_EQ(counts.valid, 2u);
    EXPECT_EQ(counts.invalid(), 3u);
    EXPECT_EQ(counts.of(reply_fault::sender_timestamp), 3u);
    EXPECT_EQ(counts.duplicates, 0u);
    EXPECT_EQ(counts.lost(), 1u) << "the forged one hides no loss";
}

TEST(Forger, WhoWasFirstIsForgottenWithTheFirstTrueReply)
{
    scripted_session session{4};
    for (const std::uint32_t sequence : {0u, 1u, 1u, 2u}) {
        session.receive_octets(sequence, forged(session, sequence), 500);
    }
    EXPECT_EQ(session.result.counts().lost(), 1u);
    EXPECT_EQ(session.receive(1, {.number = 0}, 1000), 1000);
    session.receive(0, {.number = 1}, 300'000'000);
    const packet_counts &counts = session.result.counts();
    EXPECT_EQ(counts.valid, 2u);
    EXPECT_EQ(counts.odd, 0u);
    EXPECT_EQ(counts.invalid(), 4u);
    EXPECT_EQ(counts.duplicates, 0u);
    EXPECT_EQ(counts.reordered, 1u);
    EXPECT_EQ(counts.lost(), 2u);
    EXPECT_EQ(counts.request_ttl.minimum, 255);
    EXPECT_EQ(session.result.numbers().how(), numbering::by_session);
    EXPECT_EQ(session.result.on_their_way(), 2u);
    session.result.expire(session.instant(3));
    EXPECT_EQ(session.result.on_their_way(), 0u);
}

TEST(Forger, DoesNotStopAWindowThatWentOn)
{
    scripted_session session{2};
    session.receive_octets(0, forged(session, 0), 500);
    session.result.expire(session.instant(0)); // goes past the packet that seems to be answered
    session.receive(1, {.number = 0}, 1000);
    EXPECT_EQ(session.result.counts().lost(), 1u);
    EXPECT_EQ(session.result.on_their_way(), 0u);
    session.receive(0, {.number = 1}, 400'000'000);
    EXPECT_EQ(session.result.counts().valid, 2u);
    EXPECT_EQ(session.result.on_their_way(), 0u);
}

TEST(Forger, HasNoRequestGivenUpThatIsOnItsWay)
{
    scripted_session session{4};
    session.result.expire(session.instant(0));
    session.receive_octets(1, forged(session, 1), 500);
    session.receive(2, {.number = 0}, 1000); // those before that did not return stamps were forged
    EXPECT_EQ(session.result.on_their_way(), 2u);
    session.result.expire(session.instant(3));
    EXPECT_EQ(session.result.on_their_way(), 0u);
}

TEST(Ttl, OfAReplyWithOtherFieldsInItsPlaceIsNotBelieved)
{
    scripted_session session{2};
    octets reply = session.reply(0, {.request_ttl = 9});
    reply[39] = 1;
    session.receive_octets(0, reply, 1000);
    EXPECT_TRUE(session.result.counts().request_ttl.is_empty());
    octets short_one = session.reply(1, {.number = 1});
    short_one.resize(40);
    session.receive_octets(1, short_one, 1000);
    EXPECT_TRUE(session.result.counts().request_ttl.is_empty());
    EXPECT_EQ(session.result.counts().measured, 2u);
}

} // namespace
} // namespace olv_probe
