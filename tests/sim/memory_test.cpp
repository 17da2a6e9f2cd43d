#include <cstring>
#include <set>
#include <thread>

#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

using memory_blocks = sim_test;

TEST_F(memory_blocks, zeroed_and_counted)
{
    const memory::usage before = memory::in_use();
    for (const std::uint32_t size : {1u, 16u, 17u, 32u, 500u, 4096u, 4097u, 100000u}) {
        auto *block = static_cast<unsigned char *>(hyx_nvm_calloc(1, size));
        ASSERT_NE(block, nullptr) << size;
        for (std::uint32_t index = 0; index < size; ++index) {
            ASSERT_EQ(block[index], 0) << size;
        }
        std::memset(block, 0xA5, size);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 16, 0u) << size;
        EXPECT_TRUE(memory::is_live(block));
        EXPECT_FALSE(memory::is_live(block + 1));
        EXPECT_EQ(memory::in_use().live_blocks, before.live_blocks + 1);
        EXPECT_EQ(memory::in_use().live_bytes, before.live_bytes + size);
        hyx_nvm_free(block);
        EXPECT_FALSE(memory::is_live(block));
        EXPECT_EQ(memory::in_use().live_blocks, before.live_blocks);
        EXPECT_EQ(memory::in_use().live_bytes, before.live_bytes);
    }
}

TEST_F(memory_blocks, refuses_nothing_and_too_much)
{
    EXPECT_EQ(hyx_nvm_calloc(0, 8), nullptr);
    EXPECT_EQ(hyx_nvm_calloc(8, 0), nullptr);
    EXPECT_EQ(hyx_nvm_calloc(0x10000, 0x10000), nullptr);
    EXPECT_EQ(hyx_nvm_calloc(0xFFFFFFFF, 0xFFFFFFFF), nullptr);
}

TEST_F(memory_blocks, null_may_be_freed)
{
    hyx_nvm_free(nullptr);
}

TEST_F(memory_blocks, double_and_foreign_free_are_reported)
{
    int foreign = 0;
    for (const std::uint32_t size : {24u, 10000u}) {
        auto *block = static_cast<unsigned char *>(hyx_nvm_calloc(1, size));
        hyx_nvm_free(block + 8);
        hyx_nvm_free(block);
        hyx_nvm_free(block);
        hyx_nvm_free(&foreign);
        EXPECT_EQ(take_violations(), (std::vector<std::string>(3, "hyx_nvm_free: freed or foreign block")));
    }
    EXPECT_FALSE(memory::is_live(&foreign));
    EXPECT_FALSE(memory::is_live(nullptr));
}

TEST_F(memory_blocks, freed_content_stays_until_late_reuse)
{
    // A marker that its owner cleared reads as cleared, one that it left reads as left.
    for (const std::uint32_t size : {40u, 5000u}) {
        auto *first = static_cast<std::uint32_t *>(hyx_nvm_calloc(1, size));
        first[0] = 0x43215678;
        first[9] = 99;
        hyx_nvm_free(first);
        for (int round = 0; round < 1024; ++round) {
            void *block = hyx_nvm_calloc(1, size);
            ASSERT_NE(block, first);
            hyx_nvm_free(block);
        }
        EXPECT_EQ(first[0], 0x43215678u);
        EXPECT_EQ(first[9], 99u);
        auto *reused = static_cast<std::uint32_t *>(hyx_nvm_calloc(1, size));
        EXPECT_EQ(reused, first);
        EXPECT_EQ(reused[0], 0u);
        EXPECT_EQ(reused[9], 0u);
        hyx_nvm_free(reused);
    }
}

TEST_F(memory_blocks, churn_takes_no_more_memory)
{
    const auto churn = [] {
        for (int round = 0; round < 5000; ++round) {
            hyx_nvm_free(hyx_nvm_calloc(1, 48));
        }
    };
    churn();
    const std::size_t mapped = memory::in_use().mapped_bytes;
    churn();
    EXPECT_EQ(memory::in_use().mapped_bytes, mapped);
}

TEST_F(memory_blocks, blocks_are_distinct)
{
    std::set<void *> blocks;
    for (int round = 0; round < 10000; ++round) {
        auto *block = static_cast<std::uint32_t *>(hyx_nvm_calloc(1, 32));
        ASSERT_TRUE(blocks.insert(block).second);
        block[7] = static_cast<std::uint32_t>(round);
    }
    for (void *block : blocks) {
        hyx_nvm_free(block);
    }
}

TEST_F(memory_blocks, threads)
{
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([] {
            for (int round = 0; round < 3000; ++round) {
                auto *block = static_cast<std::uint32_t *>(hyx_nvm_calloc(1, 24));
                *block = 1;
                hyx_nvm_free(block);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

} // namespace
