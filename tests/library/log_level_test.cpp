#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "rows.hpp"

namespace olv_test {
namespace {

std::uint32_t level = 0; // Of the next call.

std::uint32_t sys_log(bench &b)
{
    return olv_twamp_sys_log(b.handle, level);
}

#define ENTERING OLV_ENTERING("twamp.c", "olv_twamp_sys_log")
#define EXITING OLV_EXITING("twamp.c", "olv_twamp_sys_log")
#define UNSUPPORTED                                                                                            \
    "[twamp_log: ERROR] twamp_internal.c:LINE Unsupported log-level in TWAMP!"                                 \
    "[twamp_log: ERROR] twamp_internal.c:LINE {status 15}\n"
#define REFUSED_HANDLE                                                                                         \
    "[olv_unknown_log: ERROR] twamp.c:LINE Invalid TWAMP module handle 0x{module}\n"                           \
    "[olv_unknown_log: ERROR] twamp.c:LINE Failed to set log-level 0xabc for TWAMP\n"

const std::string set_to = "TWAMP module 0x%08x log-level set to 0x%x\n";
const std::vector<std::string> locked_calls{"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_sem_post",
                                            "hyx_gettime"};
const std::vector<trace> refused_handle{forced("Invalid TWAMP module handle 0x%08x\n"),
                                        forced("Failed to set log-level 0x%x for TWAMP\n")};
const std::vector<trace> success{entry("olv_twamp_sys_log"), info(set_to), exit("olv_twamp_sys_log")};
const std::vector<trace> unsupported{entry("olv_twamp_sys_log"),
                                     error("Unsupported log-level in TWAMP!"),
                                     error_status(),
                                     error("Failed to set log-level %d\n"),
                                     error_status(),
                                     exit("olv_twamp_sys_log")};

options words(std::uint32_t module_flags, std::uint32_t system_flags, bool locked = true, bool system = true)
{
    options setup;
    setup.module_flags = module_flags;
    setup.system_flags = system_flags;
    setup.locked = locked;
    setup.system = system;
    return setup;
}

/** Before a call with this level. */
std::function<void(bench &)> requesting(std::uint32_t requested)
{
    return [requested](bench &) { level = requested; };
}

std::function<void(bench &)> word_is(std::uint32_t flags)
{
    return [flags](bench &b) { EXPECT_EQ(b.module->log_flags, flags); };
}

/** A level that is none: refused at every log word, which stays as it was. */
row unsupported_level(std::uint32_t requested, const std::string &printed)
{
    return {.label = "unsupported level " + printed,
            .arrange = requesting(requested),
            .status = 15,
            .console = ENTERING UNSUPPORTED "[twamp_log: ERROR] twamp.c:LINE Failed to set log-level " +
                       printed + "\n[twamp_log: ERROR] twamp.c:LINE {status 15}\n" EXITING,
            .traces = unsupported,
            .calls = locked_calls};
}

const table rows{
    "olv_twamp_sys_log",
    sys_log,
    {
        {.label = "level 15 from 0: the new word lets the confirmation through",
         .setup = words(0, 0),
         .arrange = requesting(15),
         .console = "[twamp_log: info] twamp.c:LINE TWAMP module 0x{module} log-level set to 0xf\n",
         .traces = success,
         .calls = {"olv_sys_sem_lock_wait", "hyx_sem_post"},
         .check = word_is(15),
         .every_level = false},
        {.label = "level 0 from 15: nothing is printed, everything traced",
         .setup = words(15, 7),
         .arrange = requesting(0),
         .traces = success,
         .calls = {"olv_sys_sem_lock_wait", "hyx_sem_post"},
         .check = word_is(0),
         .every_level = false},
        {.label = "level 0 from 15, the system's level 15",
         .setup = words(15, 15),
         .arrange = requesting(0),
         .console = "[twamp_log: info] twamp.c:LINE TWAMP module 0x{module} log-level set to 0x0\n",
         .traces = success,
         .calls = {"olv_sys_sem_lock_wait", "hyx_sem_post"},
         .check = word_is(0),
         .every_level = false},
        {.label = "the module's function lines end with the call",
         .setup = words(0xDF, 0),
         .arrange = requesting(3),
         .console = ENTERING,
         .traces = success,
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_sem_post"},
         .check = word_is(3),
         .every_level = false},
        {.label = "the system's function lines do not",
         .setup = words(0x10, 0x10),
         .arrange = requesting(7),
         .console = ENTERING EXITING,
         .traces = success,
         .calls = locked_calls,
         .check = word_is(7),
         .every_level = false},
        {.label = "level 1, without a lock and a system record",
         .setup = words(0xFFFFFFFF, 0, false, false),
         .arrange = requesting(1),
         .console = ENTERING,
         .traces = success,
         .calls = {"hyx_gettime"},
         .check = word_is(1),
         .every_level = false},
        {.label = "null handle",
         .arrange =
             [](bench &b) {
                 level = 0xABC;
                 b.handle = nullptr;
             },
         .status = 1,
         .console = REFUSED_HANDLE,
         .traces = refused_handle},
        {.label = "record that is no module's",
         .arrange =
             [](bench &b) {
                 level = 0xABC;
                 b.handle = &b.foreign;
             },
         .status = 1,
         .console = REFUSED_HANDLE,
         .traces = refused_handle},
        {.label = "not initialised",
         .arrange =
             [](bench &b) {
                 level = 0xABC;
                 quiet([&] { return olv_twamp_shutdown(b.module); });
             },
         .status = 1,
         .console = REFUSED_HANDLE,
         .traces = refused_handle,
         .left = nothing},
        {.label = "lock not taken",
         .arrange = requesting(3),
         .faults = {failing(call::olv_sys_sem_lock_wait)},
         .status = 0x300A5,
         .console = ENTERING OLV_LOCK_REFUSED("twamp.c"),
         .traces = {entry("olv_twamp_sys_log"), error(lock_refused), error_status()},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait"}},
        unsupported_level(2, "2"),
        unsupported_level(4, "4"),
        unsupported_level(14, "14"),
        unsupported_level(16, "16"),
        unsupported_level(0x1F, "31"),
        unsupported_level(0xFFFFFFFF, "-1"),
        {.label = "lock not released after success: the level is set",
         .setup = words(everything, everything),
         .arrange = requesting(3),
         .faults = {failing(call::hyx_sem_post)},
         .status = 0x300A5,
         .console = ENTERING "[twamp_log: info] twamp.c:LINE TWAMP module 0x{module} log-level set to "
                             "0x3\n" OLV_RELEASE_REFUSED("twamp.c") EXITING,
         .traces = {entry("olv_twamp_sys_log"), info(set_to), error(release_refused), error_status(),
                    exit("olv_twamp_sys_log")},
         .calls = locked_calls,
         .left = {.lock_held = 1},
         .check = word_is(3),
         .every_level = false},
        {.label = "lock not released after a refusal",
         .arrange = requesting(2),
         .faults = {failing(call::hyx_sem_post)},
         .status = 0x300A5,
         .console = ENTERING UNSUPPORTED
         "[twamp_log: ERROR] twamp.c:LINE Failed to set log-level 2\n"
         "[twamp_log: ERROR] twamp.c:LINE {status 15}\n" OLV_RELEASE_REFUSED("twamp.c") EXITING,
         .traces = {entry("olv_twamp_sys_log"), error("Unsupported log-level in TWAMP!"), error_status(),
                    error("Failed to set log-level %d\n"), error_status(), error(release_refused),
                    error_status(), exit("olv_twamp_sys_log")},
         .calls = locked_calls,
         .left = {.lock_held = 1}},
    }};

TEST(SysLog, Rows)
{
    rows.run();
}

TEST(SysLog, ReplacesTheWholeWordByEachLevel)
{
    bench b;
    for (const std::uint32_t each : {0u, 1u, 3u, 7u, 15u}) {
        b.set_log_words(0xFFFFFFFF, 0);
        EXPECT_EQ(quiet([&] { return olv_twamp_sys_log(b.module, each); }), 0u);
        EXPECT_EQ(b.module->log_flags, each);
        EXPECT_EQ(b.framework.system()->log_flags, 0u);
    }
}

TEST(SysLog, LeavesTheWordAloneWhenItFails)
{
    bench b;
    b.set_log_words(0x12345678, 0);
    EXPECT_EQ(quiet([&] { return olv_twamp_sys_log(b.module, 2); }), 15u);
    EXPECT_EQ(b.module->log_flags, 0x12345678u);
    olv_sim::faults::set(call::olv_sys_sem_lock_wait, {.code = 0x1FF});
    EXPECT_EQ(quiet([&] { return olv_twamp_sys_log(b.module, 3); }), 0x300A5u);
    EXPECT_EQ(b.module->log_flags, 0x12345678u);
}

std::uint32_t mapped = 0;
constexpr std::uint32_t untouched = 0xDEADBEEF;

/** Asks for `level`, mapped into `mapped`. */
std::uint32_t map_sys_log(bench &b)
{
    mapped = untouched;
    return olv_twamp_map_sys_log(b.handle, level, &mapped);
}

std::function<void(bench &)> maps_to(std::uint32_t expected)
{
    return [expected](bench &) { EXPECT_EQ(mapped, expected); };
}

row supported_level(std::uint32_t each)
{
    return {.label = "level " + std::to_string(each), .arrange = requesting(each), .check = maps_to(each)};
}

row unmapped_level(std::uint32_t each)
{
    return {.label = "unsupported level " + std::to_string(each),
            .arrange = requesting(each),
            .status = 15,
            .console = UNSUPPORTED,
            .traces = {error("Unsupported log-level in TWAMP!"), error_status()},
            .check = maps_to(untouched)};
}

const table map_rows{
    "olv_twamp_map_sys_log",
    map_sys_log,
    {supported_level(0), supported_level(1), supported_level(3), supported_level(7), supported_level(15),
     unmapped_level(2), unmapped_level(4), unmapped_level(5), unmapped_level(8), unmapped_level(16),
     unmapped_level(0x80000003),
     row{.label = "null handle with a supported level",
         .arrange =
             [](bench &b) {
                 level = 7;
                 b.handle = nullptr;
             },
         .check = maps_to(7)},
     row{.label = "null handle with an unsupported level",
         .arrange =
             [](bench &b) {
                 level = 2;
                 b.handle = nullptr;
             },
         .status = 15,
         .console = "[olv_unknown_log: ERROR] twamp_internal.c:LINE Unsupported log-level in TWAMP!",
         .traces = {forced("Unsupported log-level in TWAMP!")},
         .check = maps_to(untouched)}}};

TEST(MapSysLog, Rows)
{
    map_rows.run();
}

TEST(MapSysLog, RefusesANullResult)
{
    bench b;
    const observation seen = b.observe([&] { return olv_twamp_map_sys_log(b.module, 3, nullptr); });
    EXPECT_EQ(seen.status, 0x30008u);
    EXPECT_EQ(seen.console, b.expand("[twamp_log: ERROR] twamp_internal.c:LINE Null Mapped Level Pointer\n"
                                     "[twamp_log: ERROR] twamp_internal.c:LINE {status 0x30008}\n"));
    EXPECT_THAT(seen.traces, testing::ElementsAre(error("Null Mapped Level Pointer\n"), error_status()));
    expect_status_lines_follow_messages(seen);
    EXPECT_EQ(quiet([&] { return olv_twamp_map_sys_log(b.module, 2, nullptr); }), 15u) << "never written";
}

TEST(MapSysLog, NeedsNeitherLockNorContext)
{
    bench b({.initialised = false});
    std::uint32_t result = 0;
    const observation seen = b.observe([&] { return olv_twamp_map_sys_log(b.module, 15, &result); });
    EXPECT_EQ(seen.status, 0u);
    EXPECT_EQ(result, 15u);
    EXPECT_EQ(seen.console, "");
    EXPECT_THAT(seen.traces, testing::IsEmpty());
    EXPECT_THAT(seen.calls, testing::IsEmpty());
}

} // namespace
} // namespace olv_test
