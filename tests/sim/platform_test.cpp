// The platform of olv_sim.h.
#include "olv_sim.h"

#include <memory>

#include "sim_fixture.hpp"

extern "C" olv_module_handle *module_seen_from_c(const olv_sim_platform *platform);

namespace {

using platform = sim_test;

TEST_F(platform, several_are_apart_and_take_their_parts_with_them)
{
    olv_sim_platform *first = olv_sim_platform_create();
    olv_sim_platform *second = olv_sim_platform_create();
    ASSERT_EQ(module_seen_from_c(first), olv_sim_platform_module(first));
    const olv_module_handle gone = *olv_sim_platform_module(first);
    const olv_module_handle *other = olv_sim_platform_module(second);
    EXPECT_NE(gone.rte_handle, other->rte_handle);
    EXPECT_NE(gone.lock, other->lock);
    EXPECT_NE(gone.system, other->system);
    olv_sim_platform_destroy(first);
    std::uint32_t tree = 0;
    EXPECT_EQ(hyx_ptn_symbol_get_id(gone.rte_handle, responder_tree_name, &tree), 0x101u);
    EXPECT_EQ(olv_sys_sem_lock_wait(gone.lock), 0x103u);
    EXPECT_EQ(hyx_ptn_symbol_get_id(other->rte_handle, responder_tree_name, &tree), 0u);
    EXPECT_EQ(olv_sys_sem_lock_wait(other->lock), 0u);
    EXPECT_EQ(take_violations().size(), 2u);
    olv_sim_platform_destroy(second);
    olv_sim_platform_destroy(nullptr);
    EXPECT_EQ(olv_sim_platform_module(nullptr), nullptr);
    EXPECT_EQ(olv_sim_platform_system(nullptr), nullptr);
    EXPECT_EQ(olv_sim_platform_ipv4_module(nullptr), nullptr);
    EXPECT_EQ(olv_sim_platform_ipv6_module(nullptr), nullptr);
}

TEST_F(platform, null_when_no_processor_is_left)
{
    std::vector<std::unique_ptr<olv_sim::processor>> others; // the fixture has one
    for (std::size_t count = 1; count < 4096; ++count) {
        others.push_back(std::make_unique<olv_sim::processor>(olv_sim::classifier_program{}));
    }
    EXPECT_EQ(olv_sim_platform_create(), nullptr);
    others.pop_back();
    olv_sim_platform *last = olv_sim_platform_create();
    EXPECT_NE(last, nullptr);
    olv_sim_platform_destroy(last);
}

} // namespace
