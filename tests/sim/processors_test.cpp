#include <memory>
#include <stdexcept>

#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

using processors = sim_test;

TEST_F(processors, have_the_trees_of_their_program)
{
    const struct {
        const char *name;
        std::uint32_t id;
        bool classifier;
    } rows[] = {{"olv_twamp.twamp_to_ip_direct_imc", 0x101, false},
                {"olv_twamp.twamp_to_ipv6_indirect_imc", 0x102, false},
                {"olv_twamp.twamp_lli_processing", 0x103, false},
                {"olv_twamp.twamp_responder_lookup", 0x104, true},
                {"olv_twamp.twamp_bind_to_next_module", 0x105, true}};
    std::uint32_t id = 7;
    EXPECT_EQ(hyx_ptn_symbol_get_id(rte, "olv_twamp.nothing", &id), 0x109u);
    EXPECT_EQ(id, 7u);
    EXPECT_EQ(processor.tree("olv_twamp.nothing"), nullptr);
    EXPECT_STREQ(olv_sif_fps_map(0x106), "unknown tree function");
    for (const auto &row : rows) {
        EXPECT_EQ(hyx_ptn_symbol_get_id(rte, row.name, &id), 0u) << row.name;
        EXPECT_EQ(id, row.id) << row.name;
        EXPECT_STREQ(olv_sif_fps_map(row.id), row.name);
        const classifier_tree *tree = processor.tree(row.name);
        ASSERT_EQ(tree != nullptr, row.classifier) << row.name;
        EXPECT_TRUE(tree == nullptr || (tree->id() == row.id && tree->name() == row.name && tree->size() == 0));
    }
}

TEST_F(processors, are_apart)
{
    std::uint32_t first = 0;
    std::uint32_t second = 0;
    std::uint32_t resource = 0;
    std::uint32_t word = 5;
    ASSERT_EQ(learn(responder_tree, 5, {{1, 2, 3}}), 0u);
    ASSERT_EQ(hyx_se_state_set(rte, 1, 0, &word, 4), 0u);
    ASSERT_EQ(hyx_rsrc_find(rte, 0, "twamp_responder", &first), 0u);
    auto other = std::make_unique<olv_sim::processor>(classifier_program::twamp());
    const std::uint32_t handle = other->rte_handle();
    EXPECT_NE(handle, rte);
    EXPECT_EQ(other->tree(responder_tree_name)->size(), 0u);
    EXPECT_EQ(hyx_se_state_get(handle, 1, 0, &word, 4), 0u);
    EXPECT_EQ(word, 0u);
    ASSERT_EQ(hyx_rsrc_find(handle, 0, "twamp_responder", &second), 0u);
    EXPECT_NE(first, second);
    ASSERT_EQ(hyx_rsrc_allocate(second, 1, &resource), 0u);
    EXPECT_EQ(other->allocated("twamp_responder"), 1u);
    EXPECT_EQ(processor.allocated("twamp_responder"), 0u);
    other.reset();
    EXPECT_EQ(hyx_se_state_get(handle, 1, 0, &word, 4), 0x101u);
    EXPECT_EQ(hyx_rsrc_allocate(second, 1, &resource), 0x106u);
    EXPECT_EQ(take_violations().size(), 2u);
}

TEST_F(processors, program_may_leave_things_out)
{
    classifier_program program = classifier_program::twamp();
    program.namespaces.erase(program.namespaces.begin());
    program.tree_functions[3].name = "renamed";
    program.global_statistics = false;
    const olv_sim::processor other{program};
    std::uint32_t value = 7;
    EXPECT_EQ(hyx_rsrc_find(other.rte_handle(), 0, "twamp_responder", &value), 0x106u);
    EXPECT_EQ(hyx_ptn_symbol_get_id(other.rte_handle(), responder_tree_name, &value), 0x109u);
    EXPECT_EQ(hyx_se_state_set(other.rte_handle(), 0x7008C1, 0, &value, 4), 0x10Du);
    EXPECT_EQ(hyx_se_state_set(other.rte_handle(), 1, 0, &value, 4), 0x10Du);
    EXPECT_EQ(value, 7u);
    EXPECT_NE(other.tree("renamed"), nullptr);
    EXPECT_TRUE(other.state(0x7008C1).empty());
    EXPECT_EQ(other.allocated("twamp_responder"), 0u);
    program.namespaces.resize(256);
    EXPECT_THROW(olv_sim::processor{program}, std::length_error);
}

TEST_F(processors, have_room_for_a_million_responders)
{
    constexpr std::uint32_t responders = 1000000;
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
    EXPECT_EQ(processor.tree(responder_tree_name)->size(), responders);
    EXPECT_EQ(processor.allocated("twamp_responder"), responders);
    EXPECT_LE(processor.memory_bytes() / responders, 160u);
    EXPECT_LE((processor.memory_bytes() - before) / responders, 100u);
    for (std::uint32_t id = 1; id <= responders; ++id) {
        ASSERT_EQ(look_up(id), (words{1, id, 0}));
    }
    EXPECT_EQ(look_up(responders + 1), words{});

    std::size_t listed_and_live = 0;
    const auto add_live = [](void *sum, void *, const olv_ptn *, const olv_ptn_action *) {
        *static_cast<std::size_t *>(sum) += patterns::live();
    };
    EXPECT_EQ(hyx_ptn_list_ptns(rte, responder_tree, add_live, &listed_and_live), 0u);
    EXPECT_EQ(listed_and_live, responders) << "one pattern lives at a time";
}

} // namespace
