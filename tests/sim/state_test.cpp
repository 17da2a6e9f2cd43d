#include <algorithm>
#include <array>
#include <cstring>
#include <thread>

#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/processor.hpp"
#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

using state_entries = sim_test;

TEST_F(state_entries, zeros_before_anything_is_set)
{
    std::array<unsigned char, 60> bytes{};
    bytes.fill(0xAA);
    const std::size_t before = processor.memory_bytes();
    EXPECT_EQ(hyx_se_state_get(rte, 5, 0, bytes.data(), 60), 0u);
    EXPECT_EQ(bytes, (std::array<unsigned char, 60>{}));
    EXPECT_EQ(processor.memory_bytes(), before);
}

TEST_F(state_entries, set_and_get)
{
    std::array<unsigned char, 60> bytes{};
    for (std::size_t index = 0; index < 60; ++index) {
        bytes[index] = static_cast<unsigned char>(index + 1);
    }
    ASSERT_EQ(hyx_se_state_set(rte, 5, 0, bytes.data(), 60), 0u);
    std::array<unsigned char, 60> read{};
    EXPECT_EQ(hyx_se_state_get(rte, 5, 0, read.data(), 60), 0u);
    EXPECT_EQ(read, bytes);
    std::array<unsigned char, 60> neighbour{};
    EXPECT_EQ(hyx_se_state_get(rte, 6, 0, neighbour.data(), 60), 0u);
    EXPECT_EQ(neighbour, (std::array<unsigned char, 60>{}));
}

TEST_F(state_entries, odd_lengths)
{
    const unsigned char first[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    const unsigned char second[5] = {0x11, 0x12, 0x13, 0x14, 0x15};
    ASSERT_EQ(hyx_se_state_set(rte, 5, 0, first, 8), 0u);
    ASSERT_EQ(hyx_se_state_set(rte, 5, 0, second, 5), 0u);
    unsigned char read[9] = {0, 0, 0, 0, 0, 0, 0, 0xEE, 0xEE};
    EXPECT_EQ(hyx_se_state_get(rte, 5, 0, read, 7), 0u);
    const unsigned char expected[9] = {0x11, 0x12, 0x13, 0x14, 0x15, 6, 7, 0xEE, 0xEE};
    EXPECT_TRUE(std::equal(read, read + 9, expected));
}

TEST_F(state_entries, words_as_the_fast_path_sees_them)
{
    const unsigned char bytes[8] = {0xDE, 0xAD, 0xBE, 0xEF, 0, 0, 0, 1};
    ASSERT_EQ(hyx_se_state_set(rte, 5, 0, bytes, 8), 0u);
    const state_words words = processor.state(5);
    ASSERT_EQ(words.size(), 15u);
    EXPECT_EQ(hyx_ntohl(words[0].load()), 0xDEADBEEFu);
    EXPECT_EQ(hyx_ntohl(words[1].load()), 1u);
    words[1].store(hyx_htonl(0x01020304));
    unsigned char read[8] = {};
    EXPECT_EQ(hyx_se_state_get(rte, 5, 0, read, 8), 0u);
    EXPECT_EQ(read[4], 1);
    EXPECT_EQ(read[7], 4);
    EXPECT_EQ(processor.state(5).data(), words.data());
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(words.data()) % 64, 0u);
}

TEST_F(state_entries, global_statistics)
{
    std::array<unsigned char, 128> bytes{};
    bytes.fill(0x77);
    EXPECT_EQ(hyx_se_state_set(rte, 0x7008C1, 0, bytes.data(), 128), 0u);
    EXPECT_EQ(processor.state(0x7008C1).size(), 32u);
    EXPECT_EQ(processor.state(0x7008C1)[31].load(), 0x77777777u);
    EXPECT_EQ(hyx_se_state_set(rte, 0x7008C1, 0, bytes.data(), 129), 0x10Eu);
    EXPECT_EQ(hyx_se_state_set(rte, 0x7008C1, 1, bytes.data(), 4), 0x10Du);
    EXPECT_TRUE(processor.state(0x7008C1, 1).empty());
}

TEST_F(state_entries, refused)
{
    const struct {
        const char *label;
        std::uint32_t id;
        std::uint32_t index;
        std::uint32_t length;
        std::uint32_t status;
    } rows[] = {
        {"ID before the namespace", 0, 0, 4, 0x10D},
        {"ID beyond the namespace", 1u << 24, 0, 4, 0x10D},
        {"ID far beyond", 0xFFFFFFFF, 0, 4, 0x10D},
        {"index", 1, 1, 4, 0x10D},
        {"too long", 1, 0, 61, 0x10E},
        {"far too long", 1, 0, 0xFFFFFFFF, 0x10E},
        {"no length", 1, 0, 0, 0x10E},
    };
    for (const auto &row : rows) {
        unsigned char byte = 7;
        EXPECT_EQ(hyx_se_state_set(rte, row.id, row.index, &byte, row.length), row.status) << row.label;
        EXPECT_EQ(hyx_se_state_get(rte, row.id, row.index, &byte, row.length), row.status) << row.label;
        EXPECT_EQ(byte, 7) << row.label;
    }
    EXPECT_TRUE(processor.state(0).empty());
    EXPECT_TRUE(processor.state(1u << 24).empty());
    EXPECT_TRUE(processor.state(1, 1).empty());
}

TEST_F(state_entries, last_value)
{
    const std::uint32_t word = 0x12345678;
    std::uint32_t read = 0;
    EXPECT_EQ(hyx_se_state_set(rte, 0xFFFFFF, 0, &word, 4), 0u);
    EXPECT_EQ(hyx_se_state_get(rte, 0xFFFFFF, 0, &read, 4), 0u);
    EXPECT_EQ(read, 0x12345678u);
}

TEST_F(state_entries, injected_failure_writes_nothing)
{
    std::uint32_t word = 5;
    ASSERT_TRUE(faults::set(call::hyx_se_state_set, {}));
    ASSERT_TRUE(faults::set(call::hyx_se_state_get, {.skip = 1}));
    EXPECT_EQ(hyx_se_state_set(rte, 1, 0, &word, 4), 0x1FFu);
    EXPECT_EQ(hyx_se_state_get(rte, 1, 0, &word, 4), 0u);
    EXPECT_EQ(word, 0u);
    word = 9;
    EXPECT_EQ(hyx_se_state_get(rte, 1, 0, &word, 4), 0x1FFu);
    EXPECT_EQ(word, 9u);
}

TEST_F(state_entries, words_stay_whole_between_threads)
{
    std::atomic<bool> done{false};
    std::thread writer{[&] {
        std::array<std::uint32_t, 15> words{};
        for (std::uint32_t round = 0; round < 20000; ++round) {
            words.fill((round & 0xFF) * 0x01010101);
            EXPECT_EQ(hyx_se_state_set(rte, 9, 0, words.data(), 60), 0u);
        }
        done = true;
    }};
    bool whole = true;
    while (!done) {
        std::array<std::uint32_t, 15> words{};
        EXPECT_EQ(hyx_se_state_get(rte, 9, 0, words.data(), 60), 0u);
        for (const std::uint32_t word : words) {
            whole = whole && word == (word & 0xFF) * 0x01010101;
        }
    }
    writer.join();
    EXPECT_TRUE(whole);
}

TEST_F(state_entries, threads_make_room_together)
{
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([this] {
            for (std::uint32_t id = 1; id < 20000; id += 100) {
                processor.state(id)[0].fetch_add(1);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    for (std::uint32_t id = 1; id < 20000; id += 100) {
        ASSERT_EQ(processor.state(id)[0].load(), 4u);
    }
}

} // namespace
