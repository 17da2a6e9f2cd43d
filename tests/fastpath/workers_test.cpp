// Several servers at one address, each with a reflector and a thread of its own.

#include <deque>
#include <memory>

#include "udp_fixture.hpp"

namespace {

using namespace olv_fastpath_test;

class workers_test : public fastpath_test {
  protected:
    struct worker {
        explicit worker(olv_sim::processor &processor)
            : reflecting(processor), server(reflecting, {.shares_addresses = true})
        {}
        reflector reflecting;
        udp_server server;
    };

    /** So many workers at one port. */
    void start(std::size_t count)
    {
        listen_address address = parse_listen_address("127.0.0.1:0");
        for (std::size_t number = 0; number < count; ++number) {
            worker &added = workers_.emplace_back(processor_);
            address = added.server.local_address(added.server.add(address, usual_path));
        }
        address_ = address;
        for (worker &each : workers_)
            each.server.start();
    }

    std::deque<worker> workers_;
    listen_address address_;
};

TEST_F(workers_test, each_sender_belongs_to_one_and_all_are_counted)
{
    define_usual_path({.maximum_sessions = 1000});
    start(3);
    std::deque<client> senders;
    for (int number = 0; number < 60; ++number)
        senders.emplace_back(AF_INET);
    for (std::uint32_t round = 0; round < 10; ++round) {
        for (const client &each : senders) {
            each.send(address_, request_of(41));
            const bytes reply = each.receive().payload;
            ASSERT_EQ(reply.size(), 41u);
            EXPECT_EQ(load_32(&reply[0]), round);
        }
    }
    for (worker &each : workers_)
        each.server.stop();
    EXPECT_EQ(counters(), (responder_counters{.received = 600, .transmitted = 600, .active = 60}));
    EXPECT_EQ(global(), (global_counters{.rx = 600, .tx = 600}));
    std::size_t sessions = 0;
    for (const worker &each : workers_) {
        EXPECT_GT(each.server.statistics().received, 0u);
        sessions += each.server.sessions().size();
    }
    EXPECT_EQ(sessions, 60u);
}

TEST_F(workers_test, maximum_of_sessions_is_for_all_together)
{
    define_usual_path({.maximum_sessions = 20});
    start(3);
    std::deque<client> senders;
    for (int number = 0; number < 60; ++number)
        senders.emplace_back(AF_INET).send(address_, request_of(41));
    EXPECT_TRUE(eventually([&] { return global().rx == 60; }));
    for (worker &each : workers_)
        each.server.stop();
    EXPECT_EQ(counters(),
              (responder_counters{.received = 60, .transmitted = 20, .active = 20, .max_sessions = 40}));
    EXPECT_EQ(global(), (global_counters{.rx = 60, .tx = 20, .hash_error = 40}));
}

TEST_F(workers_test, address_is_taken_unless_all_share_it)
{
    define_usual_path();
    start(1);
    reflector reflecting{processor_};
    udp_server alone{reflecting};
    EXPECT_THROW((void)alone.add(address_, usual_path), std::runtime_error);
}

} // namespace
