// The log rule itself, shown on operations with a message of each severity.
#include "olv_sim/call_record.hpp"
#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/process.hpp"
#include "olv_sim/tracer.hpp"
#include "rows.hpp"

namespace olv_test {
namespace {

#define ENTERING OLV_ENTERING("twamp.c", "olv_twamp_global_stats_get")
#define EXITING OLV_EXITING("twamp.c", "olv_twamp_global_stats_get")

/** An operation with one error message. */
std::uint32_t fail(bench &b)
{
    return olv_twamp_global_stats_get(b.handle, nullptr);
}

constexpr const char *error_lines = "[twamp_log: ERROR] twamp.c:LINE Null Stats Pointer\n"
                                    "[twamp_log: ERROR] twamp.c:LINE {status 0x30008}\n";

struct level_case {
    std::uint32_t word;
    bool fatal;
    bool error;
    bool info;
};

// The bits above the level are no level; levels that are none follow the same comparisons.
constexpr level_case levels[] = {
    {0x00, false, false, false},   {0x01, true, false, false},        {0x02, true, false, false},
    {0x03, true, true, false},     {0x07, true, true, false},         {0x0E, true, true, false},
    {0x0F, true, true, true},      {0x20, false, false, false},       {0x21, true, false, false},
    {0xFF00, false, false, false}, {0xFFFFFF20, false, false, false}, {0xFFFFFF2F, true, true, true},
};

TEST(Logging, LevelIsTheLowFourBitsOfEitherWord)
{
    for (const level_case &each : levels)
        for (const bool in_module : {true, false}) {
            SCOPED_TRACE(testing::Message() << std::hex << each.word << (in_module ? " module" : " system"));
            bench b;
            const auto console_of = [&](const std::function<std::uint32_t()> &operation) {
                b.set_log_words(in_module ? each.word : 0, in_module ? 0 : each.word);
                return b.observe(operation).console;
            };
            EXPECT_EQ(console_of([&] { return fail(b); }), each.error ? b.expand(error_lines) : "");
            EXPECT_EQ(console_of([&] { return olv_twamp_shutdown(b.module); }),
                      each.info ? b.expand("[twamp_log: info] twamp.c:LINE TWAMP module 0x{module} shutdown\n")
                                : "");
            olv_sim::faults::set(call::hyx_se_state_set, {.code = 0x1FF});
            EXPECT_EQ(console_of([&] { return olv_twamp_init(b.module); }),
                      each.fatal ? b.expand("[twamp_log: FATAL] twamp.c:LINE Failed to clear global stats, RTE "
                                            "Error: {rte 0x1FF}\n"
                                            "[twamp_log: FATAL] twamp.c:LINE {status 0x1002C}\n")
                                 : "");
        }
}

const table rows{
    "logging",
    fail,
    {
        {.label = "a tracer without functions: the console alone",
         .faults = {{call::olv_lttng_fn_ptr_get, {.code = 1, .count = olv_sim::fault::forever}}},
         .status = 0x30008,
         .console = ENTERING "[twamp_log: ERROR] twamp.c:LINE Null Stats Pointer\n"
                             "[twamp_log: ERROR] twamp.c:LINE {status 0x30008}\n" EXITING,
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_sem_post", "hyx_gettime"}},
        {.label = "a tracer without an entry function",
         .faults = {{call::olv_lttng_fn_ptr_get, {.code = 1}}},
         .status = 0x30008,
         .console = ENTERING "[twamp_log: ERROR] twamp.c:LINE Null Stats Pointer\n"
                             "[twamp_log: ERROR] twamp.c:LINE {status 0x30008}\n" EXITING,
         .traces = {error("Null Stats Pointer"), error_status(), exit("olv_twamp_global_stats_get")},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_sem_post", "hyx_gettime"}},
    }};

TEST(Logging, Rows)
{
    rows.run();
}

TEST(Logging, NamesTheRecordOfTheLine)
{
    bench b({.initialised = false});
    b.module->log_name = "probe";
    olv_sim::faults::set(call::olv_module_service_function_register, {.code = 0x10007});
    const observation seen = b.observe([&] { return olv_twamp_init(b.module); });
    EXPECT_EQ(seen.console,
              b.expand("[probe_log: function] twamp.c:LINE [00000012:00000034] Entering olv_twamp_init\n"
                       "[system_log: FATAL] twamp.c:LINE Failed to register the service functions\n"
                       "[system_log: FATAL] twamp.c:LINE {status 0x30007}\n"
                       "[probe_log: function] twamp.c:LINE [00000012:00000034] Exiting olv_twamp_init\n"));
}

TEST(Logging, TracesEveryEventWithItsRecordFileAndLine)
{
    bench b;
    b.set_log_words(0, 0);
    const observation seen = b.observe([&] { return fail(b); });
    EXPECT_EQ(seen.console, "");
    ASSERT_EQ(seen.events.size(), 4u);
    for (const olv_sim::trace_event &event : seen.events) {
        EXPECT_EQ(event.record, b.module);
        EXPECT_EQ(event.file, "twamp.c");
        EXPECT_NE(event.line, 0u);
    }
    EXPECT_EQ(seen.events[0].format, std::nullopt);
    EXPECT_EQ(seen.events[1].text, "Null Stats Pointer");
    EXPECT_EQ(seen.events[2].text, b.expand("{status 0x30008}\n"));
    EXPECT_EQ(seen.events[3].format, std::nullopt);
}

TEST(Logging, ForcesAnErrorWithoutARecordForAnUnknownHandle)
{
    bench b;
    b.set_log_words(0, 0);
    const observation seen = b.observe([&] { return olv_twamp_global_stats_get(nullptr, nullptr); });
    ASSERT_EQ(seen.events.size(), 2u);
    for (const olv_sim::trace_event &event : seen.events) {
        EXPECT_EQ(event.level, olv_sim::trace_event::forced_error);
        EXPECT_EQ(event.first_word, 0u);
        EXPECT_EQ(event.record, nullptr);
        EXPECT_EQ(event.file, "twamp.c");
    }
    EXPECT_EQ(seen.events[0].text, "Invalid TWAMP module handle 0x00000000\n");
    EXPECT_EQ(seen.events[1].text, "Failed to delete Responder Handle");

    std::uint32_t mapped = 0;
    const observation as_it_stands = b.observe([&] { return olv_twamp_map_sys_log(nullptr, 2, &mapped); });
    ASSERT_EQ(as_it_stands.events.size(), 1u);
    EXPECT_EQ(as_it_stands.events[0].level, olv_sim::trace_event::forced_error);
    EXPECT_EQ(as_it_stands.events[0].first_word, 0u);
    EXPECT_EQ(as_it_stands.events[0].file, "twamp_internal.c");
    EXPECT_EQ(as_it_stands.events[0].text, "Unsupported log-level in TWAMP!");
}

TEST(Logging, FetchesAStatusTextForTheConsoleAndForTheTrace)
{
    bench b;
    constexpr auto text = static_cast<unsigned>(olv_sim::call_kind::text);
    EXPECT_EQ(b.observe([&] { return fail(b); }, text).calls,
              std::vector<std::string>(2, "olv_sys_status_get"));
    b.set_log_words(1, 1);
    EXPECT_EQ(b.observe([&] { return fail(b); }, text).calls,
              std::vector<std::string>(1, "olv_sys_status_get"));
}

TEST(Logging, LooksTraceFunctionsUpByTheRecordsModule)
{
    bench b({.initialised = false});
    olv_sim::faults::set(call::hyx_nvm_calloc, {.code = 0x1FF});
    const observation seen =
        b.observe([&] { return olv_twamp_init(b.module); }, static_cast<unsigned>(olv_sim::call_kind::trace));
    const std::string of_module = "module=" + std::to_string(b.module->module_id) + ", ";
    const std::string of_system = "module=" + std::to_string(b.framework.system()->module_id) + ", ";
    std::vector<std::string> arguments;
    for (const olv_sim::recorded_call &each : seen.recorded)
        if (each.which == call::olv_lttng_fn_ptr_get)
            arguments.push_back(each.arguments);
    EXPECT_THAT(arguments,
                testing::ElementsAre(testing::StartsWith(of_module), testing::StartsWith(of_system),
                                     testing::StartsWith(of_system), testing::StartsWith(of_module)));
}

TEST(Logging, PrintsTheWallClockInEightDigits)
{
    bench b;
    b.set_log_words(OLV_LOG_FUNCTION, 0);
    olv_sim::set_wall_clock(hyx_time{1234567890, 999999});
    EXPECT_EQ(b.observe([&] { return olv_twamp_service_function_update(b.module); }).console,
              "[twamp_log: function] twamp.c:LINE [1234567890:00999999] Entering "
              "olv_twamp_service_function_update\n"
              "[twamp_log: function] twamp.c:LINE [1234567890:00999999] Exiting "
              "olv_twamp_service_function_update\n");
}

} // namespace
} // namespace olv_test
