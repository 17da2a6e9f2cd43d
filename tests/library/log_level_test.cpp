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
std::uint32_t *result = &mapped; // Of the next call.
constexpr std::uint32_t untouched = 0xDEADBEEF;

/** Asks for `level`, mapped into `result`. */
std::uint32_t map_sys_log(bench &b)
{
    mapped = untouched;
    return olv_twamp_map_sys_log(b.handle, level, result);
}

void unmapped(bench & /*unused*/)
{
    EXPECT_EQ(mapped, untouched);
}

/** Before a call with this level and, where @p has_result is false, without a place for the result. */
std::function<void(bench &)> mapping(std::uint32_t requested, bool has_result = true)
{
    return [=](bench &) {
        level = requested;
        result = has_result ? &mapped : nullptr;
    };
}

row supported_level(std::uint32_t each)
{
    return {.label = "level " + std::to_string(each), .arrange = mapping(each), .check = [each](bench &) {
                EXPECT_EQ(mapped, each);
            }};
}

row unmapped_level(std::uint32_t each)
{
    return {.label = "unsupported level " + std::to_string(each),
            .arrange = mapping(each),
            .status = 15,
            .console = UNSUPPORTED,
            .traces = {error("Unsupported log-level in TWAMP!"), error_status()},
            .check = unmapped};
}

const table map_rows{"olv_twamp_map_sys_log",
                     map_sys_log,
                     {supported_level(0), supported_level(1), supported_level(3), supported_level(7),
                      supported_level(15), unmapped_level(2), unmapped_level(4), unmapped_level(5),
                      unmapped_level(8), unmapped_level(16), unmapped_level(0x80000003),
                      row{.label = "no place for the result",
                          .arrange = mapping(3, false),
                          .status = 0x30008,
                          .console = "[twamp_log: ERROR] twamp_internal.c:LINE Null Mapped Level Pointer\n"
                                     "[twamp_log: ERROR] twamp_internal.c:LINE {status 0x30008}\n",
                          .traces = {error("Null Mapped Level Pointer\n"), error_status()}},
                      row{.label = "no place for an unsupported level",
                          .arrange = mapping(2, false),
                          .status = 15,
                          .console = UNSUPPORTED,
                          .traces = {error("Unsupported log-level in TWAMP!"), error_status()}}}};

TEST(MapSysLog, Rows)
{
    map_rows.run();
}

/** The handles that operations refuse, each with a bench of its own. */
struct unusable_handle {
    std::string label;
    std::function<void(bench &)> arrange;
};

const unusable_handle unusable_handles[] = {
    {"null handle", [](bench &b) { b.handle = nullptr; }},
    {"record that is no module's", [](bench &b) { b.handle = &b.foreign; }},
    {"module without a context", [](bench &b) { quiet([&] { return olv_twamp_shutdown(b.module); }); }},
    {"module whose context was never completed", [](bench &b) { b.set_context_magic(0x18496125); }},
};

TEST(MapSysLog, RefusesInOneLineForAnUnusableHandle)
{
    for (const unusable_handle &each : unusable_handles) {
        for (const bool supported : {false, true}) {
            SCOPED_TRACE(each.label + (supported ? ", null result" : ", unsupported level"));
            bench b;
            each.arrange(b);
            mapping(supported ? 7 : 2, !supported)(b);
            const observation seen = b.observe([&] { return map_sys_log(b); });
            const std::string text =
                supported ? "Null Mapped Level Pointer\n" : "Unsupported log-level in TWAMP!";
            EXPECT_EQ(seen.status, supported ? 0x30008u : 15u);
            EXPECT_EQ(seen.console, "[olv_unknown_log: ERROR] twamp_internal.c:LINE " + text);
            EXPECT_THAT(seen.traces, testing::ElementsAre(forced(text)));
            EXPECT_THAT(seen.calls, testing::IsEmpty());
            unmapped(b);
        }
    }
}

TEST(MapSysLog, MapsForAnyHandle)
{
    for (const unusable_handle &each : unusable_handles) {
        SCOPED_TRACE(each.label);
        bench b;
        each.arrange(b);
        mapping(7)(b);
        const observation seen = b.observe([&] { return map_sys_log(b); });
        EXPECT_EQ(seen.status, 0u);
        EXPECT_EQ(mapped, 7u);
        EXPECT_EQ(seen.console, "");
        EXPECT_THAT(seen.traces, testing::IsEmpty());
        EXPECT_THAT(seen.calls, testing::IsEmpty());
    }
}

} // namespace
} // namespace olv_test
