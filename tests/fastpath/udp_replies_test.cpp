// What replies are sent with, and the buffers that they are made in.

#include <bit>

#include "udp_fixture.hpp"

namespace {

using namespace olv_fastpath_test;

class host_test : public traffic_test, public testing::WithParamInterface<std::string> {
  protected:
    const bool ipv6_ = GetParam() == "[::1]";
    client sender_{ipv6_ ? AF_INET6 : AF_INET};
};

TEST_P(host_test, reply_has_the_requests_ttl_and_traffic_class)
{
    const socket_address to = serve({}, GetParam() + ":0");
    const int level = ipv6_ ? IPPROTO_IPV6 : IPPROTO_IP;
    sender_.set_option(level, ipv6_ ? IPV6_UNICAST_HOPS : IP_TTL, 77);
    sender_.set_option(level, ipv6_ ? IPV6_TCLASS : IP_TOS, 0xB9);
    sender_.send(to, request_of(100));
    const client::reply reply = sender_.receive();
    ASSERT_EQ(reply.payload.size(), 100u);
    EXPECT_EQ(reply.payload[40], 77);
    EXPECT_EQ(reply.from, to.text());
    // qemu-user hands IPv6 traffic classes on unconverted: big-endian programs cannot tell them under it.
    const bool can_tell = !ipv6_ || std::endian::native == std::endian::little;
    EXPECT_TRUE(reply.traffic_class == 0xB8 || !can_tell) << reply.traffic_class;
}

TEST_P(host_test, reply_comes_from_the_address_that_was_asked)
{
    const std::string port = std::to_string(serve({}, ipv6_ ? "[::]:0" : "0.0.0.0:0").port());
    if (ipv6_)
        sender_.set_option(IPPROTO_IPV6, IPV6_TCLASS, 0x28); // more control data beside the address
    for (const std::string &host : {GetParam(), ipv6_ ? GetParam() : std::string("127.0.0.3")}) {
        sender_.send(parse_socket_address(host + ":" + port), request_of(14));
        EXPECT_EQ(sender_.receive().from, host + ":" + port);
    }
}

/** The buffers of a whole batch are filled with a pattern before each request. */
TEST_P(host_test, reply_shows_no_byte_of_an_earlier_datagram)
{
    const socket_address to = serve({}, GetParam() + ":0");
    const bytes pattern(1472, 0xA7);
    for (const std::size_t length : {0u, 13u, 14u, 27u, 28u, 40u, 41u, 44u, 45u, 100u}) {
        for (int number = 0; number < 32; ++number) {
            sender_.send(to, pattern);
            EXPECT_EQ(sender_.receive().payload.size(), 1472u);
        }
        sender_.send(to, bytes(length, 0));
        sender_.send(to, bytes(14, 0));
        for (std::size_t number = length < 14 ? 1 : 0; number < 2; ++number) {
            bytes answer = sender_.receive().payload;
            ASSERT_EQ(answer.size(), number == 1 ? 41 : std::max<std::size_t>(length, 41));
            // Number and times may have any bytes.
            std::fill(&answer[0], &answer[12], std::uint8_t{0});
            std::fill(&answer[16], &answer[24], std::uint8_t{0});
            EXPECT_EQ(std::count(answer.begin(), answer.end(), 0xA7), 0) << length;
        }
        EXPECT_TRUE(sender_.is_empty()) << length;
    }
}

TEST_P(host_test, largest_datagrams_are_reflected_whole)
{
    const socket_address to = serve({}, GetParam() + ":0");
    const bytes request = request_of(ipv6_ ? 65527 : 65507);
    for (int round = 0; round < 3; ++round) {
        for (int number = 0; number < 2; ++number)
            sender_.send(to, request);
        for (int number = 0; number < 2; ++number) {
            const bytes reply = sender_.receive().payload;
            ASSERT_EQ(reply.size(), request.size());
            EXPECT_TRUE(std::equal(reply.begin() + 41, reply.end(), request.begin() + 14));
        }
        expect_answer(sender_, to);
    }
    EXPECT_EQ(dropped(drop_reason::too_long), 0u);
}

INSTANTIATE_TEST_SUITE_P(families, host_test, testing::ValuesIn(loopback_hosts()), family_of_host);

class buffers_test : public traffic_test {
  protected:
    const client sender_{AF_INET};
};

TEST_F(buffers_test, datagrams_that_are_longer_are_dropped_and_counted)
{
    const socket_address to = serve({.longest_datagram = 100});
    for (const std::size_t length : {101u, 1472u, 65507u}) {
        sender_.send(to, bytes(length, 0xA7));
        expect_answer(sender_, to, 100);
    }
    EXPECT_TRUE(sender_.is_empty());
    EXPECT_EQ(dropped(drop_reason::too_long), 3u);
    EXPECT_EQ(global(), (global_counters{.rx = 3, .tx = 3}));
}

TEST_F(buffers_test, have_room_for_a_header_however_short_datagrams_are_to_be)
{
    const socket_address to = serve({.longest_datagram = 0});
    expect_answer(sender_, to, 14);
    expect_answer(sender_, to, 44);
}

} // namespace
