// A flood at one socket of a server, and what goes on beside it. Floods are limited in time.

#include <algorithm>
#include <atomic>

#include <netinet/tcp.h>

#include "fastpath/udp/listening_socket.hpp"
#include "fastpath/udp/reply_batch.hpp"
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
    static constexpr auto longest = 60s;

    void run(const socket_address &to, std::size_t length)
    {
        const bytes request = request_of(length);
        const auto end = steady_clock::now() + longest;
        while (!stopping_ && steady_clock::now() < end) {
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

class flood_test : public traffic_test {
  protected:
    flood_test()
    {
        define_responder(8);
        make();
        flooded_ = add();
        quiet_ = add("127.0.0.1:0", {8, bind_key});
        fast_path_->start();
    }

    /** Once the flood keeps the server busy. */
    [[nodiscard]] bool is_up(const flood &flood) const
    {
        return eventually(
            [&] { return flood.sent() > 1000 && fast_path_->statistics(flooded_).received_packets > 1000; });
    }

    std::size_t flooded_ = 0;
    std::size_t quiet_ = 0;
};

TEST_F(flood_test, holds_up_neither_another_responder_nor_the_control_side)
{
    // Several, so that the server never comes to rest.
    const flood first{at(flooded_), 0};
    const flood second{at(flooded_), 41};
    const flood third{at(flooded_), 1472};
    ASSERT_TRUE(is_up(first) && is_up(second) && is_up(third));
    const client sender{AF_INET};
    for (std::uint32_t number = 1; number <= 300; ++number) {
        expect_answer(sender, at(quiet_), 41);
        fast_path_->set_path(quiet_, {8, bind_key});
        EXPECT_EQ(fast_path_->path(quiet_).responder_id, 8u);
        EXPECT_EQ(fast_path_->statistics(quiet_).received_packets, number);
        (void)add();
    }
    fast_path_->stop();
    EXPECT_EQ(counters(8), (responder_counters{.received = 300, .transmitted = 300, .active = 1}));
    EXPECT_TRUE(first.goes_on() && second.goes_on() && third.goes_on());
}

/** A stream that nobody reads from: it takes no more once it is full. */
class full_stream {
  public:
    full_stream()
    {
        const socket_address any_port = parse_socket_address("127.0.0.1:0");
        EXPECT_EQ(bind(listening_.number(), any_port.generic(), any_port.length), 0);
        EXPECT_EQ(listen(listening_.number(), 1), 0);
        const socket_address address = local_address_of(listening_.number()).value();
        EXPECT_EQ(connect(number(), address.generic(), address.length), 0);
        EXPECT_TRUE(eventually([this] { return is_full(); }));
    }

    [[nodiscard]] int number() const { return sending_.number(); }

  private:
    /** Whether it takes nothing, and nothing is on its way that would leave room once it is there. */
    [[nodiscard]] bool is_full() const
    {
        const bytes filler(65536);
        while (send(number(), filler.data(), filler.size(), MSG_DONTWAIT) >= 0) {
        }
        tcp_info info{};
        socklen_t length = sizeof info;
        EXPECT_EQ(getsockopt(number(), IPPROTO_TCP, TCP_INFO, &info, &length), 0);
        return info.tcpi_unacked == 0 && send(number(), filler.data(), 1, MSG_DONTWAIT) < 0;
    }

    descriptor listening_{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    descriptor sending_{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
};

TEST_F(flood_test, of_requests_waits_for_a_full_socket_for_a_moment_only)
{
    const listening_socket receiving{parse_socket_address("127.0.0.1:0")};
    const client sender{AF_INET};
    for (int number = 0; number < 5; ++number)
        sender.send(receiving.local(), request_of(41));
    receive_batch requests{65535};
    ASSERT_EQ(requests.receive(receiving.number()), 5u);
    reply_batch replies;
    const full_stream full;
    steady_clock::duration shortest = patience; // the thread may lose its core in one of the attempts
    for (int attempt = 0; attempt < 5; ++attempt) {
        for (std::size_t index = 0; index < 5; ++index)
            replies.answer(requests.message(index), 0, false, [](std::span<std::uint8_t> room) {
                return verdict{.dropped = {}, .reply = {room.first(41), {}, 0}};
            });
        const auto start = steady_clock::now();
        const send_result result = replies.send(full.number(), processor_clock{processor_});
        shortest = std::min<steady_clock::duration>(shortest, steady_clock::now() - start);
        EXPECT_EQ(result.sent, 0u);
        EXPECT_EQ(result.failed, 5u);
    }
    EXPECT_LT(shortest, 500ms);
}

} // namespace
