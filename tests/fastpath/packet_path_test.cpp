// What becomes of a packet, and how it is counted.

#include <atomic>
#include <thread>

#include "fixture.hpp"

namespace {

using namespace olv_fastpath_test;

constexpr std::nullopt_t reflected = std::nullopt;

class packet_path_test : public reflector_test {
  protected:
    std::optional<drop_reason> result_of(const bytes &payload, const packet_path &path = usual_path)
    {
        const reply made = reflect(payload, path);
        EXPECT_EQ(made.dropped.has_value(), made.payload.empty());
        return made.dropped;
    }
};

TEST_F(packet_path_test, reflected_packet_counts_once_everywhere)
{
    define_usual_path();
    EXPECT_EQ(result_of(request_of(14)), reflected);
    EXPECT_EQ(global(), (global_counters{.rx = 1, .tx = 1}));
    EXPECT_EQ(counters(), (responder_counters{.received = 1, .transmitted = 1, .active = 1}));
}

TEST_F(packet_path_test, return_value_decides_whether_a_responder_is_defined)
{
    learn(bind_tree, bind_key, 0x401);
    std::uint32_t id = 0;
    for (const std::uint32_t value : {0u, 4u, 1u, 2u, 5u, 0x80000000u}) {
        write_state(++id, {});
        learn(responder_tree, id, value);
        const std::optional<drop_reason> made = result_of(request_of(14), {id, bind_key});
        EXPECT_EQ(made, value == 0 || value == 4 ? std::nullopt : std::optional{drop_reason::no_responder})
            << value;
    }
    EXPECT_EQ(global(), (global_counters{.rx = 6, .tx = 2, .no_responder = 4}));
}

TEST_F(packet_path_test, entry_without_a_key_stands_for_responders_without_one_that_were_written)
{
    write_state(responder_id, {});
    learn(bind_tree, bind_key, 0x401);
    EXPECT_EQ(result_of(request_of(14)), drop_reason::no_responder); // no entry at all
    learn(responder_tree, std::nullopt, 0);
    EXPECT_EQ(result_of(request_of(14)), reflected);
    EXPECT_EQ(result_of(request_of(14), {8, bind_key}), drop_reason::no_responder);
    EXPECT_EQ(result_of(request_of(14), {0xFFFFFF, bind_key}), drop_reason::no_responder);
    unlearn(responder_tree, std::nullopt);
    learn(responder_tree, std::nullopt, 1);
    EXPECT_EQ(result_of(request_of(14)), drop_reason::no_responder);
    EXPECT_EQ(counters(8), responder_counters{});
    EXPECT_EQ(global(), (global_counters{.rx = 5, .tx = 1, .no_responder = 4}));
}

TEST_F(packet_path_test, no_bind_drops_before_the_responder_counts)
{
    define_responder(responder_id);
    EXPECT_EQ(result_of(request_of(14)), drop_reason::no_bind);
    EXPECT_EQ(global(), (global_counters{.rx = 1, .no_bind = 1}));
    EXPECT_EQ(counters(), responder_counters{});
    learn(bind_tree, bind_key, 0x401);
    EXPECT_EQ(result_of(request_of(14)), reflected);
    unlearn(bind_tree, bind_key);
    EXPECT_EQ(result_of(request_of(14)), drop_reason::no_bind);
    delete_responder(responder_id);
    EXPECT_EQ(result_of(request_of(14)), drop_reason::no_responder);
    EXPECT_EQ(counters(), responder_counters{});
}

TEST_F(packet_path_test, low_24_bits_of_the_path_count)
{
    define_usual_path();
    EXPECT_EQ(result_of(request_of(14), {0xAB000007, 0xCD000005}), reflected);
}

TEST_F(packet_path_test, payloads_below_the_required_length_drop_for_their_length)
{
    define_usual_path();
    std::uint32_t taken = 0, dropped = 0;
    for (const std::size_t required : {0u, 14u, 44u}) {
        reflector reflecting{processor_, {.minimum_request = required}};
        const std::size_t least = std::max<std::size_t>(required, 14);
        bytes room(44);
        for (std::size_t length = 0; length <= least; ++length, ++taken) {
            const bytes request = request_of(length);
            const auto made = reflecting.reflect(packet_of(request), usual_path, room).dropped;
            EXPECT_EQ(made, length < least ? std::optional{drop_reason::length_check} : std::nullopt) << length;
            dropped += made ? 1 : 0;
        }
    }
    EXPECT_EQ(global(), (global_counters{.rx = taken, .tx = 3, .length_check = dropped}));
    EXPECT_EQ(counters(),
              (responder_counters{.received = taken, .transmitted = 3, .active = 3, .length_check = dropped}));
}

TEST_F(packet_path_test, too_little_room_for_the_reply_drops_for_the_length)
{
    define_usual_path();
    const bytes request = request_of(14);
    bytes room(40);
    EXPECT_EQ(subject().reflect(packet_of(request), usual_path, room).dropped, drop_reason::length_check);
    EXPECT_EQ(counters(), (responder_counters{.received = 1, .length_check = 1}));
}

TEST_F(packet_path_test, program_without_trees_or_statistics_drops)
{
    olv_sim::classifier_program program = olv_sim::classifier_program::twamp(10, 10);
    program.tree_functions.clear();
    program.global_statistics = false;
    olv_sim::processor bare{program};
    reflector alone{bare};
    const bytes request = request_of(14);
    bytes room(44);
    EXPECT_EQ(alone.reflect(packet_of(request), usual_path, room).dropped, drop_reason::no_responder);
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

// Batches

class batch_test : public packet_path_test {
  protected:
    std::optional<drop_reason> take(reflector::batch &batch, std::size_t length = 14,
                                    const packet_path &path = usual_path)
    {
        const bytes request = request_of(length);
        bytes room(44);
        return batch.reflect(packet_of(request), path, room).dropped;
    }
};

TEST_F(batch_test, is_counted_at_its_end_or_with_another_responder)
{
    define_usual_path();
    define_responder(8);
    {
        reflector::batch batch{subject()};
        for (int number = 0; number < 3; ++number)
            EXPECT_EQ(take(batch), reflected);
        EXPECT_EQ(take(batch, 13), drop_reason::length_check);
        EXPECT_EQ(take(batch, 14, {9, bind_key}), drop_reason::no_responder);
        EXPECT_EQ(counters().received, 0u);
        EXPECT_EQ(global().rx, 0u);
        EXPECT_EQ(take(batch, 14, {8, bind_key}), reflected);
        EXPECT_EQ(counters(),
                  (responder_counters{.received = 4, .transmitted = 3, .active = 1, .length_check = 1}));
        EXPECT_EQ(counters(8).received, 0u);
        batch.count(); // or when it is told to
        batch.count();
        EXPECT_EQ(counters(8), (responder_counters{.received = 1, .transmitted = 1, .active = 1}));
        EXPECT_EQ(take(batch, 14, {8, bind_key}), reflected);
    }
    EXPECT_EQ(counters(),
              (responder_counters{.received = 4, .transmitted = 3, .active = 1, .length_check = 1}));
    EXPECT_EQ(counters(8), (responder_counters{.received = 2, .transmitted = 2, .active = 1}));
    EXPECT_EQ(global(), (global_counters{.rx = 7, .tx = 5, .no_responder = 1, .length_check = 1}));
}

TEST_F(batch_test, undoes_no_clear)
{
    define_usual_path();
    EXPECT_EQ(result_of(request_of(14)), reflected);
    {
        reflector::batch batch{subject()};
        EXPECT_EQ(take(batch), reflected);
        write_state(responder_id, {});
    }
    EXPECT_EQ(counters(), (responder_counters{.received = 1, .transmitted = 1}));
}

TEST_F(batch_test, adds_nothing_to_a_later_responder)
{
    define_usual_path({.creation_count = 1});
    {
        reflector::batch batch{subject()};
        EXPECT_EQ(take(batch), reflected);
        delete_responder(responder_id);
    }
    EXPECT_EQ(counters(), responder_counters{});
    EXPECT_EQ(global().tx, 1u);
    {
        reflector::batch batch{subject()};
        define_responder(responder_id, {.creation_count = 2});
        EXPECT_EQ(take(batch), reflected);
        write_state(responder_id, {.creation_count = 3});
        EXPECT_EQ(take(batch), reflected);
    }
    EXPECT_EQ(counters(), (responder_counters{.received = 1, .transmitted = 1, .active = 1}));
    EXPECT_EQ(global().tx, 3u);
}

} // namespace
