// What is sent to multicast groups and broadcast addresses.

#include <net/route.h>
#include <sys/ioctl.h>

#include "udp_fixture.hpp"

namespace {

using namespace olv_fastpath_test;

/** What more than one host may have as its address. */
class groups_test : public traffic_test, public testing::WithParamInterface<std::uint32_t> {
  protected:
    struct row {
        const char *listening, *sent_to; ///< Without the port.
    };
    static std::vector<row> rows()
    {
        std::vector<row> all{
            {"0.0.0.0", "239.1.2.3"}, {"0.0.0.0", "127.255.255.255"}, {"127.255.255.255", "127.255.255.255"}};
        if (reaches_ipv6_groups())
            all.push_back({"[::]", "[ff01::1%lo]"});
        return all;
    }

    /** Have packets to the groups of an interface come back by the loopback. @return Whether they do. */
    static bool reaches_ipv6_groups()
    {
        const client sender{AF_INET6};
        const socket_address group = parse_socket_address("[ff01::1%lo]:9");
        in6_rtmsg route{};
        route.rtmsg_dst = reinterpret_cast<const sockaddr_in6 &>(group.address).sin6_addr;
        route.rtmsg_dst_len = 16;
        route.rtmsg_flags = RTF_UP;
        route.rtmsg_metric = 1;
        route.rtmsg_ifindex = 1;
        (void)ioctl(sender.number(), SIOCADDRT, &route); // fails where it is there
        return sendto(sender.number(), "", 0, 0, group.generic(), group.length) == 0;
    }

    /** Send twenty requests to a row's address, from a host that is in the group. */
    client send(const row &each, const socket_address &listening)
    {
        const socket_address to = parse_socket_address(each.sent_to + (":" + std::to_string(listening.port())));
        client sender{to.family()};
        if (to.family() == AF_INET) {
            sender.set_option(SOL_SOCKET, SO_BROADCAST, 1);
            const ip_mreqn joined{.imr_multiaddr = reinterpret_cast<const sockaddr_in &>(to.address).sin_addr,
                                  .imr_address = {.s_addr = htonl(INADDR_LOOPBACK)},
                                  .imr_ifindex = 0};
            (void)setsockopt(sender.number(), IPPROTO_IP, IP_ADD_MEMBERSHIP, &joined, sizeof joined);
            sender.bind_to("127.0.0.1:0"); // packets to a group leave by the interface of their source
        } else {
            sender.set_option(IPPROTO_IPV6, IPV6_MULTICAST_IF, 1);
        }
        for (int number = 0; number < 20; ++number)
            sender.send(to, request_of(41));
        return sender;
    }
};

TEST_P(groups_test, packets_are_dropped_and_counted_once)
{
    for (const row &each : rows()) {
        const socket_address listening = serve({.workers = GetParam()}, each.listening + std::string(":0"));
        const client sender = send(each, listening);
        EXPECT_TRUE(eventually([&] { return dropped(drop_reason::not_to_this_host) == 20; })) << each.sent_to;
        if (listening.family() == AF_INET && each.listening[0] == '0')
            expect_answer(sender, parse_socket_address("127.9.8.7:" + std::to_string(listening.port())));
        fast_path_->stop();
        EXPECT_EQ(fast_path_->statistics().dropped_packets.sum(), 20u) << each.sent_to;
        EXPECT_TRUE(sender.is_empty()) << each.sent_to;
    }
}

TEST_P(groups_test, packets_are_answered_once_where_that_is_asked_for)
{
    for (const row &each : rows()) {
        const client sender = send(
            each, serve({.answer_groups = true, .workers = GetParam()}, each.listening + std::string(":0")));
        for (int number = 0; number < 20; ++number)
            EXPECT_EQ(sender.receive().payload.size(), 41u) << each.sent_to;
        fast_path_->stop();
        EXPECT_EQ(fast_path_->sessions().size(), 1u) << each.sent_to;
        EXPECT_EQ(received(), 20u) << each.sent_to;
        EXPECT_EQ(fast_path_->statistics().dropped_packets.sum(), 0u) << each.sent_to;
    }
}

INSTANTIATE_TEST_SUITE_P(workers, groups_test, testing::Values(1, 2, 4), [](const auto &row) {
    return std::string(row.param == 1 ? "one" : row.param == 2 ? "two" : "four");
});

} // namespace
