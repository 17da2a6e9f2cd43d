#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

using tree = sim_test;

TEST_F(tree, learn_look_up_unlearn)
{
    const classifier_tree *responders = processor.tree(responder_tree_name);
    EXPECT_EQ(look_up(5), words{});
    ASSERT_EQ(learn(responder_tree, 5, {{1, 2, 3}}), 0u);
    ASSERT_EQ(learn(responder_tree, 0, {{4, 5, 6}}), 0u);
    ASSERT_EQ(learn(responder_tree, 0xFFFFFF, {{7, 8, 9}}), 0u);
    EXPECT_EQ(learn(responder_tree, 5, {{9, 9, 9}}), 0x10Bu);
    EXPECT_EQ(unlearn(responder_tree, 6), 0x10Cu);
    EXPECT_EQ(unlearn(responder_tree, 0xF00000), 0x10Cu);
    EXPECT_EQ(responders->size(), 3u);
    EXPECT_EQ(look_up(5), (words{1, 2, 3}));
    EXPECT_EQ(look_up(0), (words{4, 5, 6}));
    EXPECT_EQ(look_up(0xFFFFFF), (words{7, 8, 9}));
    EXPECT_EQ(look_up(6), words{});
    EXPECT_EQ(look_up(0x1000005), words{});
    EXPECT_EQ(list(bind_tree), shown_entries{});
    EXPECT_EQ(unlearn(responder_tree, 5), 0u);
    EXPECT_EQ(unlearn(responder_tree, 5), 0x10Cu);
    EXPECT_EQ(look_up(5), words{});
    EXPECT_EQ(responders->size(), 2u);
    EXPECT_EQ(learn(responder_tree, 5, {{10, 0, 0}}), 0u);
    EXPECT_EQ(look_up(5), (words{10, 0, 0}));
}

TEST_F(tree, what_is_refused_changes_nothing)
{
    ASSERT_EQ(learn(responder_tree, 5, {{1, 2, 3}}), 0u);
    olv_ptn pattern = make_pattern(5);
    olv_ptn_action action{};
    shown_entries shown;
    EXPECT_EQ((words{hyx_ptn_learn(rte, 0x103, &pattern, &action), hyx_ptn_learn(rte, 0x999, &pattern, &action),
                     hyx_ptn_unlearn(rte, 0x999, &pattern, 24, &action, 1),
                     hyx_ptn_list_ptns(rte, 0x103, show, &shown)}),
              words(4, 0x109)); // code, or nothing
    EXPECT_EQ(hyx_ptn_unlearn(rte, responder_tree, &pattern, 24, &action, 0), 0x10Fu);
    EXPECT_EQ(hyx_ptn_unlearn(rte, responder_tree, &pattern, 24, &action, 2), 0x10Fu);
    EXPECT_EQ(hyx_ptn_unlearn(rte, responder_tree, &pattern, 23, &action, 1), 0x10Au);
    olv_ptn_free(pattern);
    ASSERT_EQ(olv_ptn_new(40, &pattern), 0u);
    ASSERT_EQ((words{olv_ptn_extend(&pattern, 1, 32), olv_ptn_extend(&pattern, 1, 8)}), words(2, 0));
    EXPECT_EQ(hyx_ptn_learn(rte, responder_tree, &pattern, &action), 0x10Au);
    olv_ptn_free(pattern);
    ASSERT_TRUE(faults::set(call::hyx_ptn_learn, {.code = 0x55}));
    ASSERT_TRUE(faults::set(call::hyx_ptn_unlearn, {.code = 0x56}));
    ASSERT_TRUE(faults::set(call::hyx_ptn_list_ptns, {.code = 0x57}));
    EXPECT_EQ(learn(responder_tree, 6, {{1, 2, 3}}), 0x55u);
    EXPECT_EQ(unlearn(responder_tree, 5), 0x56u);
    EXPECT_EQ(hyx_ptn_list_ptns(rte, responder_tree, show, &shown), 0x57u);
    EXPECT_EQ(shown, shown_entries{});
    EXPECT_EQ(list(responder_tree), (shown_entries{{24, 5, 0, 1, 2, 3}}));
}

TEST_F(tree, entry_without_a_key_is_for_keys_that_have_none)
{
    ASSERT_EQ(learn(responder_tree, 5, {{1, 0, 0}}), 0u);
    ASSERT_EQ(learn(responder_tree, 0, {{2, 0, 0}}, 0), 0u);
    EXPECT_EQ(learn(responder_tree, 0, {{3, 0, 0}}, 0), 0x10Bu);
    EXPECT_EQ(processor.tree(responder_tree_name)->size(), 2u);
    EXPECT_EQ(look_up(5), (words{1, 0, 0}));
    EXPECT_EQ(look_up(6), (words{2, 0, 0}));
    EXPECT_EQ(look_up(0xFF000000), (words{2, 0, 0}));
    EXPECT_EQ(unlearn(responder_tree, 0, 0), 0u);
    EXPECT_EQ(unlearn(responder_tree, 0, 0), 0x10Cu);
    EXPECT_EQ(look_up(6), words{});
}

TEST_F(tree, listing_order_key_widths_and_the_classifiers_word)
{
    ASSERT_EQ(learn(responder_tree, 5, {{7, 0, 0}}, 32, 0x70), 0u);
    ASSERT_EQ(learn(responder_tree, 3, {{6, 0, 0}}, 16, 0x60), 0u);
    ASSERT_EQ(learn(responder_tree, 1, {{5, 0, 0}}, 1, 0x50), 0u);
    ASSERT_EQ(learn(responder_tree, 0xFFFFFF, {{4, 0, 0}}, 24, 0x40), 0u);
    ASSERT_EQ(learn(responder_tree, 0, {{2, 0, 0}}, 24, 0x20), 0u);
    ASSERT_EQ(learn(responder_tree, 0x5000, {{3, 0x401, 9}}, 24, 0xFFFFFFFF), 0u);
    EXPECT_EQ(look_up(5), words{}); // other widths lead nowhere
    ASSERT_EQ(learn(responder_tree, 0, {{1, 0, 0}}, 0, 0x10), 0u);
    EXPECT_EQ(list(responder_tree), (shown_entries{{0, 0, 0x10, 1, 0, 0},
                                                   {24, 0, 0x20, 2, 0, 0},
                                                   {24, 0x5000, 0xFFFFFFFF, 3, 0x401, 9},
                                                   {24, 0xFFFFFF, 0x40, 4, 0, 0},
                                                   {1, 1, 0x50, 5, 0, 0},
                                                   {16, 3, 0x60, 6, 0, 0},
                                                   {32, 5, 0x70, 7, 0, 0}}));
    EXPECT_EQ(learn(responder_tree, 3, {{1, 0, 0}}, 16), 0x10Bu);
    EXPECT_EQ(unlearn(responder_tree, 6, 16), 0x10Cu);
    EXPECT_EQ(unlearn(responder_tree, 3, 16), 0u);
    EXPECT_EQ(processor.tree(responder_tree_name)->size(), 6u);
}

TEST_F(tree, callback_may_print_the_entry_and_change_the_tree)
{
    for (const std::uint32_t key : {1u, 2u, 0x1234u}) {
        ASSERT_EQ(learn(responder_tree, key, {{key, 0, 0}}), 0u);
    }
    const auto print_and_remove = [](void *handle, void *, const olv_ptn *pattern,
                                     const olv_ptn_action *action) {
        olv_ptn own = *pattern;
        olv_ptn_action own_action = *action;
        olv_ptn_print(own);
        EXPECT_EQ(
            hyx_ptn_unlearn(*static_cast<std::uint32_t *>(handle), responder_tree, &own, 24, &own_action, 1),
            0u);
    };
    std::uint32_t handle = rte;
    testing::internal::CaptureStdout();
    EXPECT_EQ(hyx_ptn_list_ptns(rte, responder_tree, print_and_remove, &handle), 0u);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "<key = 0x000001/24><key = 0x000002/24><key = 0x001234/24>");
    EXPECT_EQ(list(responder_tree), shown_entries{});
}

} // namespace
