// Requests that are received, and replies that leave, as one segmented datagram are those that come and leave
// one by one.

#include "fastpath/udp/listening_socket.hpp"
#include "fastpath/udp/receive_batch.hpp"
#include "fastpath/udp/reply_batch.hpp"
#include "udp_fixture.hpp"

namespace {

using namespace olv_fastpath_test;

using lengths = std::vector<std::size_t>;

TEST(listening_socket, can_send_segments_where_the_system_can)
{
    EXPECT_EQ(listening_socket{parse_socket_address("127.0.0.1:0")}.abilities().segments, sends_segments());
}

class reply_batch_test : public testing::Test {
  protected:
    /** Have the batch hold a request of each length. */
    void receive_requests(const lengths &requests)
    {
        for (const std::size_t length : requests)
            sender_.send(socket_.local(), request_of(length));
        ASSERT_EQ(requests_.receive(socket_.number()), requests.size());
    }

    /** Queue a reply of its request's length to each, whose octets are its number, but for its departure. */
    void add_replies(const std::vector<std::uint8_t> &traffic_classes = {0})
    {
        const std::size_t count = requests_.senders().size();
        for (std::size_t index = 0; index < count; ++index) {
            const received_message message = requests_.message(index);
            ASSERT_EQ(message.datagrams(), 1u);
            const std::size_t length = message.packet(0).payload.size();
            const std::uint8_t traffic_class = traffic_classes[index % traffic_classes.size()];
            replies_.answer(message, 0, sends_segments_, [&](std::span<std::uint8_t> room) {
                std::fill_n(room.begin(), length, static_cast<std::uint8_t>(index + 1));
                return verdict{.dropped = {}, .reply = {room.first(length), {}, traffic_class}};
            });
        }
    }

    send_result send_from(const listening_socket &socket) { return replies_.send(socket.number(), clock_); }

    /** That the sender gets each reply as a datagram of its own. */
    void expect_replies(const lengths &expected, int traffic_class) const
    {
        for (std::size_t index = 0; index < expected.size(); ++index) {
            client::reply reply = sender_.receive();
            ASSERT_EQ(reply.payload.size(), expected[index]) << index;
            std::fill_n(reply.payload.begin() + 4, 8, static_cast<std::uint8_t>(index + 1)); // departure
            EXPECT_EQ(reply.payload, bytes(expected[index], static_cast<std::uint8_t>(index + 1)));
            EXPECT_EQ(reply.from, socket_.local().text()) << index;
            EXPECT_EQ(reply.traffic_class, traffic_class) << index;
        }
        EXPECT_TRUE(sender_.is_empty());
    }

    void take_together(const client &sender) const
    {
        if (sends_segments_)
            sender.set_option(SOL_UDP, UDP_GRO, 1);
    }

    /** That a client that takes segments together gets datagrams of these lengths, or else of those. */
    void expect_departures(const client &sender, const lengths &together, const lengths &alone) const
    {
        for (const std::size_t length : sends_segments_ ? together : alone)
            EXPECT_EQ(sender.receive().payload.size(), length);
        EXPECT_TRUE(sender.is_empty());
    }

    const bool sends_segments_ = sends_segments();
    olv_sim::processor processor_{olv_sim::classifier_program::twamp(1, 1)};
    const processor_clock clock_{processor_};
    const listening_socket socket_{parse_socket_address("127.0.0.1:0")};
    receive_batch requests_{65535};
    reply_batch replies_;
    const client sender_{AF_INET};
};

TEST_F(reply_batch_test, each_reply_arrives_as_a_datagram)
{
    for (const lengths &each : {lengths{44}, lengths(32, 44), lengths(32, 1400),
                                lengths{44, 44, 41, 44, 60, 60, 60, 59, 1452, 1452, 1453, 1453, 44, 44}}) {
        for (const std::uint8_t traffic_class : {std::uint8_t{0}, std::uint8_t{0xB8}}) {
            receive_requests(each);
            add_replies({traffic_class});
            const send_result result = send_from(socket_);
            EXPECT_EQ(result.sent, each.size());
            EXPECT_EQ(result.failed, 0u);
            EXPECT_FALSE(result.segments_refused);
            expect_replies(each, traffic_class);
        }
    }
}

TEST_F(reply_batch_test, replies_of_one_length_leave_together)
{
    struct row {
        lengths replies, together;
    };
    take_together(sender_);
    for (const row &each : {row{lengths(20, 44), {880}},
                            // A shorter one is the last, a longer one the first.
                            row{{44, 44, 41, 44, 60, 60, 61}, {129, 44, 120, 61}},
                            // Those that may not fit the path leave alone.
                            row{{1453, 1453, 1452, 1452}, {1453, 1453, 2904}}}) {
        receive_requests(each.replies);
        add_replies();
        EXPECT_EQ(send_from(socket_).sent, each.replies.size());
        expect_departures(sender_, each.together, each.replies);
    }
}

TEST_F(reply_batch_test, replies_to_another_sender_or_of_another_traffic_class_leave_for_themselves)
{
    const client other{AF_INET};
    take_together(sender_);
    take_together(other);
    for (const client *each : {&sender_, &sender_, &other, &other, &sender_, &sender_})
        each->send(socket_.local(), request_of(44));
    ASSERT_EQ(requests_.receive(socket_.number()), 6u);
    add_replies({0xB8, 0xB8, 0xB8, 0xB8, 0xB8, 0});
    EXPECT_EQ(send_from(socket_).sent, 6u);
    expect_departures(sender_, {88, 44, 44}, {44, 44, 44, 44});
    expect_departures(other, {88}, {44, 44});
}

TEST_F(reply_batch_test, replies_from_another_address_leave_for_themselves)
{
    const listening_socket everywhere{parse_socket_address("0.0.0.0:0")};
    const std::string port = std::to_string(everywhere.local().port());
    const std::string asked[] = {"127.0.0.1:" + port, "127.0.0.2:" + port, "127.0.0.2:" + port};
    for (const std::string &each : asked)
        sender_.send(parse_socket_address(each), request_of(44));
    ASSERT_EQ(requests_.receive(everywhere.number()), 3u);
    add_replies();
    EXPECT_EQ(send_from(everywhere).sent, 3u);
    for (const std::string &each : asked)
        EXPECT_EQ(sender_.receive().from, each);
}

TEST_F(reply_batch_test, replies_leave_one_by_one_where_the_system_refuses)
{
    const int on = 1; // the system splits no datagrams without check sums
    ASSERT_EQ(setsockopt(socket_.number(), SOL_SOCKET, SO_NO_CHECK, &on, sizeof on), 0);
    const lengths each{44, 44, 44, 41, 60, 1400, 1400};
    receive_requests(each);
    add_replies({0x28});
    const send_result result = send_from(socket_);
    EXPECT_EQ(result.sent, 7u);
    EXPECT_EQ(result.failed, 0u);
    EXPECT_EQ(result.segments_refused, sends_segments_);
    expect_replies(each, 0x28);
}

// A server

class segments_test : public traffic_test {
  protected:
    /** Requests of this length, one of another behind them. */
    struct burst {
        std::size_t length, count, last;
    };

    /** The replies to a burst that waits for the server. @param together  It left as segments. */
    std::vector<bytes> replies_to(const burst &sent, bool together, const fast_path_options &options = {})
    {
        const client sender{AF_INET};
        make(options);
        const socket_address to = at(add());
        bytes all;
        for (std::size_t number = 0; number <= sent.count; ++number) {
            bytes request = request_of(number < sent.count ? sent.length : sent.last);
            request[0] = static_cast<std::uint8_t>(number);
            all.insert(all.end(), request.begin(), request.end());
            if (!together)
                sender.send(to, request);
        }
        if (together) {
            sender.set_option(SOL_UDP, UDP_SEGMENT, static_cast<int>(sent.length));
            sender.send(to, all);
        }
        fast_path_->start();
        std::vector<bytes> replies;
        for (std::size_t number = 0; number <= sent.count; ++number)
            replies.push_back(sender.receive().payload);
        EXPECT_TRUE(sender.is_empty());
        EXPECT_TRUE(eventually([&] { return this->sent() == sent.count + 1; }));
        EXPECT_EQ(received(), sent.count + 1);
        EXPECT_EQ(fast_path_->statistics().dropped_packets.sum(), 0u);
        EXPECT_EQ(fast_path_->statistics().failed_replies, 0u);
        return replies;
    }

    const bool sends_segments_ = sends_segments();
};

TEST_F(segments_test, each_request_is_answered_as_if_it_had_come_alone)
{
    std::uint32_t requests = 0;
    for (const burst &each : {burst{14, 63, 14}, burst{27, 40, 14}, burst{40, 63, 40}, burst{41, 63, 41},
                              burst{42, 10, 41}, burst{44, 63, 44}, burst{44, 20, 14}, burst{100, 63, 27},
                              burst{257, 30, 40}, burst{1400, 44, 1400}, burst{1400, 30, 14}}) {
        const std::vector<bytes> alone = replies_to(each, false, {.separate_replies = true});
        EXPECT_EQ(alone[each.count].size(), std::max<std::size_t>(each.last, 41));
        EXPECT_EQ(alone[each.count][24], each.count);
        EXPECT_EQ(load_32(&alone[each.count][0]), each.count);
        for (const fast_path_options &options :
             {fast_path_options{}, fast_path_options{.separate_replies = true},
              fast_path_options{.separate_requests = true}, fast_path_options{.longest_datagram = 1400}})
            EXPECT_EQ(replies_to(each, sends_segments_, options), alone) << each.length;
        EXPECT_EQ(replies_to(each, false), alone) << each.length;
        requests += 6 * static_cast<std::uint32_t>(each.count + 1);
    }
    EXPECT_EQ(global(), (global_counters{.rx = requests, .tx = requests}));
}

TEST_F(segments_test, few_replies_leave_one_by_one)
{
    make();
    const socket_address to = at(add());
    for (const std::size_t count : {1u, 7u, 8u, 20u}) {
        const client sender{AF_INET};
        const bool together = sends_segments_ && count >= 8;
        if (sends_segments_)
            sender.set_option(SOL_UDP, UDP_GRO, 1);
        for (std::size_t number = 0; number < count; ++number)
            sender.send(to, request_of(44));
        fast_path_->start();
        for (std::size_t number = 0; number < (together ? 1 : count); ++number)
            EXPECT_EQ(sender.receive().payload.size(), together ? 44 * count : 44) << count;
        EXPECT_TRUE(sender.is_empty());
        fast_path_->stop();
    }
}

TEST_F(segments_test, requests_that_are_dropped_count_one_by_one)
{
    fast_path_options options{.minimum_request = 41};
    options.allowed_sources.add(parse_address_prefix("127.0.0.2"));
    const socket_address to = serve(options);
    for (const char *host : {"127.0.0.1:0", "127.0.0.2:0"}) {
        const client sender{AF_INET};
        sender.bind_to(host);
        if (sends_segments_)
            sender.set_option(SOL_UDP, UDP_SEGMENT, 30);
        sender.send(to, bytes(sends_segments_ ? 95 : 30, 0x5A));
    }
    const std::uint32_t each = sends_segments_ ? 4 : 1;
    EXPECT_TRUE(eventually([&] { return received() == each; }));
    EXPECT_EQ(dropped(drop_reason::source_not_allowed), each);
    fast_path_->stop();
    EXPECT_EQ(global(), (global_counters{.rx = each, .length_check = each}));
}

} // namespace
