#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

using scale = sim_test;

constexpr std::uint32_t responders = 1000000;

TEST_F(scale, a_million_responders)
{
    std::uint32_t space = 0;
    ASSERT_EQ(hyx_rsrc_find(rte, 0, "twamp_responder", &space), 0u);
    const std::size_t before = processor.memory_bytes();
    const std::uint32_t state[15] = {};
    for (std::uint32_t number = 1; number <= responders; ++number) {
        std::uint32_t id = 0;
        ASSERT_EQ(hyx_rsrc_allocate(space, 1, &id), 0u);
        ASSERT_EQ(id, number);
        ASSERT_EQ(hyx_se_state_set(rte, id, 0, state, 60), 0u);
        ASSERT_EQ(learn(responder_tree, id, {{1, id, 0}}), 0u);
    }
    const classifier_tree *tree = processor.tree(responder_tree_name);
    EXPECT_EQ(tree->size(), responders);
    EXPECT_EQ(processor.allocated("twamp_responder"), responders);
    EXPECT_LE(processor.memory_bytes() / responders, 160u);
    EXPECT_LE((processor.memory_bytes() - before) / responders, 100u);
    for (std::uint32_t id = 1; id <= responders; ++id) {
        const auto found = tree->lookup(id);
        ASSERT_TRUE(found.has_value());
        ASSERT_EQ(found->word[1], id);
        ASSERT_EQ(processor.state(id).size(), 15u);
    }
    EXPECT_FALSE(tree->lookup(responders + 1).has_value());
    for (std::uint32_t id = 1; id <= responders; ++id) {
        ASSERT_EQ(unlearn(responder_tree, id), 0u);
        ASSERT_EQ(hyx_rsrc_free(space, id, 1), 0u);
    }
    EXPECT_EQ(tree->size(), 0u);
    EXPECT_EQ(processor.allocated("twamp_responder"), 0u);
}

/** Nothing grows with the number of rounds: what one round made room for serves all later ones. */
TEST_F(scale, memory_stays_the_same_in_churn)
{
    const auto churn = [this] {
        for (std::uint32_t round = 0; round < 5000; ++round) {
            ASSERT_EQ(learn(responder_tree, round % 100, {{1, 2, 3}}), 0u);
            ASSERT_EQ(unlearn(responder_tree, round % 100), 0u);
        }
    };
    churn();
    const std::size_t bytes = processor.memory_bytes();
    churn();
    EXPECT_EQ(processor.memory_bytes(), bytes);
}

TEST_F(scale, a_listing_takes_no_memory_that_grows)
{
    for (std::uint32_t key = 0; key < 100000; ++key) {
        ASSERT_EQ(learn(bind_tree, key * 3, {{1, 2, 3}}), 0u);
    }
    struct walk {
        std::uint32_t count = 0;
        std::size_t patterns = 0;
    } seen;
    const auto count = [](void *context, void *, const olv_ptn *, const olv_ptn_action *) {
        auto *walked = static_cast<walk *>(context);
        ++walked->count;
        walked->patterns = std::max(walked->patterns, patterns::live());
    };
    EXPECT_EQ(hyx_ptn_list_ptns(rte, bind_tree, count, &seen), 0u);
    EXPECT_EQ(seen.count, 100000u);
    EXPECT_EQ(seen.patterns, patterns_before + 1);
}

} // namespace
