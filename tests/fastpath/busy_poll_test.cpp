// Looking for packets before sleeping.

#include "fastpath/udp/idle_wait.hpp"

#include <optional>

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
    wait.note_packets(at(50), at(51));
    EXPECT_TRUE(wait.may_look(at(51)));
}

TEST(idle_wait, time_that_packets_take_is_no_pause)
{
    idle_wait wait{20us};
    wait.note_packets(at(0), at(300));
    wait.note_packets(at(301), at(900));
    EXPECT_TRUE(wait.may_look(at(900)));
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

class busy_poll_test : public fastpath_test, public testing::WithParamInterface<std::uint32_t> {
  protected:
    busy_poll_test()
    {
        define_usual_path({.maximum_sessions = 1000});
        server_.emplace(reflector_, udp_server_options{.busy_poll_microseconds = GetParam()});
        first_ = server_->add(parse_socket_address("127.0.0.1:0"), usual_path);
        second_ = server_->add(parse_socket_address("127.0.0.1:0"), usual_path);
        server_->start();
    }

    /** So often that a patient server begins to look. */
    void ask(std::size_t index, int times = 20) const
    {
        for (int number = 0; number < times; ++number) {
            sender_.send(server_->local_address(index), request_of(41));
            ASSERT_EQ(sender_.receive().payload.size(), 41u) << number;
        }
    }

    client sender_{AF_INET};
    reflector reflector_{processor_};
    std::optional<udp_server> server_;
    std::size_t first_ = 0;
    std::size_t second_ = 0;
};

TEST_P(busy_poll_test, all_sockets_are_served)
{
    for (int round = 0; round < 10; ++round) {
        ask(first_);
        ask(second_);
    }
    EXPECT_TRUE(eventually([&] { return server_->statistics(second_).sent == 200; }));
    EXPECT_EQ(server_->statistics(first_).received, 200u);
    EXPECT_EQ(counters(), (responder_counters{.received = 400, .transmitted = 400, .active = 1}));
}

TEST_P(busy_poll_test, more_sockets_than_can_be_busy_are_served)
{
    std::vector<std::size_t> indices;
    for (int number = 0; number < 40; ++number)
        indices.push_back(server_->add(parse_socket_address("127.0.0.1:0"), usual_path));
    for (int round = 0; round < 3; ++round) {
        for (const std::size_t index : indices)
            ask(index, 5);
    }
    EXPECT_TRUE(eventually([&] { return server_->statistics().sent == 600; }));
}

TEST_P(busy_poll_test, sockets_come_and_go_while_packets_do)
{
    for (int round = 0; round < 20; ++round) {
        const std::size_t fresh = server_->add(parse_socket_address("127.0.0.1:0"), usual_path);
        ask(fresh, 5);
        ask(first_, 5);
        server_->remove(fresh);
        ask(second_, 5);
    }
    EXPECT_EQ(counters().received, 300u);
}

TEST_P(busy_poll_test, stops_at_once_and_starts_again)
{
    const auto begin = std::chrono::steady_clock::now();
    for (int round = 0; round < 5; ++round) {
        ask(first_);
        server_->stop();
        sender_.send(server_->local_address(first_), request_of(41));
        server_->start();
        EXPECT_EQ(sender_.receive().payload.size(), 41u);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, patience);
}

TEST_P(busy_poll_test, packets_after_a_pause_are_served)
{
    for (int round = 0; round < 5; ++round) {
        ask(first_);
        std::this_thread::sleep_for(5ms);
    }
    EXPECT_EQ(counters().received, 100u);
}

// Never, for a moment, and for so long that the thread never sleeps.
INSTANTIATE_TEST_SUITE_P(microseconds, busy_poll_test, testing::Values(0, 200, 60000000),
                         [](const auto &row) { return std::to_string(row.param); });

} // namespace
