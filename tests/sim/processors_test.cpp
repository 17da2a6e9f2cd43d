#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

using processors = sim_test;

TEST_F(processors, twamp_program)
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
    for (const auto &row : rows) {
        std::uint32_t id = 0;
        EXPECT_EQ(hyx_ptn_symbol_get_id(rte, row.name, &id), 0u) << row.name;
        EXPECT_EQ(id, row.id) << row.name;
        const classifier_tree *tree = processor.tree(row.name);
        EXPECT_EQ(tree != nullptr, row.classifier) << row.name;
        if (tree != nullptr) {
            EXPECT_EQ(tree->id(), row.id);
            EXPECT_EQ(tree->name(), row.name);
            EXPECT_EQ(tree->size(), 0u);
        }
    }
    std::uint32_t id = 7;
    EXPECT_EQ(hyx_ptn_symbol_get_id(rte, "olv_twamp.nothing", &id), 0x109u);
    EXPECT_EQ(id, 7u);
    EXPECT_EQ(processor.tree("olv_twamp.nothing"), nullptr);
}

TEST_F(processors, are_apart)
{
    olv_sim::processor other{classifier_program::twamp()};
    EXPECT_NE(other.rte_handle(), rte);
    ASSERT_EQ(learn(responder_tree, 5, {{1, 2, 3}}), 0u);
    EXPECT_EQ(other.tree(responder_tree_name)->size(), 0u);
    std::uint32_t first = 0;
    std::uint32_t second = 0;
    std::uint32_t resource = 0;
    ASSERT_EQ(hyx_rsrc_find(rte, 0, "twamp_responder", &first), 0u);
    ASSERT_EQ(hyx_rsrc_find(other.rte_handle(), 0, "twamp_responder", &second), 0u);
    EXPECT_NE(first, second);
    ASSERT_EQ(hyx_rsrc_allocate(second, 1, &resource), 0u);
    EXPECT_EQ(other.allocated("twamp_responder"), 1u);
    EXPECT_EQ(processor.allocated("twamp_responder"), 0u);
    const std::uint32_t word = 5;
    ASSERT_EQ(hyx_se_state_set(rte, 1, 0, &word, 4), 0u);
    std::uint32_t read = 9;
    ASSERT_EQ(hyx_se_state_get(other.rte_handle(), 1, 0, &read, 4), 0u);
    EXPECT_EQ(read, 0u);
}

TEST_F(processors, handle_ends_with_the_processor)
{
    std::uint32_t handle = 0;
    std::uint32_t space = 0;
    {
        const olv_sim::processor other{classifier_program::twamp()};
        handle = other.rte_handle();
        ASSERT_EQ(hyx_rsrc_find(handle, 0, "twamp_responder", &space), 0u);
    }
    std::uint64_t ticks = 0;
    std::uint32_t resource = 0;
    EXPECT_EQ(hyx_timer_get_timestamp(handle, 0, &ticks), 0x101u);
    EXPECT_EQ(hyx_rsrc_allocate(space, 1, &resource), 0x106u);
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
    EXPECT_FALSE(other.is_allocated("twamp_responder", 1));
}

} // namespace
