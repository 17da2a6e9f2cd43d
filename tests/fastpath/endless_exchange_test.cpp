// One forged datagram, and a peer that answers whatever comes: how long the two go on.

#include <functional>

#include "fixture.hpp"

namespace {

using namespace olv_fastpath_test;

/** Answers a reply. */
using peer = std::function<bytes(const bytes &)>;

constexpr std::uint64_t half_a_second = UINT64_C(1) << 31;

class endless_exchange_test : public reflector_test {
  protected:
    endless_exchange_test() { define_usual_path(); }

    /** Send a datagram and what the peer makes of each reply, a quarter of a second after each other.
     *  @return Replies until there is none. */
    int rounds(bytes datagram, const peer &answers, int most = 2000, bool from_new_ports = false)
    {
        int replies = 0;
        for (; replies < most; ++replies) {
            received_packet packet = packet_of(datagram);
            packet.sender.port = static_cast<std::uint16_t>(5000 + (from_new_ports ? replies : 0));
            const reply made = reflect(packet);
            last_ = made.dropped;
            if (made.dropped)
                break;
            processor_.set_timer(processor_.timer_now() + ticks_of(0, 1));
            datagram = answers(made.payload);
        }
        return replies;
    }

    std::optional<drop_reason> last_; ///< What ended the rounds.
};

bytes first_of(const bytes &reply, std::size_t length)
{
    bytes cut = reply;
    cut.resize(length);
    return cut;
}

/** A reflector's answer whose own fields tell the time that the request's sender has. */
bytes answer(const bytes &request, std::size_t length, std::size_t copied_to, std::size_t copied = 14)
{
    bytes made(length);
    store(&made[4], load<std::uint64_t>(&request[4]) + half_a_second);
    store_16(&made[12], 0x8A01);
    store(&made[16], load<std::uint64_t>(&request[4]) + half_a_second);
    std::copy_n(request.begin(), copied, made.begin() + static_cast<std::ptrdiff_t>(copied_to));
    return made;
}

TEST_F(endless_exchange_test, ends_with_whatever_answer_carries_the_replys_stamp)
{
    struct row {
        const char *label;
        peer answers;
        int most;
    };
    const row rows[] = {
        {"a reflector", [](const bytes &reply) { return answer(reply, 41, 24); }, 1},
        {"38 octets", [](const bytes &reply) { return answer(reply, 38, 24); }, 1},
        {"36 octets, without the error estimate", [](const bytes &reply) { return answer(reply, 36, 24, 12); },
         1},
        {"another error estimate",
         [](const bytes &reply) {
             bytes made = answer(reply, 44, 24);
             store_16(&made[36], 0x3FFF);
             return made;
         },
         1},
        {"an echo", [](const bytes &reply) { return reply; }, 1},
        {"an echo of 20 octets", [](const bytes &reply) { return first_of(reply, 20); }, 1},
        {"an echo of 40 octets", [](const bytes &reply) { return first_of(reply, 40); }, 1},
        {"an echo of 14 octets", [](const bytes &reply) { return first_of(reply, 14); }, 1},
        {"numbers of its own, our stamp",
         [](const bytes &reply) {
             bytes made = first_of(reply, 20);
             store_32(&made[0], 77);
             return made;
         },
         1},
        {"stamps elsewhere", [](const bytes &reply) { return answer(reply, 60, 41); }, 64},
        {"protected mode", [](const bytes &reply) { return answer(reply, 112, 60); }, 64},
    };
    std::uint32_t received = 0;
    for (const row &each : rows) {
        const int replies = rounds(request_of(41), each.answers);
        EXPECT_GE(replies, 1) << each.label;
        EXPECT_LE(replies, each.most) << each.label;
        EXPECT_EQ(last_, drop_reason::answer_to_reply) << each.label;
        received += static_cast<std::uint32_t>(replies);
        EXPECT_EQ(counters(), (responder_counters{.received = received, .transmitted = received, .active = 1}))
            << each.label; // answers do not come to the module
    }
}

/** Each answer is the first packet of a session, so it is searched at all places. */
TEST_F(endless_exchange_test, ends_with_a_peer_that_answers_from_another_port_each_time)
{
    EXPECT_EQ(rounds(
                  request_of(41), [](const bytes &reply) { return answer(reply, 60, 41); }, 2000, true),
              1);
    EXPECT_EQ(last_, drop_reason::answer_to_reply);
}

TEST_F(endless_exchange_test, ends_however_many_datagrams_were_forged)
{
    std::vector<bytes> answers;
    for (std::uint64_t number = 0; number < 1000; ++number) {
        processor_.set_timer(start_ticks + number * 1000);
        answers.push_back(answer(reflect(request_of(41)).payload, 41, 24));
    }
    for (const bytes &each : answers)
        EXPECT_EQ(reflect(each).dropped, drop_reason::answer_to_reply);
}

/** Though the counters are written as the batch comes to another responder. */
TEST_F(endless_exchange_test, answer_in_a_batch_is_in_no_counter_at_any_time)
{
    define_responder(8);
    const bytes echo = reflect(request_of(41)).payload;
    const bytes request = request_of(41);
    bytes room(41);
    {
        reflector::batch together{subject()};
        EXPECT_FALSE(together.reflect(packet_of(request), usual_path, room).dropped);
        EXPECT_EQ(together.reflect(packet_of(echo), {8, bind_key}, room).dropped, drop_reason::answer_to_reply);
        EXPECT_EQ(global(), (global_counters{.rx = 2, .tx = 2}));
    }
    EXPECT_EQ(global(), (global_counters{.rx = 2, .tx = 2}));
    EXPECT_EQ(counters(8), responder_counters{});
}

TEST_F(endless_exchange_test, ends_in_stateless_mode_too)
{
    use_options({.mode = stamp_mode::stateless});
    for (const peer &each : {peer{[](const bytes &reply) { return first_of(reply, 20); }},
                             peer{[](const bytes &reply) { return answer(reply, 60, 41); }}}) {
        EXPECT_EQ(rounds(request_of(41), each), 1);
        EXPECT_EQ(last_, drop_reason::answer_to_reply);
    }
}

/** It is asked for in PTP format, in which our stamps are whole nanoseconds as well. */
TEST_F(endless_exchange_test, ends_in_ptp_format_where_stamps_stand_elsewhere)
{
    const auto ptp_answer = [](const bytes &reply) {
        bytes made = answer(reply, 60, 41);
        made[12] |= 0x40;
        return made;
    };
    EXPECT_LE(rounds(ptp_answer(request_of(41)), ptp_answer), 64);
    EXPECT_EQ(last_, drop_reason::answer_to_reply);
}

TEST_F(endless_exchange_test, ends_with_a_reflector_that_shares_its_peers)
{
    const auto peers = std::make_shared<reflector_peers>(2u);
    reflector first{processor_, {}, peers};
    reflector second{processor_, {}, peers};
    bytes replied(41);
    departing_.add(first.reflect(packet_of(request_of(41)), usual_path, replied).reply);
    departing_.stamp(first.clock(), 0, first.noted_departures());
    bytes room(41);
    EXPECT_EQ(second.reflect(packet_of(replied), usual_path, room).dropped, drop_reason::answer_to_reply);
}

// Stamps

TEST(sent_stamps, no_clock_of_whole_nanoseconds_shows_a_marked_instant)
{
    for (std::uint64_t nanoseconds = 0; nanoseconds < 1'000'000'000; nanoseconds += 99'991) {
        const std::uint64_t down = (nanoseconds << 32) / 1'000'000'000;
        for (const std::uint64_t written : {down, down + 1}) // rounded up, or to the nearest
            ASSERT_FALSE(sent_stamps::is_marked(written)) << nanoseconds;
        const std::uint64_t marked = sent_stamps::marked(down);
        ASSERT_TRUE(sent_stamps::is_marked(marked));
        ASSERT_LE(marked - down, 4u);
    }
    EXPECT_EQ(sent_stamps::marked(0x1FFFFFFFFu), 0x200000002u); // into the next second
}

/** A flood of requests whose stamps are the same nanoseconds as those of the replies. */
TEST_F(endless_exchange_test, sender_whose_clock_is_ours_is_never_taken_for_an_answer)
{
    for (std::uint32_t number = 0; number < 10'000; ++number) {
        processor_.set_timer(start_ticks + number);
        bytes request = request_of(41);
        store_32(&request[0], number);
        const std::uint64_t now =
            (std::uint64_t{0x100} << 32) + 0x80000000 + ((std::uint64_t{number} << 32) / 1'000'000'000);
        store(&request[4], now);
        ASSERT_FALSE(reflect(request).dropped) << number;
    }
}

/** A reply left at 2023-11-14 22:13:20.5, PTP's 0x6553F100'1DCD6500. */
class ptp_stamp_test : public endless_exchange_test {
  protected:
    ptp_stamp_test() { use(stamp_mode::stateful); }
    void use(stamp_mode mode)
    {
        // The clock says the same, so that stamps are plausible.
        write_state(responder_id, {.ntp_seconds = 0x6553F100 + 2208988800u, .ticks = start_ticks});
        const auto peers = std::make_shared<reflector_peers>();
        subject_.emplace(processor_, fast_path_options{.mode = mode}, peers);
        peers->stamps.note(departure);
    }
    std::optional<drop_reason> send(std::uint64_t stamp, std::uint16_t estimate = 0x4A01,
                                    std::uint64_t arrival = 0, std::size_t length = 41)
    {
        bytes request = request_of(41);
        store(&request[4], stamp);
        store_16(&request[12], estimate);
        store(&request[16], arrival);
        request.resize(length);
        bytes room(41);
        return subject_->reflect(packet_of(request), usual_path, room).dropped;
    }

    static constexpr std::uint64_t departure = 0x6553F1001DCD6500;
    static constexpr std::optional<drop_reason> nothing{};
    std::optional<reflector> subject_;
};

TEST_F(ptp_stamp_test, with_the_arrival_behind_it_is_an_echo)
{
    constexpr std::uint64_t arrival = 0x6553F1001DCD0000;
    EXPECT_EQ(send(departure, 0x0A01, arrival), nothing) << "whole nanoseconds are nobody's in NTP format";
    EXPECT_EQ(send(departure, 0x4A01, arrival), drop_reason::answer_to_reply);
    EXPECT_EQ(send(departure, 0x4A01, arrival - (UINT64_C(60) << 32)), drop_reason::answer_to_reply);
    EXPECT_EQ(send(departure, 0x4A01, arrival, 20), drop_reason::answer_to_reply) << "its seconds";
    EXPECT_EQ(send(departure, 0x4A01, arrival - (UINT64_C(61) << 32)), nothing);
}

TEST_F(ptp_stamp_test, of_a_sender_may_have_the_nanosecond_of_a_reply_now_and_then)
{
    for (const std::size_t length : {41u, 20u, 19u, 14u}) {
        for (int number = 0; number < 200; ++number) {
            ASSERT_EQ(send(departure, 0x4A01, 0, length), nothing) << length;
            ASSERT_EQ(send(departure + 1, 0x4A01, 0, length), nothing) << length;
        }
    }
}

TEST_F(ptp_stamp_test, has_it_twice_in_a_row_in_an_answer)
{
    for (const std::size_t length : {41u, 19u, 14u}) {
        EXPECT_EQ(send(departure, 0x4A01, 0, length), nothing) << length;
        EXPECT_EQ(send(departure, 0x4A01, 0, length), drop_reason::answer_to_reply) << length;
        EXPECT_EQ(send(departure, 0x4A01, 0, length), drop_reason::answer_to_reply) << length;
        EXPECT_EQ(send(departure + 1), nothing);
    }
}

TEST_F(ptp_stamp_test, is_limited_where_there_are_no_sessions)
{
    use(stamp_mode::stateless);
    int answered = 0;
    for (int number = 0; number < 150; ++number) {
        answered += send(departure) ? 0 : 1;
        EXPECT_EQ(send(departure + 1), nothing);
    }
    EXPECT_EQ(answered, 100);
}

TEST_F(endless_exchange_test, ends_with_whoever_returns_the_beginning_of_a_ptp_reply)
{
    for (const std::size_t length : {14u, 19u, 41u}) {
        const auto beginning = [&](const bytes &reply) {
            bytes made = first_of(reply, 14);
            made.resize(length);
            return made;
        };
        bytes first = request_of(length);
        store_16(&first[12], 0x4A01);
        EXPECT_LE(rounds(first, beginning), 3) << length;
        EXPECT_EQ(last_, drop_reason::answer_to_reply) << length;
    }
}

// Senders without a clock

constexpr auto text = [](std::uint32_t) { return UINT64_C(0x2021222324252627); };

class unstamped_test : public endless_exchange_test {
  protected:
    /** How many of 150 packets are answered. */
    int answered(const std::function<std::uint64_t(std::uint32_t)> &stamp, std::uint16_t estimate = 0x0A01,
                 std::uint16_t port = 5000, bool from_new_ports = false)
    {
        int replies = 0;
        for (std::uint32_t number = 0; number < 150; ++number) {
            bytes request = request_of(41);
            store(&request[4], stamp(number));
            store_16(&request[12], estimate);
            received_packet packet = packet_of(request);
            packet.sender.port = static_cast<std::uint16_t>(port + (from_new_ports ? number : 0));
            const reply made = reflect(packet);
            replies += made.dropped ? 0 : 1;
            EXPECT_EQ(made.dropped.value_or(drop_reason::unstamped_rate), drop_reason::unstamped_rate);
        }
        return replies;
    }
};

TEST_F(unstamped_test, packets_of_a_session_without_a_plausible_stamp_are_limited)
{
    constexpr std::uint64_t second = UINT64_C(1) << 32;
    constexpr std::uint64_t today = 0xE8FE6F80;
    struct row {
        const char *label;
        std::function<std::uint64_t(std::uint32_t)> stamp;
        std::uint16_t estimate;
        int expected;
    };
    const row rows[] = {
        {"constant text", text, 0x2829, 100},
        {"zeros", [](auto) { return 0u; }, 0, 100},
        {"text that goes round", [](auto number) { return 0x2021222324252627u + number * 0x0101010101010101u; },
         0x2829, 100},
        {"falling", [](auto number) { return 1000u - number; }, 0, 100},
        {"today", [=](auto) { return today * second; }, 0x0A01, 150},
        {"within a day", [=](auto) { return (today - 86'300) * second; }, 0x0A01, 150},
        {"within a day, ahead", [=](auto) { return (today + 86'400) * second; }, 0x0A01, 150},
        {"two days old", [=](auto) { return (today - 172'800) * second; }, 0x0A01, 100},
        {"today in PTP format", [=](auto) { return UINT64_C(1700000000) * second; }, 0x4A01, 150},
        {"in TAI", [=](auto) { return UINT64_C(1700000037) * second; }, 0x4A01, 150},
        {"of PTP format without saying so", [=](auto) { return UINT64_C(1700000000) * second; }, 0x0A01, 100},
        {"rising since the sender's start", [](auto number) { return number + 1u; }, 0, 150},
        {"one that is plausible", [=](auto number) { return number == 99 ? today * second : 0; }, 0x0A01, 101},
        {"constant text after a forged one",
         [=](auto number) { return number == 0 ? today * second : text(0); }, 0x0A01, 100},
    };
    use_options({}, 100);
    write_state(responder_id, {.ntp_seconds = today, .ntp_fraction = 0, .ticks = start_ticks});
    std::uint16_t port = 1000;
    for (const row &each : rows) {
        processor_.set_timer(processor_.timer_now() + ticks_of(1)); // for the address
        EXPECT_EQ(answered(each.stamp, each.estimate, ++port), each.expected) << each.label;
    }
    EXPECT_EQ(counters().received, counters().transmitted);
}

TEST_F(unstamped_test, rate_is_a_seconds_packets_at_once_and_then_each_in_its_time)
{
    use_options({}, 50);
    EXPECT_EQ(answered(text), 50);
    processor_.set_timer(start_ticks + ticks_of(0, 2));
    EXPECT_EQ(answered(text), 25);
    processor_.set_timer(start_ticks + ticks_of(60));
    EXPECT_EQ(answered(text), 50);
}

TEST_F(unstamped_test, senders_at_ever_new_ports_are_limited_by_their_address)
{
    use_options({}, 100);
    write_state(responder_id, {.ticks = start_ticks, .maximum_sessions = 1000});
    EXPECT_EQ(answered(text, 0, 5000, true), 100);
}

TEST_F(unstamped_test, stateless_limits_by_address)
{
    use_options({.mode = stamp_mode::stateless}, 100);
    EXPECT_EQ(answered(text), 100);
    const std::uint64_t now = UINT64_C(0x100) << 32;
    EXPECT_EQ(answered([=](auto) { return now; }), 150);
}

TEST_F(unstamped_test, rate_of_0_limits_nothing)
{
    use_options({}, 0);
    EXPECT_EQ(answered(text), 150);
}

} // namespace
