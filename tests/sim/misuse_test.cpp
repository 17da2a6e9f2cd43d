#include <cstring>

#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

using misuse = sim_test;

TEST_F(misuse, null_pointers)
{
    std::uint32_t space = 0;
    ASSERT_EQ(hyx_rsrc_find(rte, 0, "twamp_responder", &space), 0u);
    std::uint32_t word = 7;
    olv_ptn pattern = make_pattern(1);
    olv_ptn_action action{};
    EXPECT_EQ(hyx_timer_get_timestamp(rte, 0, nullptr), 0x102u);
    EXPECT_EQ(hyx_rsrc_find(rte, 0, nullptr, &word), 0x102u);
    EXPECT_EQ(hyx_rsrc_find(rte, 0, "twamp_responder", nullptr), 0x102u);
    EXPECT_EQ(hyx_rsrc_allocate(space, 1, nullptr), 0x102u);
    EXPECT_EQ(hyx_ptn_symbol_get_id(rte, nullptr, &word), 0x102u);
    EXPECT_EQ(hyx_ptn_symbol_get_id(rte, responder_tree_name, nullptr), 0x102u);
    EXPECT_EQ(hyx_ptn_learn(rte, responder_tree, nullptr, &action), 0x102u);
    EXPECT_EQ(hyx_ptn_learn(rte, responder_tree, &pattern, nullptr), 0x102u);
    EXPECT_EQ(hyx_ptn_unlearn(rte, responder_tree, nullptr, 24, &action, 1), 0x102u);
    EXPECT_EQ(hyx_ptn_unlearn(rte, responder_tree, &pattern, 24, nullptr, 1), 0x102u);
    EXPECT_EQ(hyx_ptn_list_ptns(rte, responder_tree, nullptr, nullptr), 0x102u);
    EXPECT_EQ(hyx_se_state_set(rte, 1, 0, nullptr, 4), 0x102u);
    EXPECT_EQ(hyx_se_state_get(rte, 1, 0, nullptr, 4), 0x102u);
    hyx_gettime(nullptr);
    olv_lttng_fn_ptr_get(3, 2, nullptr);
    EXPECT_EQ(word, 7u);
    EXPECT_EQ(processor.allocated("twamp_responder"), 0u);
    EXPECT_EQ(processor.tree(responder_tree_name)->size(), 0u);
    olv_ptn_free(pattern);
}

TEST_F(misuse, unknown_instance)
{
    const auto callback = [](void *, void *, const olv_ptn *, const olv_ptn_action *) { FAIL(); };
    for (const std::uint32_t handle : {0u, rte + 1, 4096u, 4097u, 0xFFFFFFFFu}) {
        std::uint32_t word = 7;
        std::uint64_t ticks = 7;
        olv_ptn pattern = make_pattern(1);
        olv_ptn_action action{};
        EXPECT_EQ(hyx_timer_get_timestamp(handle, 0, &ticks), 0x101u);
        EXPECT_EQ(hyx_rsrc_find(handle, 0, "twamp_responder", &word), 0x101u);
        EXPECT_EQ(hyx_ptn_symbol_get_id(handle, responder_tree_name, &word), 0x101u);
        EXPECT_EQ(hyx_ptn_learn(handle, responder_tree, &pattern, &action), 0x101u);
        EXPECT_EQ(hyx_ptn_unlearn(handle, responder_tree, &pattern, 24, &action, 1), 0x101u);
        EXPECT_EQ(hyx_ptn_list_ptns(handle, responder_tree, callback, nullptr), 0x101u);
        EXPECT_EQ(hyx_se_state_set(handle, 1, 0, &word, 4), 0x101u);
        EXPECT_EQ(hyx_se_state_get(handle, 1, 0, &word, 4), 0x101u);
        EXPECT_EQ(word, 7u);
        EXPECT_EQ(ticks, 7u);
        olv_ptn_free(pattern);
        const auto reported = take_violations();
        ASSERT_EQ(reported.size(), 8u);
        EXPECT_EQ(reported[0], "hyx_timer_get_timestamp: no RTE instance " + std::to_string(handle));
    }
}

TEST_F(misuse, unknown_namespace)
{
    std::uint32_t space = 0;
    ASSERT_EQ(hyx_rsrc_find(rte, 0, "twamp_reflector_session", &space), 0u);
    std::uint32_t word = 7;
    EXPECT_EQ(hyx_rsrc_find(rte, 0, "nothing", &word), 0x106u);
    EXPECT_EQ(violations::count(), 0u);
    for (const std::uint32_t handle : {0u, space + 1, 0xFFFFFFFFu}) {
        EXPECT_EQ(hyx_rsrc_allocate(handle, 1, &word), 0x106u);
        EXPECT_EQ(hyx_rsrc_free(handle, 1, 1), 0x106u);
        EXPECT_EQ(take_violations().size(), 2u);
    }
    EXPECT_EQ(word, 7u);
}

TEST_F(misuse, violations_are_echoed)
{
    violations::set_echo(true);
    testing::internal::CaptureStderr();
    EXPECT_EQ(hyx_sem_post(0), 0x103u);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "olv-sim: violation: hyx_sem_post: no semaphore 0x00000000\n");
    EXPECT_EQ(violations::count(), 1u);
    EXPECT_EQ(take_violations(), (std::vector<std::string>{"hyx_sem_post: no semaphore 0x00000000"}));
}

} // namespace
