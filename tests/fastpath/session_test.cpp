#include "fastpath/core/session_table.hpp"

#include "fixture.hpp"

namespace {

using namespace olv_fastpath_test;

session_key key_of(std::uint16_t port)
{
    return {.responder_id = 1, .sender_address = first_sender, .sender_port = port};
}

TEST(session_table, finds_what_was_inserted_and_nothing_else)
{
    session_table table{4};
    session *inserted = table.insert(key_of(1), {3, 9}, 100);
    ASSERT_NE(inserted, nullptr);
    EXPECT_EQ(table.find(key_of(1)), inserted);
    EXPECT_EQ(table.find(key_of(2)), nullptr);
    EXPECT_EQ(table.find({2, first_sender, 1}), nullptr);
    EXPECT_EQ(table.find({1, second_sender, 1}), nullptr);
    EXPECT_EQ(inserted->creation, (responder_creation{3, 9}));
    EXPECT_EQ(inserted->last_arrival, 100u);
    EXPECT_EQ(inserted->next_sequence_number, 0u);
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
        ASSERT_NE(table.oldest(), nullptr);
        EXPECT_EQ(table.oldest()->key.sender_port, port);
        table.remove(*table.oldest());
    }
    EXPECT_EQ(table.oldest(), nullptr);
    EXPECT_EQ(table.size(), 0u);
}

TEST(session_table, of_no_capacity_is_always_full)
{
    session_table table{0};
    EXPECT_EQ(table.insert(key_of(1), {}, 1), nullptr);
    EXPECT_EQ(table.find(key_of(1)), nullptr);
    EXPECT_EQ(table.next_slot(), nullptr);
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
        packet.sender_port = port;
        packet.sender_address = sender;
        return reflect(packet, path);
    }

    std::uint32_t number_of_reply(std::uint16_t port, const ip_address &sender = first_sender,
                                  const packet_path &path = usual_path)
    {
        const reply made = send(port, sender, path);
        return made.payload.size() < 4 ? UINT32_MAX : load_32(made.payload.data());
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
    EXPECT_EQ(send(1).made.result, outcome::reflected);
    EXPECT_EQ(send(2).made.result, outcome::reflected);
    EXPECT_EQ(send(3).made.result, outcome::drop_max_sessions);
    EXPECT_EQ(send(1).made.result, outcome::reflected);
    EXPECT_EQ(counters(),
              (responder_counters{.received = 4, .transmitted = 3, .active = 2, .max_sessions = 1}));
    EXPECT_EQ(global(), (global_counters{.rx = 4, .tx = 3, .hash_error = 1}));
}

TEST_F(session_test, responder_that_may_have_no_session_reflects_nothing)
{
    define_usual_path({.maximum_sessions = 0});
    EXPECT_EQ(send(1).made.result, outcome::drop_max_sessions);
    EXPECT_EQ(counters(), (responder_counters{.received = 1, .max_sessions = 1}));
}

TEST_F(session_test, table_without_room_drops)
{
    use_options({.session_capacity = 2});
    define_usual_path();
    define_responder(8);
    EXPECT_EQ(send(1).made.result, outcome::reflected);
    EXPECT_EQ(send(2).made.result, outcome::reflected);
    EXPECT_EQ(send(1, first_sender, {8, bind_key}).made.result, outcome::drop_table_full);
    EXPECT_EQ(counters(8), (responder_counters{.received = 1, .max_sessions = 1}));
    EXPECT_EQ(global(), (global_counters{.rx = 3, .tx = 2, .hash_error = 1}));
}

TEST_F(session_test, full_table_makes_room_when_sessions_are_idle)
{
    use_options({.refwait_seconds = 10, .session_capacity = 4});
    define_usual_path();
    for (std::uint16_t port = 0; port < 4; ++port)
        (void)send(port);
    processor_.set_timer(start_ticks + ticks_of(10));
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
    processor_.set_timer(start_ticks + ticks_of(10));
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
    EXPECT_EQ(send(many).made.result, outcome::drop_max_sessions);
}

TEST_F(session_test, default_refwait_is_900_seconds)
{
    define_usual_path();
    EXPECT_EQ(number_of_reply(1), 0u);
    processor_.set_timer(start_ticks + ticks_of(900) - 1);
    EXPECT_EQ(number_of_reply(1), 1u);
    processor_.set_timer(start_ticks + ticks_of(1800) - 1);
    EXPECT_EQ(number_of_reply(1), 0u);
    EXPECT_EQ(counters().active, 1u);
}

TEST_F(session_test, idle_sessions_end_before_a_new_one_is_refused)
{
    use_options({.refwait_seconds = 10});
    define_usual_path({.maximum_sessions = 8});
    define_responder(8);
    for (std::uint16_t port = 0; port < 20; ++port)
        (void)send(port, first_sender, {8, bind_key});
    for (std::uint16_t port = 0; port < 8; ++port)
        (void)send(port);
    EXPECT_EQ(send(100).made.result, outcome::drop_max_sessions);
    processor_.set_timer(start_ticks + ticks_of(10));
    EXPECT_EQ(send(100).made.result, outcome::reflected);
    EXPECT_EQ(counters(7).active, 1u);
    EXPECT_EQ(counters(8).active, 0u);
}

TEST_F(session_test, idle_sessions_end_with_packets_of_other_responders)
{
    use_options({.refwait_seconds = 10});
    define_usual_path();
    for (std::uint16_t port = 0; port < 10; ++port)
        (void)send(port);
    processor_.set_timer(start_ticks + ticks_of(10));
    for (int number = 0; number < 5; ++number)
        (void)send(1, first_sender, {99, bind_key}); // no such responder
    EXPECT_EQ(counters().active, 0u);
    EXPECT_EQ(subject().sessions(), 0u);
}

TEST_F(session_test, responder_created_anew_begins_new_sessions)
{
    define_usual_path({.creation_count = 1});
    EXPECT_EQ(number_of_reply(1), 0u);
    EXPECT_EQ(number_of_reply(1), 1u);
    EXPECT_EQ(number_of_reply(2), 0u);
    delete_responder(responder_id);
    define_responder(responder_id, {.creation_count = 2});
    EXPECT_EQ(number_of_reply(1), 0u);
    EXPECT_EQ(counters().active, 1u);
}

TEST_F(session_test, creation_at_another_time_with_the_same_count_begins_new_sessions)
{
    define_usual_path({.creation_count = 1, .ticks = 1000});
    EXPECT_EQ(number_of_reply(1), 0u);
    EXPECT_EQ(number_of_reply(1), 1u);
    delete_responder(responder_id);
    define_responder(responder_id, {.creation_count = 1, .ticks = 2000});
    EXPECT_EQ(number_of_reply(1), 0u);
}

TEST_F(session_test, old_sessions_of_a_responder_created_anew_end_uncounted)
{
    use_options({.refwait_seconds = 10});
    define_usual_path({.creation_count = 1});
    (void)send(1);
    (void)send(2);
    delete_responder(responder_id);
    define_responder(responder_id, {.creation_count = 2});
    processor_.set_timer(start_ticks + ticks_of(9));
    (void)send(3);
    processor_.set_timer(start_ticks + ticks_of(11)); // only the old ones are idle
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
    processor_.set_timer(start_ticks + ticks_of(9));
    (void)send(2);
    (void)send(1);
    (void)send(2);
    delete_responder(8);
    const std::vector<session> now = subject().sessions_at(start_ticks + ticks_of(9));
    ASSERT_EQ(now.size(), 2u); // the longest idle one first
    EXPECT_EQ(now[0].key.sender_port, 1);
    EXPECT_EQ(now[0].next_sequence_number, 2u);
    EXPECT_EQ(now[1].key.sender_port, 2);
    EXPECT_EQ(now[1].next_sequence_number, 3u);
    EXPECT_TRUE(subject().sessions_at(start_ticks + ticks_of(19)).empty());
}

TEST_F(session_test, packet_that_arrived_before_the_last_one_keeps_its_session)
{
    use_options({.refwait_seconds = 0});
    define_usual_path();
    EXPECT_EQ(number_of_reply(1), 0u);
    processor_.set_timer(start_ticks - 100);
    EXPECT_EQ(number_of_reply(1), 1u);
}

} // namespace
