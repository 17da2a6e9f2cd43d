// Initialisation, shutdown, service-function update and log level under every fault.
#include "fault_sweep.hpp"
#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/processor.hpp"

namespace olv_test::sweeping {
namespace {

constexpr const char *source = "twamp.c";

options uninitialised()
{
    options setup = known_uninitialised();
    return setup;
}

// Initialisation

path init_ends()
{
    return exits(source, "olv_twamp_init");
}

/** Frees the context. */
path init_gives_up()
{
    return join({calls(call::hyx_nvm_free, takes(&remains::blocks)), init_ends()});
}

path init_finds(const std::string &kind, const std::string &name)
{
    const std::string prefix = "Failed to get the handle for TWAMP " + kind + " name space ";
    return calls(call::hyx_rsrc_find, {},
                 join({fails(source, prefix + name + ", RTE error code:0x1ff, error string: {rte 0x1FF}",
                             prefix + "%s, RTE error code:0x%x, error string: %s\n", 0x30019),
                       init_gives_up()}));
}

path init_looks_up(const std::string &tree_function)
{
    return calls(
        call::hyx_ptn_symbol_get_id, {},
        join({fails(source,
                    "Failed to get ID for the QMT tree function " + tree_function +
                        ", RTE error code:0x1ff, error string: {rte 0x1FF}",
                    "Failed to get ID for the QMT tree function %s, RTE error code:0x%x, error string: "
                    "%s\n",
                    0x3003F),
              init_gives_up()}));
}

path fatal_through_the_system(const std::string &text, std::uint32_t status, const std::string &status_text)
{
    return join(
        {says("[system_log: FATAL] twamp.c:LINE " + text + "\n", by_system(fatal(text + "\n"))),
         says("[system_log: FATAL] twamp.c:LINE {status " + status_text + "}\n", by_system(fatal_status())),
         yields(status)});
}

path init_steps()
{
    return join(
        {enters(source, "olv_twamp_init"),
         calls(call::hyx_nvm_calloc, adds(&remains::blocks),
               join({fatal_through_the_system("Fail to allocate memory", 0x30012, "0x30012"), init_ends()})),
         init_finds("responder", "twamp_responder"), init_finds("reflector session", "twamp_reflector_session"),
         init_looks_up("olv_twamp.twamp_to_ip_direct_imc"),
         init_looks_up("olv_twamp.twamp_to_ipv6_indirect_imc"), init_looks_up("olv_twamp.twamp_lli_processing"),
         init_looks_up("olv_twamp.twamp_responder_lookup"),
         init_looks_up("olv_twamp.twamp_bind_to_next_module"),
         calls(
             call::olv_module_service_function_register, [](outcome &result) { result.left.registered = true; },
             join({fatal_through_the_system("Failed to register the service functions", 0x301FF, "0x301FF"),
                   init_gives_up()})),
         says("[twamp_log: se_write] twamp.c:LINE NS ID 0x007008c1 idx 0: {zeros 128}\n",
              state_dump("0x007008c1 0 " + std::string(256, '0') + " 128")),
         calls(
             call::hyx_se_state_set,
             [](outcome &result) {
                 result.state = std::string(256, '0');
                 result.left.initialised = true;
             },
             join({says("[twamp_log: FATAL] twamp.c:LINE Failed to clear global stats, RTE Error: {rte "
                        "0x1FF}\n",
                        fatal("Failed to clear global stats, RTE Error: %s\n")),
                   says("[twamp_log: FATAL] twamp.c:LINE {status 0x1002C}\n", fatal_status()), yields(0x1002C),
                   init_gives_up()})),
         says("[twamp_log: info] twamp.c:LINE Profile - OLV_KORVA_PROFILE_2\n",
              info("Profile - OLV_KORVA_PROFILE_2\n")),
         says("[twamp_log: info] twamp.c:LINE Succefully initialized TWAMP module",
              info("Succefully initialized TWAMP module")),
         init_ends()});
}

void global_statistics_are_not_zero(bench &b)
{
    b.set_state_bytes(0x7008C1, std::vector<std::uint8_t>(128, 0x5A));
}

std::uint32_t init(bench &b)
{
    return olv_twamp_init(b.module);
}

TEST(FaultSweep, InitOfANewModule)
{
    sweep({.label = "olv_twamp_init, new module",
           .setup = uninitialised(),
           .arrange = global_statistics_are_not_zero,
           .work = init,
           .steps = init_steps(),
           .before = nothing,
           .watched_state = 0x7008C1,
           .without_system = false});
}

TEST(FaultSweep, InitAfterAFailedInit)
{
    remains registered = nothing;
    registered.registered = true;
    sweep({.label = "olv_twamp_init, after an init that could not clear the statistics",
           .setup = uninitialised(),
           .arrange =
               [](bench &b) {
                   olv_sim::faults::set(call::hyx_se_state_set, {.code = 0x1FF});
                   EXPECT_EQ(quiet([&] { return olv_twamp_init(b.module); }), 0x1002Cu);
                   olv_sim::faults::clear_all();
                   global_statistics_are_not_zero(b);
               },
           .work = init,
           .steps = init_steps(),
           .before = registered,
           .watched_state = 0x7008C1,
           .without_system = false});
}

TEST(FaultSweep, InitAfterAShutdown)
{
    sweep({.label = "olv_twamp_init, after a shutdown",
           .arrange =
               [](bench &b) {
                   EXPECT_EQ(quiet([&] { return olv_twamp_shutdown(b.module); }), 0u);
                   global_statistics_are_not_zero(b);
               },
           .work = init,
           .steps = init_steps(),
           .before = nothing,
           .watched_state = 0x7008C1,
           .without_system = false});
}

// Shutdown: neither entry nor exit line.

effect without_context(bool registered)
{
    return [registered](outcome &result) {
        --result.left.blocks;
        result.left.initialised = false;
        result.left.registered = registered;
    };
}

path shutdown_steps()
{
    const path refused = join(
        {fails(source, "Failed to register NULL functions", "Failed to register NULL functions\n", 0x201FF),
         calls(call::hyx_nvm_free, without_context(true)),
         fails(source, "TWAMP module 0x{module} failed to shutdown", "TWAMP module 0x%08x failed to shutdown\n",
               0x201FF),
         unlocks(source)});
    return locks(source, join({calls(call::olv_module_service_function_register, {}, refused),
                               calls(call::hyx_nvm_free, without_context(false)),
                               says("[twamp_log: info] twamp.c:LINE TWAMP module 0x{module} shutdown\n",
                                    info("TWAMP module 0x%08x shutdown\n")),
                               unlocks(source)}));
}

std::uint32_t shutdown(bench &b)
{
    return olv_twamp_shutdown(b.module);
}

TEST(FaultSweep, ShutdownOfAModule)
{
    sweep({.label = "olv_twamp_shutdown", .work = shutdown, .steps = shutdown_steps()});
}

TEST(FaultSweep, ShutdownOfAModuleWithAResponder)
{
    sweep({.label = "olv_twamp_shutdown, one responder",
           .arrange = [](bench &b) { (void)b.create_responder(); },
           .work = shutdown,
           .steps = shutdown_steps(),
           .before = {.responder_ids = 1, .responder_entries = 1, .blocks = 2},
           .creations_before = 1});
}

// Service-function update

TEST(FaultSweep, ServiceFunctionUpdate)
{
    const std::string operation = "olv_twamp_service_function_update";
    const path ends = unlocks(source, exits(source, operation));
    sweep({.label = operation,
           .work = [](bench &b) { return olv_twamp_service_function_update(b.module); },
           .steps = join({enters(source, operation),
                          locks(source, join({calls(call::olv_module_service_function_update, {},
                                                    join({fails(source, "Failed to update service functions",
                                                                "Failed to update service functions", 0x201FF),
                                                          ends})),
                                              ends}))})});
}

// Log level. It changes the log words, so it is swept at open ones only.

TEST(FaultSweep, SysLogOfASupportedLevel)
{
    const std::string operation = "olv_twamp_sys_log";
    sweep({.label = operation + ", level 15",
           .work = [](bench &b) { return olv_twamp_sys_log(b.module, 15); },
           .steps =
               join({enters(source, operation),
                     locks(source,
                           join({says("[twamp_log: info] twamp.c:LINE TWAMP module 0x{module} log-level set to "
                                      "0xf\n",
                                      info("TWAMP module 0x%08x log-level set to 0x%x\n")),
                                 unlocks(source, exits(source, operation))}))}),
           .every_level = false,
           .without_system = false});
}

TEST(FaultSweep, SysLogOfAnUnsupportedLevel)
{
    const std::string operation = "olv_twamp_sys_log";
    sweep({.label = operation + ", level 16",
           .work = [](bench &b) { return olv_twamp_sys_log(b.module, 16); },
           .steps = join(
               {enters(source, operation),
                locks(source,
                      join({says("[twamp_log: ERROR] twamp_internal.c:LINE Unsupported log-level in TWAMP!",
                                 error("Unsupported log-level in TWAMP!")),
                            reports("twamp_internal.c", 15),
                            fails(source, "Failed to set log-level 16", "Failed to set log-level %d\n", 15),
                            unlocks(source, exits(source, operation))}))})});
}

// Neither calls anything that can fail.

TEST(FaultSweep, MapSysLogOfAnUnsupportedLevel)
{
    sweep({.label = "olv_twamp_map_sys_log, level 2",
           .work =
               [](bench &b) {
                   std::uint32_t mapped = 0xDEADBEEF;
                   const std::uint32_t status = olv_twamp_map_sys_log(b.module, 2, &mapped);
                   EXPECT_EQ(mapped, 0xDEADBEEFu);
                   return status;
               },
           .steps = join({says("[twamp_log: ERROR] twamp_internal.c:LINE Unsupported log-level in TWAMP!",
                               error("Unsupported log-level in TWAMP!")),
                          reports("twamp_internal.c", 15), yields(15)})});
}

TEST(FaultSweep, ValidModuleHandle)
{
    sweep({.label = "olv_twamp_valid_module_handle",
           .work = [](bench &b) { return olv_twamp_valid_module_handle(b.module); },
           .steps = yields(1)});
}

} // namespace
} // namespace olv_test::sweeping
