#include "generator.hpp"

#include <algorithm>
#include <atomic>
#include <optional>
#include <set>
#include <thread>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>

namespace {

using namespace reflect_bench;
using namespace std::chrono_literals;

/** Echoes all datagrams but every so manieth. */
class lossy_echo {
  public:
    /** @param each  The datagram that is dropped; 0: none. */
    explicit lossy_echo(std::uint64_t each) : each_(each), thread_([this] { echo(); }) {}
    ~lossy_echo() { stop(); }

    void stop()
    {
        stopping_ = true;
        if (thread_.joinable())
            thread_.join();
    }

    [[nodiscard]] const olv_net::socket_address &address() const { return socket_.local_address(); }
    // Once stopped:
    [[nodiscard]] std::uint64_t received() const { return received_; }
    [[nodiscard]] std::uint64_t dropped() const { return dropped_; }
    [[nodiscard]] const std::set<std::string> &senders() const { return senders_; }

  private:
    void echo()
    {
        while (!stopping_) {
            pollfd readable{.fd = socket_.number(), .events = POLLIN, .revents = 0};
            if (poll(&readable, 1, 10) == 1)
                echo_one();
        }
    }

    void echo_one()
    {
        char buffer[2048];
        sockaddr_in sender{};
        socklen_t length = sizeof sender;
        const ssize_t octets = recvfrom(socket_.number(), buffer, sizeof buffer, 0,
                                        reinterpret_cast<sockaddr *>(&sender), &length);
        if (octets < 0)
            return;
        char text[INET_ADDRSTRLEN] = {};
        (void)inet_ntop(AF_INET, &sender.sin_addr, text, sizeof text);
        senders_.insert(text);
        if (++received_ % each_ == 0) {
            ++dropped_;
            return;
        }
        (void)sendto(socket_.number(), buffer, static_cast<std::size_t>(octets), 0,
                     reinterpret_cast<const sockaddr *>(&sender), length);
    }

    udp_socket socket_{olv_net::parse_socket_address("127.0.0.1:0")};
    std::uint64_t each_;
    std::uint64_t received_ = 0;
    std::uint64_t dropped_ = 0;
    std::set<std::string> senders_;
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

constexpr std::uint64_t never = UINT64_MAX;
/** Longer than any reply takes, however busy the machine is. */
constexpr auto patience = 30s;
/** The same of tests that wait for as long, as a reply does not come. */
constexpr auto short_patience = 3s;

TEST(generator, counts_each_reply_and_measures_it)
{
    lossy_echo server{never};
    generator source{{.window = 8, .length = 44, .spins = false, .patience = patience}};
    source.aim(server.address(), 0);
    const traffic_figures seen = source.run(100ms);
    server.stop();
    EXPECT_GT(seen.received, 0u);
    EXPECT_EQ(seen.received, server.received());
    EXPECT_EQ(seen.sent, server.received());
    EXPECT_EQ(seen.lost, 0u);
    EXPECT_EQ(seen.unexpected, 0u);
    EXPECT_EQ(seen.round_trips.size(), seen.received);
    EXPECT_EQ(std::count(seen.round_trips.begin(), seen.round_trips.end(), 0u), 0);
    EXPECT_GE(seen.seconds, 0.1);
    EXPECT_DOUBLE_EQ(seen.replies_per_second(), static_cast<double>(seen.received) / seen.seconds);
}

class loss_test : public testing::TestWithParam<std::uint32_t> {};

TEST_P(loss_test, is_what_the_server_drops)
{
    lossy_echo server{5};
    generator source{{.window = GetParam(), .length = 44, .spins = false, .patience = short_patience}};
    source.aim(server.address(), 0);
    const traffic_figures seen = source.run(700ms);
    server.stop();
    EXPECT_GT(seen.lost, 0u);
    EXPECT_EQ(seen.lost, server.dropped());
    EXPECT_EQ(seen.received, server.received() - server.dropped());
    EXPECT_EQ(seen.sent, seen.received + seen.lost);
}

INSTANTIATE_TEST_SUITE_P(windows, loss_test, testing::Values(1, 32, 256),
                         [](const auto &row) { return std::to_string(row.param); });

TEST(generator, requests_to_nobody_are_lost)
{
    std::optional<lossy_echo> server;
    server.emplace(never);
    generator source{{.window = 4, .sessions = 2, .length = 44, .spins = false}};
    source.aim(server->address(), 0);
    server.reset();
    const traffic_figures seen = source.run(50ms);
    EXPECT_EQ(seen.received, 0u);
    EXPECT_EQ(seen.lost, 4u);
    EXPECT_EQ(seen.replies_per_second(), 0.0);
}

TEST(generator, replies_with_the_number_elsewhere_are_unexpected)
{
    lossy_echo server{never};
    generator source{{.window = 1, .length = 44, .spins = false, .patience = short_patience}};
    source.aim(server.address(), 4); // zeros
    source.send_requests(1);         // number 0: its reply has zeros there, too
    const traffic_figures seen = source.run(50ms);
    server.stop();
    EXPECT_EQ(seen.sent, 1u);
    EXPECT_EQ(seen.received, 0u);
    EXPECT_EQ(seen.unexpected, 1u);
    EXPECT_EQ(seen.lost, 1u);
}

TEST(generator, sessions_are_addresses_in_turn)
{
    lossy_echo server{never};
    generator source{{.window = 32, .sessions = 300, .length = 44, .spins = false, .patience = patience}};
    source.aim(server.address(), 0);
    source.send_requests(299);
    server.stop();
    EXPECT_EQ(server.received(), 299u);
    ASSERT_EQ(server.senders().size(), 299u);
    EXPECT_EQ(*server.senders().begin(), "127.1.0.1");
    EXPECT_EQ(server.senders().count("127.1.0.255"), 1u);
    EXPECT_EQ(server.senders().count("127.1.1.43"), 1u);
    EXPECT_EQ(server.senders().count("127.1.1.44"), 0u);
}

TEST(generator, segmented_requests_are_requests)
{
    lossy_echo server{5};
    generator source{
        {.window = 100, .length = 1400, .segments = true, .spins = false, .patience = short_patience}};
    source.aim(server.address(), 0);
    const traffic_figures seen = source.run(short_patience);
    server.stop();
    EXPECT_GT(seen.received, 100u);
    EXPECT_EQ(seen.sent, server.received());
    EXPECT_EQ(seen.lost, server.dropped());
}

TEST(generator, refuses_traffic_that_cannot_be)
{
    EXPECT_THROW(generator({.window = 0}), std::runtime_error);
    EXPECT_THROW(generator({.sessions = 0}), std::runtime_error);
    EXPECT_THROW(generator({.length = 3}), std::runtime_error);
    EXPECT_THROW(generator({.length = 2049}), std::runtime_error);
}

} // namespace
