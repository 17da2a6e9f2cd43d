// Looking for packets before sleeping.

#include "fastpath/udp/idle_wait.hpp"

#include <filesystem>
#include <iterator>

#include <sys/resource.h>

#include "udp_fixture.hpp"

namespace {

using namespace olv_fastpath_test;

constexpr idle_wait::clock::time_point at(int microseconds)
{
    return idle_wait::clock::time_point{std::chrono::hours{1} + std::chrono::microseconds{microseconds}};
}

TEST(idle_wait, looks_while_packets_come_within_its_patience)
{
    idle_wait wait{20us};
    EXPECT_TRUE(wait.ever_looks());
    EXPECT_FALSE(wait.may_look(at(0)));
    wait.note_packets(at(0), at(0)); // the first after long
    EXPECT_FALSE(wait.may_look(at(1)));
    wait.note_packets(at(20), at(20));
    EXPECT_TRUE(wait.may_look(at(20)));
    EXPECT_TRUE(wait.may_look(at(39)));
    EXPECT_FALSE(wait.may_look(at(40)));
    wait.note_packets(at(41), at(41)); // came too late: the looking was for nothing
    EXPECT_FALSE(wait.may_look(at(42)));
    wait.note_packets(at(50), at(300)); // the time that packets take is no pause
    wait.note_packets(at(301), at(900));
    EXPECT_TRUE(wait.may_look(at(919)));
    EXPECT_FALSE(wait.may_look(at(920)));
}

TEST(idle_wait, never_looks_without_patience)
{
    idle_wait wait{0us};
    EXPECT_FALSE(wait.ever_looks());
    wait.note_packets(at(1), at(1));
    wait.note_packets(at(1), at(1));
    EXPECT_FALSE(wait.may_look(at(1)));
}

constexpr std::uint32_t never_sleeps = 60'000'000;

class busy_poll_test : public traffic_test, public testing::WithParamInterface<std::uint32_t> {
  protected:
    busy_poll_test()
    {
        make({.busy_poll_microseconds = GetParam()});
        first_ = add();
        second_ = add();
        fast_path_->start();
    }

    /** So often that a patient server begins to look. */
    void ask(std::size_t index, int times = 20) const
    {
        for (int number = 0; number < times; ++number)
            expect_answer(sender_, at(index));
    }

    /** Processor time of all threads but this one. */
    static std::chrono::microseconds others_time()
    {
        const auto used = [](int who) {
            rusage usage{};
            EXPECT_EQ(getrusage(who, &usage), 0);
            return std::chrono::seconds{usage.ru_utime.tv_sec + usage.ru_stime.tv_sec} +
                   std::chrono::microseconds{usage.ru_utime.tv_usec + usage.ru_stime.tv_usec};
        };
        return used(RUSAGE_SELF) - used(RUSAGE_THREAD);
    }

    client sender_{AF_INET};
    std::size_t first_ = 0;
    std::size_t second_ = 0;
};

TEST_P(busy_poll_test, more_sockets_than_can_be_busy_are_served_and_come_and_go)
{
    for (int round = 0; round < 40; ++round) {
        const std::size_t fresh = add();
        ask(fresh, 5);
        ask(first_, 5);
        if (round % 2 == 0)
            fast_path_->remove(fresh);
        ask(second_, 5);
    }
    EXPECT_TRUE(eventually([&] { return sent() == 600; }));
    EXPECT_EQ(counters(), (responder_counters{.received = 600, .transmitted = 600, .active = 1}));
}

/** Threads of this process, as the system lists them. */
std::ptrdiff_t threads()
{
    return std::distance(std::filesystem::directory_iterator{"/proc/self/task"}, {});
}

TEST_P(busy_poll_test, stops_at_once_while_it_looks_and_starts_again)
{
    const std::ptrdiff_t running = threads();
    for (int round = 0; round < 5; ++round) {
        ask(first_);
        const auto begin = std::chrono::steady_clock::now();
        fast_path_->stop();
        EXPECT_LT(std::chrono::steady_clock::now() - begin, patience); // half of what it would have looked for
        EXPECT_TRUE(eventually([&] { return threads() == running - 1; }));
        sender_.send(at(first_), request_of(41));
        EXPECT_TRUE(sender_.is_empty());
        fast_path_->start();
        EXPECT_EQ(sender_.receive().payload.size(), 41u);
    }
}

TEST_P(busy_poll_test, uses_processor_time_without_packets_as_long_as_its_patience_lasts)
{
    const bool may_look = GetParam() == never_sleeps && std::thread::hardware_concurrency() > 1;
    for (int round = 0; round < 3; ++round) {
        ask(first_);
        EXPECT_TRUE(eventually([&] {
            const std::chrono::microseconds before = others_time();
            let_pass(5ms);
            return (others_time() - before > 1ms) == may_look;
        }));
    }
}

// Never, for a moment, and for so long that the thread never sleeps.
INSTANTIATE_TEST_SUITE_P(patience, busy_poll_test, testing::Values(0, 200, never_sleeps), [](const auto &row) {
    return std::string(row.param == 0 ? "none" : row.param == never_sleeps ? "endless" : "short");
});

} // namespace
