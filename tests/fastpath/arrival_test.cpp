// When packets arrived, from the system's time stamps.

#include "fastpath/udp/arrival_clock.hpp"

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
    };
    for (const row &each : rows)
        EXPECT_EQ(arrival_clock(each.timer, wall, each.ticks_per_second).arrival(each.stamp), each.expected)
            << each.label;
    EXPECT_EQ(arrival_clock(5000, std::nullopt, second).arrival(wall - 1000), 5000u);
    EXPECT_EQ(arrival_clock(5000, wall, second).timer(), 5000u);
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

TEST(arrival_clock, clocks_that_were_read_together_are_taken_at_once)
{
    const readings timer{{1000, 1080}};
    const readings wall_clock{{wall}};
    const clock_reading now = read_together(timer, wall_clock, 2000);
    EXPECT_EQ(now.timer, 1080u);
    EXPECT_EQ(now.wall_nanoseconds, wall);
    EXPECT_EQ(timer.taken(), 2u);
}

TEST(arrival_clock, clocks_between_whose_readings_the_thread_slept_are_read_again)
{
    const readings timer{{1000, 20'001'000, 20'001'080}};
    const readings wall_clock{{wall, wall + 20'000'040}};
    const clock_reading now = read_together(timer, wall_clock, 2000);
    EXPECT_EQ(now.timer, 20'001'080u);
    EXPECT_EQ(now.wall_nanoseconds, wall + 20'000'040);
    EXPECT_EQ(wall_clock.taken(), 2u);
}

TEST(arrival_clock, of_clocks_that_are_never_read_together_the_nearest_count)
{
    const readings timer{{0, 9000, 16'000, 22'000, 30'000, 37'000}};
    const readings wall_clock{{1, 2, 3, 4, 5}};
    const clock_reading now = read_together(timer, wall_clock, 2000);
    EXPECT_EQ(now.timer, 22'000u);
    EXPECT_EQ(now.wall_nanoseconds, 3u);
    EXPECT_EQ(wall_clock.taken(), 5u);
}

/** Arrival and departure of a reply. */
struct reply_times {
    ntp_time arrival, departure;
};

class arrival_test : public fastpath_test {
  protected:
    arrival_test() { define_usual_path({.maximum_sessions = 1000}); }

    static reply_times times_of(const client::reply &reply)
    {
        if (reply.payload.size() < 41) {
            ADD_FAILURE() << "no reply";
            return {};
        }
        return {load_ntp(&reply.payload[16]), load_ntp(&reply.payload[4])};
    }

    /** Emulators tell no times of arrival. */
    static bool system_stamps()
    {
        const int probe = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        const int on = 1;
        const bool stamps = setsockopt(probe, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on) == 0;
        close(probe);
        return stamps;
    }

    reflector reflector_{processor_};
    udp_server server_{reflector_};
};

TEST_F(arrival_test, packets_that_waited_together_have_their_own_times)
{
    if (!system_stamps())
        GTEST_SKIP() << "the system tells no times of arrival";
    processor_.run_timer();
    const std::size_t index = server_.add(parse_socket_address("127.0.0.1:0"), usual_path);
    const client sender{AF_INET};
    reply_times first, later;
    // The system begins to stamp packets some time after a socket has asked for it.
    for (int attempt = 0; attempt < 50 && nanoseconds_between(first.arrival, first.departure) < 79000000;
         ++attempt) {
        server_.stop();
        sender.send(server_.local_address(index), request_of(41));
        std::this_thread::sleep_for(40ms);
        sender.send(server_.local_address(index), request_of(41));
        std::this_thread::sleep_for(40ms);
        server_.start();
        first = times_of(sender.receive());
        later = times_of(sender.receive());
    }
    EXPECT_GE(nanoseconds_between(first.arrival, first.departure), 79000000);
    EXPECT_GE(nanoseconds_between(later.arrival, later.departure), 39000000);
    EXPECT_GE(nanoseconds_between(first.arrival, later.arrival), 39000000);
    EXPECT_LT(nanoseconds_between(first.arrival, first.departure), 30000000000);
}

TEST_F(arrival_test, no_reply_leaves_before_its_request_came)
{
    processor_.run_timer();
    const std::size_t index = server_.add(parse_socket_address("127.0.0.1:0"), usual_path);
    server_.start();
    const client sender{AF_INET};
    ntp_time last{};
    for (int number = 0; number < 500; ++number) {
        sender.send(server_.local_address(index), request_of(41));
        const reply_times times = times_of(sender.receive());
        ASSERT_GE(nanoseconds_between(times.arrival, times.departure), 0) << number;
        if (number > 0) {
            ASSERT_GT(nanoseconds_between(last, times.arrival), 0) << number;
        }
        last = times.departure;
    }
}

TEST_F(arrival_test, timer_that_stands_is_the_time_of_all_packets)
{
    const std::size_t index = server_.add(parse_socket_address("127.0.0.1:0"), usual_path);
    const client sender{AF_INET};
    sender.send(server_.local_address(index), request_of(41));
    std::this_thread::sleep_for(20ms);
    processor_.set_timer(start_ticks + ticks_of(3, 1));
    server_.start();
    const reply_times times = times_of(sender.receive());
    EXPECT_EQ(times.arrival, (ntp_time{0x103, 0xC0000000}));
    EXPECT_EQ(times.departure, (ntp_time{0x103, 0xC0000000}));
}

} // namespace
