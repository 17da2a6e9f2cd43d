#include "fastpath/udp/listening_socket.hpp"

#include <deque>
#include <map>

#include "udp_fixture.hpp"

namespace {

using namespace olv_fastpath_test;

/** Take what waits. @return The ports it came from. */
std::vector<std::uint16_t> senders_waiting_in(const listening_socket &socket)
{
    std::vector<std::uint16_t> ports;
    std::uint8_t octet = 0;
    socket_address from;
    from.length = sizeof from.address;
    while (recvfrom(socket.number(), &octet, 1, MSG_DONTWAIT, reinterpret_cast<sockaddr *>(&from.address),
                    &from.length) >= 0)
        ports.push_back(from.port());
    return ports;
}

class listening_socket_test : public testing::TestWithParam<const char *> {
  protected:
    void SetUp() override
    {
        try {
            sockets_ = listening_socket::open_together(parse_socket_address(GetParam()), 3);
        } catch (const std::runtime_error &error) {
            GTEST_SKIP() << error.what();
        }
        for (int number = 0; number < 50; ++number)
            senders_.emplace_back(sockets_.front().local().family());
    }

    void send_from_all() const
    {
        for (const client &each : senders_)
            each.send(sockets_.front().local(), request_of(41));
    }

    std::vector<listening_socket> sockets_;
    std::deque<client> senders_;
};

TEST_P(listening_socket_test, nothing_is_received_before_it_is_let_in)
{
    send_from_all();
    for (listening_socket &each : sockets_) {
        EXPECT_TRUE(senders_waiting_in(each).empty());
        each.let_in();
        EXPECT_TRUE(senders_waiting_in(each).empty());
    }
}

TEST_P(listening_socket_test, each_sender_stays_with_one_of_several)
{
    for (listening_socket &each : sockets_) {
        EXPECT_EQ(each.local().port(), sockets_.front().local().port());
        each.let_in();
    }
    std::map<std::uint16_t, std::size_t> owner;
    for (int round = 0; round < 5; ++round) {
        send_from_all();
        std::size_t received = 0;
        for (std::size_t number = 0; number < sockets_.size(); ++number) {
            const std::vector<std::uint16_t> ports = senders_waiting_in(sockets_[number]);
            EXPECT_FALSE(ports.empty());
            received += ports.size();
            for (const std::uint16_t port : ports)
                EXPECT_EQ(owner.emplace(port, number).first->second, number);
        }
        EXPECT_EQ(received, 50u);
    }
}

INSTANTIATE_TEST_SUITE_P(families, listening_socket_test, testing::Values("127.0.0.1:0", "[::1]:0"),
                         [](const auto &row) { return row.index == 0 ? "ipv4" : "ipv6"; });

TEST(listening_socket, one_alone_receives_at_once)
{
    std::vector<listening_socket> sockets =
        listening_socket::open_together(parse_socket_address("127.0.0.1:0"), 1);
    ASSERT_EQ(sockets.size(), 1u);
    const client sender{AF_INET};
    sender.send(sockets[0].local(), request_of(41));
    EXPECT_EQ(senders_waiting_in(sockets[0]), std::vector{sender.local_address().port()});
    sockets[0].let_in();
    sender.send(sockets[0].local(), request_of(41));
    EXPECT_EQ(senders_waiting_in(sockets[0]).size(), 1u);
}

} // namespace
