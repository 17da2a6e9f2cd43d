// Replies that leave as one segmented datagram are those that leave one by one.

#include "fastpath/udp/udp_datagrams.hpp"

#include <netinet/udp.h>

#include "fastpath/udp/listening_socket.hpp"
#include "udp_fixture.hpp"

namespace {

using namespace olv_fastpath_test;

class segments_test : public testing::Test {
  protected:
    void SetUp() override
    {
        if (!socket_.abilities().segments)
            GTEST_SKIP() << "the system knows no segmented datagrams";
    }

    /** Have the batch hold a request of each length. */
    void receive_requests(const client &sender, const std::vector<std::size_t> &lengths)
    {
        for (const std::size_t length : lengths)
            sender.send(socket_.local(), request_of(length));
        ASSERT_EQ(batch_.receive(socket_.number()), lengths.size());
    }

    /** Queue a reply of its request's length for each, whose octets are its number. */
    void add_replies(const std::vector<std::size_t> &lengths, std::uint8_t traffic_class = 0)
    {
        for (std::size_t index = 0; index < lengths.size(); ++index) {
            EXPECT_EQ(batch_.open(index), 1u);
            const received_packet packet = batch_.packet(0);
            EXPECT_EQ(packet.payload.size(), lengths[index]);
            std::fill_n(batch_.reply_buffer(0).begin(), lengths[index], static_cast<std::uint8_t>(index + 1));
            batch_.add_reply(
                0,
                {.result = outcome::reflected, .reply_length = lengths[index], .traffic_class = traffic_class},
                true);
        }
    }

    /** That a client gets each reply as a datagram of its own. */
    void expect_replies(const client &sender, const std::vector<std::size_t> &lengths, int traffic_class) const
    {
        for (std::size_t index = 0; index < lengths.size(); ++index) {
            const client::reply reply = sender.receive();
            EXPECT_EQ(reply.payload, bytes(lengths[index], static_cast<std::uint8_t>(index + 1))) << index;
            EXPECT_EQ(reply.from, socket_.local().text()) << index;
            EXPECT_EQ(reply.traffic_class, traffic_class) << index;
        }
        EXPECT_TRUE(sender.is_empty());
    }

    /** Lengths of the datagrams that a client gets that takes segments together. */
    static std::vector<std::size_t> departures(const client &sender, std::size_t count)
    {
        std::vector<std::size_t> lengths;
        for (std::size_t number = 0; number < count; ++number)
            lengths.push_back(sender.receive().payload.size());
        EXPECT_TRUE(sender.is_empty());
        return lengths;
    }

    static void take_together(const client &sender) { sender.set_option(SOL_UDP, UDP_GRO, 1); }

    listening_socket socket_{parse_socket_address("127.0.0.1:0")};
    datagram_batch batch_{65535};
    client sender_{AF_INET};
};

TEST_F(segments_test, each_reply_arrives_as_a_datagram)
{
    for (const std::vector<std::size_t> &lengths :
         {std::vector<std::size_t>{44}, std::vector<std::size_t>(32, 44), std::vector<std::size_t>(32, 1400),
          std::vector<std::size_t>{44, 44, 41, 44, 60, 60, 60, 59, 1452, 1452, 1453, 1453, 44, 44}}) {
        for (const int traffic_class : {0, 0xB8}) {
            receive_requests(sender_, lengths);
            add_replies(lengths, static_cast<std::uint8_t>(traffic_class));
            const send_result result = batch_.send(socket_.number());
            EXPECT_EQ(result.sent, lengths.size());
            EXPECT_EQ(result.failed, 0u);
            EXPECT_FALSE(result.segments_refused);
            expect_replies(sender_, lengths, traffic_class);
        }
    }
}

TEST_F(segments_test, replies_of_one_length_leave_together)
{
    take_together(sender_);
    const std::vector<std::size_t> lengths(20, 44);
    receive_requests(sender_, lengths);
    add_replies(lengths);
    EXPECT_EQ(batch_.send(socket_.number()).sent, 20u);
    EXPECT_EQ(departures(sender_, 1), (std::vector<std::size_t>{880}));
}

TEST_F(segments_test, shorter_reply_is_the_last_and_a_longer_one_the_first)
{
    take_together(sender_);
    const std::vector<std::size_t> lengths{44, 44, 41, 44, 60, 60, 61};
    receive_requests(sender_, lengths);
    add_replies(lengths);
    EXPECT_EQ(batch_.send(socket_.number()).sent, 7u);
    EXPECT_EQ(departures(sender_, 4), (std::vector<std::size_t>{129, 44, 120, 61}));
}

TEST_F(segments_test, replies_that_may_not_fit_the_path_leave_alone)
{
    take_together(sender_);
    const std::vector<std::size_t> lengths{1453, 1453, 1452, 1452};
    receive_requests(sender_, lengths);
    add_replies(lengths);
    EXPECT_EQ(batch_.send(socket_.number()).sent, 4u);
    EXPECT_EQ(departures(sender_, 3), (std::vector<std::size_t>{1453, 1453, 2904}));
}

TEST_F(segments_test, replies_to_another_sender_leave_for_themselves)
{
    const client other{AF_INET};
    take_together(sender_);
    take_together(other);
    const client *const order[] = {&sender_, &sender_, &other, &other, &sender_};
    for (const client *each : order)
        each->send(socket_.local(), request_of(44));
    ASSERT_EQ(batch_.receive(socket_.number()), 5u);
    add_replies({44, 44, 44, 44, 44});
    EXPECT_EQ(batch_.send(socket_.number()).sent, 5u);
    EXPECT_EQ(departures(sender_, 2), (std::vector<std::size_t>{88, 44}));
    EXPECT_EQ(departures(other, 1), (std::vector<std::size_t>{88}));
}

TEST_F(segments_test, replies_of_another_traffic_class_leave_for_themselves)
{
    take_together(sender_);
    receive_requests(sender_, {44, 44, 44});
    const std::uint8_t classes[] = {0xB8, 0xB8, 0};
    for (std::size_t index = 0; index < 3; ++index) {
        EXPECT_EQ(batch_.open(index), 1u);
        batch_.add_reply(0, {.result = outcome::reflected, .reply_length = 44, .traffic_class = classes[index]},
                         true);
    }
    EXPECT_EQ(batch_.send(socket_.number()).sent, 3u);
    EXPECT_EQ(departures(sender_, 2), (std::vector<std::size_t>{88, 44}));
}

TEST_F(segments_test, replies_from_another_address_leave_for_themselves)
{
    const listening_socket everywhere{parse_socket_address("0.0.0.0:0")};
    for (const char *host : {"127.0.0.1:", "127.0.0.2:", "127.0.0.2:"})
        sender_.send(parse_socket_address(host + std::to_string(everywhere.local().port())), request_of(44));
    ASSERT_EQ(batch_.receive(everywhere.number()), 3u);
    add_replies({44, 44, 44});
    EXPECT_EQ(batch_.send(everywhere.number()).sent, 3u);
    const std::string port = std::to_string(everywhere.local().port());
    EXPECT_EQ(sender_.receive().from, "127.0.0.1:" + port);
    EXPECT_EQ(sender_.receive().from, "127.0.0.2:" + port);
    EXPECT_EQ(sender_.receive().from, "127.0.0.2:" + port);
}

TEST_F(segments_test, replies_leave_one_by_one_where_the_system_refuses)
{
    const int on = 1; // the system splits no datagrams without check sums
    ASSERT_EQ(setsockopt(socket_.number(), SOL_SOCKET, SO_NO_CHECK, &on, sizeof on), 0);
    const std::vector<std::size_t> lengths{44, 44, 44, 41, 60, 1400, 1400};
    receive_requests(sender_, lengths);
    add_replies(lengths, 0x28);
    const send_result result = batch_.send(socket_.number());
    EXPECT_EQ(result.sent, 7u);
    EXPECT_EQ(result.failed, 0u);
    EXPECT_TRUE(result.segments_refused);
    expect_replies(sender_, lengths, 0x28);
}

/** Two servers of the same responder, whose timer stands. */
class server_segments_test : public fastpath_test {
  protected:
    server_segments_test() { define_usual_path({.maximum_sessions = 1000}); }

    /** The replies to requests that wait together. */
    std::vector<bytes> replies_of(bool segments)
    {
        reflector reflecting{processor_};
        udp_server server{reflecting, {.segments = segments}};
        const std::size_t index = server.add(parse_socket_address("127.0.0.1:0"), usual_path);
        const client sender{AF_INET};
        for (std::size_t number = 0; number < requests; ++number)
            sender.send(server.local_address(index), request_of(number % 10 == 9 ? 30 : 41 + number / 20));
        server.start();
        std::vector<bytes> replies;
        for (std::size_t number = 0; number < requests; ++number)
            replies.push_back(sender.receive().payload);
        EXPECT_TRUE(eventually([&] { return server.statistics().sent == requests; }));
        EXPECT_EQ(server.statistics().received, requests);
        EXPECT_EQ(server.statistics().send_failures, 0u);
        return replies;
    }

    static constexpr std::size_t requests = 100;
};

/** Requests that leave their sender as one segmented datagram reach a server that takes such as one message. */
class together_test : public fastpath_test {
  protected:
    together_test() { define_usual_path({.maximum_sessions = 1000}); }

    void SetUp() override
    {
        const listening_socket probe{parse_socket_address("127.0.0.1:0")};
        if (!probe.abilities().segments)
            GTEST_SKIP() << "the system knows no segmented datagrams";
    }

    /** The replies to requests of this length and one more of another, sent as one or one by one. */
    std::vector<bytes> replies_of(std::size_t length, std::size_t count, std::size_t last, bool together,
                                  const udp_server_options &options = {})
    {
        reflector reflecting{processor_};
        udp_server server{reflecting, options};
        const std::size_t index = server.add(parse_socket_address("127.0.0.1:0"), usual_path);
        const client sender{AF_INET};
        bytes all;
        for (std::size_t number = 0; number <= count; ++number) {
            bytes request = request_of(number < count ? length : last);
            request[0] = static_cast<std::uint8_t>(number);
            all.insert(all.end(), request.begin(), request.end());
            if (!together)
                sender.send(server.local_address(index), request);
        }
        if (together) {
            sender.set_option(SOL_UDP, UDP_SEGMENT, static_cast<int>(length));
            sender.send(server.local_address(index), all);
        }
        server.start();
        std::vector<bytes> replies;
        for (std::size_t number = 0; number <= count; ++number)
            replies.push_back(sender.receive().payload);
        EXPECT_TRUE(sender.is_empty());
        EXPECT_TRUE(eventually([&] { return server.statistics().sent == count + 1; }));
        EXPECT_EQ(server.statistics().received, count + 1);
        EXPECT_EQ(server.statistics().truncated, 0u);
        return replies;
    }
};

TEST_F(together_test, few_replies_leave_one_by_one)
{
    reflector reflecting{processor_};
    udp_server server{reflecting};
    const std::size_t index = server.add(parse_socket_address("127.0.0.1:0"), usual_path);
    for (const std::size_t count : {1u, 7u, 8u, 20u}) {
        const client sender{AF_INET};
        sender.set_option(SOL_UDP, UDP_GRO, 1);
        for (std::size_t number = 0; number < count; ++number)
            sender.send(server.local_address(index), request_of(44));
        server.start();
        for (std::size_t number = 0; number < (count < 8 ? count : 1); ++number)
            EXPECT_EQ(sender.receive().payload.size(), count < 8 ? 44 : 44 * count) << count;
        EXPECT_TRUE(sender.is_empty());
        server.stop();
    }
}

TEST_F(together_test, each_request_is_answered_as_if_it_had_come_alone)
{
    struct row {
        std::size_t length, count, last;
    };
    std::uint32_t requests = 0;
    for (const row &each :
         {row{14, 63, 14}, row{27, 40, 14}, row{40, 63, 40}, row{41, 63, 41}, row{42, 10, 41}, row{44, 63, 44},
          row{44, 20, 14}, row{100, 63, 27}, row{257, 30, 40}, row{1400, 44, 1400}, row{1400, 30, 14}}) {
        const std::vector<bytes> together = replies_of(each.length, each.count, each.last, true);
        EXPECT_EQ(together, replies_of(each.length, each.count, each.last, false)) << each.length;
        EXPECT_EQ(together, replies_of(each.length, each.count, each.last, true, {.segments = false}))
            << each.length;
        EXPECT_EQ(together[each.count].size(), std::max<std::size_t>(each.last, 41));
        EXPECT_EQ(together[each.count][24], each.count);
        EXPECT_EQ(load_32(&together[each.count][0]), each.count);
        requests += 3 * static_cast<std::uint32_t>(each.count + 1);
    }
    EXPECT_EQ(global(), (global_counters{.rx = requests, .tx = requests}));
}

TEST_F(together_test, requests_that_are_dropped_count_one_by_one)
{
    udp_server_options options;
    options.allowed_sources.add(parse_address_prefix("127.0.0.2"));
    reflector reflecting{processor_, {.minimum_request = 41}};
    udp_server open_server{reflecting};
    udp_server closed_server{reflecting, options};
    const socket_address open =
        open_server.local_address(open_server.add(parse_socket_address("127.0.0.1:0"), usual_path));
    const socket_address closed =
        closed_server.local_address(closed_server.add(parse_socket_address("127.0.0.1:0"), usual_path));
    const client sender{AF_INET};
    sender.set_option(SOL_UDP, UDP_SEGMENT, 30);
    sender.send(closed, bytes(95, 0x5A));
    sender.send(open, bytes(95, 0x5A));
    closed_server.start();
    EXPECT_TRUE(eventually([&] { return closed_server.statistics().source_not_allowed == 4; }));
    closed_server.stop();
    open_server.start();
    EXPECT_TRUE(eventually([&] { return open_server.statistics().received == 4; }));
    EXPECT_EQ(global(), (global_counters{.rx = 4, .length = 4}));
    EXPECT_TRUE(sender.is_empty());
}

TEST_F(together_test, short_buffers_take_requests_one_by_one)
{
    const std::vector<bytes> together = replies_of(44, 50, 44, true, {.longest_datagram = 100});
    EXPECT_EQ(together, replies_of(44, 50, 44, false, {.longest_datagram = 100}));
}

TEST_F(server_segments_test, same_replies_and_counters)
{
    const std::vector<bytes> together = replies_of(true);
    EXPECT_EQ(counters(), (responder_counters{.received = 100, .transmitted = 100, .active = 1}));
    const std::vector<bytes> alone = replies_of(false);
    EXPECT_EQ(together, alone);
    EXPECT_EQ(load_32(&together[99][0]), 99u);
    EXPECT_EQ(together[99].size(), 41u);
    EXPECT_EQ(together[98].size(), 45u);
    EXPECT_EQ(counters(), (responder_counters{.received = 200, .transmitted = 200, .active = 2}));
    EXPECT_EQ(global(), (global_counters{.rx = 200, .tx = 200}));
}

} // namespace
