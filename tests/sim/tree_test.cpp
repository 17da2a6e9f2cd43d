#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/processor.hpp"
#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

/** An entry as a listing showed it. */
struct shown_entry {
    std::uint32_t key_bits;
    std::uint32_t key;
    std::uint32_t pattern_word;
    std::uint32_t action[3];

    bool operator==(const shown_entry &) const = default;
};

std::ostream &operator<<(std::ostream &out, const shown_entry &entry)
{
    return out << entry.key << '/' << entry.key_bits << ' ' << entry.pattern_word << ' ' << entry.action[0]
               << ' ' << entry.action[1] << ' ' << entry.action[2];
}

void collect(void *context, void *unused, const olv_ptn *pattern, const olv_ptn_action *action)
{
    EXPECT_EQ(unused, nullptr);
    shown_entry entry{
        pattern->word[1], 0, pattern->word[2], {action->word[0], action->word[1], action->word[2]}};
    if (entry.key_bits > 0) {
        const auto width = static_cast<std::uint16_t>(entry.key_bits);
        EXPECT_EQ(olv_ptn_parse(pattern, 1, &width, &entry.key), 0u);
    }
    static_cast<std::vector<shown_entry> *>(context)->push_back(entry);
}

class tree : public sim_test {
  protected:
    std::vector<shown_entry> list(std::uint32_t id = responder_tree) const
    {
        std::vector<shown_entry> entries;
        EXPECT_EQ(hyx_ptn_list_ptns(rte, id, collect, &entries), 0u);
        return entries;
    }

    const classifier_tree *responders = processor.tree(responder_tree_name);
};

TEST_F(tree, learn_look_up_unlearn)
{
    EXPECT_FALSE(responders->lookup(5).has_value());
    ASSERT_EQ(learn(responder_tree, 5, {{1, 2, 3}}), 0u);
    ASSERT_EQ(learn(responder_tree, 0, {{4, 5, 6}}), 0u);
    ASSERT_EQ(learn(responder_tree, 0xFFFFFF, {{7, 8, 9}}), 0u);
    EXPECT_EQ(responders->size(), 3u);
    const auto found = responders->lookup(5);
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(found->word[0], 1u);
    EXPECT_EQ(found->word[1], 2u);
    EXPECT_EQ(found->word[2], 3u);
    EXPECT_EQ(responders->lookup(0)->word[0], 4u);
    EXPECT_EQ(responders->lookup(0xFFFFFF)->word[0], 7u);
    EXPECT_FALSE(responders->lookup(6).has_value());
    EXPECT_FALSE(responders->lookup(0x1000005).has_value());
    EXPECT_EQ(processor.tree("olv_twamp.twamp_bind_to_next_module")->size(), 0u);
    EXPECT_EQ(unlearn(responder_tree, 5), 0u);
    EXPECT_FALSE(responders->lookup(5).has_value());
    EXPECT_EQ(responders->size(), 2u);
    EXPECT_EQ(learn(responder_tree, 5, {{10, 0, 0}}), 0u);
    EXPECT_EQ(responders->lookup(5)->word[0], 10u);
}

TEST_F(tree, duplicate_and_absent)
{
    ASSERT_EQ(learn(responder_tree, 5, {{1, 2, 3}}), 0u);
    EXPECT_EQ(learn(responder_tree, 5, {{9, 9, 9}}), 0x10Bu);
    EXPECT_EQ(responders->lookup(5)->word[0], 1u);
    EXPECT_EQ(unlearn(responder_tree, 6), 0x10Cu);
    EXPECT_EQ(unlearn(responder_tree, 0xF00000), 0x10Cu);
    EXPECT_EQ(responders->size(), 1u);
    EXPECT_EQ(unlearn(responder_tree, 5), 0u);
    EXPECT_EQ(unlearn(responder_tree, 5), 0x10Cu);
    EXPECT_EQ(responders->size(), 0u);
}

TEST_F(tree, arguments_are_checked)
{
    ASSERT_EQ(learn(responder_tree, 5, {{1, 2, 3}}), 0u);
    olv_ptn pattern = make_pattern(5);
    olv_ptn_action action{};
    EXPECT_EQ(hyx_ptn_learn(rte, 0x103, &pattern, &action), 0x109u); // Code, not a tree.
    EXPECT_EQ(hyx_ptn_learn(rte, 0x999, &pattern, &action), 0x109u);
    EXPECT_EQ(hyx_ptn_unlearn(rte, 0x999, &pattern, 24, &action, 1), 0x109u);
    EXPECT_EQ(hyx_ptn_list_ptns(rte, 0x103, collect, nullptr), 0x109u);
    EXPECT_EQ(hyx_ptn_unlearn(rte, responder_tree, &pattern, 24, &action, 0), 0x10Fu);
    EXPECT_EQ(hyx_ptn_unlearn(rte, responder_tree, &pattern, 24, &action, 2), 0x10Fu);
    EXPECT_EQ(hyx_ptn_unlearn(rte, responder_tree, &pattern, 23, &action, 1), 0x10Au);
    olv_ptn_free(pattern);
    olv_ptn wide{};
    ASSERT_EQ(olv_ptn_new(40, &wide), 0u);
    ASSERT_EQ(olv_ptn_extend(&wide, 1, 32), 0u);
    ASSERT_EQ(olv_ptn_extend(&wide, 1, 8), 0u);
    EXPECT_EQ(hyx_ptn_learn(rte, responder_tree, &wide, &action), 0x10Au);
    olv_ptn_free(wide);
    EXPECT_EQ(responders->size(), 1u);
}

TEST_F(tree, injected_failures_change_nothing)
{
    ASSERT_TRUE(faults::set(call::hyx_ptn_learn, {.code = 0x55}));
    ASSERT_TRUE(faults::set(call::hyx_ptn_unlearn, {.code = 0x56}));
    ASSERT_TRUE(faults::set(call::hyx_ptn_list_ptns, {.code = 0x57}));
    std::vector<shown_entry> entries;
    EXPECT_EQ(learn(responder_tree, 5, {{1, 2, 3}}), 0x55u);
    EXPECT_EQ(responders->size(), 0u);
    EXPECT_EQ(learn(responder_tree, 5, {{1, 2, 3}}), 0u);
    EXPECT_EQ(unlearn(responder_tree, 5), 0x56u);
    EXPECT_EQ(responders->size(), 1u);
    EXPECT_EQ(hyx_ptn_list_ptns(rte, responder_tree, collect, &entries), 0x57u);
    EXPECT_TRUE(entries.empty());
}

TEST_F(tree, entry_without_a_key)
{
    ASSERT_EQ(learn(responder_tree, 5, {{1, 0, 0}}), 0u);
    ASSERT_EQ(learn(responder_tree, 0, {{2, 0, 0}}, 0), 0u);
    EXPECT_EQ(learn(responder_tree, 0, {{3, 0, 0}}, 0), 0x10Bu);
    EXPECT_EQ(responders->size(), 2u);
    EXPECT_EQ(responders->lookup(5)->word[0], 1u);
    EXPECT_EQ(responders->lookup(6)->word[0], 2u);
    EXPECT_EQ(responders->lookup(0xFF000000)->word[0], 2u);
    EXPECT_EQ(unlearn(responder_tree, 0, 0), 0u);
    EXPECT_EQ(unlearn(responder_tree, 0, 0), 0x10Cu);
    EXPECT_FALSE(responders->lookup(6).has_value());
}

TEST_F(tree, other_key_widths_are_only_listed)
{
    ASSERT_EQ(learn(responder_tree, 5, {{1, 0, 0}}, 32), 0u);
    ASSERT_EQ(learn(responder_tree, 5, {{2, 0, 0}}, 8), 0u);
    ASSERT_EQ(learn(responder_tree, 1, {{3, 0, 0}}, 1), 0u);
    EXPECT_EQ(learn(responder_tree, 5, {{1, 0, 0}}, 8), 0x10Bu);
    EXPECT_EQ(responders->size(), 3u);
    EXPECT_FALSE(responders->lookup(5).has_value());
    EXPECT_EQ(list(),
              (std::vector<shown_entry>{{1, 1, 0, {3, 0, 0}}, {8, 5, 0, {2, 0, 0}}, {32, 5, 0, {1, 0, 0}}}));
    EXPECT_EQ(unlearn(responder_tree, 6, 8), 0x10Cu);
    EXPECT_EQ(unlearn(responder_tree, 5, 8), 0u);
    EXPECT_EQ(unlearn(responder_tree, 5, 32), 0u);
    EXPECT_EQ(unlearn(responder_tree, 1, 1), 0u);
    EXPECT_EQ(responders->size(), 0u);
}

TEST_F(tree, listing_order_and_the_classifiers_word)
{
    EXPECT_TRUE(list().empty());
    ASSERT_EQ(learn(responder_tree, 3, {{5, 0, 0}}, 16, 0x50), 0u);
    ASSERT_EQ(learn(responder_tree, 0xFFFFFF, {{4, 0, 0}}, 24, 0x40), 0u);
    ASSERT_EQ(learn(responder_tree, 0, {{2, 0, 0}}, 24, 0x20), 0u);
    ASSERT_EQ(learn(responder_tree, 0x5000, {{3, 0x401, 9}}, 24, 0xFFFFFFFF), 0u);
    ASSERT_EQ(learn(responder_tree, 0, {{1, 0, 0}}, 0, 0x10), 0u);
    EXPECT_EQ(list(), (std::vector<shown_entry>{{0, 0, 0x10, {1, 0, 0}},
                                                {24, 0, 0x20, {2, 0, 0}},
                                                {24, 0x5000, 0xFFFFFFFF, {3, 0x401, 9}},
                                                {24, 0xFFFFFF, 0x40, {4, 0, 0}},
                                                {16, 3, 0x50, {5, 0, 0}}}));
    EXPECT_TRUE(list(bind_tree).empty());
}

TEST_F(tree, listed_patterns_can_be_printed)
{
    ASSERT_EQ(learn(responder_tree, 0x1234, {{1, 2, 3}}), 0u);
    ASSERT_EQ(learn(responder_tree, 0, {{1, 2, 3}}, 0), 0u);
    const auto print = [](void *, void *, const olv_ptn *pattern, const olv_ptn_action *) {
        olv_ptn_print(*pattern);
    };
    testing::internal::CaptureStdout();
    EXPECT_EQ(hyx_ptn_list_ptns(rte, responder_tree, print, nullptr), 0u);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "<key = */0><key = 0x001234/24>");
}

TEST_F(tree, callback_may_change_the_tree)
{
    for (const std::uint32_t key : {1u, 2u, 3u}) {
        ASSERT_EQ(learn(responder_tree, key, {{key, 0, 0}}), 0u);
    }
    const auto remove = [](void *context, void *, const olv_ptn *pattern, const olv_ptn_action *action) {
        olv_ptn own = *pattern;
        olv_ptn_action own_action = *action;
        const std::uint32_t handle = *static_cast<const std::uint32_t *>(context);
        EXPECT_EQ(hyx_ptn_unlearn(handle, responder_tree, &own, 24, &own_action, 1), 0u);
    };
    std::uint32_t handle = rte;
    EXPECT_EQ(hyx_ptn_list_ptns(rte, responder_tree, remove, &handle), 0u);
    EXPECT_EQ(responders->size(), 0u);
}

} // namespace
