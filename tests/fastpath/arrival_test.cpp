// When packets arrived, from the system's time stamps.

#include "fastpath/udp/arrival_clock.hpp"

#include "fastpath/udp/receive_batch.hpp"
#include "net/wall_clock.hpp"
#include "udp_fixture.hpp"

namespace {

using namespace olv_fastpath_test;

constexpr std::uint64_t second = 1000000000;
constexpr std::uint64_t wall = 1700000000 * second;

TEST(arrival_clock, arrival_is_the_timer_less_the_wait)
{
    struct row {
        const char *label;
        std::uint64_t timer;
        std::optional<std::uint64_t> stamp;
        std::uint64_t ticks_per_second, expected;
        std::int64_t set_forward = 0;
    };
    const row rows[] = {
        {"now", 5000, wall, second, 5000},
        {"a microsecond ago", 5000, wall - 1000, second, 4000},
        {"a second ago, slow timer", 5000, wall - second, 1000, 4000},
        {"a second and a half ago, slow timer", 5000, wall - second * 3 / 2, 1000, 3500},
        {"a quarter of a second ago, fast timer", 5000000000, wall - second / 4, 4000000000, 4000000000},
        {"a minute ago", 90 * second, wall - 60 * second, second, 30 * second},
        {"longer ago: the wall clock was set", 90 * second, wall - 60 * second - 1, second, 90 * second},
        {"later than now", 5000, wall + 1, second, 5000},
        {"before the timer began", 5000, wall - second, second, 0},
        {"no stamp", 5000, std::nullopt, second, 5000},
        {"before the clock was set forward", 5000, wall - 3 * second - 1000, second, 4000, 3 * second},
        {"after it was", 5000, wall - 1000, second, 4000, 3 * second},
        {"before it was set back", 5000, wall + 3 * second - 1000, second, 4000, -3 * std::int64_t{second}},
        {"after that", 5000, wall - 1000, second, 4000, -3 * std::int64_t{second}},
    };
    for (const row &each : rows) {
        const tick_scale scale{each.ticks_per_second};
        EXPECT_EQ(arrival_clock({each.timer, wall}, scale, each.set_forward).arrival(each.stamp), each.expected)
            << each.label;
    }
    EXPECT_EQ(arrival_clock(5000).arrival(wall - 1000), 5000u);
    EXPECT_EQ(arrival_clock({5000, wall}, tick_scale{second}, 0).timer(), 5000u);
}

/** Values one after the other; how many were asked for. */
class readings {
  public:
    explicit readings(std::vector<std::uint64_t> values) : values_(std::move(values)) {}
    std::uint64_t operator()() const { return values_.at(taken_++); }
    [[nodiscard]] std::size_t taken() const { return taken_; }

  private:
    std::vector<std::uint64_t> values_;
    mutable std::size_t taken_ = 0;
};

TEST(arrival_clock, clocks_are_read_again_until_they_are_read_together)
{
    struct row {
        const char *label;
        readings timer, wall;
        clock_reading expected;
        std::size_t attempts;
    };
    const row rows[] = {
        {"at once", readings{{1000, 1080}}, readings{{wall}}, {1080, wall}, 1},
        {"the thread slept in between",
         readings{{1000, 20'001'000, 20'001'080}},
         readings{{wall, wall + 20'000'040}},
         {20'001'080, wall + 20'000'040},
         2},
        {"never: the nearest count",
         readings{{0, 9000, 16'000, 22'000, 30'000, 37'000}},
         readings{{1, 2, 3, 4, 5}},
         {22'000, 3},
         5},
    };
    for (const row &each : rows) {
        const clock_reading now = read_together(each.timer, each.wall, 2000);
        EXPECT_EQ(now.timer, each.expected.timer) << each.label;
        EXPECT_EQ(now.wall_nanoseconds, each.expected.wall_nanoseconds) << each.label;
        EXPECT_EQ(each.timer.taken(), each.attempts + 1) << each.label;
        EXPECT_EQ(each.wall.taken(), each.attempts) << each.label;
    }
}

/** Have the system stamp packets, as it does while a socket asks for it. @return Whether it can: no emulator
 * does. */
bool begin_to_stamp(const client &asking)
{
    const int on = 1;
    if (setsockopt(asking.number(), SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on) != 0)
        return false;
    asking.bind_to("127.0.0.1:0");
    receive_batch batch{44};
    // At first it tells when packets are taken.
    EXPECT_TRUE(eventually([&] {
        asking.send(asking.local_address(), bytes(1));
        const std::uint64_t sent = nanoseconds_of(wall_time());
        return batch.receive(asking.number()) == 1 && batch.message(0).stamp() <= sent;
    }));
    return true;
}

/** Arrival and departure of a reply. */
struct reply_times {
    ntp_time arrival, departure;
};

class arrival_test : public traffic_test {
  protected:
    static reply_times times_of(const client::reply &reply)
    {
        if (reply.payload.size() < 41) {
            ADD_FAILURE() << "no reply";
            return {};
        }
        return {load_ntp(&reply.payload[16]), load_ntp(&reply.payload[4])};
    }

    const client sender_{AF_INET};
};

TEST_F(arrival_test, packets_that_waited_together_have_their_own_times)
{
    const client asking{AF_INET};
    const std::int64_t least = begin_to_stamp(asking) ? 39'000'000 : 0;
    processor_.run_timer();
    make();
    const socket_address to = at(add());
    for (int number = 0; number < 2; ++number) {
        sender_.send(to, request_of(41));
        let_pass(40ms);
    }
    fast_path_->start();
    const reply_times first = times_of(sender_.receive());
    const reply_times later = times_of(sender_.receive());
    EXPECT_GE(nanoseconds_between(first.arrival, later.arrival), least);
    EXPECT_GE(nanoseconds_between(later.arrival, later.departure), least);
    EXPECT_LT(nanoseconds_between(first.arrival, first.departure), std::int64_t{60'000'000'000});
}

TEST_F(arrival_test, no_reply_leaves_before_its_request_came)
{
    processor_.run_timer();
    const socket_address to = serve();
    ntp_time last{};
    for (int number = 0; number < 500; ++number) {
        sender_.send(to, request_of(41));
        const reply_times times = times_of(sender_.receive());
        ASSERT_GE(nanoseconds_between(times.arrival, times.departure), 0) << number;
        if (number > 0) {
            ASSERT_GT(nanoseconds_between(last, times.arrival), 0) << number;
        }
        last = times.departure;
    }
}

TEST_F(arrival_test, timer_that_stands_is_the_time_of_all_packets)
{
    make();
    sender_.send(at(add()), request_of(41));
    let_pass(20ms);
    processor_.set_timer(start_ticks + ticks_of(3, 1));
    fast_path_->start();
    const reply_times times = times_of(sender_.receive());
    EXPECT_EQ(times.arrival, (ntp_time{0x103, 0xC0000000}));
    EXPECT_EQ(times.departure, (ntp_time{0x103, 0xC0000002}));
}

} // namespace
