#include <thread>

#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

using tree_concurrency = sim_test;

constexpr std::uint32_t keys = 16;

/** Learn and unlearn a key over and over; the action's words always belong together. */
void churn(std::uint32_t rte, std::uint32_t key, std::uint32_t rounds)
{
    for (std::uint32_t round = 0; round < rounds; ++round) {
        const std::uint32_t value = round * keys + key;
        olv_ptn pattern{};
        EXPECT_EQ(olv_ptn_new(24, &pattern), 0u);
        EXPECT_EQ(olv_ptn_extend(&pattern, key * 0x10001, 24), 0u);
        olv_ptn_action action{{value, value + 1, ~value}};
        EXPECT_EQ(hyx_ptn_learn(rte, 0x104, &pattern, &action), 0u);
        EXPECT_EQ(hyx_ptn_unlearn(rte, 0x104, &pattern, 24, &action, 1), 0u);
        olv_ptn_free(pattern);
    }
}

bool is_whole(const tree_action &action, std::uint32_t key)
{
    return action.word[0] % keys == key && action.word[1] == action.word[0] + 1 &&
           action.word[2] == ~action.word[0];
}

TEST_F(tree_concurrency, lookups_see_whole_entries)
{
    const classifier_tree *tree = processor.tree(responder_tree_name);
    std::atomic<unsigned> running{2};
    std::vector<std::thread> threads;
    for (unsigned number = 0; number < 2; ++number) {
        threads.emplace_back([&, number] {
            for (std::uint32_t turn = 0; turn < 3; ++turn) {
                for (std::uint32_t key = number; key < keys; key += 2) {
                    churn(rte, key, 200);
                }
            }
            --running;
        });
    }
    for (unsigned number = 0; number < 2; ++number) {
        threads.emplace_back([&] {
            bool whole = true;
            while (running > 0) {
                for (std::uint32_t key = 0; key < keys; ++key) {
                    const auto found = tree->lookup(key * 0x10001);
                    whole = whole && (!found || is_whole(*found, key));
                }
            }
            EXPECT_TRUE(whole);
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(tree->size(), 0u);
}

TEST_F(tree_concurrency, listing_beside_changes)
{
    std::atomic<bool> done{false};
    std::thread learner{[&] {
        churn(rte, 3, 2000);
        done = true;
    }};
    ASSERT_EQ(learn(responder_tree, 0x123456, {{7, 7, 7}}), 0u);
    const auto count = [](void *context, void *, const olv_ptn *pattern, const olv_ptn_action *) {
        const std::uint16_t width = 24;
        std::uint32_t key = 0;
        EXPECT_EQ(olv_ptn_parse(pattern, 1, &width, &key), 0u);
        *static_cast<int *>(context) += key == 0x123456 ? 1 : 0;
    };
    while (!done) {
        int seen = 0;
        EXPECT_EQ(hyx_ptn_list_ptns(rte, responder_tree, count, &seen), 0u);
        EXPECT_EQ(seen, 1);
    }
    learner.join();
    EXPECT_EQ(unlearn(responder_tree, 0x123456), 0u);
}

} // namespace
