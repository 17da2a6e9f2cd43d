#include <atomic>
#include <thread>

#include "fixture.hpp"

namespace {

using namespace olv_fastpath_test;

class packet_path_test : public reflector_test {
  protected:
    outcome result_of(const bytes &payload, const packet_path &path = usual_path)
    {
        const reply made = reflect(payload, path);
        EXPECT_EQ(made.made.result == outcome::reflected, made.made.reply_length != 0);
        return made.made.result;
    }
};

TEST_F(packet_path_test, reflected_packet_counts_once_everywhere)
{
    define_usual_path();
    EXPECT_EQ(result_of(request_of(14)), outcome::reflected);
    EXPECT_EQ(global(), (global_counters{.rx = 1, .tx = 1}));
    EXPECT_EQ(counters(), (responder_counters{.received = 1, .transmitted = 1, .active = 1}));
}

TEST_F(packet_path_test, no_entry_drops_for_no_responder)
{
    learn(bind_tree, bind_key, 0x401);
    write_state(responder_id, {});
    EXPECT_EQ(result_of(request_of(14)), outcome::drop_no_responder);
    EXPECT_EQ(global(), (global_counters{.rx = 1, .no_responder = 1}));
    EXPECT_EQ(counters(), responder_counters{});
}

TEST_F(packet_path_test, return_value_decides_whether_a_responder_is_defined)
{
    struct row {
        std::uint32_t id;
        std::uint32_t return_value;
        outcome expected;
    };
    learn(bind_tree, bind_key, 0x401);
    for (const row &each :
         {row{1, 0, outcome::reflected}, row{2, 4, outcome::reflected}, row{3, 1, outcome::drop_no_responder},
          row{4, 2, outcome::drop_no_responder}, row{5, 5, outcome::drop_no_responder},
          row{6, 0x80000000, outcome::drop_no_responder}}) {
        write_state(each.id, {});
        learn(responder_tree, each.id, each.return_value);
        EXPECT_EQ(result_of(request_of(14), {each.id, bind_key}), each.expected) << each.return_value;
    }
    EXPECT_EQ(global(), (global_counters{.rx = 6, .tx = 2, .no_responder = 4}));
}

TEST_F(packet_path_test, entry_without_a_key_stands_for_responders_without_one)
{
    write_state(responder_id, {});
    learn(bind_tree, bind_key, 0x401);
    learn(responder_tree, std::nullopt, 0);
    EXPECT_EQ(result_of(request_of(14)), outcome::reflected);
    unlearn(responder_tree, std::nullopt);
    learn(responder_tree, std::nullopt, 1);
    EXPECT_EQ(result_of(request_of(14)), outcome::drop_no_responder);
}

TEST_F(packet_path_test, entry_without_a_key_reaches_no_state_that_was_never_written)
{
    learn(bind_tree, bind_key, 0x401);
    learn(responder_tree, std::nullopt, 0);
    EXPECT_EQ(result_of(request_of(14)), outcome::drop_no_responder);
    EXPECT_EQ(result_of(request_of(14), {0xFFFFFF, bind_key}), outcome::drop_no_responder);
    EXPECT_EQ(counters(), responder_counters{});
    EXPECT_EQ(global(), (global_counters{.rx = 2, .no_responder = 2}));
}

TEST_F(packet_path_test, deleted_responder_drops_for_no_responder)
{
    define_usual_path();
    EXPECT_EQ(result_of(request_of(14)), outcome::reflected);
    delete_responder(responder_id);
    EXPECT_EQ(result_of(request_of(14)), outcome::drop_no_responder);
    EXPECT_EQ(counters(), responder_counters{});
    EXPECT_EQ(global(), (global_counters{.rx = 2, .tx = 1, .no_responder = 1}));
}

TEST_F(packet_path_test, no_bind_drops_before_the_responder_counts)
{
    define_responder(responder_id);
    EXPECT_EQ(result_of(request_of(14)), outcome::drop_no_bind);
    EXPECT_EQ(global(), (global_counters{.rx = 1, .no_bind = 1}));
    EXPECT_EQ(counters(), responder_counters{});
    learn(bind_tree, bind_key, 0x401);
    EXPECT_EQ(result_of(request_of(14)), outcome::reflected);
    unlearn(bind_tree, bind_key);
    EXPECT_EQ(result_of(request_of(14)), outcome::drop_no_bind);
}

TEST_F(packet_path_test, low_24_bits_of_the_path_count)
{
    define_usual_path();
    EXPECT_EQ(result_of(request_of(14), {0xAB000007, 0xCD000005}), outcome::reflected);
}

TEST_F(packet_path_test, short_payloads_drop_for_their_length)
{
    define_usual_path();
    for (std::size_t length = 0; length < 14; ++length)
        EXPECT_EQ(result_of(request_of(length)), outcome::drop_length) << length;
    EXPECT_EQ(global(), (global_counters{.rx = 14, .length = 14}));
    EXPECT_EQ(counters(), (responder_counters{.received = 14, .length = 14}));
}

TEST_F(packet_path_test, payloads_below_the_required_length_drop_for_their_length)
{
    use_options({.minimum_request = 44});
    define_usual_path();
    for (std::size_t length = 0; length < 44; ++length)
        EXPECT_EQ(result_of(request_of(length)), outcome::drop_length) << length;
    EXPECT_EQ(result_of(request_of(44)), outcome::reflected);
    EXPECT_EQ(global(), (global_counters{.rx = 45, .tx = 1, .length = 44}));
    EXPECT_EQ(counters(), (responder_counters{.received = 45, .transmitted = 1, .active = 1, .length = 44}));
}

TEST_F(packet_path_test, required_length_is_not_below_a_senders_header)
{
    use_options({.minimum_request = 0});
    define_usual_path();
    EXPECT_EQ(result_of(request_of(13)), outcome::drop_length);
    EXPECT_EQ(result_of(request_of(14)), outcome::reflected);
}

TEST_F(packet_path_test, reply_buffer_that_is_too_small_drops_for_the_length)
{
    define_usual_path();
    const bytes request = request_of(14);
    bytes buffer(40);
    EXPECT_EQ(subject().reflect(packet_of(request), usual_path, buffer).result, outcome::drop_length);
    EXPECT_EQ(counters(), (responder_counters{.received = 1, .length = 1}));
}

TEST_F(packet_path_test, program_without_trees_or_statistics_drops)
{
    olv_sim::classifier_program program = olv_sim::classifier_program::twamp(10, 10);
    program.tree_functions.clear();
    program.global_statistics = false;
    olv_sim::processor bare{program};
    reflector alone{bare};
    const bytes request = request_of(14);
    bytes buffer(44);
    EXPECT_EQ(alone.reflect(packet_of(request), usual_path, buffer).result, outcome::drop_no_responder);
}

TEST_F(packet_path_test, every_packet_of_a_mixture_counts_once)
{
    define_usual_path({.maximum_sessions = 3});
    for (std::uint32_t number = 0; number < 1000; ++number) {
        const bytes request = request_of(number % 20);
        received_packet packet = packet_of(request);
        packet.sender_port = static_cast<std::uint16_t>(number % 5);
        (void)reflect(packet, {number % 3 == 0 ? 9 : responder_id, number % 7 == 0 ? 1 : bind_key});
    }
    const global_counters all = global();
    EXPECT_EQ(all.rx, 1000u);
    EXPECT_EQ(all.tx + all.no_responder + all.length + all.hash_error + all.no_bind, 1000u);
    const responder_counters own = counters();
    EXPECT_EQ(own.received, own.transmitted + own.length + own.max_sessions);
    EXPECT_EQ(own.received, 1000 - all.no_responder - all.no_bind);
    for (const std::uint32_t each : {all.tx, all.no_responder, all.length, all.hash_error, all.no_bind})
        EXPECT_GT(each, 0u);
}

TEST_F(packet_path_test, counters_carry_over_all_bytes)
{
    define_usual_path();
    const std::array<std::uint8_t, 4> almost{0x00, 0xFF, 0xFF, 0xFF};
    ASSERT_EQ(hyx_se_state_set(processor_.rte_handle(), 0x7008C1, 0, almost.data(), 4), 0u);
    (void)reflect(request_of(14));
    EXPECT_EQ(global().rx, 0x01000000u);
}

TEST_F(packet_path_test, clearing_by_the_control_side_is_not_undone)
{
    define_usual_path();
    const std::array<std::uint8_t, 128> zeros{};
    std::atomic<bool> done{false};
    std::thread control([&] {
        while (!done)
            (void)hyx_se_state_set(processor_.rte_handle(), 0x7008C1, 0, zeros.data(), 128);
    });
    const bytes request = request_of(14);
    for (int number = 0; number < 20000; ++number)
        (void)reflect(request);
    done = true;
    control.join();
    ASSERT_EQ(hyx_se_state_set(processor_.rte_handle(), 0x7008C1, 0, zeros.data(), 128), 0u);
    for (int number = 0; number < 3; ++number)
        (void)reflect(request);
    EXPECT_EQ(global(), (global_counters{.rx = 3, .tx = 3}));
    EXPECT_EQ(counters(), (responder_counters{.received = 20003, .transmitted = 20003, .active = 1}));
}

TEST_F(packet_path_test, cleared_session_count_does_not_fall_below_zero)
{
    use_options({.refwait_seconds = 10});
    define_usual_path();
    (void)reflect(request_of(14));
    write_state(responder_id, {});
    processor_.set_timer(start_ticks + ticks_of(10));
    EXPECT_EQ(result_of(request_of(14)), outcome::reflected);
    EXPECT_EQ(counters(), (responder_counters{.received = 1, .transmitted = 1, .active = 1}));
}

TEST_F(packet_path_test, batch_is_counted_at_its_end_or_with_another_responder)
{
    define_usual_path();
    define_responder(8);
    {
        const reflector::batch batch{subject()};
        for (int number = 0; number < 3; ++number)
            EXPECT_EQ(reflect(request_of(14)).made.result, outcome::reflected);
        EXPECT_EQ(reflect(request_of(13)).made.result, outcome::drop_length);
        EXPECT_EQ(reflect(request_of(14), {9, bind_key}).made.result, outcome::drop_no_responder);
        EXPECT_EQ(counters().received, 0u);
        EXPECT_EQ(global().rx, 0u);
        EXPECT_EQ(reflect(request_of(14), {8, bind_key}).made.result, outcome::reflected);
        EXPECT_EQ(counters(), (responder_counters{.received = 4, .transmitted = 3, .active = 1, .length = 1}));
        EXPECT_EQ(counters(8).received, 0u);
    }
    EXPECT_EQ(counters(), (responder_counters{.received = 4, .transmitted = 3, .active = 1, .length = 1}));
    EXPECT_EQ(counters(8), (responder_counters{.received = 1, .transmitted = 1, .active = 1}));
    EXPECT_EQ(global(), (global_counters{.rx = 6, .tx = 4, .no_responder = 1, .length = 1}));
    EXPECT_EQ(reflect(request_of(14)).made.result, outcome::reflected);
    EXPECT_EQ(counters().transmitted, 4u);
    EXPECT_EQ(global().tx, 5u);
}

TEST_F(packet_path_test, counting_a_batch_undoes_no_clear)
{
    define_usual_path();
    EXPECT_EQ(reflect(request_of(14)).made.result, outcome::reflected);
    {
        const reflector::batch batch{subject()};
        EXPECT_EQ(reflect(request_of(14)).made.result, outcome::reflected);
        write_state(responder_id, {});
    }
    EXPECT_EQ(counters(), (responder_counters{.received = 1, .transmitted = 1}));
}

TEST_F(packet_path_test, counting_a_batch_adds_nothing_to_a_later_responder)
{
    define_usual_path({.creation_count = 1});
    {
        const reflector::batch batch{subject()};
        EXPECT_EQ(reflect(request_of(14)).made.result, outcome::reflected);
        delete_responder(responder_id);
    }
    EXPECT_EQ(counters(), responder_counters{});
    EXPECT_EQ(global().tx, 1u);
    {
        const reflector::batch batch{subject()};
        define_responder(responder_id, {.creation_count = 2});
        EXPECT_EQ(reflect(request_of(14)).made.result, outcome::reflected);
        write_state(responder_id, {.creation_count = 3});
        EXPECT_EQ(reflect(request_of(14)).made.result, outcome::reflected);
    }
    EXPECT_EQ(counters(), (responder_counters{.received = 1, .transmitted = 1, .active = 1}));
    EXPECT_EQ(global().tx, 3u);
}

} // namespace
