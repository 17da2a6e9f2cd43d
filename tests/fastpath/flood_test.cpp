// A flood at one socket of a server, and what goes on beside it. Floods are limited in number and in time.

#include <algorithm>
#include <atomic>
#include <deque>

#include "fastpath/udp/udp_datagrams.hpp"
#include "udp_fixture.hpp"

namespace {

using namespace olv_fastpath_test;
using std::chrono::steady_clock;

/** Sends requests as fast as it can while it lives. */
class flood {
  public:
    flood(const socket_address &to, std::size_t length)
        : sender_(to.family()), thread_([this, to, length] { run(to, length); })
    {}
    ~flood()
    {
        stopping_ = true;
        thread_.join();
    }
    flood(const flood &) = delete;
    flood &operator=(const flood &) = delete;

    [[nodiscard]] std::uint64_t sent() const { return sent_; }
    [[nodiscard]] bool goes_on() const { return !over_; }

  private:
    static constexpr std::uint64_t most = 50'000'000;
    static constexpr auto longest = 60s;

    void run(const socket_address &to, std::size_t length)
    {
        const bytes request = request_of(length);
        const auto end = steady_clock::now() + longest;
        while (!stopping_ && sent_ < most && steady_clock::now() < end) {
            sender_.send(to, request);
            ++sent_;
        }
        over_ = true;
    }

    client sender_;
    std::atomic<bool> stopping_{false};
    std::atomic<bool> over_{false};
    std::atomic<std::uint32_t> sent_{0};
    std::thread thread_;
};

class flood_test : public fastpath_test {
  protected:
    flood_test()
    {
        define_usual_path({.maximum_sessions = 2});
        define_responder(8);
        flooded_ = server_.add(parse_socket_address("127.0.0.1:0"), usual_path);
        quiet_ = server_.add(parse_socket_address("127.0.0.1:0"), {8, bind_key});
        server_.start();
    }

    /** Once the flood keeps the server busy. */
    [[nodiscard]] bool is_up(const flood &flood) const
    {
        return eventually([&] { return flood.sent() > 1000 && server_.statistics(flooded_).received > 1000; });
    }

    reflector reflector_{processor_};
    udp_server server_{reflector_};
    std::size_t flooded_ = 0;
    std::size_t quiet_ = 0;
};

class flood_of_size_test : public flood_test, public testing::WithParamInterface<std::size_t> {};

TEST_P(flood_of_size_test, takes_no_answer_from_another_responder)
{
    const flood flood{server_.local_address(flooded_), GetParam()};
    ASSERT_TRUE(is_up(flood));
    const client sender{AF_INET};
    for (int number = 0; number < 200; ++number) {
        sender.send(server_.local_address(quiet_), request_of(41));
        ASSERT_EQ(sender.receive().payload.size(), 41u) << number;
    }
    EXPECT_EQ(counters(8), (responder_counters{.received = 200, .transmitted = 200, .active = 1}));
}

INSTANTIATE_TEST_SUITE_P(sizes, flood_of_size_test, testing::Values(0, 41, 1472),
                         [](const auto &row) { return std::to_string(row.param); });

TEST_F(flood_test, does_not_hold_the_control_side_up)
{
    // Several, so that the server never comes to rest.
    const flood first{server_.local_address(flooded_), 41};
    const flood second{server_.local_address(flooded_), 41};
    const flood third{server_.local_address(flooded_), 41};
    ASSERT_TRUE(is_up(third));
    for (int number = 0; number < 300; ++number) {
        server_.set_path(quiet_, {8, bind_key});
        EXPECT_EQ(server_.path(quiet_).responder_id, 8u);
        EXPECT_EQ(server_.statistics(quiet_).received, 0u);
        (void)server_.add(parse_socket_address("127.0.0.1:0"), usual_path);
        (void)counters(8);
    }
    server_.stop();
    EXPECT_TRUE(first.goes_on() && second.goes_on() && third.goes_on());
}

TEST_F(flood_test, of_new_sessions_takes_no_session_from_another_responder)
{
    const client known{AF_INET};
    known.send(server_.local_address(flooded_), request_of(41));
    EXPECT_EQ(known.receive().payload.size(), 41u);
    std::deque<client> fresh; // all open at once: a port that is free again may be the next one's
    for (int number = 0; number < 200; ++number) {
        fresh.emplace_back(AF_INET).send(server_.local_address(flooded_), request_of(41));
    }
    ASSERT_TRUE(eventually([&] { return server_.statistics(flooded_).received == 201; }));
    EXPECT_EQ(counters(),
              (responder_counters{.received = 201, .transmitted = 2, .active = 2, .max_sessions = 199}));
    known.send(server_.local_address(flooded_), request_of(41));
    EXPECT_EQ(known.receive().payload.size(), 41u);
    for (int number = 0; number < 32; ++number) {
        const client &sender = fresh.emplace_back(AF_INET);
        sender.send(server_.local_address(quiet_), request_of(41));
        EXPECT_EQ(sender.receive().payload.size(), 41u);
    }
    EXPECT_EQ(counters(8), (responder_counters{.received = 32, .transmitted = 32, .active = 32}));
}

/** A stream that nobody reads from: it takes no more once it is full. */
class full_stream {
  public:
    full_stream()
        : listening_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)),
          sending_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        socket_address address = parse_socket_address("127.0.0.1:0");
        EXPECT_EQ(bind(listening_, reinterpret_cast<const sockaddr *>(&address.address), address.length), 0);
        EXPECT_EQ(listen(listening_, 1), 0);
        EXPECT_EQ(getsockname(listening_, reinterpret_cast<sockaddr *>(&address.address), &address.length), 0);
        EXPECT_EQ(connect(sending_, reinterpret_cast<const sockaddr *>(&address.address), address.length), 0);
        // What is on its way leaves room when it is there.
        while (fill() > 0)
            std::this_thread::sleep_for(300ms);
    }
    ~full_stream()
    {
        close(listening_);
        close(sending_);
    }
    full_stream(const full_stream &) = delete;
    full_stream &operator=(const full_stream &) = delete;

    [[nodiscard]] int number() const { return sending_; }

  private:
    /** @return How many octets it took. */
    [[nodiscard]] ssize_t fill() const
    {
        const bytes filler(65536);
        ssize_t all = 0;
        for (ssize_t taken = 0; taken >= 0; taken = send(sending_, filler.data(), filler.size(), MSG_DONTWAIT))
            all += taken;
        return all;
    }

    int listening_;
    int sending_;
};

TEST(datagram_batch, full_socket_holds_up_for_a_moment_only)
{
    const int receiving = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    socket_address address = parse_socket_address("127.0.0.1:0");
    ASSERT_EQ(bind(receiving, reinterpret_cast<const sockaddr *>(&address.address), address.length), 0);
    ASSERT_EQ(getsockname(receiving, reinterpret_cast<sockaddr *>(&address.address), &address.length), 0);
    const client sender{AF_INET};
    for (int number = 0; number < 5; ++number)
        sender.send(address, request_of(41));

    datagram_batch batch{65535};
    const std::size_t received = batch.receive(receiving);
    close(receiving);
    ASSERT_EQ(received, 5u);
    const full_stream full;
    steady_clock::duration shortest = patience; // the thread may lose its core in one of the attempts
    for (int attempt = 0; attempt < 5; ++attempt) {
        for (std::size_t index = 0; index < received; ++index) {
            EXPECT_EQ(batch.open(index), 1u);
            batch.add_reply(0, {.result = outcome::reflected, .reply_length = 41});
        }
        const auto start = steady_clock::now();
        const send_result result = batch.send(full.number());
        shortest = std::min(shortest, steady_clock::now() - start);
        EXPECT_EQ(result.sent, 0u);
        EXPECT_EQ(result.failed, 5u);
    }
    EXPECT_LT(shortest, 500ms);
}

} // namespace
