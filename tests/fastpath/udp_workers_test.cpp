// What several workers share, and what each has of its own.

#include "workers_fixture.hpp"

#include <sys/resource.h>

namespace {

using namespace olv_fastpath_test;

/** A socket that would share its address with others of the same user. */
class sharing_socket {
  public:
    sharing_socket() { sender_.set_option(SOL_SOCKET, SO_REUSEPORT, 1); }
    [[nodiscard]] bool can_bind_to(const socket_address &address) const
    {
        try {
            sender_.bind_to(address);
            return true;
        } catch (const std::runtime_error &) {
            return false;
        }
    }
    [[nodiscard]] socket_address address() const { return sender_.local_address(); }

  private:
    client sender_{AF_INET};
};

std::string message_of_add(udp_workers &workers, const socket_address &address)
{
    try {
        (void)workers.add(address, {.responder_id = 7, .bind_key = 5});
    } catch (const std::runtime_error &error) {
        return error.what();
    }
    return "no error";
}

class workers_of_count_test : public workers_test, public testing::WithParamInterface<std::uint32_t> {};

TEST_P(workers_of_count_test, each_sender_belongs_to_one_and_all_are_counted)
{
    define_usual_path({.maximum_sessions = 1000});
    serve({.count = GetParam()});
    const std::deque<client> senders = send_from(60);
    for (std::uint32_t round = 0; round < 10; ++round) {
        for (const client &each : senders) {
            const bytes reply = each.receive().payload;
            ASSERT_EQ(reply.size(), 41u);
            EXPECT_EQ(load_32(&reply[0]), round);
            if (round < 9)
                each.send(address(), request_of(41));
        }
    }
    workers_->stop();
    EXPECT_EQ(counters(), (responder_counters{.received = 600, .transmitted = 600, .active = 60}));
    EXPECT_EQ(global(), (global_counters{.rx = 600, .tx = 600}));
    EXPECT_EQ(workers_->statistics().received, 600u);
    EXPECT_EQ(workers_->statistics(index_).sent, 600u);
    const std::vector<udp_statistics> shares = workers_->statistics_by_worker();
    ASSERT_EQ(shares.size(), GetParam());
    for (const udp_statistics &each : shares)
        EXPECT_GT(each.received, 0u);
}

TEST_P(workers_of_count_test, maximum_of_sessions_is_for_all_together)
{
    define_usual_path({.maximum_sessions = 10});
    serve({.count = GetParam()});
    const std::deque<client> senders = send_from(50);
    EXPECT_TRUE(have_taken(50));
    workers_->stop();
    EXPECT_EQ(counters(),
              (responder_counters{.received = 50, .transmitted = 10, .active = 10, .max_sessions = 40}));
    EXPECT_EQ(global(), (global_counters{.rx = 50, .tx = 10, .hash_error = 40}));
    EXPECT_EQ(workers_->sessions().size(), 10u);
}

TEST_P(workers_of_count_test, limit_of_packets_is_the_responders)
{
    define_usual_path({.maximum_sessions = 1000});
    define_responder(8, {.maximum_sessions = 1000});
    serve({.count = GetParam(), .server = {.packets_per_second = 60}});
    const std::deque<client> senders = send_from(100);
    EXPECT_TRUE(have_taken(100));
    EXPECT_EQ(counters().received, 60u);
    EXPECT_EQ(workers_->statistics().rate_limited, 40u);
    processor_.set_timer(start_ticks + ticks_of(0, 1));
    const std::deque<client> later = send_from(100);
    EXPECT_TRUE(have_taken(200));
    EXPECT_EQ(counters().received, 75u);
    // Another responder's packets are limited for themselves.
    workers_->set_path(index_, {.responder_id = 8, .bind_key = bind_key});
    const std::deque<client> others = send_from(100);
    EXPECT_TRUE(have_taken(300));
    EXPECT_EQ(counters(8).received, 60u);
}

INSTANTIATE_TEST_SUITE_P(counts, workers_of_count_test, testing::Values(1, 2, 4),
                         [](const auto &row) { return "of_" + std::to_string(row.param); });

TEST_F(workers_test, session_capacity_is_of_all_together)
{
    define_usual_path({.maximum_sessions = 1000});
    serve({.count = 2, .reflector = {.session_capacity = 10}});
    const std::deque<client> senders = send_from(200);
    EXPECT_TRUE(have_taken(200));
    EXPECT_EQ(global(), (global_counters{.rx = 200, .tx = 10, .hash_error = 190}));
}

TEST_F(workers_test, part_of_the_session_capacity_is_rounded_up)
{
    define_usual_path({.maximum_sessions = 1000});
    serve({.count = 4, .reflector = {.session_capacity = 5}});
    const std::deque<client> senders = send_from(200);
    EXPECT_TRUE(have_taken(200));
    EXPECT_EQ(global(), (global_counters{.rx = 200, .tx = 8, .hash_error = 192}));
}

TEST_F(workers_test, sessions_are_listed_from_the_longest_idle_one_on)
{
    define_usual_path({.maximum_sessions = 100});
    serve({.count = 3});
    std::deque<client> senders;
    for (std::uint64_t number = 0; number < 20; ++number) {
        processor_.set_timer(start_ticks + ticks_of(number));
        senders.emplace_back(AF_INET).send(address(), request_of(41));
        EXPECT_EQ(senders.back().receive().payload.size(), 41u);
    }
    const std::vector<session> sessions = workers_->sessions();
    ASSERT_EQ(sessions.size(), 20u);
    for (std::size_t number = 0; number < 20; ++number)
        EXPECT_EQ(sessions[number].key.sender_port, senders[number].local_address().port()) << number;
}

TEST_F(workers_test, idle_session_makes_room_at_other_workers)
{
    define_usual_path({.maximum_sessions = 1});
    serve({.count = 2, .reflector = {.refwait_seconds = 10}});
    const std::deque<client> first = send_from(1);
    EXPECT_EQ(first[0].receive().payload.size(), 41u);
    EXPECT_EQ(counters().active, 1u);
    processor_.set_timer(start_ticks + ticks_of(10));
    EXPECT_TRUE(eventually([&] { return counters().active == 0; }));
    EXPECT_TRUE(workers_->sessions().empty());
}

TEST_F(workers_test, own_source_is_known_to_all)
{
    define_usual_path({.maximum_sessions = 1000});
    serve({.count = 4});
    std::deque<client> forgers = sender_for_each_worker();
    workers_->stop();
    std::vector<socket_address> pretended;
    for (const client &each : forgers) {
        each.send(address(), request_of(41));
        pretended.push_back(each.local_address());
    }
    forgers.clear();
    for (const socket_address &each : pretended)
        (void)workers_->add(each, usual_path);
    const global_counters before = global();
    workers_->start();
    EXPECT_TRUE(eventually([&] { return workers_->statistics(index_).own_source == 4; }));
    for (const udp_statistics &each : workers_->statistics_by_worker())
        EXPECT_EQ(each.own_source, 1u);
    EXPECT_EQ(global(), before);
}

TEST_F(workers_test, packet_to_a_group_is_answered_once)
{
    define_usual_path();
    serve({.count = 4}, "0.0.0.0:0");
    const client sender{AF_INET};
    const in_addr loopback{.s_addr = htonl(INADDR_LOOPBACK)};
    socket_address group = parse_socket_address("239.1.2.3:" + std::to_string(address().port()));
    const ip_mreqn joined{.imr_multiaddr = reinterpret_cast<const sockaddr_in &>(group.address).sin_addr,
                          .imr_address = loopback,
                          .imr_ifindex = 0};
    if (!sender.join(joined)) {
        GTEST_SKIP() << "NOT TESTED: the loopback interface takes no packets to groups";
    }
    for (int number = 0; number < 20; ++number)
        sender.send(group, request_of(41));
    for (int number = 0; number < 20; ++number)
        EXPECT_EQ(sender.receive().payload.size(), 41u);
    workers_->stop();
    EXPECT_EQ(workers_->sessions().size(), 1u);
    EXPECT_EQ(counters().received, 20u);
}

TEST_F(workers_test, address_is_taken_for_everybody_else)
{
    define_usual_path();
    serve({.count = 2});
    reflector reflecting{processor_};
    udp_server alone{reflecting};
    EXPECT_THROW((void)alone.add(address(), usual_path), std::runtime_error);
    udp_workers others{processor_, {.count = 2}};
    EXPECT_EQ(message_of_add(others, address()),
              "cannot listen on " + address().text() + ": Address already in use");
    workers_->remove(index_);
    EXPECT_EQ(message_of_add(others, parse_socket_address("127.0.0.1:0")), "no error");
}

TEST_F(workers_test, one_worker_shares_its_address_with_nobody)
{
    define_usual_path();
    serve({.count = 1});
    EXPECT_FALSE(sharing_socket{}.can_bind_to(address()));
}

TEST_F(workers_test, address_that_others_would_share_is_refused)
{
    define_usual_path();
    const sharing_socket other;
    ASSERT_TRUE(other.can_bind_to(parse_socket_address("127.0.0.1:0")));
    EXPECT_EQ(message_of_add(make({.count = 2}), other.address()),
              "cannot listen on " + other.address().text() + ": Address already in use");
}

/** Lets this process have so many descriptors more than it has. */
class few_descriptors {
  public:
    explicit few_descriptors(rlim_t more)
    {
        const client last{AF_INET}; // it has the lowest free number
        EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &before_), 0);
        const rlimit less{.rlim_cur = static_cast<rlim_t>(last.number()) + more, .rlim_max = before_.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &less), 0);
    }
    ~few_descriptors() { EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before_), 0); }
    few_descriptors(const few_descriptors &) = delete;
    few_descriptors &operator=(const few_descriptors &) = delete;

  private:
    rlimit before_{};
};

TEST_F(workers_test, add_that_fails_leaves_nothing_open)
{
    define_usual_path();
    serve({.count = 4});
    const socket_address wanted = address();
    workers_->remove(index_);
    {
        const few_descriptors few{2};
        EXPECT_EQ(message_of_add(*workers_, wanted),
                  "cannot listen on " + wanted.text() + ": Too many open files");
    }
    EXPECT_TRUE(sharing_socket{}.can_bind_to(wanted));
    index_ = workers_->add(wanted, usual_path);
    EXPECT_EQ(send_from(1)[0].receive().payload.size(), 41u);
}

TEST_F(workers_test, removed_address_is_known_no_more)
{
    define_usual_path();
    serve({.count = 2});
    EXPECT_EQ(workers_->path(index_).bind_key, bind_key);
    EXPECT_EQ(send_from(1)[0].receive().payload.size(), 41u);
    workers_->remove(index_);
    EXPECT_THROW((void)workers_->port(index_), std::out_of_range);
    EXPECT_THROW((void)workers_->statistics(index_), std::out_of_range);
    EXPECT_THROW(workers_->remove(index_), std::out_of_range);
    EXPECT_THROW(workers_->set_path(9, usual_path), std::out_of_range);
    EXPECT_EQ(workers_->statistics().received, 1u);
}

TEST_F(workers_test, start_and_stop_together)
{
    define_usual_path({.maximum_sessions = 1000});
    serve({.count = 2});
    for (int round = 0; round < 3; ++round) {
        EXPECT_TRUE(workers_->running());
        workers_->stop();
        EXPECT_FALSE(workers_->running());
        const std::deque<client> senders = send_from(20); // packets wait
        workers_->start();
        workers_->start();
        for (const client &each : senders)
            EXPECT_EQ(each.receive().payload.size(), 41u);
    }
}

} // namespace
