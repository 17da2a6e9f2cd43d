// What a server does about datagrams that nobody should send. The reasons alone: admission_test.cpp.

#include "udp_fixture.hpp"

namespace {

using namespace olv_fastpath_test;

class hostile_network_test : public traffic_test {
  protected:
    /** A port that is free at all addresses. */
    static std::string free_port()
    {
        const client any{AF_INET};
        any.bind_to("0.0.0.0:0");
        return std::to_string(any.local_address().port());
    }

    /** Send a request from an address that nobody has any more then. */
    static void send_from(const std::string &source, const socket_address &to)
    {
        const client forger{AF_INET};
        forger.bind_to(source);
        forger.send(to, request_of(41));
    }
};

/** A request that seems to come from a socket of the server was sent before that was opened. */
TEST_F(hostile_network_test, own_sockets_are_not_answered_for_ever)
{
    struct row {
        std::string source, listening;
    };
    make();
    const socket_address to = at(add());
    std::uint64_t forged = 0;
    for (const row &each : {row{"127.0.0.1:", "127.0.0.1:"}, row{"127.0.0.2:", "0.0.0.0:"}}) {
        const std::string port = free_port();
        send_from(each.source + port, to);
        const std::size_t own = add(each.listening + port);
        fast_path_->start();
        ++forged;
        EXPECT_TRUE(eventually([&] { return dropped(drop_reason::own_source) == forged; })) << each.listening;
        expect_answer(client{AF_INET}, to);
        EXPECT_EQ(fast_path_->statistics(own).dropped_packets.sum(), 0u);
        fast_path_->stop();
        fast_path_->remove(own);
        send_from(each.source + port, to); // which is nobody's now
        fast_path_->start();
        EXPECT_TRUE(eventually([&] { return received() == 2 * forged; }));
        fast_path_->stop();
    }
    EXPECT_EQ(dropped(drop_reason::own_source), forged);
}

TEST_F(hostile_network_test, two_reflectors_do_not_answer_each_other_for_ever)
{
    make();
    define_responder(8);
    fast_path other{processor_};
    const socket_address pretended = parse_socket_address("127.0.0.1:" + free_port());
    send_from(pretended.text(), at(add()));
    (void)other.add(pretended, {8, bind_key});
    fast_path_->start();
    other.start();
    EXPECT_TRUE(eventually([&] { return dropped(drop_reason::answer_to_reply) == 1; }));
    expect_answer(client{AF_INET}, pretended);
    EXPECT_EQ(received(), 1u);
    EXPECT_EQ(other.statistics().received_packets, 2u);
    EXPECT_EQ(global(), (global_counters{.rx = 3, .tx = 3}));
}

TEST_F(hostile_network_test, datagrams_that_find_no_room_in_the_socket_are_counted)
{
    make();
    const std::size_t index = add();
    const client sender{AF_INET};
    constexpr std::uint64_t requests = 20'000;
    for (std::uint64_t number = 0; number < requests; ++number)
        sender.send(at(index), request_of(1400));
    const std::uint64_t full = fast_path_->statistics(index).dropped_packets[drop_reason::socket_full];
    EXPECT_EQ(full > 0, tells_drops());
    EXPECT_LT(full, requests);
    fast_path_->start();
    if (tells_drops()) {
        EXPECT_TRUE(
            eventually([&] { return fast_path_->statistics(index).received_packets == requests - full; }));
    }
    fast_path_->remove(index);
    EXPECT_EQ(dropped(drop_reason::socket_full), full); // stays when the socket is closed
}

TEST_F(hostile_network_test, every_datagram_of_a_mixture_counts_once)
{
    fast_path_options options{.minimum_request = 41, .packets_per_second = 60, .longest_datagram = 200};
    options.allowed_sources.add(parse_address_prefix("127.0.0.2"));
    define_responder(8, {.maximum_sessions = 1});
    make(options);
    const std::size_t indices[] = {add(), add("127.0.0.1:0", {9, bind_key}),
                                   add("127.0.0.1:0", {responder_id, 99}), add("127.0.0.1:0", {8, bind_key})};
    const client senders[] = {client{AF_INET}, client{AF_INET}, client{AF_INET}};
    senders[1].bind_to("127.0.0.2:0");
    senders[2].bind_to("127.0.0.2:0");
    for (std::uint32_t number = 0; number < 600; ++number)
        senders[number % 3].send(at(indices[number / 3 % 4]), request_of(number * 7 % 300));
    fast_path_->start();
    EXPECT_TRUE(have_taken(600));

    const listener_statistics all = fast_path_->statistics();
    EXPECT_EQ(all.dropped_packets[drop_reason::source_not_allowed], 200u);
    EXPECT_GT(all.dropped_packets[drop_reason::too_long], 0u);
    EXPECT_GT(all.dropped_packets[drop_reason::packet_rate], 0u);
    const global_counters module = global();
    EXPECT_EQ(module.rx, all.received_packets);
    EXPECT_EQ(module.tx, all.sent_replies);
    EXPECT_EQ(module.rx,
              module.tx + module.no_responder + module.length_check + module.hash_error + module.no_bind);
    for (const std::uint32_t each :
         {module.tx, module.no_responder, module.length_check, module.hash_error, module.no_bind})
        EXPECT_GT(each, 0u);
}

} // namespace
