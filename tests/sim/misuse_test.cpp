// Arguments that no call takes: a status, nothing written, nothing lost.
#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

using misuse = sim_test;

TEST_F(misuse, null_pointers)
{
    std::uint32_t space = 0;
    ASSERT_EQ(hyx_rsrc_find(rte, 0, "twamp_responder", &space), 0u);
    const std::uint16_t width = 8;
    std::uint32_t word = 7;
    olv_ptn pattern = make_pattern(1);
    olv_ptn_action action{};
    EXPECT_EQ((words{hyx_timer_get_timestamp(rte, 0, nullptr), hyx_rsrc_find(rte, 0, nullptr, &word),
                     hyx_rsrc_find(rte, 0, "twamp_responder", nullptr), hyx_rsrc_allocate(space, 1, nullptr),
                     hyx_ptn_symbol_get_id(rte, nullptr, &word),
                     hyx_ptn_symbol_get_id(rte, responder_tree_name, nullptr),
                     hyx_ptn_learn(rte, responder_tree, nullptr, &action),
                     hyx_ptn_learn(rte, responder_tree, &pattern, nullptr),
                     hyx_ptn_unlearn(rte, responder_tree, nullptr, 24, &action, 1),
                     hyx_ptn_unlearn(rte, responder_tree, &pattern, 24, nullptr, 1),
                     hyx_ptn_list_ptns(rte, responder_tree, nullptr, nullptr),
                     hyx_se_state_set(rte, 1, 0, nullptr, 4), hyx_se_state_get(rte, 1, 0, nullptr, 4)}),
              words(13, 0x102));
    EXPECT_EQ((words{olv_ptn_new(24, nullptr), olv_ptn_extend(nullptr, 1, 24),
                     olv_ptn_parse(nullptr, 1, &width, &word), olv_ptn_parse(&pattern, 1, nullptr, &word),
                     olv_ptn_parse(&pattern, 1, &width, nullptr)}),
              words(5, 0x20002));
    hyx_gettime(nullptr);
    olv_lttng_fn_ptr_get(3, 2, nullptr);
    EXPECT_EQ(word, 7u);
    EXPECT_EQ(processor.allocated("twamp_responder"), 0u);
    EXPECT_EQ(list(responder_tree), shown_entries{});
    olv_ptn_free(pattern);
}

TEST_F(misuse, unknown_instances_and_namespaces)
{
    std::uint32_t space = 0;
    ASSERT_EQ(hyx_rsrc_find(rte, 0, "twamp_reflector_session", &space), 0u);
    std::uint32_t word = 7;
    std::uint64_t ticks = 7;
    olv_ptn pattern = make_pattern(1);
    olv_ptn_action action{};
    for (const std::uint32_t handle : {0u, rte + 1, 4096u, 4097u, 0xFFFFFFFFu}) {
        EXPECT_EQ((words{hyx_timer_get_timestamp(handle, 0, &ticks),
                         hyx_rsrc_find(handle, 0, "twamp_responder", &word),
                         hyx_ptn_symbol_get_id(handle, responder_tree_name, &word),
                         hyx_ptn_learn(handle, responder_tree, &pattern, &action),
                         hyx_ptn_unlearn(handle, responder_tree, &pattern, 24, &action, 1),
                         hyx_ptn_list_ptns(handle, responder_tree, show, nullptr),
                         hyx_se_state_set(handle, 1, 0, &word, 4), hyx_se_state_get(handle, 1, 0, &word, 4)}),
                  words(8, 0x101));
        const lines reported = take_violations();
        ASSERT_EQ(reported.size(), 8u);
        EXPECT_EQ(reported[0], "hyx_timer_get_timestamp: no RTE instance " + std::to_string(handle));
    }
    for (const std::uint32_t handle : {0u, space + 1, 0xFFFFFFFFu}) {
        EXPECT_EQ(hyx_rsrc_allocate(handle, 1, &word), 0x106u);
        EXPECT_EQ(hyx_rsrc_free(handle, 1, 1), 0x106u);
        EXPECT_EQ(take_violations().size(), 2u);
    }
    EXPECT_EQ(word, 7u);
    EXPECT_EQ(ticks, 7u);
    olv_ptn_free(pattern);
}

TEST_F(misuse, is_echoed)
{
    violations::set_echo(true);
    testing::internal::CaptureStderr();
    EXPECT_EQ(hyx_sem_post(0), 0x103u);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "olv-sim: violation: hyx_sem_post: no semaphore 0x00000000\n");
    EXPECT_EQ(take_violations(), lines{"hyx_sem_post: no semaphore 0x00000000"});
}

} // namespace
