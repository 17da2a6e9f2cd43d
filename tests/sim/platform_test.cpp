#include "olv_sim.h"

#include <memory>

#include "platform_in_c.h"
#include "sim_fixture.hpp"

namespace {

using platform = sim_test;

TEST_F(platform, works_from_c)
{
    EXPECT_STREQ(use_platform_in_c(), nullptr);
}

TEST_F(platform, two_are_apart)
{
    olv_sim_platform *first = olv_sim_platform_create();
    olv_sim_platform *second = olv_sim_platform_create();
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(olv_sim_platform_module(first), olv_sim_platform_module(second));
    EXPECT_NE(olv_sim_platform_module(first)->rte_handle, olv_sim_platform_module(second)->rte_handle);
    EXPECT_NE(olv_sim_platform_module(first)->lock, olv_sim_platform_module(second)->lock);
    EXPECT_NE(olv_sim_platform_system(first), olv_sim_platform_system(second));
    olv_sim_platform_destroy(first);
    const olv_module_handle *module = olv_sim_platform_module(second);
    std::uint32_t tree = 0;
    EXPECT_EQ(hyx_ptn_symbol_get_id(module->rte_handle, "olv_twamp.twamp_bind_to_next_module", &tree), 0u);
    EXPECT_EQ(tree, 0x105u);
    olv_sim_platform_destroy(second);
}

TEST_F(platform, takes_processor_and_lock_with_it)
{
    olv_sim_platform *gone = olv_sim_platform_create();
    ASSERT_NE(gone, nullptr);
    const std::uint32_t gone_rte = olv_sim_platform_module(gone)->rte_handle;
    const std::uint32_t gone_lock = olv_sim_platform_module(gone)->lock;
    olv_sim_platform_destroy(gone);

    std::uint32_t tree = 0;
    EXPECT_EQ(hyx_ptn_symbol_get_id(gone_rte, responder_tree_name, &tree), 0x101u);
    EXPECT_EQ(olv_sys_sem_lock_wait(gone_lock), 0x103u);
    EXPECT_EQ(take_violations().size(), 2u);
}

TEST_F(platform, null_yields_null)
{
    EXPECT_EQ(olv_sim_platform_module(nullptr), nullptr);
    EXPECT_EQ(olv_sim_platform_system(nullptr), nullptr);
    EXPECT_EQ(olv_sim_platform_ipv4_module(nullptr), nullptr);
    EXPECT_EQ(olv_sim_platform_ipv6_module(nullptr), nullptr);
    olv_sim_platform_destroy(nullptr);
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
