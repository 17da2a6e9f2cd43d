// What a server does about datagrams that nobody should send.

#include <algorithm>
#include <optional>

#include <netinet/udp.h>

#include "udp_fixture.hpp"

namespace {

using namespace olv_fastpath_test;

/** A server that the test gives options to. */
class hostile_network_test : public fastpath_test {
  protected:
    hostile_network_test() { define_usual_path({.maximum_sessions = 1000}); }

    udp_server &serve(const udp_server_options &options, const reflector_options &reflector = {})
    {
        reflector_.emplace(processor_, reflector);
        server_.emplace(*reflector_, options);
        return *server_;
    }

    std::size_t add(const std::string &address, const packet_path &path = usual_path)
    {
        return server_->add(parse_socket_address(address), path);
    }

    /** Send a request that is answered and take the answer, so that everything sent before is dealt with. */
    static void expect_answer(const client &sender, const socket_address &to)
    {
        sender.send(to, request_of(14));
        EXPECT_EQ(sender.receive().payload.size(), 41u);
    }

    static udp_server_options allowing(std::initializer_list<const char *> prefixes)
    {
        udp_server_options options;
        for (const char *prefix : prefixes)
            options.allowed_sources.add(parse_address_prefix(prefix));
        return options;
    }

    std::optional<reflector> reflector_;
    std::optional<udp_server> server_;
};

// ---------------------------------------------------------------------------------------------------------
// Datagrams of any size
// ---------------------------------------------------------------------------------------------------------

struct family_row {
    const char *name;
    int family;
    const char *address;
    std::size_t longest; ///< UDP payload.
};

void PrintTo(const family_row &row, std::ostream *out)
{
    *out << row.name;
}

constexpr family_row families[] = {{"ipv4", AF_INET, "127.0.0.1:0", 65507},
                                   {"ipv6", AF_INET6, "[::1]:0", 65527}};

class any_size_test : public hostile_network_test, public testing::WithParamInterface<family_row> {
  protected:
    void SetUp() override
    {
        serve({});
        try {
            index_ = add(GetParam().address);
        } catch (const std::runtime_error &error) {
            GTEST_SKIP() << error.what();
        }
        server_->start();
        to_ = server_->local_address(index_);
    }

    std::size_t index_ = 0;
    socket_address to_;
    client sender_{GetParam().family};
};

TEST_P(any_size_test, datagrams_below_14_bytes_get_no_answer_and_count)
{
    for (std::size_t length = 0; length < 14; ++length) {
        sender_.send(to_, bytes(length, 0x5A));
        expect_answer(sender_, to_);
        EXPECT_TRUE(sender_.is_empty()) << length;
    }
    EXPECT_EQ(global(), (global_counters{.rx = 28, .tx = 14, .length = 14}));
    EXPECT_EQ(counters(), (responder_counters{.received = 28, .transmitted = 14, .active = 1, .length = 14}));
}

TEST_P(any_size_test, answers_have_41_bytes_or_the_requests_length)
{
    std::uint32_t sent = 0;
    const auto expect_length = [&](std::size_t request, std::size_t reply) {
        sender_.send(to_, request_of(request));
        EXPECT_EQ(sender_.receive().payload.size(), reply) << request;
        EXPECT_TRUE(sender_.is_empty()) << request;
        ++sent;
    };
    for (std::size_t length = 14; length < 41; ++length)
        expect_length(length, 41);
    for (std::size_t length = 41; length <= 300; ++length)
        expect_length(length, length);
    for (const std::size_t length : {1471u, 1472u, 1473u, 9000u, 32768u, 65506u, 65507u})
        expect_length(length, length);
    expect_length(GetParam().longest, GetParam().longest);
    EXPECT_EQ(global(), (global_counters{.rx = sent, .tx = sent}));
}

TEST_P(any_size_test, no_answer_shows_a_byte_of_an_earlier_datagram)
{
    // A whole batch of buffers is filled with the pattern before each short request.
    const bytes pattern(1472, 0xA7);
    for (const std::size_t length :
         {0u, 1u, 13u, 14u, 15u, 27u, 28u, 40u, 41u, 42u, 43u, 44u, 45u, 60u, 100u}) {
        for (int number = 0; number < 32; ++number) {
            sender_.send(to_, pattern);
            EXPECT_EQ(sender_.receive().payload.size(), 1472u);
        }
        sender_.send(to_, bytes(length, 0));
        sender_.send(to_, bytes(14, 0));
        const std::size_t answers = length < 14 ? 1 : 2;
        for (std::size_t number = 0; number < answers; ++number) {
            bytes answer = sender_.receive().payload;
            ASSERT_GE(answer.size(), 41u) << length;
            // Number and times may have any bytes.
            std::fill(&answer[0], &answer[12], std::uint8_t{0});
            std::fill(&answer[16], &answer[24], std::uint8_t{0});
            EXPECT_EQ(std::count(answer.begin(), answer.end(), 0xA7), 0) << length;
        }
        EXPECT_TRUE(sender_.is_empty()) << length;
    }
}

TEST_P(any_size_test, largest_datagrams_in_a_row_change_no_later_answer)
{
    for (int round = 0; round < 5; ++round) {
        for (int number = 0; number < 2; ++number)
            sender_.send(to_, bytes(GetParam().longest, 0xA7));
        for (int number = 0; number < 2; ++number)
            EXPECT_EQ(sender_.receive().payload.size(), GetParam().longest);
        expect_answer(sender_, to_);
    }
    EXPECT_EQ(server_->statistics().truncated, 0u);
}

TEST_P(any_size_test, senders_that_are_gone_do_not_matter)
{
    expect_answer(sender_, to_); // has its port before others have theirs
    for (int number = 0; number < 100; ++number) {
        const client gone{GetParam().family};
        gone.send(to_, request_of(100));
    }
    // The refusals of the answers have come back by now.
    expect_answer(sender_, to_);
    expect_answer(sender_, to_);
    EXPECT_TRUE(server_->running());
    EXPECT_TRUE(eventually([&] { return server_->statistics().sent == 103; }));
    EXPECT_EQ(global(), (global_counters{.rx = 103, .tx = 103}));
}

INSTANTIATE_TEST_SUITE_P(families, any_size_test, testing::ValuesIn(families),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_F(hostile_network_test, datagrams_that_are_longer_than_the_buffers_are_dropped_and_counted)
{
    serve({.longest_datagram = 100});
    const std::size_t index = add("127.0.0.1:0");
    server_->start();
    const client sender{AF_INET};
    const socket_address to = server_->local_address(index);
    for (const std::size_t length : {101u, 1472u, 65507u}) {
        sender.send(to, bytes(length, 0xA7));
        sender.send(to, bytes(100, 0));
        const bytes answer = sender.receive().payload;
        ASSERT_EQ(answer.size(), 100u);
        EXPECT_EQ(std::count(answer.begin() + 24, answer.end(), 0xA7), 0);
        EXPECT_TRUE(sender.is_empty());
    }
    EXPECT_EQ(server_->statistics(index).truncated, 3u);
    EXPECT_EQ(server_->statistics(index).received, 3u);
    EXPECT_EQ(global(), (global_counters{.rx = 3, .tx = 3}));
}

TEST_F(hostile_network_test, buffers_have_room_for_a_header_however_short_datagrams_are_to_be)
{
    serve({.longest_datagram = 0});
    const std::size_t index = add("127.0.0.1:0");
    server_->start();
    const client sender{AF_INET};
    expect_answer(sender, server_->local_address(index));
    sender.send(server_->local_address(index), request_of(44));
    EXPECT_EQ(sender.receive().payload.size(), 44u);
}

TEST_F(hostile_network_test, required_length_leaves_no_answer_longer_than_its_request)
{
    serve({}, {.minimum_request = 41});
    const std::size_t index = add("127.0.0.1:0");
    server_->start();
    const client sender{AF_INET};
    for (std::size_t length = 0; length < 41; ++length)
        sender.send(server_->local_address(index), request_of(length));
    sender.send(server_->local_address(index), request_of(41));
    EXPECT_EQ(sender.receive().payload.size(), 41u);
    EXPECT_TRUE(sender.is_empty());
    EXPECT_EQ(global(), (global_counters{.rx = 42, .tx = 1, .length = 41}));
    EXPECT_EQ(counters(), (responder_counters{.received = 42, .transmitted = 1, .active = 1, .length = 41}));
}

// ---------------------------------------------------------------------------------------------------------
// Sources
// ---------------------------------------------------------------------------------------------------------

TEST_F(hostile_network_test, sources_that_are_not_allowed_are_dropped_before_the_module_counts_them)
{
    serve(allowing({"127.0.0.2", "192.0.2.0/24"}));
    const std::size_t index = add("127.0.0.1:0");
    server_->start();
    const socket_address to = server_->local_address(index);
    const client stranger{AF_INET};
    for (const std::size_t length : {0u, 13u, 14u, 44u, 1472u})
        stranger.send(to, request_of(length));
    const client known{AF_INET};
    known.bind_to(parse_socket_address("127.0.0.2:0"));
    expect_answer(known, to);
    EXPECT_TRUE(stranger.is_empty());
    EXPECT_EQ(server_->statistics().source_not_allowed, 5u);
    EXPECT_EQ(server_->statistics().received, 1u);
    EXPECT_EQ(global(), (global_counters{.rx = 1, .tx = 1}));
    EXPECT_EQ(counters(), (responder_counters{.received = 1, .transmitted = 1, .active = 1}));
}

TEST_F(hostile_network_test, sources_of_ipv6_are_held_to_the_list)
{
    serve(allowing({"2001:db8::/32", "0.0.0.0/0"}));
    std::size_t index = 0;
    try {
        index = add("[::1]:0");
    } catch (const std::runtime_error &error) {
        GTEST_SKIP() << error.what();
    }
    const std::size_t ipv4 = add("127.0.0.1:0");
    server_->start();
    const client stranger{AF_INET6};
    stranger.send(server_->local_address(index), request_of(41));
    EXPECT_TRUE(eventually([&] { return server_->statistics(index).source_not_allowed == 1; }));
    EXPECT_TRUE(stranger.is_empty());
    expect_answer(client{AF_INET}, server_->local_address(ipv4));
    EXPECT_EQ(server_->statistics(ipv4).source_not_allowed, 0u);
}

TEST_F(hostile_network_test, source_ports_below_the_lowest_are_dropped)
{
    const client sender{AF_INET};
    sender.bind_to(parse_socket_address("127.0.0.1:0"));
    const client other{AF_INET}; // at the same address, so that the ports differ
    other.bind_to(parse_socket_address("127.0.0.1:0"));
    const client &lower = sender.local_address().port() < other.local_address().port() ? sender : other;
    const client &upper = &lower == &sender ? other : sender;
    serve({.lowest_source_port = upper.local_address().port()});
    const std::size_t index = add("127.0.0.1:0");
    server_->start();
    lower.send(server_->local_address(index), request_of(41));
    expect_answer(upper, server_->local_address(index));
    EXPECT_TRUE(lower.is_empty());
    EXPECT_EQ(server_->statistics().source_port, 1u);
    EXPECT_EQ(global(), (global_counters{.rx = 1, .tx = 1}));
}

TEST_F(hostile_network_test, source_port_0_is_dropped)
{
    const int raw = socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_UDP);
    if (raw < 0) {
        GTEST_SKIP() << "NOT TESTED: only privileged processes send from port 0";
    }
    serve({.lowest_source_port = 0});
    const std::size_t index = add("127.0.0.1:0");
    server_->start();
    const socket_address to = server_->local_address(index);
    bytes datagram(8 + 41);
    store_16(&datagram[2], to.port());
    store_16(&datagram[4], 8 + 41);
    EXPECT_EQ(sendto(raw, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr *>(&to.address),
                     to.length),
              8 + 41);
    close(raw);
    EXPECT_TRUE(eventually([&] { return server_->statistics().source_port == 1; }));
    EXPECT_EQ(global(), global_counters{});
    EXPECT_EQ(server_->statistics().send_failures, 0u);
}

/** A request that seems to come from a socket of the server: sent from its address before it was opened. */
class own_source_test : public hostile_network_test {
  protected:
    /** @param source  Where the request comes from. @param listening  Where the server listens, port 0: as
     * well. */
    void expect_dropped(const std::string &source, const std::string &asked, const std::string &listening)
    {
        serve({});
        const std::size_t index = add(asked);
        socket_address pretended;
        {
            std::optional<client> forger;
            do { // ports of different addresses may be the same
                forger.emplace(AF_INET);
                forger->bind_to(parse_socket_address(source));
                pretended = forger->local_address();
            } while (pretended.port() == server_->port(index));
            forger->send(server_->local_address(index), request_of(41));
        }
        const std::size_t other = add(listening + ":" + std::to_string(pretended.port()));
        server_->start();
        EXPECT_TRUE(eventually([&] { return server_->statistics(index).own_source == 1; }));
        expect_answer(client{pretended.family()}, server_->local_address(index));
        expect_answer(client{pretended.family()}, pretended);
        EXPECT_EQ(global(), (global_counters{.rx = 2, .tx = 2}));
        EXPECT_EQ(server_->statistics(other).own_source, 0u);
    }
};

TEST_F(own_source_test, of_another_socket_is_not_answered_for_ever)
{
    expect_dropped("127.0.0.1:0", "127.0.0.1:0", "127.0.0.1");
}

TEST_F(own_source_test, of_a_socket_at_all_addresses_is_not_answered_for_ever)
{
    expect_dropped("127.0.0.2:0", "127.0.0.1:0", "0.0.0.0");
}

TEST_F(own_source_test, of_a_removed_socket_is_a_source_like_any_other)
{
    serve({});
    const std::size_t index = add("127.0.0.1:0");
    const socket_address removed = server_->local_address(add("127.0.0.1:0"));
    server_->remove(1);
    server_->start();
    const client sender{AF_INET};
    sender.bind_to(removed);
    expect_answer(sender, server_->local_address(index));
}

TEST_F(own_source_test, of_another_reflector_is_answered_once)
{
    serve({});
    define_responder(8);
    reflector other{processor_};
    udp_server other_server{other};
    const std::size_t index = add("127.0.0.1:0");
    socket_address pretended;
    {
        const client forger{AF_INET};
        forger.bind_to(parse_socket_address("127.0.0.1:0"));
        pretended = forger.local_address();
        forger.send(server_->local_address(index), request_of(41));
    }
    (void)other_server.add(pretended, {8, bind_key});
    server_->start();
    other_server.start();
    EXPECT_TRUE(eventually([&] { return server_->statistics().answers == 1; }));
    expect_answer(client{AF_INET}, pretended);
    EXPECT_EQ(server_->statistics().received, 1u);
    EXPECT_EQ(other_server.statistics().received, 2u);
    EXPECT_EQ(global(), (global_counters{.rx = 3, .tx = 3}));
}

// ---------------------------------------------------------------------------------------------------------
// Packets per second
// ---------------------------------------------------------------------------------------------------------

class rate_test : public hostile_network_test {
  protected:
    /** Send requests; once all are dealt with, take the answers. @return How many there are. */
    std::uint64_t answers_of(const client &sender, std::size_t index, int requests)
    {
        const udp_statistics before = server_->statistics();
        for (int number = 0; number < requests; ++number)
            sender.send(server_->local_address(index), request_of(41));
        EXPECT_TRUE(eventually([&] {
            const udp_statistics now = server_->statistics();
            return now.received + now.rate_limited ==
                   before.received + before.rate_limited + static_cast<std::uint64_t>(requests);
        }));
        const std::uint64_t answers = server_->statistics().sent - before.sent;
        for (std::uint64_t number = 0; number < answers; ++number)
            EXPECT_EQ(sender.receive().payload.size(), 41u);
        EXPECT_TRUE(sender.is_empty());
        return answers;
    }

    void start(std::uint32_t packets_per_second)
    {
        serve({.packets_per_second = packets_per_second});
        define_responder(8);
        server_->start();
    }
};

TEST_F(rate_test, packets_above_the_limit_are_dropped_before_the_module_counts_them)
{
    start(10);
    const std::size_t index = add("127.0.0.1:0");
    const client sender{AF_INET};
    EXPECT_EQ(answers_of(sender, index, 50), 10u);
    EXPECT_EQ(server_->statistics(index).rate_limited, 40u);
    EXPECT_EQ(global(), (global_counters{.rx = 10, .tx = 10}));
    EXPECT_EQ(counters(), (responder_counters{.received = 10, .transmitted = 10, .active = 1}));
    processor_.set_timer(start_ticks + ticks_of(0, 2));
    EXPECT_EQ(answers_of(sender, index, 50), 5u);
    processor_.set_timer(start_ticks + ticks_of(60));
    EXPECT_EQ(answers_of(sender, index, 50), 10u);
}

TEST_F(rate_test, each_responder_has_its_own_limit)
{
    start(10);
    const std::size_t first = add("127.0.0.1:0");
    const std::size_t second = add("127.0.0.1:0", {8, bind_key});
    const client sender{AF_INET};
    EXPECT_EQ(answers_of(sender, first, 50), 10u);
    EXPECT_EQ(answers_of(sender, second, 10), 10u);
    EXPECT_EQ(server_->statistics(second).rate_limited, 0u);
}

TEST_F(rate_test, sockets_of_a_responder_share_its_limit)
{
    start(10);
    const std::size_t first = add("127.0.0.1:0");
    const std::size_t second = add("127.0.0.1:0", {0xAB000007, bind_key}); // the low 24 bits count
    const client sender{AF_INET};
    EXPECT_EQ(answers_of(sender, first, 6), 6u);
    EXPECT_EQ(answers_of(sender, second, 6), 4u);
    server_->set_path(second, {8, bind_key});
    EXPECT_EQ(answers_of(sender, second, 12), 10u);
    server_->set_path(second, usual_path);
    EXPECT_EQ(answers_of(sender, second, 3), 0u);
}

TEST_F(rate_test, sources_that_are_not_allowed_use_nothing_of_it)
{
    udp_server_options options = allowing({"127.0.0.2"});
    options.packets_per_second = 10;
    serve(options);
    const std::size_t index = add("127.0.0.1:0");
    server_->start();
    const client stranger{AF_INET};
    for (int number = 0; number < 50; ++number)
        stranger.send(server_->local_address(index), request_of(41));
    const client known{AF_INET};
    known.bind_to(parse_socket_address("127.0.0.2:0"));
    EXPECT_EQ(answers_of(known, index, 10), 10u);
    EXPECT_EQ(server_->statistics().source_not_allowed, 50u);
}

TEST_F(rate_test, no_limit_limits_nothing)
{
    start(0);
    const std::size_t index = add("127.0.0.1:0");
    EXPECT_EQ(answers_of(client{AF_INET}, index, 200), 200u);
}

// ---------------------------------------------------------------------------------------------------------
// Counting
// ---------------------------------------------------------------------------------------------------------

TEST_F(hostile_network_test, datagrams_that_find_no_room_in_the_socket_are_counted)
{
    serve({});
    const std::size_t index = add("127.0.0.1:0");
    const client sender{AF_INET};
    constexpr std::uint64_t requests = 20'000;
    for (std::uint64_t number = 0; number < requests; ++number)
        sender.send(server_->local_address(index), request_of(1400));
    const std::uint64_t dropped = server_->statistics(index).socket_full;
    if (dropped == 0)
        GTEST_SKIP() << "the system does not tell, or its buffers have no limit";
    EXPECT_LT(dropped, requests);
    server_->start();
    EXPECT_TRUE(eventually([&] { return server_->statistics(index).received == requests - dropped; }));
    server_->remove(index);
    EXPECT_EQ(server_->statistics().socket_full, dropped); // stays when the socket is closed
}

TEST_F(hostile_network_test, every_datagram_of_a_mixture_counts_once)
{
    udp_server_options options = allowing({"127.0.0.2"});
    options.packets_per_second = 60;
    options.longest_datagram = 200;
    define_responder(8, {.maximum_sessions = 1});
    serve(options, {.minimum_request = 41});
    const std::size_t indices[] = {add("127.0.0.1:0"), add("127.0.0.1:0", {9, bind_key}),
                                   add("127.0.0.1:0", {responder_id, 99}), add("127.0.0.1:0", {8, bind_key})};
    const client senders[] = {client{AF_INET}, client{AF_INET}, client{AF_INET}};
    senders[1].bind_to(parse_socket_address("127.0.0.2:0"));
    senders[2].bind_to(parse_socket_address("127.0.0.2:0"));
    for (std::uint32_t number = 0; number < 600; ++number)
        senders[number % 3].send(server_->local_address(indices[number / 3 % 4]), request_of(number * 7 % 300));
    server_->start();
    const auto dropped_before = [&] {
        const udp_statistics all = server_->statistics();
        return all.source_not_allowed + all.source_port + all.own_source + all.truncated + all.answers +
               all.rate_limited;
    };
    EXPECT_TRUE(eventually([&] { return dropped_before() + server_->statistics().received == 600; }));

    const udp_statistics all = server_->statistics();
    EXPECT_EQ(all.source_not_allowed, 200u);
    EXPECT_GT(all.truncated, 0u);
    EXPECT_GT(all.rate_limited, 0u);
    const global_counters module = global();
    EXPECT_EQ(module.rx, all.received);
    EXPECT_EQ(module.tx, all.sent);
    EXPECT_EQ(module.rx, module.tx + module.no_responder + module.length + module.hash_error + module.no_bind);
    for (const std::uint32_t each :
         {module.tx, module.no_responder, module.length, module.hash_error, module.no_bind})
        EXPECT_GT(each, 0u);
    for (const std::uint32_t id : {7u, 8u}) {
        const responder_counters own = counters(id);
        EXPECT_EQ(own.received, own.transmitted + own.length + own.max_sessions) << id;
    }
    udp_statistics sum;
    for (const std::size_t index : indices)
        sum += server_->statistics(index);
    EXPECT_EQ(sum.received, all.received);
    EXPECT_EQ(sum.rate_limited, all.rate_limited);
}

} // namespace
