#include <array>
#include <cstring>
#include <numeric>

#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

using state_entries = sim_test;
using entry_bytes = std::array<unsigned char, 60>;

TEST_F(state_entries, set_and_get)
{
    entry_bytes bytes{};
    std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(1));
    entry_bytes read{};
    const std::size_t before = processor.memory_bytes();
    for (const std::uint32_t id : {5u, 0xFFFFFFu}) {
        read.fill(0xAA);
        EXPECT_EQ(hyx_se_state_get(rte, id, 0, read.data(), 60), 0u);
        EXPECT_EQ(read, entry_bytes{});
        EXPECT_EQ(processor.memory_bytes(), before) << "reading makes no room";
    }
    for (const std::uint32_t id : {5u, 0xFFFFFFu}) {
        ASSERT_EQ(hyx_se_state_set(rte, id, 0, bytes.data(), 60), 0u);
        EXPECT_EQ(hyx_se_state_get(rte, id, 0, read.data(), 60), 0u);
        EXPECT_EQ(read, bytes);
        EXPECT_EQ(hyx_se_state_get(rte, id - 1, 0, read.data(), 60), 0u); // its neighbour
        EXPECT_EQ(read, entry_bytes{});
    }
    const unsigned char five[5] = {0x11, 0x12, 0x13, 0x14, 0x15};
    ASSERT_EQ(hyx_se_state_set(rte, 5, 0, five, 5), 0u);
    unsigned char seven[9] = {0, 0, 0, 0, 0, 0, 0, 0xEE, 0xEE};
    EXPECT_EQ(hyx_se_state_get(rte, 5, 0, seven, 7), 0u);
    EXPECT_EQ(std::memcmp(seven, "\x11\x12\x13\x14\x15\x06\x07\xEE\xEE", 9), 0);
}

TEST_F(state_entries, words_as_the_fast_path_sees_them)
{
    ASSERT_EQ(hyx_se_state_set(rte, 5, 0, "\xDE\xAD\xBE\xEF\0\0\0\1", 8), 0u);
    const state_words state = processor.state(5);
    ASSERT_EQ(state.size(), 15u);
    EXPECT_EQ(hyx_ntohl(state[0].load()), 0xDEADBEEFu);
    state[1].store(hyx_htonl(0x01020304));
    unsigned char read[8] = {};
    EXPECT_EQ(hyx_se_state_get(rte, 5, 0, read, 8), 0u);
    EXPECT_EQ(std::memcmp(read, "\xDE\xAD\xBE\xEF\1\2\3\4", 8), 0);
    EXPECT_EQ(processor.state(5).data(), state.data());
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(state.data()) % 64, 0u);

    const words counters(32, 0x77777777);
    EXPECT_EQ(hyx_se_state_set(rte, 0x7008C1, 0, counters.data(), 128), 0u);
    EXPECT_EQ(processor.state(0x7008C1).size(), 32u);
    EXPECT_EQ(processor.state(0x7008C1)[31].load(), 0x77777777u);
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
        {"index of the counters", 0x7008C1, 1, 4, 0x10D},
        {"too long", 1, 0, 61, 0x10E},
        {"too long for the counters", 0x7008C1, 0, 129, 0x10E},
        {"far too long", 1, 0, 0xFFFFFFFF, 0x10E},
        {"no length", 1, 0, 0, 0x10E},
    };
    for (const auto &row : rows) {
        unsigned char byte = 7;
        EXPECT_EQ(hyx_se_state_set(rte, row.id, row.index, &byte, row.length), row.status) << row.label;
        EXPECT_EQ(hyx_se_state_get(rte, row.id, row.index, &byte, row.length), row.status) << row.label;
        EXPECT_EQ(byte, 7) << row.label;
        EXPECT_EQ(processor.state(row.id, row.index).empty(), row.status == 0x10D) << row.label;
    }
}

TEST_F(state_entries, words_stay_whole_between_threads)
{
    std::atomic<bool> end{false};
    const deadline patience;
    in_threads(2, [&](std::uint32_t number) {
        words state(15);
        (void)processor.state(9 + number); // together they make room
        for (std::uint32_t round = 1; number == 0 && !end; ++round) {
            state.assign(15, (round & 0xFF) * 0x01010101);
            EXPECT_EQ(hyx_se_state_set(rte, 9, 0, state.data(), 60), 0u);
        }
        std::uint32_t last = 0;
        for (int changes = 0; number == 1 && changes < 100 && !patience.over();) {
            EXPECT_EQ(hyx_se_state_get(rte, 9, 0, state.data(), 60), 0u);
            for (const std::uint32_t word : state) {
                EXPECT_EQ(word, (word & 0xFF) * 0x01010101);
            }
            changes += state[14] != last ? 1 : 0;
            last = state[14];
        }
        end = true;
    });
    EXPECT_FALSE(patience.over());
}

} // namespace
