#include <cstring>

#include "olv_sim/calls.hpp"
#include "olv_sim/processor.hpp"
#include "rows.hpp"

namespace olv_test {
namespace {

std::uint32_t shutdown(bench &b)
{
    return olv_twamp_shutdown(b.handle);
}

#define REFUSED                                                                                                \
    "[twamp_log: ERROR] twamp.c:LINE Failed to register NULL functions\n"                                      \
    "[twamp_log: ERROR] twamp.c:LINE {status 0x10007}\n"                                                       \
    "[twamp_log: ERROR] twamp.c:LINE TWAMP module 0x{module} failed to shutdown\n"                             \
    "[twamp_log: ERROR] twamp.c:LINE {status 0x10007}\n"
#define DONE "[twamp_log: info] twamp.c:LINE TWAMP module 0x{module} shutdown\n"

constexpr remains shut_down_but_registered{.blocks = 0, .initialised = false, .registered = true};

options without_lock()
{
    options setup;
    setup.locked = false;
    return setup;
}

options uninitialised()
{
    options setup;
    setup.initialised = false;
    return setup;
}

void context_is_cleared(bench &b)
{
    EXPECT_EQ(b.module->ctx, nullptr);
}

const table rows{
    "olv_twamp_shutdown",
    shutdown,
    {
        {.label = "success",
         .console = DONE,
         .traces = {info("TWAMP module 0x%08x shutdown\n")},
         .calls = {"olv_sys_sem_lock_wait", "olv_module_service_function_register", "hyx_nvm_free",
                   "hyx_sem_post"},
         .left = nothing,
         .check = context_is_cleared},
        {.label = "success without a lock",
         .setup = without_lock(),
         .console = DONE,
         .traces = {info("TWAMP module 0x%08x shutdown\n")},
         .calls = {"olv_module_service_function_register", "hyx_nvm_free"},
         .left = nothing,
         .check = context_is_cleared},
        {.label = "null handle",
         .arrange = [](bench &b) { b.handle = nullptr; },
         .status = 1,
         .console = "[olv_unknown_log: ERROR] twamp.c:LINE Invalid TWAMP Module handle 0x00000000\n"
                    "[olv_unknown_log: ERROR] twamp.c:LINE TWAMP module failed to shutdown\n",
         .traces = {forced("Invalid TWAMP Module handle 0x%08x\n"),
                    forced("TWAMP module failed to shutdown\n")}},
        {.label = "record that is no module's",
         .arrange = [](bench &b) { b.handle = &b.foreign; },
         .status = 1,
         .console = "[olv_unknown_log: ERROR] twamp.c:LINE Invalid TWAMP Module handle 0x{module}\n"
                    "[olv_unknown_log: ERROR] twamp.c:LINE TWAMP module failed to shutdown\n",
         .traces = {forced("Invalid TWAMP Module handle 0x%08x\n"),
                    forced("TWAMP module failed to shutdown\n")}},
        {.label = "never initialised",
         .setup = uninitialised(),
         .status = 1,
         .console = "[olv_unknown_log: ERROR] twamp.c:LINE Invalid TWAMP module handle 0x{module}\n"
                    "[olv_unknown_log: ERROR] twamp.c:LINE TWAMP module failed to shutdown\n",
         .traces = {forced("Invalid TWAMP module handle 0x%08x\n"),
                    forced("TWAMP module failed to shutdown\n")},
         .left = nothing},
        {.label = "shut down before",
         .arrange = [](bench &b) { quiet([&] { return olv_twamp_shutdown(b.module); }); },
         .status = 1,
         .console = "[olv_unknown_log: ERROR] twamp.c:LINE Invalid TWAMP module handle 0x{module}\n"
                    "[olv_unknown_log: ERROR] twamp.c:LINE TWAMP module failed to shutdown\n",
         .traces = {forced("Invalid TWAMP module handle 0x%08x\n"),
                    forced("TWAMP module failed to shutdown\n")},
         .left = nothing},
        {.label = "context's magic corrupted",
         .arrange = [](bench &b) { b.set_context_magic(0x18496125); },
         .status = 1,
         .console = "[olv_unknown_log: ERROR] twamp.c:LINE Invalid TWAMP module handle 0x{module}\n"
                    "[olv_unknown_log: ERROR] twamp.c:LINE TWAMP module failed to shutdown\n",
         .traces = {forced("Invalid TWAMP module handle 0x%08x\n"),
                    forced("TWAMP module failed to shutdown\n")},
         .left = {.initialised = false}},
        {.label = "lock not taken",
         .faults = {failing(call::olv_sys_sem_lock_wait)},
         .status = 0x300A5,
         .console = OLV_LOCK_REFUSED("twamp.c"),
         .traces = {error(lock_refused), error_status()},
         .calls = {"olv_sys_sem_lock_wait"}},
        {.label = "framework refuses the withdrawal",
         .faults = {{call::olv_module_service_function_register, {.code = 0x10007}}},
         .status = 0x10007,
         .console = REFUSED,
         .traces = {error("Failed to register NULL functions\n"), error_status(),
                    error("TWAMP module 0x%08x failed to shutdown\n"), error_status()},
         .calls = {"olv_sys_sem_lock_wait", "olv_module_service_function_register", "hyx_nvm_free",
                   "hyx_sem_post"},
         .left = shut_down_but_registered,
         .check = context_is_cleared},
        {.label = "lock not released after success",
         .faults = {failing(call::hyx_sem_post)},
         .status = 0x300A5,
         .console = DONE OLV_RELEASE_REFUSED("twamp.c"),
         .traces = {info("TWAMP module 0x%08x shutdown\n"), error(release_refused), error_status()},
         .calls = {"olv_sys_sem_lock_wait", "olv_module_service_function_register", "hyx_nvm_free",
                   "hyx_sem_post"},
         .left = {.blocks = 0, .lock_held = 1, .initialised = false, .registered = false},
         .check = context_is_cleared},
        {.label = "lock not released after a refused withdrawal",
         .faults = {{call::olv_module_service_function_register, {.code = 0x10007}},
                    failing(call::hyx_sem_post)},
         .status = 0x300A5,
         .console = REFUSED OLV_RELEASE_REFUSED("twamp.c"),
         .traces = {error("Failed to register NULL functions\n"), error_status(),
                    error("TWAMP module 0x%08x failed to shutdown\n"), error_status(), error(release_refused),
                    error_status()},
         .calls = {"olv_sys_sem_lock_wait", "olv_module_service_function_register", "hyx_nvm_free",
                   "hyx_sem_post"},
         .left = {.blocks = 0, .lock_held = 1, .initialised = false, .registered = true},
         .check = context_is_cleared},
    }};

TEST(Shutdown, Rows)
{
    rows.run();
}

TEST(Shutdown, WithdrawsByATableOfZeros)
{
    bench b;
    quiet([&] { return shutdown(b); });
    const auto withdrawn = b.framework.last_table(b.module);
    const olv_service_function_table zeros{};
    ASSERT_TRUE(withdrawn.has_value());
    EXPECT_EQ(std::memcmp(&*withdrawn, &zeros, sizeof zeros), 0);
}

TEST(Shutdown, LeavesRespondersBindsAndCountersAlone)
{
    bench b;
    const std::uint32_t responder = b.create_responder(1, 2)->responder_id;
    b.set_state_bytes(0x7008C1, std::vector<std::uint8_t>(128, 7));
    const auto state = b.state_bytes(responder);
    quiet([&] { return shutdown(b); });
    EXPECT_EQ(b.left(), (remains{.responder_ids = 1,
                                 .responder_entries = 1,
                                 .blocks = 1,
                                 .initialised = false,
                                 .registered = false}));
    EXPECT_EQ(b.state_bytes(responder), state);
    EXPECT_EQ(b.state_bytes(0x7008C1), std::vector<std::uint8_t>(128, 7));
}

TEST(Shutdown, LetsTheModuleComeUpAgain)
{
    bench b;
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(quiet([&] { return olv_twamp_shutdown(b.module); }), 0u);
        EXPECT_EQ(quiet([&] { return olv_twamp_init(b.module); }), 0u);
        EXPECT_EQ(b.left(), remains{});
    }
}

TEST(Shutdown, IsTheFrameworksWayDown)
{
    bench b;
    EXPECT_EQ(quiet([&] { return b.framework.shutdown(b.module); }), 0u);
    EXPECT_EQ(b.left(), nothing);
}

} // namespace
} // namespace olv_test
