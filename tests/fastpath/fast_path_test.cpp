// Listeners of one worker and of several: how they come and go, what they share.

#include <atomic>

#include <sys/resource.h>

#include "fastpath/udp/udp_workers.hpp"
#include "udp_fixture.hpp"

namespace {

using namespace olv_fastpath_test;

class fast_path_test : public traffic_test, public testing::WithParamInterface<std::uint32_t> {
  protected:
    client sender_{AF_INET};
};

TEST_P(fast_path_test, listeners_come_and_go_while_packets_are_answered)
{
    make({.workers = GetParam()});
    fast_path_->start();
    const std::size_t first = add();
    const socket_address address = at(first);
    EXPECT_NE(address.port(), 0);
    EXPECT_EQ(fast_path_->path(first).bind_key, bind_key);
    expect_answer(sender_, address);
    fast_path_->remove(first);
    EXPECT_THROW((void)at(first), std::out_of_range);
    EXPECT_THROW((void)fast_path_->path(first), std::out_of_range);
    EXPECT_THROW((void)fast_path_->statistics(first), std::out_of_range);
    EXPECT_THROW(fast_path_->remove(first), std::out_of_range);
    EXPECT_THROW(fast_path_->set_path(9, usual_path), std::out_of_range);
    const std::size_t second = add(address.text()); // its port is free again
    EXPECT_NE(second, first);
    expect_answer(sender_, address);
    EXPECT_EQ(fast_path_->statistics(second).received_packets, 1u);
    EXPECT_EQ(received(), 2u); // removed ones are counted, too
}

TEST_P(fast_path_test, each_listener_has_its_own_path)
{
    const socket_address bound = serve({.workers = GetParam()});
    const std::size_t unbound = add("127.0.0.1:0", {responder_id, 99});
    sender_.send(at(unbound), request_of(14));
    EXPECT_TRUE(eventually([&] { return global().no_bind == 1; }));
    fast_path_->set_path(unbound, usual_path);
    EXPECT_EQ(fast_path_->path(unbound).bind_key, bind_key);
    expect_answer(sender_, at(unbound));
    expect_answer(sender_, bound);
}

TEST_P(fast_path_test, packets_wait_while_it_is_stopped)
{
    make({.workers = GetParam()});
    fast_path_->stop(); // nothing to stop
    const socket_address to = at(add());
    for (int round = 0; round < 3; ++round) {
        const std::deque<client> senders = send_from(20, to);
        fast_path_->start();
        fast_path_->start();
        EXPECT_TRUE(fast_path_->running());
        for (const client &each : senders)
            EXPECT_EQ(each.receive().payload.size(), 41u);
        fast_path_->stop();
        EXPECT_FALSE(fast_path_->running());
    }
}

TEST_P(fast_path_test, address_that_cannot_be_had_is_refused)
{
    const std::string taken = serve({.workers = GetParam()}).text();
    const client other{AF_INET}; // would share its address with others of the same user
    other.set_option(SOL_SOCKET, SO_REUSEPORT, 1);
    if (GetParam() == 1) {
        EXPECT_FALSE(other.can_bind_to(parse_socket_address(taken)));
    }
    other.bind_to("127.0.0.1:0");
    for (const std::string &each : {taken, other.local_address().text()})
        EXPECT_EQ(message_of_add(each), "cannot listen on " + each + ": Address already in use");
    EXPECT_EQ(message_of_add("192.0.2.1:0"), "cannot listen on 192.0.2.1:0: Cannot assign requested address");
}

TEST_P(fast_path_test, each_sender_belongs_to_one_worker_and_all_are_counted)
{
    const socket_address to = serve({.workers = GetParam()});
    const std::deque<client> senders = send_from(60, to);
    for (std::uint32_t round = 0; round < 10; ++round) {
        for (const client &each : senders) {
            const bytes reply = each.receive().payload;
            ASSERT_EQ(reply.size(), 41u);
            EXPECT_EQ(load_32(&reply[0]), round);
            if (round < 9)
                each.send(to, request_of(41));
        }
    }
    fast_path_->stop();
    EXPECT_EQ(counters(), (responder_counters{.received = 600, .transmitted = 600, .active = 60}));
    EXPECT_EQ(global(), (global_counters{.rx = 600, .tx = 600}));
    EXPECT_EQ(received(), 600u);
    EXPECT_EQ(fast_path_->statistics(served_).sent_replies, 600u);
    EXPECT_EQ(fast_path_->statistics().dropped_packets.sum() + fast_path_->statistics().failed_replies, 0u);
}

TEST_P(fast_path_test, maximum_of_sessions_is_for_all_together)
{
    write_state(responder_id, {.maximum_sessions = 10});
    const socket_address to = serve({.workers = GetParam()});
    const std::deque<client> first = send_from(10, to);
    for (const client &each : first) {
        (void)each.receive();
        expect_answer(each, to); // established
    }
    const std::deque<client> more = send_from(40, to);
    EXPECT_TRUE(have_taken(60));
    fast_path_->stop();
    EXPECT_EQ(counters(),
              (responder_counters{.received = 60, .transmitted = 20, .active = 10, .max_sessions = 40}));
    EXPECT_EQ(global(), (global_counters{.rx = 60, .tx = 20, .hash_error = 40}));
    EXPECT_EQ(fast_path_->sessions().size(), 10u);
    EXPECT_EQ(fast_path_->sessions_that_gave_way(), 0u);
}

/** Whichever worker has the sessions that may end, and though the others' threads sleep. */
TEST_P(fast_path_test, new_sender_finds_a_place_at_any_worker)
{
    processor_.run_timer();
    write_state(responder_id, {.maximum_sessions = 10});
    const socket_address to = serve({.workers = GetParam()});
    const std::deque<client> flood = send_from(100, to);
    EXPECT_TRUE(have_taken(100));
    for (int number = 0; number < 20; ++number) {
        const client newcomer{AF_INET};
        const std::uint64_t before = sent();
        EXPECT_TRUE(eventually([&] {
            newcomer.send(to, request_of(41));
            return sent() > before;
        }));
    }
    fast_path_->stop();
    EXPECT_EQ(counters().active, fast_path_->sessions().size());
    EXPECT_LE(counters().active, 10u);
}

TEST_P(fast_path_test, sessions_are_cleared_by_hand)
{
    const socket_address to = serve({.workers = GetParam()});
    const std::deque<client> senders = send_from(20, to);
    EXPECT_TRUE(have_taken(20));
    EXPECT_EQ(fast_path_->clear_sessions(8), 0u);
    EXPECT_EQ(fast_path_->clear_sessions(responder_id), 20u);
    EXPECT_EQ(counters().active, 0u);
    EXPECT_TRUE(fast_path_->sessions().empty());
}

TEST_P(fast_path_test, limit_of_packets_is_the_responders)
{
    const socket_address to = serve({.packets_per_second = 60, .workers = GetParam()});
    define_responder(8, {.maximum_sessions = 1000});
    const std::deque<client> senders = send_from(100, to);
    EXPECT_TRUE(have_taken(100));
    EXPECT_EQ(counters().received, 60u);
    EXPECT_EQ(dropped(drop_reason::packet_rate), 40u);
    processor_.set_timer(start_ticks + ticks_of(0, 1));
    const std::deque<client> later = send_from(100, to);
    EXPECT_TRUE(have_taken(200));
    EXPECT_EQ(counters().received, 75u);
    // Another responder's packets are limited for themselves.
    fast_path_->set_path(served_, {.responder_id = 8, .bind_key = bind_key});
    const std::deque<client> others = send_from(100, to);
    EXPECT_TRUE(have_taken(300));
    EXPECT_EQ(counters(8).received, 60u);
}

TEST_P(fast_path_test, sessions_are_listed_from_the_longest_idle_one_on)
{
    const socket_address to = serve({.workers = GetParam()});
    std::deque<client> senders;
    for (std::uint64_t number = 0; number < 20; ++number) {
        processor_.set_timer(start_ticks + ticks_of(number));
        expect_answer(senders.emplace_back(AF_INET), to);
    }
    const std::vector<session_summary> sessions = fast_path_->sessions();
    ASSERT_EQ(sessions.size(), 20u);
    for (std::size_t number = 0; number < 20; ++number)
        EXPECT_EQ(text_of(sessions[number].sender),
                  "127.0.0.1:" + std::to_string(senders[number].local_address().port()));
    EXPECT_EQ(sessions[0].responder_id, responder_id);
    EXPECT_EQ(sessions[0].replies, 1u);
    EXPECT_EQ(sessions[0].idle_seconds, 19);
}

INSTANTIATE_TEST_SUITE_P(workers, fast_path_test, testing::Values(1, 2, 4), [](const auto &row) {
    return std::string(row.param == 1 ? "one" : row.param == 2 ? "two" : "four");
});

// Several workers

class workers_test : public traffic_test {};

TEST_F(workers_test, share_the_work)
{
    udp_workers workers{processor_, {.workers = 4}};
    const socket_address to =
        workers.local_address(workers.add(parse_socket_address("127.0.0.1:0"), usual_path));
    const std::deque<client> senders = send_from(64, to);
    workers.start();
    EXPECT_TRUE(eventually([&] { return workers.statistics().sent_replies == 64; }));
    const std::vector<listener_statistics> shares = workers.statistics_by_worker();
    ASSERT_EQ(shares.size(), 4u);
    for (const listener_statistics &each : shares)
        EXPECT_GT(each.received_packets, 0u);
}

TEST_F(workers_test, have_equal_parts_of_the_room_for_sessions)
{
    const std::deque<client> senders = send_from(200, serve({.session_capacity = 5, .workers = 4})); // two each
    EXPECT_TRUE(have_taken(200));
    EXPECT_EQ(global(), (global_counters{.rx = 200, .tx = 200}));
    EXPECT_EQ(fast_path_->sessions().size(), 8u);
    EXPECT_EQ(fast_path_->sessions_that_gave_way(), 192u);
}

TEST_F(workers_test, idle_session_makes_room_at_others)
{
    expect_answer(client{AF_INET}, serve({.refwait_seconds = 10, .workers = 2}));
    EXPECT_EQ(counters().active, 1u);
    processor_.set_timer(start_ticks + ticks_of(10));
    EXPECT_TRUE(eventually([&] { return counters().active == 0; }));
    EXPECT_TRUE(fast_path_->sessions().empty());
}

TEST_F(workers_test, leave_nothing_open_when_one_gets_no_socket)
{
    const std::string wanted = serve({.workers = 4}).text();
    fast_path_->remove(served_);
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit few = before;
    few.rlim_cur =
        static_cast<rlim_t>(client{AF_INET}.number()) + 2; // the lowest that is free, and the next one
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    EXPECT_EQ(message_of_add(wanted), "cannot listen on " + wanted +
                                          ": Too many open files; this process may have " +
                                          std::to_string(few.rlim_cur) + " descriptors (ulimit -n)");
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_TRUE(client{AF_INET}.can_bind_to(parse_socket_address(wanted)));
    expect_answer(client{AF_INET}, at(add(wanted)));
}

// While packets keep coming

/** Asks again as soon as it is answered, or has not been for a moment: there is room for the replies to all
 * that it may have asked while the workers had no core. */
class steady_sender {
  public:
    explicit steady_sender(const socket_address &to) : to_(to), socket_(to.family()) {}

    /** @return Replies that have come. */
    std::uint32_t go_on()
    {
        std::uint32_t replies = 0;
        for (; !socket_.is_empty(); ++replies) {
            gaps_ += load_32(&socket_.receive().payload[0]) == next_++ ? 0 : 1;
            asks_at_ = {};
        }
        if (std::chrono::steady_clock::now() >= asks_at_) {
            socket_.send(to_, request_of(41));
            asks_at_ = std::chrono::steady_clock::now() + 20ms;
        }
        return replies;
    }
    /** Replies whose number did not follow the last one. */
    [[nodiscard]] int gaps() const { return gaps_; }

  private:
    socket_address to_;
    client socket_;
    std::uint32_t next_ = 0; ///< Number of the next reply.
    int gaps_ = 0;
    std::chrono::steady_clock::time_point asks_at_;
};

class steady_traffic_test : public traffic_test, public testing::WithParamInterface<std::string> {};

TEST_P(steady_traffic_test, sender_stays_with_its_worker_when_addresses_go_and_come_again)
{
    const socket_address always = serve({.workers = 4}, GetParam() + ":0");
    std::atomic<std::uint32_t> replies{0};
    std::atomic<bool> is_done{false};
    std::thread control{[&] {
        bool goes_on = true;
        for (int round = 0; round < 50 && goes_on; ++round) {
            const std::uint32_t before = replies;
            const std::size_t other = add();
            fast_path_->set_path(other, {.responder_id = responder_id, .bind_key = 99});
            (void)fast_path_->sessions();
            goes_on = eventually([&] { return replies > before + 200; });
            EXPECT_TRUE(goes_on) << round;
            fast_path_->remove(other);
            fast_path_->remove(served_);
            served_ = add(always.text());
        }
        is_done = true;
    }};
    std::vector<steady_sender> senders;
    while (senders.size() < 30)
        senders.emplace_back(always);
    while (!is_done) {
        for (steady_sender &each : senders)
            replies += each.go_on();
        std::this_thread::yield();
    }
    control.join();
    fast_path_->stop();
    for (const steady_sender &each : senders)
        EXPECT_EQ(each.gaps(), 0);
    EXPECT_EQ(fast_path_->sessions().size(), 30u);
    EXPECT_EQ(counters().active, 30u);
    EXPECT_EQ(counters().transmitted, sent() + fast_path_->statistics().failed_replies);
    EXPECT_EQ(counters().received, received());
}

INSTANTIATE_TEST_SUITE_P(families, steady_traffic_test, testing::ValuesIn(loopback_hosts()), family_of_host);

} // namespace
