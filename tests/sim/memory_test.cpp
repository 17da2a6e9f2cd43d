#include <algorithm>
#include <cstring>
#include <set>

#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

using memory_blocks = sim_test;

TEST_F(memory_blocks, zeroed_aligned_and_counted_or_refused)
{
    const memory::usage before = memory::in_use();
    for (const std::uint32_t size : {1u, 16u, 17u, 500u, 4097u, 65536u, 65537u, 1000000u}) {
        auto *block = static_cast<unsigned char *>(hyx_nvm_calloc(1, size));
        ASSERT_NE(block, nullptr) << size;
        EXPECT_EQ(std::count(block, block + size, 0), size);
        std::memset(block, 0xA5, size);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 16, 0u) << size;
        EXPECT_TRUE(memory::is_live(block) && !memory::is_live(block + 1)) << size;
        EXPECT_EQ(memory::in_use().live_blocks, before.live_blocks + 1);
        EXPECT_EQ(memory::in_use().live_bytes, before.live_bytes + size);
        hyx_nvm_free(block);
        EXPECT_FALSE(memory::is_live(block)) << size;
        EXPECT_EQ(memory::in_use().live_bytes, before.live_bytes);
    }
    const std::uint32_t refused[][2] = {{0, 8}, {8, 0}, {0x10000, 0x10000}, {~0u, ~0u}, {1, ~0u}};
    for (const auto &[count, size] : refused) {
        EXPECT_EQ(hyx_nvm_calloc(count, size), nullptr) << count << " of " << size;
    }
}

TEST_F(memory_blocks, double_and_foreign_free_are_reported)
{
    int foreign = 0;
    for (const std::uint32_t size : {24u, 200000u}) {
        auto *block = static_cast<unsigned char *>(hyx_nvm_calloc(1, size));
        hyx_nvm_free(block + 8);
        hyx_nvm_free(block);
        hyx_nvm_free(block);
        hyx_nvm_free(&foreign);
        hyx_nvm_free(nullptr); // as nothing
        EXPECT_EQ(take_violations(), lines(3, "hyx_nvm_free: freed or foreign block"));
    }
    EXPECT_FALSE(memory::is_live(&foreign));
}

/** A marker that its owner cleared reads as cleared, one that it left reads as left. */
TEST_F(memory_blocks, freed_content_stays_until_late_reuse)
{
    for (const std::uint32_t size : {40u, 5000u}) {
        auto *first = static_cast<std::uint32_t *>(hyx_nvm_calloc(1, size));
        first[9] = 0x43215678;
        hyx_nvm_free(first);
        for (int round = 0; round < 1024; ++round) {
            void *block = hyx_nvm_calloc(1, size);
            ASSERT_NE(block, first);
            hyx_nvm_free(block);
        }
        EXPECT_EQ(first[9], 0x43215678u);
        EXPECT_EQ(hyx_nvm_calloc(1, size), first);
        EXPECT_EQ(first[9], 0u);
        hyx_nvm_free(first);
    }
}

TEST_F(memory_blocks, no_two_threads_have_the_same)
{
    in_threads(2, [](std::uint32_t owner) {
        std::set<std::uint32_t *> blocks;
        for (int round = 0; round < 3000; ++round) {
            auto *block = static_cast<std::uint32_t *>(hyx_nvm_calloc(1, 32));
            EXPECT_EQ(block[7], 0u);
            block[7] = owner + 1;
            blocks.insert(block);
        }
        EXPECT_EQ(blocks.size(), 3000u);
        for (std::uint32_t *block : blocks) {
            EXPECT_EQ(block[7], owner + 1);
            hyx_nvm_free(block);
        }
    });
}

} // namespace
