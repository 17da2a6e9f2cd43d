#include <cstring>

#include "olv_sim/calls.hpp"
#include "rows.hpp"

namespace olv_test {
namespace {

std::uint32_t update(bench &b)
{
    return olv_twamp_service_function_update(b.handle);
}

#define ENTERING OLV_ENTERING("twamp.c", "olv_twamp_service_function_update")
#define EXITING OLV_EXITING("twamp.c", "olv_twamp_service_function_update")
#define REFUSED_HANDLE                                                                                         \
    "[olv_unknown_log: ERROR] twamp.c:LINE Invalid TWAMP module handle 0x{module}\n"                           \
    "[olv_unknown_log: ERROR] twamp.c:LINE Service function update failed\n"

const std::string operation_name = "olv_twamp_service_function_update";
const std::vector<std::string> locked_calls{"hyx_gettime", "olv_sys_sem_lock_wait",
                                            "olv_module_service_function_update", "hyx_sem_post",
                                            "hyx_gettime"};
const std::vector<trace> refused_handle{forced("Invalid TWAMP module handle 0x%08x\n"),
                                        forced("Service function update failed")};

options without_lock()
{
    options setup;
    setup.locked = false;
    return setup;
}

/** The framework's answer comes back as it is, whatever module it names. */
row refused_with(std::uint32_t status, const std::string &status_text)
{
    return {.label = "framework refuses with " + status_text,
            .faults = {{call::olv_module_service_function_update, {.code = status}}},
            .status = status,
            .console = ENTERING "[twamp_log: ERROR] twamp.c:LINE Failed to update service functions\n"
                                "[twamp_log: ERROR] twamp.c:LINE " +
                       status_text + "\n" EXITING,
            .traces = {entry(operation_name), error("Failed to update service functions"), error_status(),
                       exit(operation_name)},
            .calls = locked_calls};
}

const table rows{
    "olv_twamp_service_function_update",
    update,
    {
        {.label = "success",
         .console = ENTERING EXITING,
         .traces = {entry(operation_name), exit(operation_name)},
         .calls = locked_calls},
        {.label = "success without a lock",
         .setup = without_lock(),
         .console = ENTERING EXITING,
         .traces = {entry(operation_name), exit(operation_name)},
         .calls = {"hyx_gettime", "olv_module_service_function_update", "hyx_gettime"}},
        {.label = "null handle",
         .arrange = [](bench &b) { b.handle = nullptr; },
         .status = 1,
         .console = REFUSED_HANDLE,
         .traces = refused_handle},
        {.label = "record that is no module's",
         .arrange = [](bench &b) { b.handle = &b.foreign; },
         .status = 1,
         .console = REFUSED_HANDLE,
         .traces = refused_handle},
        {.label = "not initialised",
         .arrange = [](bench &b) { quiet([&] { return olv_twamp_shutdown(b.module); }); },
         .status = 1,
         .console = REFUSED_HANDLE,
         .traces = refused_handle,
         .left = nothing},
        {.label = "context's magic corrupted",
         .arrange = [](bench &b) { b.set_context_magic(0); },
         .status = 1,
         .console = REFUSED_HANDLE,
         .traces = refused_handle,
         .left = {.initialised = false}},
        {.label = "lock not taken",
         .faults = {failing(call::olv_sys_sem_lock_wait)},
         .status = 0x300A5,
         .console = ENTERING OLV_LOCK_REFUSED("twamp.c"),
         .traces = {entry(operation_name), error(lock_refused), error_status()},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait"}},
        refused_with(0x10007, "{status 0x10007}"),
        refused_with(7, "{status 7}"),
        refused_with(0xF0007, "{status 0xF0007}"),
        {.label = "lock not released after success",
         .faults = {failing(call::hyx_sem_post)},
         .status = 0x300A5,
         .console = ENTERING OLV_RELEASE_REFUSED("twamp.c") EXITING,
         .traces = {entry(operation_name), error(release_refused), error_status(), exit(operation_name)},
         .calls = locked_calls,
         .left = {.lock_held = 1}},
        {.label = "lock not released after a refusal",
         .faults = {{call::olv_module_service_function_update, {.code = 0x10007}}, failing(call::hyx_sem_post)},
         .status = 0x300A5,
         .console = ENTERING "[twamp_log: ERROR] twamp.c:LINE Failed to update service functions\n"
                             "[twamp_log: ERROR] twamp.c:LINE {status 0x10007}\n" OLV_RELEASE_REFUSED("twamp.c")
                                 EXITING,
         .traces = {entry(operation_name), error("Failed to update service functions"), error_status(),
                    error(release_refused), error_status(), exit(operation_name)},
         .calls = locked_calls,
         .left = {.lock_held = 1}},
    }};

TEST(ServiceFunctionUpdate, Rows)
{
    rows.run();
}

TEST(ServiceFunctionUpdate, HandsOverTheSameTableEachTime)
{
    bench b;
    olv_service_function_table expected{}; // All other slots, the tree function's too, stay zero.
    expected.shutdown = olv_twamp_shutdown;
    expected.custom_bind = olv_twamp_custom_bind;
    expected.custom_unbind = olv_twamp_custom_unbind;
    expected.get_imc = olv_twamp_get_imc;
    expected.sys_log = olv_twamp_sys_log;
    ASSERT_NE(b.framework.last_table(b.module)->lli_tree_function.id, 0) << "init hands over the tree function";
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(quiet([&] { return update(b); }), 0u);
        const auto table = b.framework.last_table(b.module);
        ASSERT_TRUE(table.has_value());
        EXPECT_EQ(std::memcmp(&*table, &expected, sizeof expected), 0);
    }
}

} // namespace
} // namespace olv_test
