#include <set>

#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/framework.hpp"
#include "olv_sim/process.hpp"
#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

using fault_plan = sim_test;

std::uint32_t read_timer(std::uint32_t rte)
{
    std::uint64_t ticks = 0;
    return hyx_timer_get_timestamp(rte, 0, &ticks);
}

TEST_F(fault_plan, calls_are_known_by_name)
{
    EXPECT_EQ(call_count, 33u);
    EXPECT_EQ(call_name(call::hyx_ptn_learn), "hyx_ptn_learn");
    EXPECT_EQ(call_by_name("hyx_ptn_learn"), call::hyx_ptn_learn);
    EXPECT_EQ(call_by_name("entry_point_lookup"), call::entry_point_lookup);
    EXPECT_EQ(call_by_name("hyx_ptn"), std::nullopt);
    EXPECT_EQ(kind_of(call::olv_ptn_print), call_kind::print);
}

TEST_F(fault_plan, every_call_fails_in_the_way_of_its_interface)
{
    using names = std::set<std::string_view>;
    const struct {
        failure how;
        std::uint32_t usual_code;
        names calls;
    } rows[] = {
        {failure::rte_status,
         0x1FF,
         {"olv_sys_sem_lock_wait", "hyx_sem_post", "hyx_timer_get_timestamp", "hyx_rsrc_find",
          "hyx_rsrc_allocate", "hyx_rsrc_free", "hyx_ptn_symbol_get_id", "hyx_ptn_learn", "hyx_ptn_unlearn",
          "hyx_ptn_list_ptns", "hyx_se_state_set", "hyx_se_state_get"}},
        {failure::framework_status,
         0x201FF,
         {"olv_module_service_function_register", "olv_module_service_function_update", "olv_ptn_new",
          "olv_ptn_extend", "olv_ptn_parse", "entry_point_lookup"}},
        {failure::null_pointer, 0, {"hyx_nvm_calloc"}},
        {failure::empty_slot, 0, {"olv_lttng_fn_ptr_get"}},
        {failure::never,
         0,
         {"olv_sys_status_get", "olv_ptn_free", "olv_ptn_print", "olv_ptn_action_print",
          "olv_byte_string_print", "olv_sif_fps_map", "olv_lttng_trace_sif_force_error", "hyx_nvm_free",
          "hyx_status_get", "hyx_gettime", "hyx_htons", "hyx_htonl", "hyx_ntohl"}},
    };
    for (const auto &row : rows) {
        names found;
        for (std::size_t index = 0; index < call_count; ++index) {
            const auto which = static_cast<call>(index);
            if (failure_of(which) == row.how) {
                found.insert(call_name(which));
                EXPECT_EQ(usual_code(which), row.usual_code) << call_name(which);
                EXPECT_EQ(faults::set(which, {}), row.how != failure::never) << call_name(which);
            }
        }
        EXPECT_EQ(found, row.calls);
    }
}

TEST_F(fault_plan, skips_then_fails_then_succeeds)
{
    ASSERT_TRUE(faults::set(call::hyx_timer_get_timestamp, {.code = 0x77, .skip = 2, .count = 2}));
    const std::uint32_t expected[] = {0, 0, 0x77, 0x77, 0, 0};
    for (const std::uint32_t status : expected) {
        EXPECT_EQ(read_timer(rte), status);
    }
    EXPECT_EQ(faults::hits(call::hyx_timer_get_timestamp), 2u);
    const auto planned = faults::planned(call::hyx_timer_get_timestamp);
    ASSERT_TRUE(planned.has_value());
    EXPECT_EQ(planned->code, 0x77u);
    EXPECT_EQ(planned->skip, 2u);
    EXPECT_EQ(planned->count, 2u);
}

TEST_F(fault_plan, forever_until_cleared)
{
    ASSERT_TRUE(faults::set(call::hyx_timer_get_timestamp, {.code = 5, .count = fault::forever}));
    for (int round = 0; round < 100; ++round) {
        EXPECT_EQ(read_timer(rte), 5u);
    }
    EXPECT_EQ(faults::hits(call::hyx_timer_get_timestamp), 100u);
    faults::clear(call::hyx_timer_get_timestamp);
    EXPECT_EQ(read_timer(rte), 0u);
    EXPECT_EQ(faults::hits(call::hyx_timer_get_timestamp), 0u);
    EXPECT_FALSE(faults::planned(call::hyx_timer_get_timestamp).has_value());
}

TEST_F(fault_plan, other_calls_are_not_touched)
{
    ASSERT_TRUE(faults::set(call::hyx_rsrc_find, {.code = 1}));
    EXPECT_EQ(read_timer(rte), 0u);
    EXPECT_EQ(faults::hits(call::hyx_rsrc_find), 0u);
}

TEST_F(fault_plan, code_zero_becomes_the_default)
{
    olv_ptn pattern{};
    std::uint32_t handle = 0;
    ASSERT_TRUE(faults::set(call::olv_ptn_new, {}));
    ASSERT_TRUE(faults::set(call::hyx_rsrc_find, {}));
    EXPECT_EQ(olv_ptn_new(24, &pattern), 0x201FFu);
    EXPECT_EQ(hyx_rsrc_find(rte, 0, "twamp_responder", &handle), 0x1FFu);
    EXPECT_EQ(pattern.word[0], 0u);
    EXPECT_EQ(handle, 0u);
}

TEST_F(fault_plan, calloc_returns_null)
{
    ASSERT_TRUE(faults::set(call::hyx_nvm_calloc, {.skip = 1}));
    void *first = hyx_nvm_calloc(1, 8);
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(hyx_nvm_calloc(1, 8), nullptr);
    hyx_nvm_free(first);
}

TEST_F(fault_plan, trace_lookup_leaves_the_slot)
{
    ASSERT_TRUE(faults::set(call::olv_lttng_fn_ptr_get, {}));
    olv_lttng_trace_fn function = nullptr;
    olv_lttng_fn_ptr_get(3, 2, &function);
    EXPECT_EQ(function, nullptr);
    olv_lttng_fn_ptr_get(3, 2, &function);
    EXPECT_NE(function, nullptr);
}

TEST_F(fault_plan, entry_point_lookup_fails)
{
    framework framework;
    const olv_bind_info info = make_bind_info(framework.ipv6_module(), framework.ipv4_module(), nullptr);
    std::uint32_t entry_point = 0;
    ASSERT_TRUE(faults::set(call::entry_point_lookup, {.code = 0x12345}));
    EXPECT_EQ(moduleMgrCpuServiceFn[1].entry_point_lookup(framework.ipv4_module(), &info, &entry_point),
              0x12345u);
    EXPECT_EQ(entry_point, 0u);
}

TEST_F(fault_plan, any_counts_all_that_can_fail)
{
    olv_ptn pattern{};
    olv_lttng_trace_fn function = nullptr;
    faults::set_any({.skip = 1, .count = 1});
    EXPECT_EQ(olv_ptn_new(24, &pattern), 0u);
    (void)hyx_status_get(0);               // Cannot fail.
    olv_lttng_fn_ptr_get(3, 2, &function); // Left out.
    EXPECT_EQ(olv_ptn_extend(&pattern, 1, 24), 0x201FFu);
    EXPECT_EQ(olv_ptn_extend(&pattern, 1, 24), 0u);
    EXPECT_EQ(read_timer(rte), 0u);
    EXPECT_EQ(faults::hits_of_any(), 1u);
    EXPECT_EQ(faults::calls_of_any(), 4u);
    olv_ptn_free(pattern);
    EXPECT_NE(function, nullptr);
}

TEST_F(fault_plan, further_faults_of_any_count_the_same_calls)
{
    faults::set_any({.code = 0xA, .skip = 1, .count = 1});
    faults::add_any({.code = 0xB, .skip = 3, .count = 1});
    EXPECT_EQ(read_timer(rte), 0u);
    EXPECT_EQ(read_timer(rte), 0xAu);
    EXPECT_EQ(read_timer(rte), 0u);
    EXPECT_EQ(read_timer(rte), 0xBu);
    EXPECT_EQ(read_timer(rte), 0u);
    EXPECT_EQ(faults::hits_of_any(), 2u);
    EXPECT_EQ(faults::calls_of_any(), 5u);
    faults::set_any({.code = 0xC, .count = 1});
    EXPECT_EQ(read_timer(rte), 0xCu);
    EXPECT_EQ(read_timer(rte), 0u);
    EXPECT_EQ(faults::hits_of_any(), 1u);
}

TEST_F(fault_plan, single_faults_stay_in_force_beside_any)
{
    faults::set_any({.code = 0xA, .skip = 1, .count = 1});
    ASSERT_TRUE(faults::set(call::hyx_timer_get_timestamp, {.code = 0xB, .count = 1}));
    EXPECT_EQ(read_timer(rte), 0xBu);
    EXPECT_EQ(read_timer(rte), 0xAu);
    EXPECT_EQ(read_timer(rte), 0u);
}

TEST_F(fault_plan, reset_clears_everything)
{
    faults::set_any({.count = fault::forever});
    ASSERT_TRUE(faults::set(call::hyx_rsrc_find, {}));
    reset_process();
    EXPECT_EQ(read_timer(rte), 0u);
    EXPECT_EQ(faults::calls_of_any(), 0u);
    EXPECT_FALSE(faults::planned(call::hyx_rsrc_find).has_value());
}

} // namespace
