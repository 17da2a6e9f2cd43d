#include <bit>

#include "udp_fixture.hpp"

namespace {

using namespace olv_fastpath_test;

class udp_server_test : public fastpath_test {
  protected:
    udp_server_test() { define_usual_path({.maximum_sessions = 1000}); }

    std::size_t add(const char *address) { return server_.add(parse_socket_address(address), usual_path); }

    /** @p host at the port of a socket. */
    [[nodiscard]] socket_address at(const std::string &host, std::size_t index) const
    {
        return parse_socket_address(host + ":" + std::to_string(server_.port(index)));
    }

    std::string message_of_add(const socket_address &address)
    {
        try {
            (void)server_.add(address, usual_path);
        } catch (const std::runtime_error &error) {
            return error.what();
        }
        return "no error";
    }

    reflector reflector_{processor_};
    udp_server server_{reflector_};
};

TEST_F(udp_server_test, replies_over_ipv4)
{
    const std::size_t index = add("127.0.0.1:0");
    EXPECT_NE(server_.port(index), 0);
    server_.start();
    const client sender{AF_INET};
    sender.set_option(IPPROTO_IP, IP_TTL, 77);
    sender.set_option(IPPROTO_IP, IP_TOS, 0xB9);
    sender.send(server_.local_address(index), request_of(100));
    const client::reply reply = sender.receive();
    ASSERT_EQ(reply.payload.size(), 100u);
    EXPECT_EQ(load_32(&reply.payload[24]), 0x0A0B0C0Du);
    EXPECT_EQ(reply.payload[40], 77);
    EXPECT_EQ(reply.payload[41], 1);
    EXPECT_EQ(reply.traffic_class, 0xB8);
    EXPECT_EQ(reply.from, server_.local_address(index).text());
    EXPECT_TRUE(eventually([&] { return server_.statistics().sent == 1; }));
    EXPECT_EQ(server_.statistics().received, 1u);
    const std::vector<session> sessions = server_.sessions();
    ASSERT_EQ(sessions.size(), 1u);
    EXPECT_EQ(sessions[0].key.sender_port, sender.local_address().port());
    EXPECT_EQ(sessions[0].next_sequence_number, 1u);
}

TEST_F(udp_server_test, replies_over_ipv6)
{
    std::size_t index = 0;
    try {
        index = add("[::1]:0");
    } catch (const std::runtime_error &error) {
        GTEST_SKIP() << error.what();
    }
    server_.start();
    const client sender{AF_INET6};
    sender.set_option(IPPROTO_IPV6, IPV6_UNICAST_HOPS, 78);
    sender.set_option(IPPROTO_IPV6, IPV6_TCLASS, 0x2A);
    sender.send(server_.local_address(index), request_of(44));
    const client::reply reply = sender.receive();
    ASSERT_EQ(reply.payload.size(), 44u);
    EXPECT_EQ(reply.payload[40], 78);
    // qemu-user hands IPv6 traffic classes on unconverted: big-endian programs cannot tell them under it.
    if constexpr (std::endian::native == std::endian::little) {
        EXPECT_EQ(reply.traffic_class, 0x28);
    }
    EXPECT_EQ(reply.from, server_.local_address(index).text());
}

TEST_F(udp_server_test, reply_comes_from_the_address_that_was_asked)
{
    const std::size_t index = add("0.0.0.0:0");
    server_.start();
    const client sender{AF_INET};
    sender.send(at("127.0.0.2", index), request_of(14));
    EXPECT_EQ(sender.receive().from, at("127.0.0.2", index).text());
    sender.send(at("127.0.0.3", index), request_of(14));
    EXPECT_EQ(sender.receive().from, at("127.0.0.3", index).text());
}

TEST_F(udp_server_test, reply_comes_from_the_ipv6_address_that_was_asked)
{
    std::size_t index = 0;
    try {
        index = add("[::]:0");
    } catch (const std::runtime_error &error) {
        GTEST_SKIP() << error.what();
    }
    server_.start();
    const client sender{AF_INET6};
    sender.set_option(IPPROTO_IPV6, IPV6_TCLASS, 0x28);
    for (int packets = 0; packets < 2; ++packets) {
        sender.send(at("[::1]", index), request_of(14));
        EXPECT_EQ(sender.receive().from, at("[::1]", index).text());
    }
}

TEST_F(udp_server_test, largest_datagram_is_reflected_whole)
{
    const std::size_t index = add("127.0.0.1:0");
    server_.start();
    const client sender{AF_INET};
    const bytes request = request_of(65507);
    sender.send(server_.local_address(index), request);
    const client::reply reply = sender.receive();
    ASSERT_EQ(reply.payload.size(), 65507u);
    EXPECT_TRUE(std::equal(reply.payload.begin() + 41, reply.payload.end(), request.begin() + 14));
    EXPECT_EQ(server_.statistics().truncated, 0u);
}

TEST_F(udp_server_test, empty_datagram_is_counted)
{
    const std::size_t index = add("127.0.0.1:0");
    server_.start();
    const client sender{AF_INET};
    sender.send(server_.local_address(index), {});
    EXPECT_TRUE(eventually([&] { return global().length == 1; }));
    sender.send(server_.local_address(index), request_of(14));
    EXPECT_EQ(sender.receive().payload.size(), 41u);
    EXPECT_EQ(global(), (global_counters{.rx = 2, .tx = 1, .length = 1}));
}

TEST_F(udp_server_test, each_socket_has_its_own_path)
{
    const std::size_t bound = add("127.0.0.1:0");
    const std::size_t unbound = server_.add(parse_socket_address("127.0.0.1:0"), {responder_id, 99});
    server_.start();
    const client sender{AF_INET};
    sender.send(server_.local_address(unbound), request_of(14));
    EXPECT_TRUE(eventually([&] { return global().no_bind == 1; }));
    server_.set_path(unbound, usual_path);
    EXPECT_EQ(server_.path(unbound).bind_key, bind_key);
    sender.send(server_.local_address(unbound), request_of(14));
    EXPECT_EQ(sender.receive().payload.size(), 41u);
    sender.send(server_.local_address(bound), request_of(14));
    EXPECT_EQ(sender.receive().payload.size(), 41u);
}

TEST_F(udp_server_test, sockets_come_and_go_while_the_thread_runs)
{
    server_.start();
    const client sender{AF_INET};
    const std::size_t first = add("127.0.0.1:0");
    const socket_address address = server_.local_address(first);
    sender.send(address, request_of(14));
    EXPECT_EQ(sender.receive().payload.size(), 41u);
    server_.remove(first);
    EXPECT_THROW((void)server_.port(first), std::out_of_range);
    EXPECT_THROW(server_.remove(first), std::out_of_range);
    EXPECT_THROW(server_.set_path(9, usual_path), std::out_of_range);
    const std::size_t second = server_.add(address, usual_path); // its port is free again
    EXPECT_NE(second, first);
    sender.send(address, request_of(14));
    EXPECT_EQ(sender.receive().payload.size(), 41u);
}

TEST_F(udp_server_test, busy_port_is_refused)
{
    const socket_address taken = server_.local_address(add("127.0.0.1:0"));
    EXPECT_EQ(message_of_add(taken), "cannot listen on " + taken.text() + ": Address already in use");
}

TEST_F(udp_server_test, address_of_no_interface_is_refused)
{
    EXPECT_EQ(message_of_add(parse_socket_address("192.0.2.1:0")),
              "cannot listen on 192.0.2.1:0: Cannot assign requested address");
}

TEST_F(udp_server_test, stops_while_idle_and_starts_again)
{
    const std::size_t index = add("127.0.0.1:0");
    server_.stop(); // nothing to stop
    const client sender{AF_INET};
    for (int round = 0; round < 3; ++round) {
        server_.start();
        server_.start();
        EXPECT_TRUE(server_.running());
        sender.send(server_.local_address(index), request_of(14));
        EXPECT_EQ(sender.receive().payload.size(), 41u);
        server_.stop();
        EXPECT_FALSE(server_.running());
    }
}

TEST_F(udp_server_test, packets_wait_until_the_thread_runs)
{
    const std::size_t index = add("127.0.0.1:0");
    const client sender{AF_INET};
    sender.send(server_.local_address(index), request_of(14));
    server_.start();
    EXPECT_EQ(sender.receive().payload.size(), 41u);
}

TEST_F(udp_server_test, burst_is_counted_to_the_last_datagram)
{
    const std::size_t index = add("127.0.0.1:0");
    server_.start();
    const client sender{AF_INET};
    const socket_address to = server_.local_address(index);
    for (std::uint32_t number = 1; number <= 1000; ++number) {
        sender.send(to, request_of(41));
        // Sockets have room for some hundreds where the system's limit is low.
        if (number % 100 == 0) {
            ASSERT_TRUE(eventually([&] { return server_.statistics().received == number; }));
        }
    }
    EXPECT_TRUE(eventually([&] { return server_.statistics().sent == 1000; }));
    EXPECT_EQ(global(), (global_counters{.rx = 1000, .tx = 1000}));
    EXPECT_EQ(counters(), (responder_counters{.received = 1000, .transmitted = 1000, .active = 1}));
    EXPECT_EQ(server_.statistics().received, 1000u);
    EXPECT_EQ(server_.statistics().send_failures, 0u);
    EXPECT_EQ(server_.statistics().truncated, 0u);
}

} // namespace
