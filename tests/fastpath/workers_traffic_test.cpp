// Workers while packets keep coming, and addresses come and go.

#include <atomic>

#include "workers_fixture.hpp"

namespace {

using namespace olv_fastpath_test;

using std::chrono::steady_clock;

/** Senders that ask again as soon as they are answered, or have not been for a moment: a sender has room for
 * the replies to all that it may have asked while the workers had no core. */
class steady_senders {
  public:
    steady_senders(const socket_address &to, std::size_t count) : to_(to)
    {
        while (senders_.size() < count)
            senders_.emplace_back();
        thread_ = std::thread{[this] { run(); }};
    }
    ~steady_senders() { stop(); }
    steady_senders(const steady_senders &) = delete;
    steady_senders &operator=(const steady_senders &) = delete;

    void stop()
    {
        stopping_ = true;
        if (thread_.joinable())
            thread_.join();
    }

    [[nodiscard]] std::uint32_t replies() const { return replies_; }
    /** Replies whose number did not follow the sender's last one. */
    [[nodiscard]] std::uint32_t gaps() const { return gaps_; }

  private:
    struct steady_sender {
        client socket{AF_INET};
        std::uint32_t next = 0; ///< Number of its next reply.
        steady_clock::time_point asks_at;
    };
    static constexpr auto moment = 20ms;

    void run()
    {
        while (!stopping_) {
            for (steady_sender &each : senders_)
                ask(each);
            std::this_thread::sleep_for(100us);
            for (steady_sender &each : senders_) {
                while (!each.socket.is_empty())
                    take(each.socket.receive().payload, each);
            }
        }
    }

    void ask(steady_sender &sender) const
    {
        const steady_clock::time_point now = steady_clock::now();
        if (now >= sender.asks_at) {
            sender.socket.send(to_, request_of(41));
            sender.asks_at = now + moment;
        }
    }

    void take(const bytes &reply, steady_sender &sender)
    {
        gaps_ += load_32(&reply[0]) == sender.next ? 0 : 1;
        ++replies_;
        ++sender.next;
        sender.asks_at = {};
    }

    socket_address to_;
    std::deque<steady_sender> senders_;
    std::atomic<bool> stopping_{false};
    std::atomic<std::uint32_t> replies_{0};
    std::atomic<std::uint32_t> gaps_{0};
    std::thread thread_;
};

TEST_F(workers_test, sender_stays_with_its_worker_when_its_address_goes_and_comes_again)
{
    define_usual_path({.maximum_sessions = 100});
    serve({.count = 4});
    const socket_address always = address();
    steady_senders senders{always, 30};
    for (int round = 0; round < 50; ++round) {
        const std::uint32_t before = senders.replies();
        ASSERT_TRUE(eventually([&] { return senders.replies() > before + 200; })) << round;
        workers_->remove(index_);
        index_ = workers_->add(always, usual_path);
    }
    senders.stop();
    workers_->stop();
    EXPECT_EQ(senders.gaps(), 0u);
    EXPECT_EQ(workers_->sessions().size(), 30u);
    EXPECT_EQ(counters().active, 30u);
}

TEST_F(workers_test, other_addresses_come_and_go_beside_traffic)
{
    define_usual_path({.maximum_sessions = 100});
    serve({.count = 2});
    steady_senders senders{address(), 30};
    for (int round = 0; round < 100; ++round) {
        const std::size_t other = workers_->add(parse_socket_address("127.0.0.1:0"), usual_path);
        const client sender{AF_INET};
        workers_->set_path(other, {.responder_id = responder_id, .bind_key = 99});
        workers_->set_path(other, usual_path);
        (void)workers_->sessions();
        workers_->remove(other);
    }
    const std::uint32_t before = senders.replies();
    EXPECT_TRUE(eventually([&] { return senders.replies() > before; }));
    senders.stop();
    EXPECT_EQ(senders.gaps(), 0u);
}

TEST_F(workers_test, counters_are_exact_under_load)
{
    define_usual_path({.maximum_sessions = 20});
    serve({.count = 2});
    {
        steady_senders first{address(), 30};
        steady_senders second{address(), 30};
        EXPECT_TRUE(eventually([&] {
            return first.replies() + second.replies() > 1000 && counters().active == 20 &&
                   counters().max_sessions > 0;
        }));
    }
    const auto waiting = [&] { return workers_->statistics().received; };
    std::uint64_t seen = 0;
    EXPECT_TRUE(eventually([&] { return std::exchange(seen, waiting()) == waiting(); }));
    workers_->stop();
    const udp_statistics all = workers_->statistics();
    const responder_counters own = counters();
    EXPECT_EQ(own.active, 20u);
    EXPECT_EQ(own.received, all.received);
    EXPECT_EQ(own.transmitted, all.sent + all.send_failures);
    EXPECT_EQ(own.received, own.transmitted + own.max_sessions);
    EXPECT_GT(own.max_sessions, 0u);
    EXPECT_EQ(global(),
              (global_counters{.rx = own.received, .tx = own.transmitted, .hash_error = own.max_sessions}));
}

TEST_F(workers_test, limit_of_packets_holds_while_time_goes_by)
{
    processor_.run_timer();
    define_usual_path({.maximum_sessions = 100});
    serve({.count = 2, .server = {.packets_per_second = 100}});
    const std::uint64_t frequency = processor_.timer_frequency();
    const std::uint64_t began = processor_.timer_now();
    {
        steady_senders senders{address(), 30};
        EXPECT_TRUE(eventually([&] { return workers_->statistics().rate_limited > 200; }));
        // All that was to be had has been taken by now.
        EXPECT_GE(workers_->statistics().received, 100u);
    }
    workers_->stop();
    const std::uint64_t earned = (processor_.timer_now() - began) * 100 / frequency;
    // A full bucket at first, then what it earned; one more for the part of a packet that it had then.
    EXPECT_LE(workers_->statistics().received, 100 + earned + 1);
}

} // namespace
