#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/resources.hpp"
#include "olv_sim/violations.hpp"
#include "rows.hpp"

namespace olv_test {
namespace {

std::uint32_t init(bench &b)
{
    return olv_twamp_init(b.handle);
}

#define ENTERING OLV_ENTERING("twamp.c", "olv_twamp_init")
#define EXITING OLV_EXITING("twamp.c", "olv_twamp_init")
#define CLEARING "[twamp_log: se_write] twamp.c:LINE NS ID 0x007008c1 idx 0: {zeros 128}\n"

options uninitialised(bool locked = true)
{
    options setup;
    setup.initialised = false;
    setup.locked = locked;
    return setup;
}

/** A module on a processor whose program lacks or renames something. */
options on_program(void (*change)(olv_sim::classifier_program &))
{
    options setup = uninitialised();
    change(setup.program);
    return setup;
}

const trace clearing = state_dump("0x007008c1 0 " + std::string(256, '0') + " 128");

/** The context was freed; the module still points at it. */
void still_points_at_the_freed_context(bench &b)
{
    EXPECT_NE(b.module->ctx, nullptr);
    EXPECT_FALSE(olv_sim::memory::is_live(b.module->ctx));
}

void has_no_context(bench &b)
{
    EXPECT_EQ(b.module->ctx, nullptr);
}

std::vector<std::string> calls_with_tree_lookups(std::size_t lookups)
{
    std::vector<std::string> calls{"hyx_gettime", "hyx_nvm_calloc", "hyx_rsrc_find", "hyx_rsrc_find"};
    calls.insert(calls.end(), lookups, "hyx_ptn_symbol_get_id");
    calls.insert(calls.end(), {"hyx_nvm_free", "hyx_gettime"});
    return calls;
}

/** A tree function that cannot be found, the Nth to be asked for. */
row tree_function_missing(const std::string &name, std::uint32_t nth)
{
    return {.label = "no tree function " + name,
            .setup = uninitialised(),
            .faults = {failing(call::hyx_ptn_symbol_get_id, nth - 1)},
            .status = 0x3003F,
            .console = ENTERING "[twamp_log: ERROR] twamp.c:LINE Failed to get ID for the QMT tree function " +
                       name +
                       ", RTE error code:0x1ff, error string: {rte 0x1FF}\n"
                       "[twamp_log: ERROR] twamp.c:LINE {status 0x3003F}\n" EXITING,
            .traces = {entry("olv_twamp_init"),
                       error("Failed to get ID for the QMT tree function %s, RTE error code:0x%x, error "
                             "string: %s\n"),
                       error_status(), exit("olv_twamp_init")},
            .calls = calls_with_tree_lookups(nth),
            .left = nothing,
            .check = still_points_at_the_freed_context};
}

const table rows{
    "olv_twamp_init",
    init,
    {
        {.label = "success",
         .setup = uninitialised(),
         .console = ENTERING CLEARING "[twamp_log: info] twamp.c:LINE Profile - OLV_KORVA_PROFILE_2\n"
                                      "[twamp_log: info] twamp.c:LINE Succefully initialized TWAMP "
                                      "module" EXITING,
         .traces = {entry("olv_twamp_init"), clearing, info("Profile - OLV_KORVA_PROFILE_2\n"),
                    info("Succefully initialized TWAMP module"), exit("olv_twamp_init")},
         .calls = {"hyx_gettime", "hyx_nvm_calloc", "hyx_rsrc_find", "hyx_rsrc_find", "hyx_ptn_symbol_get_id",
                   "hyx_ptn_symbol_get_id", "hyx_ptn_symbol_get_id", "hyx_ptn_symbol_get_id",
                   "hyx_ptn_symbol_get_id", "olv_module_service_function_register", "hyx_se_state_set",
                   "hyx_gettime"}},
        {.label = "success of a module without a lock",
         .setup = uninitialised(false),
         .console = ENTERING CLEARING "[twamp_log: info] twamp.c:LINE Profile - OLV_KORVA_PROFILE_2\n"
                                      "[twamp_log: info] twamp.c:LINE Succefully initialized TWAMP "
                                      "module" EXITING,
         .traces = {entry("olv_twamp_init"), clearing, info("Profile - OLV_KORVA_PROFILE_2\n"),
                    info("Succefully initialized TWAMP module"), exit("olv_twamp_init")},
         .calls = {"hyx_gettime", "hyx_nvm_calloc", "hyx_rsrc_find", "hyx_rsrc_find", "hyx_ptn_symbol_get_id",
                   "hyx_ptn_symbol_get_id", "hyx_ptn_symbol_get_id", "hyx_ptn_symbol_get_id",
                   "hyx_ptn_symbol_get_id", "olv_module_service_function_register", "hyx_se_state_set",
                   "hyx_gettime"}},
        {.label = "already initialised",
         .console = "[olv_unknown_log: ERROR] twamp.c:LINE TWAMP Module handle 0x{module} is already "
                    "initialized\n",
         .traces = {forced("TWAMP Module handle 0x%08x is already initialized\n")}},
        {.label = "null handle",
         .setup = uninitialised(),
         .arrange = [](bench &b) { b.handle = nullptr; },
         .status = 1,
         .console = "[olv_unknown_log: ERROR] twamp.c:LINE Invalid TWAMP module handle 0x00000000\n"
                    "[olv_unknown_log: ERROR] twamp.c:LINE TWAMP module failed to initilize\n",
         .traces = {forced("Invalid TWAMP module handle 0x%08X\n"),
                    forced("TWAMP module failed to initilize\n")},
         .left = nothing,
         .check = has_no_context},
        {.label = "record that is no module's",
         .setup = uninitialised(),
         .arrange = [](bench &b) { b.handle = &b.foreign; },
         .status = 1,
         .console = "[olv_unknown_log: ERROR] twamp.c:LINE Invalid TWAMP module handle 0x{MODULE}\n"
                    "[olv_unknown_log: ERROR] twamp.c:LINE TWAMP module failed to initilize\n",
         .traces = {forced("Invalid TWAMP module handle 0x%08X\n"),
                    forced("TWAMP module failed to initilize\n")},
         .left = nothing,
         .check = [](bench &b) { EXPECT_EQ(b.foreign.ctx, nullptr); }},
        {.label = "record of an initialised module, its magic corrupted",
         .arrange = [](bench &b) { b.handle = &b.foreign; },
         .status = 1,
         .console = "[olv_unknown_log: ERROR] twamp.c:LINE Invalid TWAMP module handle 0x{MODULE}\n"
                    "[olv_unknown_log: ERROR] twamp.c:LINE TWAMP module failed to initilize\n",
         .traces = {forced("Invalid TWAMP module handle 0x%08X\n"),
                    forced("TWAMP module failed to initilize\n")}},
        {.label = "no memory for the context",
         .setup = uninitialised(),
         .faults = {failing(call::hyx_nvm_calloc)},
         .status = 0x30012,
         .console = ENTERING "[system_log: FATAL] twamp.c:LINE Fail to allocate memory\n"
                             "[system_log: FATAL] twamp.c:LINE {status 0x30012}\n" EXITING,
         .traces = {entry("olv_twamp_init"), by_system(fatal("Fail to allocate memory\n")),
                    by_system(fatal_status()), exit("olv_twamp_init")},
         .calls = {"hyx_gettime", "hyx_nvm_calloc", "hyx_gettime"},
         .left = nothing,
         .check = has_no_context},
        {.label = "no responder namespace",
         .setup = uninitialised(),
         .faults = {failing(call::hyx_rsrc_find)},
         .status = 0x30019,
         .console =
             ENTERING "[twamp_log: ERROR] twamp.c:LINE Failed to get the handle for TWAMP responder name space "
                      "twamp_responder, RTE error code:0x1ff, error string: {rte 0x1FF}\n"
                      "[twamp_log: ERROR] twamp.c:LINE {status 0x30019}\n" EXITING,
         .traces = {entry("olv_twamp_init"),
                    error("Failed to get the handle for TWAMP responder name space %s, RTE error code:0x%x, "
                          "error string: %s\n"),
                    error_status(), exit("olv_twamp_init")},
         .calls = {"hyx_gettime", "hyx_nvm_calloc", "hyx_rsrc_find", "hyx_nvm_free", "hyx_gettime"},
         .left = nothing,
         .check = still_points_at_the_freed_context},
        {.label = "no session namespace",
         .setup = uninitialised(),
         .faults = {failing(call::hyx_rsrc_find, 1)},
         .status = 0x30019,
         .console = ENTERING
         "[twamp_log: ERROR] twamp.c:LINE Failed to get the handle for TWAMP reflector session name space "
         "twamp_reflector_session, RTE error code:0x1ff, error string: {rte 0x1FF}\n"
         "[twamp_log: ERROR] twamp.c:LINE {status 0x30019}\n" EXITING,
         .traces = {entry("olv_twamp_init"),
                    error("Failed to get the handle for TWAMP reflector session name space %s, RTE error "
                          "code:0x%x, error string: %s\n"),
                    error_status(), exit("olv_twamp_init")},
         .calls = {"hyx_gettime", "hyx_nvm_calloc", "hyx_rsrc_find", "hyx_rsrc_find", "hyx_nvm_free",
                   "hyx_gettime"},
         .left = nothing,
         .check = still_points_at_the_freed_context},
        {.label = "program without the session namespace",
         .setup = on_program([](olv_sim::classifier_program &program) {
             std::erase_if(program.namespaces, [](const auto &each) { return each.name == session_namespace; });
         }),
         .status = 0x30019,
         .console = ENTERING
         "[twamp_log: ERROR] twamp.c:LINE Failed to get the handle for TWAMP reflector session name space "
         "twamp_reflector_session, RTE error code:0x106, error string: {rte 0x106}\n"
         "[twamp_log: ERROR] twamp.c:LINE {status 0x30019}\n" EXITING,
         .traces = {entry("olv_twamp_init"),
                    error("Failed to get the handle for TWAMP reflector session name space %s, RTE error "
                          "code:0x%x, error string: %s\n"),
                    error_status(), exit("olv_twamp_init")},
         .calls = {"hyx_gettime", "hyx_nvm_calloc", "hyx_rsrc_find", "hyx_rsrc_find", "hyx_nvm_free",
                   "hyx_gettime"},
         .left = nothing,
         .check = still_points_at_the_freed_context},
        tree_function_missing("olv_twamp.twamp_to_ip_direct_imc", 1),
        tree_function_missing("olv_twamp.twamp_to_ipv6_indirect_imc", 2),
        tree_function_missing("olv_twamp.twamp_lli_processing", 3),
        tree_function_missing("olv_twamp.twamp_responder_lookup", 4),
        tree_function_missing("olv_twamp.twamp_bind_to_next_module", 5),
        {.label = "framework refuses the service functions",
         .setup = uninitialised(),
         .faults = {{call::olv_module_service_function_register, {.code = 0x10007}}},
         .status = 0x30007,
         .console = ENTERING "[system_log: FATAL] twamp.c:LINE Failed to register the service functions\n"
                             "[system_log: FATAL] twamp.c:LINE {status 0x30007}\n" EXITING,
         .traces = {entry("olv_twamp_init"), by_system(fatal("Failed to register the service functions\n")),
                    by_system(fatal_status()), exit("olv_twamp_init")},
         .calls = {"hyx_gettime", "hyx_nvm_calloc", "hyx_rsrc_find", "hyx_rsrc_find", "hyx_ptn_symbol_get_id",
                   "hyx_ptn_symbol_get_id", "hyx_ptn_symbol_get_id", "hyx_ptn_symbol_get_id",
                   "hyx_ptn_symbol_get_id", "olv_module_service_function_register", "hyx_nvm_free",
                   "hyx_gettime"},
         .left = nothing,
         .check = still_points_at_the_freed_context},
        {.label = "global statistics not cleared",
         .setup = uninitialised(),
         .faults = {failing(call::hyx_se_state_set)},
         .status = 0x1002C,
         .console =
             ENTERING CLEARING "[twamp_log: FATAL] twamp.c:LINE Failed to clear global stats, RTE Error: "
                               "{rte 0x1FF}\n"
                               "[twamp_log: FATAL] twamp.c:LINE {status 0x1002C}\n" EXITING,
         .traces = {entry("olv_twamp_init"), clearing, fatal("Failed to clear global stats, RTE Error: %s\n"),
                    fatal_status(), exit("olv_twamp_init")},
         .calls = {"hyx_gettime", "hyx_nvm_calloc", "hyx_rsrc_find", "hyx_rsrc_find", "hyx_ptn_symbol_get_id",
                   "hyx_ptn_symbol_get_id", "hyx_ptn_symbol_get_id", "hyx_ptn_symbol_get_id",
                   "hyx_ptn_symbol_get_id", "olv_module_service_function_register", "hyx_se_state_set",
                   "hyx_nvm_free", "hyx_gettime"},
         .left = {.blocks = 0, .initialised = false, .registered = true},
         .check = still_points_at_the_freed_context},
    }};

TEST(Init, Rows)
{
    rows.run();
}

TEST(Init, DumpsTheClearingBeforeItFails)
{
    bench b(uninitialised());
    b.set_log_words(OLV_LOG_STATE, 0);
    olv_sim::faults::set(call::hyx_se_state_set, {.code = 0x1FF});
    const observation seen = b.observe([&] { return init(b); });
    EXPECT_EQ(seen.console, b.expand(CLEARING));
}

TEST(Init, CanBeTriedAgainAfterAFailure)
{
    bench b(uninitialised());
    olv_sim::faults::set(call::hyx_se_state_set, {.code = 0x1FF});
    EXPECT_EQ(quiet([&] { return init(b); }), 0x1002Cu);
    EXPECT_EQ(olv_twamp_valid_module_handle(b.module), 0u);
    EXPECT_EQ(quiet([&] { return init(b); }), 0u);
    EXPECT_EQ(b.left(), remains{});
}

TEST(Init, KeepsWhatTheModulePointsAtWhenThereIsNoMemory)
{
    bench b(uninitialised());
    olv_sim::faults::set(call::hyx_se_state_set, {.code = 0x1FF});
    EXPECT_EQ(quiet([&] { return init(b); }), 0x1002Cu);
    const twamp_ctx *const freed = b.module->ctx;
    ASSERT_NE(freed, nullptr);
    olv_sim::faults::set(call::hyx_nvm_calloc, {.code = 0x1FF});
    EXPECT_EQ(quiet([&] { return init(b); }), 0x30012u);
    EXPECT_EQ(b.module->ctx, freed);
}

TEST(Init, IsASuccessfulNoOpTheSecondTime)
{
    bench b(uninitialised());
    EXPECT_EQ(quiet([&] { return init(b); }), 0u);
    twamp_ctx *const context = b.module->ctx;
    EXPECT_EQ(quiet([&] { return init(b); }), 0u);
    EXPECT_EQ(b.module->ctx, context);
    EXPECT_EQ(b.left(), remains{});
}

TEST(Init, RefusesAnUnknownProcessor)
{
    bench b(uninitialised());
    const std::uint32_t rte_handle = b.module->rte_handle;
    b.module->rte_handle = rte_handle + 1000;
    const observation seen = b.observe([&] { return init(b); });
    EXPECT_EQ(seen.status, 0x30019u);
    EXPECT_EQ(b.left(), nothing);
    olv_sim::violations::clear();
    b.module->rte_handle = rte_handle;
}

} // namespace
} // namespace olv_test
