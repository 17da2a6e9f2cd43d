#include <sstream>

#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/framework.hpp"
#include "olv_sim/process.hpp"
#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

class fault_plan : public sim_test {
  protected:
    [[nodiscard]] words read_timers(std::size_t times) const
    {
        words all(times);
        for (std::uint32_t &status : all) {
            std::uint64_t ticks = 0;
            status = hyx_timer_get_timestamp(rte, 0, &ticks);
        }
        return all;
    }
};

TEST_F(fault_plan, every_call_fails_in_the_way_of_its_interface)
{
    const struct {
        failure how;
        std::uint32_t usual_code;
        const char *calls;
    } rows[] = {
        {failure::rte_status, 0x1FF,
         " olv_sys_sem_lock_wait hyx_sem_post hyx_timer_get_timestamp hyx_rsrc_find hyx_rsrc_allocate "
         "hyx_rsrc_free"
         " hyx_ptn_symbol_get_id hyx_ptn_learn hyx_ptn_unlearn hyx_ptn_list_ptns hyx_se_state_set "
         "hyx_se_state_get"},
        {failure::framework_status, 0x201FF,
         " olv_module_service_function_register olv_module_service_function_update olv_ptn_new olv_ptn_extend"
         " olv_ptn_parse entry_point_lookup"},
        {failure::null_pointer, 0, " hyx_nvm_calloc"},
        {failure::empty_slot, 0, " olv_lttng_fn_ptr_get"},
        {failure::never, 0,
         " olv_sys_status_get olv_ptn_free olv_ptn_print olv_ptn_action_print olv_byte_string_print "
         "olv_sif_fps_map"
         " olv_lttng_trace_sif_force_error hyx_nvm_free hyx_status_get hyx_gettime hyx_htons hyx_htonl "
         "hyx_ntohl"},
    };
    std::size_t known = 0;
    for (const auto &row : rows) {
        std::istringstream names{row.calls};
        for (std::string name; names >> name; ++known) {
            const std::optional<call> which = call_by_name(name);
            ASSERT_TRUE(which.has_value()) << name;
            EXPECT_EQ(call_name(*which), name);
            EXPECT_EQ(failure_of(*which), row.how) << name;
            EXPECT_EQ(usual_code(*which), row.usual_code) << name;
            EXPECT_EQ(faults::set(*which, {}), row.how != failure::never) << name;
        }
    }
    EXPECT_EQ(known, call_count);
    EXPECT_EQ(call_by_name("hyx_ptn"), std::nullopt);
}

TEST_F(fault_plan, skips_then_fails_so_often_or_until_cleared)
{
    const call timer = call::hyx_timer_get_timestamp;
    ASSERT_TRUE(faults::set(timer, {.code = 0x77, .skip = 2, .count = 2}));
    EXPECT_EQ(read_timers(6), (words{0, 0, 0x77, 0x77, 0, 0}));
    EXPECT_EQ(faults::hits(timer), 2u);
    const fault planned = faults::planned(timer).value();
    EXPECT_EQ((words{planned.code, planned.skip, planned.count}), (words{0x77, 2, 2}));
    ASSERT_TRUE(faults::set(timer, {.code = 5, .count = fault::forever}));
    ASSERT_TRUE(faults::set(call::hyx_rsrc_find, {.code = 1}));
    EXPECT_EQ(read_timers(100), words(100, 5));
    EXPECT_EQ(faults::hits(timer), 100u);
    faults::clear(timer);
    EXPECT_EQ(read_timers(1), words{0});
    EXPECT_EQ(faults::hits(timer), 0u);
    EXPECT_FALSE(faults::planned(timer).has_value());
    EXPECT_TRUE(faults::planned(call::hyx_rsrc_find).has_value());
}

TEST_F(fault_plan, failing_calls_write_nothing)
{
    framework framework;
    const olv_bind_info info = make_bind_info(framework.ipv6_module(), framework.ipv4_module(), nullptr);
    olv_ptn pattern{};
    std::uint32_t word = 7;
    olv_lttng_trace_fn function = nullptr;
    faults::set_any({.count = fault::forever});
    ASSERT_TRUE(faults::set(call::olv_lttng_fn_ptr_get, {}));
    EXPECT_EQ(olv_ptn_new(24, &pattern), 0x201FFu);
    EXPECT_EQ(hyx_rsrc_find(rte, 0, "twamp_responder", &word), 0x1FFu);
    EXPECT_EQ(olv_sys_sem_lock_wait(0), 0x1FFu);
    EXPECT_EQ(hyx_nvm_calloc(1, 8), nullptr);
    EXPECT_EQ(moduleMgrCpuServiceFn[1].entry_point_lookup(framework.ipv4_module(), &info, &word), 0x201FFu);
    olv_lttng_fn_ptr_get(3, 2, &function);
    EXPECT_EQ(pattern.word[0], 0u);
    EXPECT_EQ(word, 7u);
    EXPECT_EQ(function, nullptr);
}

TEST_F(fault_plan, any_counts_all_that_can_fail)
{
    olv_ptn pattern{};
    olv_lttng_trace_fn function = nullptr;
    faults::set_any({.skip = 1, .count = 1});
    EXPECT_EQ(olv_ptn_new(24, &pattern), 0u);
    (void)hyx_status_get(0);               // cannot fail
    olv_lttng_fn_ptr_get(3, 2, &function); // left out
    EXPECT_EQ(olv_ptn_extend(&pattern, 1, 24), 0x201FFu);
    EXPECT_EQ(read_timers(2), words(2, 0));
    EXPECT_EQ(faults::hits_of_any(), 1u);
    EXPECT_EQ(faults::calls_of_any(), 4u);
    EXPECT_NE(function, nullptr);
    olv_ptn_free(pattern);
}

TEST_F(fault_plan, several_of_any_and_single_ones_stay_beside_each_other)
{
    faults::set_any({.code = 0xA, .skip = 1, .count = 1});
    faults::add_any({.code = 0xB, .skip = 3, .count = 1});
    EXPECT_EQ(read_timers(5), (words{0, 0xA, 0, 0xB, 0}));
    EXPECT_EQ(faults::hits_of_any(), 2u);
    EXPECT_EQ(faults::calls_of_any(), 5u);
    faults::set_any({.code = 0xC, .skip = 1, .count = 1});
    ASSERT_TRUE(faults::set(call::hyx_timer_get_timestamp, {.code = 0xD, .count = 1}));
    EXPECT_EQ(read_timers(3), (words{0xD, 0xC, 0}));
    EXPECT_EQ(faults::hits_of_any(), 1u);
    faults::set_any({.count = fault::forever});
    reset_process();
    EXPECT_EQ(read_timers(1), words{0});
    EXPECT_EQ(faults::calls_of_any(), 0u);
    EXPECT_FALSE(faults::planned(call::hyx_timer_get_timestamp).has_value());
}

} // namespace
