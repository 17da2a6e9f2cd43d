// New senders where all places are taken: which sessions give way to theirs, and which never.

#include <initializer_list>

#include "fastpath/core/place_requests.hpp"
#include "fixture.hpp"

namespace {

using namespace olv_fastpath_test;

class giving_way_test : public reflector_test {
  protected:
    /** The number of the reply to a packet; -1: there is none. */
    std::int64_t send(std::uint16_t port, std::uint32_t number = 0, const packet_path &path = usual_path,
                      const ip_address &sender = first_sender)
    {
        bytes request = request_of(41);
        store_32(&request[0], number);
        received_packet packet = packet_of(request);
        packet.sender = {sender, port};
        const reply made = reflect(packet, path);
        return made.dropped ? -1 : std::int64_t{load_32(made.payload.data())};
    }

    void establish(std::initializer_list<std::uint16_t> ports)
    {
        for (const std::uint16_t port : ports) {
            EXPECT_EQ(send(port), 0);
            EXPECT_EQ(send(port, 1), 1);
        }
    }

    void set_seconds(std::uint64_t seconds, std::uint64_t quarters = 0)
    {
        processor_.set_timer(start_ticks + ticks_of(seconds, quarters));
    }

    /** Ports of the sessions that there are, in ascending order. */
    std::vector<int> ports(std::uint32_t id = responder_id)
    {
        std::vector<int> found;
        for (const session_summary &each : subject().sessions_at(processor_.timer_now())) {
            if (each.responder_id == id)
                found.push_back(each.sender.port);
        }
        std::sort(found.begin(), found.end());
        return found;
    }

    std::uint64_t gave_way() { return subject().sessions_that_gave_way(); }
};

/** The 33rd run of "twamp-probe --count 1", and so on. */
TEST_F(giving_way_test, senders_of_one_packet_are_all_answered)
{
    define_usual_path();
    for (std::uint16_t port = 0; port < 100; ++port)
        EXPECT_EQ(send(port), 0) << port;
    EXPECT_EQ(counters(), (responder_counters{.received = 100, .transmitted = 100, .active = 32}));
    EXPECT_EQ(gave_way(), 68u);
    EXPECT_EQ(ports().front(), 68); // the oldest ones went
}

TEST_F(giving_way_test, established_sender_keeps_its_session_through_a_flood_of_forged_sources)
{
    define_usual_path();
    establish({5000});
    std::int64_t number = 2;
    for (std::uint32_t forged = 0; forged < 100'000; ++forged) {
        ip_address source = second_sender;
        store_32(&source[12], 0xC0000000 + forged);
        ASSERT_EQ(send(static_cast<std::uint16_t>(1024 + forged % 60'000), 0, usual_path, source), 0);
        if (forged % 1000 == 0) {
            set_seconds(forged / 1000, 1);
            ASSERT_EQ(send(5000, static_cast<std::uint32_t>(number)), number);
            ++number;
        }
    }
    EXPECT_EQ(send(5000, 102), 102);
    EXPECT_EQ(counters(), (responder_counters{.received = 100'103, .transmitted = 100'103, .active = 32}));
    EXPECT_EQ(gave_way(), 100'000u - 31);
}

TEST_F(giving_way_test, established_sessions_give_way_after_the_grace_time_the_longest_idle_one_first)
{
    use_options({.session_grace_seconds = 5});
    define_usual_path({.maximum_sessions = 3});
    establish({1, 2, 3});
    set_seconds(1);
    EXPECT_EQ(send(1, 2), 2);
    set_seconds(2);
    EXPECT_EQ(send(3, 2), 2);
    set_seconds(4, 3);
    EXPECT_EQ(send(4), -1); // all are busy
    set_seconds(5);
    EXPECT_EQ(send(4), 0);
    EXPECT_EQ(ports(), (std::vector{1, 3, 4}));
    EXPECT_EQ(send(5), 0); // 4 gave no second packet
    EXPECT_EQ(send(5, 1), 1);
    EXPECT_EQ(send(6), -1);
    set_seconds(6);
    EXPECT_EQ(send(6), 0);
    EXPECT_EQ(ports(), (std::vector{3, 5, 6}));
    EXPECT_EQ(gave_way(), 3u);
    EXPECT_EQ(counters().max_sessions, 2u);
}

TEST_F(giving_way_test, is_of_one_responder_where_its_maximum_is_reached)
{
    define_usual_path({.maximum_sessions = 1});
    define_responder(8, {.maximum_sessions = 1});
    const packet_path other{8, bind_key};
    EXPECT_EQ(send(1, 0, other), 0); // older than all of the usual one
    EXPECT_EQ(send(2), 0);
    EXPECT_EQ(send(3), 0);
    EXPECT_EQ(ports(), std::vector{3});
    EXPECT_EQ(ports(8), std::vector{1});
}

TEST_F(giving_way_test, full_table_takes_of_all_responders)
{
    use_options({.session_capacity = 3});
    define_usual_path();
    define_responder(8);
    define_responder(9);
    const packet_path other{8, bind_key};
    const packet_path third{9, bind_key};
    EXPECT_EQ(send(1, 0, other), 0);
    EXPECT_EQ(send(2), 0);
    EXPECT_EQ(send(2, 1), 1);
    EXPECT_EQ(send(3), 0);
    EXPECT_EQ(send(4, 0, third), 0); // in place of the oldest without a second packet
    EXPECT_EQ(ports(8), std::vector<int>{});
    EXPECT_EQ(send(3, 1), 1);
    EXPECT_EQ(send(4, 1, third), 1);
    EXPECT_EQ(send(5, 0, other), -1);
    set_seconds(5);
    EXPECT_EQ(send(3, 2), 2);
    EXPECT_EQ(send(5, 0, other), 0); // in place of one that is idle
    EXPECT_EQ(counters().active + counters(8).active + counters(9).active, 3u);
    EXPECT_EQ(counters(8).active, 1u);
    EXPECT_EQ(gave_way(), 2u);
    EXPECT_EQ(global(), (global_counters{.rx = 10, .tx = 9, .hash_error = 1}));
}

TEST_F(giving_way_test, lowered_maximum_is_reached_with_the_next_new_sender)
{
    define_usual_path({.maximum_sessions = 4});
    for (std::uint16_t port = 1; port <= 4; ++port)
        EXPECT_EQ(send(port), 0);
    const std::uint32_t two = 2;
    std::array<std::uint8_t, 60> state{};
    ASSERT_EQ(hyx_se_state_get(processor_.rte_handle(), responder_id, 0, state.data(), 60), 0u);
    std::memcpy(&state[52], &two, 4);
    ASSERT_EQ(hyx_se_state_set(processor_.rte_handle(), responder_id, 0, state.data(), 60), 0u);
    EXPECT_EQ(send(5), 0);
    EXPECT_EQ(ports(), (std::vector{4, 5}));
    EXPECT_EQ(counters().active, 2u);
}

/** Sessions that are not counted any more make no place. */
TEST_F(giving_way_test, sessions_of_a_responder_created_anew_neither_count_nor_stay)
{
    define_usual_path({.creation_count = 1, .maximum_sessions = 2});
    establish({1, 2});
    delete_responder(responder_id);
    define_responder(responder_id, {.creation_count = 2, .maximum_sessions = 2});
    for (std::uint16_t port = 3; port <= 5; ++port)
        EXPECT_EQ(send(port), 0);
    EXPECT_EQ(ports(), (std::vector{4, 5}));
    EXPECT_EQ(gave_way(), 1u);
    EXPECT_EQ(counters().active, 2u);
}

// Senders that number anew

TEST_F(giving_way_test, sender_that_numbers_anew_gets_a_new_session)
{
    struct step {
        std::uint64_t seconds, quarters;
        std::uint32_t number;
        std::int64_t expected;
    };
    struct row {
        const char *label;
        std::vector<step> steps;
    };
    const row rows[] = {
        {"a second later", {{0, 0, 0, 0}, {0, 1, 1, 1}, {1, 1, 0, 0}, {1, 1, 1, 1}}},
        {"less than a second later", {{0, 0, 0, 0}, {0, 1, 1, 1}, {1, 0, 0, 2}, {1, 1, 2, 3}}},
        {"number 0 comes second", {{0, 0, 1, 0}, {0, 0, 0, 1}, {2, 0, 2, 2}}},
        {"always number 0", {{0, 0, 0, 0}, {2, 0, 0, 1}, {4, 0, 0, 2}}},
        {"numbers from 5", {{0, 0, 5, 0}, {2, 0, 6, 1}, {4, 0, 5, 2}}},
        {"numbers go round", {{0, 0, 0xFFFFFFFE, 0}, {2, 0, 0xFFFFFFFF, 1}, {4, 0, 0, 2}, {6, 0, 1, 3}}},
        {"lost as they go round", {{0, 0, 0xFFFF0000, 0}, {2, 0, 0, 1}}},
        {"far from going round", {{0, 0, 0xFFFEFFFF, 0}, {2, 0, 0, 0}}},
    };
    define_usual_path();
    std::uint16_t port = 1000;
    for (const row &each : rows) {
        ++port;
        for (const step &next : each.steps) {
            set_seconds(next.seconds, next.quarters);
            EXPECT_EQ(send(port, next.number), next.expected) << each.label << ", number " << next.number;
        }
        set_seconds(0);
    }
    EXPECT_EQ(counters().active, std::size(rows)); // it is one session all the time
}

// Cleared by hand

TEST_F(giving_way_test, cleared_sessions_are_those_of_a_responder_or_all)
{
    define_usual_path();
    define_responder(8);
    define_responder(9);
    establish({1, 2});
    for (const std::uint32_t id : {8u, 9u})
        EXPECT_EQ(send(1, 0, {id, bind_key}), 0);
    EXPECT_EQ(subject().clear_sessions(8), 1u);
    EXPECT_EQ(counters(8).active, 0u);
    EXPECT_EQ(ports(), (std::vector{1, 2}));
    EXPECT_EQ(subject().clear_sessions({}), 3u);
    EXPECT_EQ(counters().active + counters(9).active, 0u);
    EXPECT_EQ(subject().clear_sessions({}), 0u);
    EXPECT_EQ(gave_way(), 0u);
    EXPECT_EQ(send(1, 2), 0);
}

// Stateless

TEST_F(giving_way_test, stateless_keeps_nothing)
{
    use_options({.mode = stamp_mode::stateless});
    define_usual_path({.maximum_sessions = 1});
    for (std::uint16_t port = 1; port < 100; ++port)
        ASSERT_EQ(send(port, 1000u + port), 1000 + port);
    EXPECT_EQ(counters(), (responder_counters{.received = 99, .transmitted = 99}));
    EXPECT_EQ(subject().sessions(), 0u);
}

// Several reflectors

TEST_F(giving_way_test, reflector_without_a_place_is_given_one_by_another)
{
    define_usual_path({.maximum_sessions = 2});
    int rings = 0;
    const auto peers = std::make_shared<reflector_peers>(3u, [&] { ++rings; });
    std::deque<reflector> reflectors;
    for (int number = 0; number < 3; ++number)
        reflectors.emplace_back(processor_, fast_path_options{}, peers);
    const auto send_to = [&](reflector &one, std::uint16_t port) {
        const bytes request = request_of(41);
        received_packet packet = packet_of(request);
        packet.sender.port = port;
        bytes room(41);
        return !one.reflect(packet, usual_path, room).dropped;
    };
    EXPECT_TRUE(send_to(reflectors[0], 1));
    EXPECT_TRUE(send_to(reflectors[0], 2));
    EXPECT_FALSE(send_to(reflectors[1], 3));
    EXPECT_EQ(rings, 1);
    EXPECT_FALSE(reflectors[1].is_asked_for_place());
    for (const std::size_t other : {2u, 0u}) { // the one has none
        EXPECT_TRUE(reflectors[other].is_asked_for_place());
        reflectors[other].give_place(processor_.timer_now());
        EXPECT_FALSE(reflectors[other].is_asked_for_place());
    }
    EXPECT_EQ(counters().active, 1u);
    EXPECT_TRUE(send_to(reflectors[1], 3));
    EXPECT_EQ(counters().active, 2u);
    EXPECT_EQ(reflectors[0].sessions_that_gave_way(), 1u);
    for (const std::size_t number : {0u, 1u}) { // both established and busy: nothing is given
        EXPECT_TRUE(send_to(reflectors[number], number == 0 ? 2 : 3));
    }
    set_seconds(0, 1);
    EXPECT_FALSE(send_to(reflectors[2], 4));
    EXPECT_EQ(rings, 2);
    for (const std::size_t other : {0u, 1u})
        reflectors[other].give_place(processor_.timer_now());
    EXPECT_FALSE(send_to(reflectors[2], 4));
    EXPECT_EQ(counters().active, 2u);
}

} // namespace
