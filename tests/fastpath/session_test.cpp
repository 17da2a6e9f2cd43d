// Sessions: the table they are in, when they begin and end.

#include "fastpath/core/session_table.hpp"

#include <initializer_list>

#include "fixture.hpp"

namespace {

using namespace olv_fastpath_test;

session_key key_of(std::uint16_t port)
{
    return {.responder_id = 1, .sender = {first_sender, port}};
}

TEST(session_table, has_room_for_its_capacity_and_takes_slots_back)
{
    session_table table{3};
    for (std::uint16_t port = 0; port < 3; ++port)
        ASSERT_NE(table.insert(key_of(port), {}, port), nullptr);
    EXPECT_EQ(table.insert(key_of(3), {}, 3), nullptr);
    table.remove(*table.find(key_of(1)));
    EXPECT_EQ(table.size(), 2u);
    EXPECT_EQ(table.find(key_of(1)), nullptr);
    EXPECT_NE(table.insert(key_of(3), {}, 3), nullptr);
    EXPECT_EQ(table.insert(key_of(4), {}, 4), nullptr);
    EXPECT_EQ(session_table{0}.insert(key_of(1), {}, 1), nullptr);
    EXPECT_EQ(session_table{0}.next_slot(), nullptr);
}

TEST(session_table, keeps_the_order_of_age)
{
    session_table table{4};
    for (std::uint16_t port = 0; port < 4; ++port)
        ASSERT_NE(table.insert(key_of(port), {}, port), nullptr);
    table.touch(*table.find(key_of(0)), 10);
    table.touch(*table.find(key_of(2)), 11);
    table.touch(*table.find(key_of(2)), 12);
    for (const int port : {1, 3, 0, 2}) {
        ASSERT_NE(table.oldest(1), nullptr);
        EXPECT_EQ(table.oldest(1)->sender.port, port);
        table.remove(*table.oldest(1));
    }
    EXPECT_EQ(table.oldest(1), nullptr);
    EXPECT_EQ(table.size(), 0u);
}

TEST(session_table, survives_many_insertions_and_removals)
{
    session_table table{100};
    std::uint32_t expected = 0;
    for (std::uint32_t step = 0; step < 20000; ++step) {
        const session_key key = key_of(static_cast<std::uint16_t>(step * 7919 % 211));
        if (session *found = table.find(key)) {
            table.remove(*found);
            --expected;
        } else if (table.insert(key, {}, step) != nullptr) {
            ++expected;
        } else {
            EXPECT_EQ(expected, 100u);
        }
        ASSERT_EQ(table.size(), expected);
    }
}

class session_test : public reflector_test {
  protected:
    reply send(std::uint16_t port, const ip_address &sender = first_sender,
               const packet_path &path = usual_path)
    {
        const bytes request = request_of(14);
        received_packet packet = packet_of(request);
        packet.sender = {sender, port};
        return reflect(packet, path);
    }

    std::uint32_t number_of_reply(std::uint16_t port, const ip_address &sender = first_sender,
                                  const packet_path &path = usual_path)
    {
        const reply made = send(port, sender, path);
        return made.dropped ? UINT32_MAX : load_32(made.payload.data());
    }

    /** Senders that give a second packet. */
    void establish(std::initializer_list<std::uint16_t> ports)
    {
        for (const int packet : {1, 2}) {
            for (const std::uint16_t port : ports)
                EXPECT_FALSE(send(port).dropped) << packet;
        }
    }

    void set_seconds(std::uint64_t seconds) { processor_.set_timer(start_ticks + ticks_of(seconds)); }

    /** Replies of the sessions that are listed at a second, by their senders' ports. */
    std::vector<std::pair<int, std::uint32_t>> listed_at(std::uint64_t seconds)
    {
        std::vector<std::pair<int, std::uint32_t>> listed;
        for (const session_summary &each : subject().sessions_at(start_ticks + ticks_of(seconds))) {
            EXPECT_EQ(each.responder_id, responder_id);
            EXPECT_EQ(each.sender.address, first_sender);
            listed.emplace_back(each.sender.port, each.replies);
        }
        return listed;
    }
};

TEST_F(session_test, each_address_and_port_and_responder_has_its_own_numbers)
{
    define_usual_path();
    define_responder(8);
    for (const std::uint32_t expected : {0u, 1u, 2u}) {
        EXPECT_EQ(number_of_reply(5000), expected);
        EXPECT_EQ(number_of_reply(5001), expected);
        EXPECT_EQ(number_of_reply(5000, second_sender), expected);
        EXPECT_EQ(number_of_reply(5000, first_sender, {8, bind_key}), expected);
    }
    EXPECT_EQ(counters(7).active, 3u);
    EXPECT_EQ(counters(8).active, 1u);
}

TEST_F(session_test, sessions_beyond_the_state_entrys_maximum_are_dropped)
{
    define_usual_path({.maximum_sessions = 2});
    establish({1, 2});
    EXPECT_EQ(send(3).dropped, drop_reason::max_sessions);
    EXPECT_FALSE(send(1).dropped);
    define_responder(8, {.maximum_sessions = 0});
    EXPECT_EQ(send(1, first_sender, {8, bind_key}).dropped, drop_reason::max_sessions);
    EXPECT_EQ(counters(),
              (responder_counters{.received = 6, .transmitted = 5, .active = 2, .max_sessions = 1}));
    EXPECT_EQ(counters(8), (responder_counters{.received = 1, .max_sessions = 1}));
    EXPECT_EQ(global(), (global_counters{.rx = 7, .tx = 5, .hash_error = 2}));
}

TEST_F(session_test, table_without_room_drops)
{
    use_options({.session_capacity = 2});
    define_usual_path();
    define_responder(8);
    establish({1, 2});
    EXPECT_EQ(send(1, first_sender, {8, bind_key}).dropped, drop_reason::hash_error);
    EXPECT_EQ(counters(8), (responder_counters{.received = 1, .max_sessions = 1}));
    EXPECT_EQ(global(), (global_counters{.rx = 5, .tx = 4, .hash_error = 1}));
}

TEST_F(session_test, full_table_makes_room_when_sessions_are_idle)
{
    use_options({.refwait_seconds = 10, .session_capacity = 4});
    define_usual_path();
    for (std::uint16_t port = 0; port < 4; ++port)
        (void)send(port);
    set_seconds(10);
    EXPECT_EQ(number_of_reply(9), 0u);
    EXPECT_LT(subject().sessions(), 4u);
}

TEST_F(session_test, idle_session_ends_after_refwait)
{
    use_options({.refwait_seconds = 10});
    define_usual_path();
    EXPECT_EQ(number_of_reply(1), 0u);
    EXPECT_EQ(number_of_reply(2), 0u);
    processor_.set_timer(start_ticks + ticks_of(10) - 1);
    EXPECT_EQ(number_of_reply(1), 1u);
    EXPECT_EQ(counters().active, 2u);
    set_seconds(10);
    EXPECT_EQ(number_of_reply(1), 2u); // kept by its last packet
    EXPECT_EQ(counters().active, 1u);
    EXPECT_EQ(number_of_reply(2), 0u);
    EXPECT_EQ(counters().active, 2u);
}

TEST_F(session_test, expecting_packets_of_many_sessions_changes_nothing)
{
    constexpr std::uint16_t many = 5000;
    define_usual_path({.maximum_sessions = many});
    for (std::uint16_t port = 0; port < many; ++port)
        ASSERT_EQ(number_of_reply(port), 0u);
    std::vector<ip_endpoint> senders;
    for (std::uint16_t port = many - 40; port < many + 40; ++port) // some have no session
        senders.push_back({first_sender, port});
    subject().expect(senders, usual_path);
    EXPECT_EQ(counters().active, many);
    EXPECT_EQ(subject().sessions(), many);
    for (std::uint16_t port = many - 40; port < many; ++port)
        EXPECT_EQ(number_of_reply(port), 1u);
    EXPECT_EQ(number_of_reply(many), 0u);
    EXPECT_EQ(counters().active, many);
}

TEST_F(session_test, idle_sessions_end_before_another_gives_way)
{
    use_options({.refwait_seconds = 10});
    define_usual_path({.maximum_sessions = 3});
    establish({1, 2});
    set_seconds(9);
    (void)send(3);
    set_seconds(10);
    EXPECT_FALSE(send(4).dropped);
    EXPECT_EQ(counters().active, 2u); // 3 and 4
    EXPECT_EQ(subject().sessions_that_gave_way(), 0u);
}

TEST_F(session_test, idle_sessions_end_with_packets_of_other_responders)
{
    use_options({.refwait_seconds = 10});
    define_usual_path();
    for (std::uint16_t port = 0; port < 10; ++port)
        (void)send(port);
    set_seconds(10);
    for (int number = 0; number < 5; ++number)
        (void)send(1, first_sender, {99, bind_key}); // no such responder
    EXPECT_EQ(counters().active, 0u);
    EXPECT_EQ(subject().sessions(), 0u);
}

TEST_F(session_test, count_that_was_cleared_does_not_fall_below_zero)
{
    use_options({.refwait_seconds = 10});
    define_usual_path();
    (void)send(1);
    write_state(responder_id, {});
    set_seconds(10);
    EXPECT_FALSE(send(1).dropped);
    EXPECT_EQ(counters(), (responder_counters{.received = 1, .transmitted = 1, .active = 1}));
}

TEST_F(session_test, responder_created_anew_begins_new_sessions)
{
    define_usual_path({.creation_count = 1, .ticks = 1000});
    for (const responder_settings &next : {responder_settings{.creation_count = 2, .ticks = 1000},
                                           responder_settings{.creation_count = 2, .ticks = 2000}}) {
        EXPECT_EQ(number_of_reply(1), 0u);
        EXPECT_EQ(number_of_reply(1), 1u);
        EXPECT_EQ(number_of_reply(2), 0u);
        delete_responder(responder_id);
        define_responder(responder_id, next);
    }
    EXPECT_EQ(number_of_reply(1), 0u);
    EXPECT_EQ(counters().active, 1u);
}

TEST_F(session_test, old_sessions_of_a_responder_created_anew_end_uncounted)
{
    use_options({.refwait_seconds = 10});
    define_usual_path({.creation_count = 1});
    (void)send(1);
    (void)send(2);
    delete_responder(responder_id);
    define_responder(responder_id, {.creation_count = 2});
    set_seconds(9);
    (void)send(3);
    set_seconds(11); // only the old ones are idle
    (void)send(3);
    EXPECT_EQ(counters().active, 1u);
    EXPECT_EQ(subject().sessions(), 1u);
}

TEST_F(session_test, sessions_of_deleted_responders_do_not_keep_the_table_full)
{
    use_options({.session_capacity = 4});
    define_usual_path({.creation_count = 1});
    for (std::uint16_t port = 0; port < 4; ++port)
        (void)send(port);
    delete_responder(responder_id);
    define_responder(responder_id, {.creation_count = 2});
    EXPECT_EQ(number_of_reply(9), 0u);
    EXPECT_EQ(counters().active, 1u);
}

TEST_F(session_test, list_holds_neither_idle_sessions_nor_those_of_deleted_responders)
{
    use_options({.refwait_seconds = 10});
    define_usual_path();
    define_responder(8);
    (void)send(1);
    (void)send(2);
    (void)send(3, first_sender, {8, bind_key});
    set_seconds(8);
    (void)send(2);
    (void)send(1);
    set_seconds(9);
    (void)send(2);
    delete_responder(8);
    using list = std::vector<std::pair<int, std::uint32_t>>;
    EXPECT_EQ(listed_at(9), (list{{1, 2}, {2, 3}})); // the longest idle one first
    EXPECT_EQ(subject().sessions_at(start_ticks + ticks_of(9, 2))[0].idle_seconds, 1.5);
    EXPECT_EQ(listed_at(18), (list{{2, 3}}));
    EXPECT_EQ(listed_at(19), list{});
}

TEST_F(session_test, refwait_is_900_seconds_when_nothing_else_is_said)
{
    define_usual_path();
    EXPECT_EQ(number_of_reply(1), 0u);
    processor_.set_timer(start_ticks + ticks_of(900) - 1);
    EXPECT_EQ(number_of_reply(1), 1u);
    processor_.set_timer(start_ticks + ticks_of(1800) - 1);
    EXPECT_EQ(number_of_reply(1), 0u);
}

TEST_F(session_test, packet_that_arrived_before_the_last_one_keeps_its_session)
{
    use_options({.refwait_seconds = 0});
    define_usual_path();
    EXPECT_EQ(number_of_reply(1), 0u);
    processor_.set_timer(start_ticks - 100);
    EXPECT_EQ(number_of_reply(1), 1u);
    EXPECT_EQ(number_of_reply(1), 2u);
}

} // namespace
