// What the generator counts is what the server has seen.
#include "generator.hpp"

#include <algorithm>
#include <atomic>
#include <set>
#include <string>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include "echo_server.hpp"

namespace olv_bench {
namespace {

using namespace std::chrono_literals;

/** What the server has seen since it was started; to be read once it is stopped. */
std::uint64_t received = 0;
std::uint64_t dropped = 0;
std::set<std::string> senders;

constexpr std::uint64_t never = UINT64_MAX;

/** Echo all datagrams but one of so many. */
template <std::uint64_t drop_each> void echo(int socket, const std::atomic<bool> &stopping)
{
    char buffer[2048];
    sockaddr_in sender{};
    auto *const address = reinterpret_cast<sockaddr *>(&sender);
    received = dropped = 0;
    senders.clear();
    for (;;) {
        socklen_t length = sizeof sender;
        const ssize_t octets = recvfrom(socket, buffer, sizeof buffer, 0, address, &length);
        if (stopping) {
            return;
        }
        char text[INET_ADDRSTRLEN] = {};
        (void)inet_ntop(AF_INET, &sender.sin_addr, text, sizeof text);
        senders.insert(text);
        if (++received % drop_each == 0) {
            ++dropped;
        } else {
            (void)sendto(socket, buffer, static_cast<std::size_t>(octets), 0, address, length);
        }
    }
}

/** Longer than any reply takes, however busy the machine is. */
constexpr auto patience = 30s;
/** Where replies do not come, a test waits for as long. */
constexpr auto short_patience = 3s;

TEST(generator, counts_each_reply_and_measures_it)
{
    echo_server server{echo<never>};
    server.start();
    generator source{{.window = 8, .length = 44, .spins = false, .patience = patience}};
    source.aim(server.address(), 0);
    const traffic_figures seen = source.run(100ms);
    server.stop();
    EXPECT_GT(seen.received, 0u);
    EXPECT_EQ(seen.received, received);
    EXPECT_EQ(seen.sent, received);
    EXPECT_EQ(seen.lost, 0u);
    EXPECT_EQ(seen.round_trips.size(), seen.received);
    EXPECT_EQ(std::count(seen.round_trips.begin(), seen.round_trips.end(), 0u), 0);
    EXPECT_GE(seen.seconds, 0.1);
    EXPECT_DOUBLE_EQ(seen.replies_per_second(), static_cast<double>(seen.received) / seen.seconds);
}

TEST(generator, loses_what_the_server_drops)
{
    for (const std::uint32_t window : {1u, 256u}) {
        SCOPED_TRACE(window);
        echo_server server{echo<5>};
        server.start();
        generator source{{.window = window, .length = 1400, .spins = false, .patience = short_patience}};
        source.aim(server.address(), 0);
        const traffic_figures seen = source.run(100ms);
        server.stop();
        EXPECT_GT(seen.lost, 0u);
        EXPECT_EQ(seen.lost, dropped);
        EXPECT_EQ(seen.received, received - dropped);
        EXPECT_EQ(seen.sent, seen.received + seen.lost);
    }
}

TEST(generator, has_an_address_for_each_session_in_turn)
{
    echo_server server{echo<never>};
    server.start();
    generator source{{.window = 32, .sessions = 300, .length = 44, .spins = false, .patience = patience}};
    source.aim(server.address(), 0);
    source.send_requests(299);
    server.stop();
    EXPECT_EQ(received, 299u);
    ASSERT_EQ(senders.size(), 299u);
    EXPECT_EQ(*senders.begin(), "127.1.0.1");
    EXPECT_EQ(senders.count("127.1.0.255"), 1u);
    EXPECT_EQ(senders.count("127.1.1.43"), 1u);
    EXPECT_EQ(senders.count("127.1.1.44"), 0u);
}

TEST(generator, gives_up_where_nothing_can_be_sent)
{
    generator source{{.window = 4, .sessions = 2, .length = 44, .spins = false, .patience = 50ms}};
    source.aim(olv_net::parse_socket_address("255.255.255.255:9"), 0); // no socket may without asking for it
    EXPECT_THROW(source.send_requests(1), std::runtime_error);
}

} // namespace
} // namespace olv_bench
