// Replies whose times follow the system's clock, which may be set meanwhile.

#include "fastpath/core/system_clock.hpp"

#include <atomic>

#include <sys/timex.h>

#include "fastpath/udp/clock_reader.hpp"
#include "net/wall_clock.hpp"
#include "udp_fixture.hpp"

namespace {

using namespace olv_fastpath_test;

constexpr std::uint64_t one_second = 1'000'000'000;

TEST(clock_state, tells_the_error_estimate)
{
    struct row {
        const char *label;
        clock_state state;
        std::uint16_t expected;
    };
    const row rows[] = {
        {"nothing is followed", {}, 0x1D80}, // 128 * 2^29 * 2^-32 s = 16 s
        {"a microsecond", {.synchronized = true, .maximum_error_microseconds = 1}, 0x8587},    // 135 * 2^5
        {"a millisecond", {.synchronized = true, .maximum_error_microseconds = 1000}, 0x8F84}, // 132 * 2^15
        {"a millisecond, unknown", {.synchronized = false, .maximum_error_microseconds = 1000}, 0x0F84},
        {"at least a microsecond", {.synchronized = true, .maximum_error_microseconds = 0}, 0x8587},
        {"at most half an hour", {.synchronized = true, .maximum_error_microseconds = UINT64_MAX}, 0xA487},
    };
    for (const row &each : rows)
        EXPECT_EQ(error_estimate_of(each.state), each.expected) << each.label;
}

TEST(clock_state, is_the_kernels)
{
    timex before{};
    const int state = adjtimex(&before);
    const clock_state found = system_clock_state();
    timex after{};
    EXPECT_EQ(adjtimex(&after), state);
    // Of a clock that follows another one, the error grows until the next correction.
    EXPECT_EQ(found.synchronized, (before.status & STA_UNSYNC) == 0 && state != TIME_ERROR);
    EXPECT_GE(found.maximum_error_microseconds,
              static_cast<std::uint64_t>(std::min(before.maxerror, after.maxerror)));
    EXPECT_LE(found.maximum_error_microseconds,
              static_cast<std::uint64_t>(std::max(before.maxerror, after.maxerror)));
    EXPECT_EQ(found.tai_ahead, before.tai);
}

TEST(system_clock, gives_readings_of_the_timer_an_instant_that_is_not_too_early)
{
    const tick_scale scale{one_second};
    constexpr std::uint64_t now = 100 * one_second;
    const reply_clock clock =
        clock_at({.timer = now, .wall_nanoseconds = 1700000000 * one_second + 500000001}, scale);
    struct row {
        const char *label;
        std::uint64_t reading;
        ntp_time expected;
    };
    // A nanosecond is 4.29 units, and two more are what rounding up twice adds at most.
    const row rows[] = {
        {"now", now, {0xE8FE6F80, 0x80000006}},
        {"a nanosecond later", now + 1, {0xE8FE6F80, 0x8000000A}},
        {"two seconds later", now + 2 * one_second, {0xE8FE6F82, 0x80000006}},
        {"a nanosecond earlier", now - 1, {0xE8FE6F80, 0x80000001}},
        {"two nanoseconds earlier", now - 2, {0xE8FE6F80, 0x7FFFFFFD}},
        {"a minute earlier", now - 60 * one_second, {0xE8FE6F44, 0x80000006}},
        {"more than 61 seconds earlier", 0, {0xE8FE6F43, 0x80000006}},
    };
    for (const row &each : rows)
        EXPECT_EQ(ntp_time::from_units(clock.instant_of(each.reading, scale)), each.expected) << each.label;
    const reply_clock young =
        clock_at({.timer = one_second + 5, .wall_nanoseconds = 1700000000 * one_second}, scale);
    EXPECT_EQ(ntp_time::from_units(young.instant_of(5, scale)), (ntp_time{0xE8FE6F7F, 1}))
        << "a second earlier";
}

TEST(setting_watch, tells_by_how_much_the_clock_was_set_for_a_second)
{
    struct row {
        const char *label;
        std::uint64_t timer, wall;
        std::int64_t expected;
    };
    constexpr std::uint64_t wall = 1700000000 * one_second;
    constexpr std::int64_t hour = 3600 * std::int64_t{one_second};
    const row rows[] = {
        {"first reading", 1000, wall, 0},
        {"both go on", 1000 + 10 * one_second, wall + 10 * one_second, 0},
        {"almost a millisecond more", 1000 + 11 * one_second, wall + 11 * one_second + 999'999, 0},
        {"a millisecond more", 1000 + 12 * one_second, wall + 12 * one_second + 1'999'999, 1'000'000},
        {"half a second later", 1000 + 12 * one_second + one_second / 2,
         wall + 12 * one_second + one_second / 2 + 1'999'999, 1'000'000},
        {"a second later", 1000 + 13 * one_second, wall + 13 * one_second + 1'999'999, 1'000'000},
        {"more than a second", 1001 + 13 * one_second, wall + 13 * one_second + 2'000'000, 0},
        {"an hour back", 1000 + 14 * one_second, wall + 14 * one_second + 1'999'999 - 3600 * one_second, -hour},
        {"and forward again", 1001 + 14 * one_second, wall + 14 * one_second + 2'000'000, hour},
        {"a long pause", 1001 + 140 * one_second, wall + 140 * one_second + 2'000'000, 0},
        {"set during a pause", 1001 + 240 * one_second, wall + 3840 * one_second + 2'000'000, hour},
    };
    setting_watch watch;
    for (const row &each : rows)
        EXPECT_EQ(watch.note({each.timer, each.wall}, tick_scale{one_second}), each.expected) << each.label;
}

// In replies

class reply_time_test : public reflector_test {
  protected:
    reply_time_test() { define_usual_path({.ticks = now_}); }

    /** The reply to a request that arrived half a second before the system's clock was read at 1700000000.5 s,
     *  and leaves a quarter of a second after that. */
    bytes reply_to(const bytes &request, const reply_time &time)
    {
        received_packet packet = packet_of(request);
        packet.arrival_ticks = now_ - ticks_of(0, 2);
        bytes room(44);
        {
            reflector::batch batch{subject(), time};
            const verdict made = batch.reflect(packet, usual_path, room);
            EXPECT_FALSE(made.dropped);
            departing_.add(made.reply);
        }
        processor_.set_timer(now_ + ticks_of(0, 1));
        departing_.stamp(subject().clock(), time.tai_ahead);
        return room;
    }

    /** Time stamps and error estimate: octets 4 to 13 and 16 to 23. */
    static void expect_times(const bytes &reply, const bytes &departure_and_estimate, const bytes &arrival)
    {
        EXPECT_EQ(bytes(reply.begin() + 4, reply.begin() + 14), departure_and_estimate);
        EXPECT_EQ(bytes(reply.begin() + 16, reply.begin() + 24), arrival);
    }

    static bytes ptp_request(std::size_t length)
    {
        bytes request = request_of(length);
        request[12] |= 0x40;
        return request;
    }

    const std::uint64_t now_ = ticks_of(100);
    /** A minute ago it was 0x3C seconds earlier. */
    const reply_time followed_{.system =
                                   reply_clock{.instant = 0xE8FE6F4480000000, .ticks = now_ - ticks_of(60)},
                               .error_estimate = 0x8F84,
                               .tai_ahead = 37};
};

TEST_F(reply_time_test, follows_the_system_whatever_the_state_entry_says)
{
    // It leaves between whole nanoseconds: two units later.
    expect_times(reply_to(request_of(41), followed_), {0xE8, 0xFE, 0x6F, 0x80, 0xC0, 0, 0, 2, 0x8F, 0x84},
                 {0xE8, 0xFE, 0x6F, 0x80, 0, 0, 0, 0});
}

TEST_F(reply_time_test, has_the_format_that_the_request_asks_for)
{
    for (const std::size_t length : {14u, 41u, 44u}) {
        // 1700000037 s of TAI is 0x6553F125; 750,000,000 ns is 0x2CB41780.
        const bytes reply = reply_to(ptp_request(length), followed_);
        expect_times(reply, {0x65, 0x53, 0xF1, 0x25, 0x2C, 0xB4, 0x17, 0x80, 0xCF, 0x84},
                     {0x65, 0x53, 0xF1, 0x25, 0, 0, 0, 0});
        EXPECT_EQ(reply[36], 0xC1); // the request's own
    }
}

TEST_F(reply_time_test, has_that_format_by_the_state_entry_too)
{
    // The creation, at 256.5 s of 1900, is 2085978752.5 s since 1970, and no arrival is earlier.
    expect_times(reply_to(ptp_request(41), {}), {0x7C, 0x55, 0x82, 0x80, 0x2C, 0xB4, 0x17, 0x80, 0x56, 0x01},
                 {0x7C, 0x55, 0x82, 0x80, 0x1D, 0xCD, 0x65, 0x00});
}

TEST_F(reply_time_test, is_of_each_replys_own_format_where_they_leave_together)
{
    processor_.set_timer(now_);
    bytes rooms[2] = {bytes(41), bytes(41)};
    {
        reflector::batch batch{subject(), followed_};
        const bytes requests[2] = {ptp_request(41), request_of(41)};
        for (int number = 0; number < 2; ++number)
            departing_.add(batch.reflect(packet_of(requests[number]), usual_path, rooms[number]).reply);
    }
    departing_.stamp(subject().clock(), 37);
    EXPECT_EQ(load_ptp(&rooms[0][4]), (ptp_time{1700000037, 500000000}));
    EXPECT_EQ(load_ntp(&rooms[1][4]), (ntp_time{0xE8FE6F80, 0x80000002}));
}

// By sockets

/** By how many seconds the clock that a fast path reads has been set. */
std::atomic<std::int32_t> set_by{0};
std::atomic<int> states_read{0};

std::uint64_t settable_clock()
{
    return nanoseconds_of(wall_time()) + static_cast<std::uint64_t>(set_by.load() * std::int64_t{one_second});
}

clock_state noted_state()
{
    ++states_read;
    return {.synchronized = true, .maximum_error_microseconds = 1000, .tai_ahead = 37};
}

class followed_clock_test : public traffic_test {
  protected:
    followed_clock_test()
    {
        processor_.run_timer();
        set_by = 0;
        states_read = 0;
    }

    /** Nanoseconds since 1970. */
    struct exchange {
        std::uint64_t sent, arrival, departure, received;
    };
    static std::uint64_t in_nanoseconds(const std::uint8_t *stamp)
    {
        return ptp_time::from_ntp(load_ntp(stamp), 0).since_1970();
    }
    exchange measure(const socket_address &to, std::uint64_t (*clock)())
    {
        exchange times{};
        times.sent = clock();
        sender_.send(to, request_of(41));
        reply_ = sender_.receive().payload;
        times.received = clock();
        if (reply_.size() == 41) {
            times.arrival = in_nanoseconds(&reply_[16]);
            times.departure = in_nanoseconds(&reply_[4]);
        } else {
            ADD_FAILURE() << "no reply";
        }
        return times;
    }
    static void expect_in_order(const exchange &times, const std::string &label)
    {
        EXPECT_LE(times.sent, times.arrival) << label;
        EXPECT_LE(times.arrival, times.departure) << label;
        EXPECT_LE(times.departure, times.received) << label;
    }

    const client sender_{AF_INET};
    bytes reply_;
};

TEST_F(followed_clock_test, stamps_lie_between_sending_and_receiving)
{
    const socket_address to = serve();
    const auto system = [] { return nanoseconds_of(wall_time()); };
    for (int number = 0; number < 1000 && !HasFailure(); ++number)
        expect_in_order(measure(to, system), std::to_string(number));
    EXPECT_TRUE(eventually([&] { // a clock's error may grow each second, and is read once a second
        (void)measure(to, system);
        return load_16(&reply_[12]) == error_estimate_of(system_clock_state());
    }));
}

TEST_F(followed_clock_test, next_reply_follows_a_clock_that_was_set)
{
    const socket_address to = serve({.clock_calls = {settable_clock, noted_state}});
    constexpr std::int32_t hour = 3600;
    for (const std::int32_t step : {0 * hour, 1000 * hour, -1000 * hour, 2 * hour, hour, hour, -1}) {
        set_by = step;
        for (int number = 0; number < 2; ++number)
            expect_in_order(measure(to, settable_clock), std::to_string(step));
    }
    EXPECT_EQ(load_16(&reply_[12]), 0x8F84);
}

TEST_F(followed_clock_test, state_of_the_clock_is_read_once_a_second)
{
    const socket_address to = serve({.clock_calls = {settable_clock, noted_state}});
    const std::uint64_t begun = processor_.timer_now();
    for (int number = 0; number < 300; ++number)
        (void)measure(to, settable_clock);
    EXPECT_GE(states_read, 1);
    EXPECT_LE(static_cast<std::uint64_t>(states_read), 1 + (processor_.timer_now() - begun) / one_second);
    ASSERT_TRUE(eventually([&] { // however rarely packets come
        (void)measure(to, settable_clock);
        return states_read > 2;
    }));
}

TEST_F(followed_clock_test, state_entry_alone_is_followed_where_it_is_asked_for)
{
    write_state(responder_id, {.ntp_seconds = 5, .ntp_fraction = 0, .ticks = processor_.timer_now()});
    const socket_address to =
        serve({.clock = time_source::state, .clock_calls = {settable_clock, noted_state}});
    (void)measure(to, settable_clock);
    EXPECT_LT(load_ntp(&reply_[4]).seconds, 5 + patience.count());
    EXPECT_EQ(load_16(&reply_[12]), 0x1601);
    EXPECT_EQ(states_read, 0);
}

} // namespace
