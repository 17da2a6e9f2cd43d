// The log rule itself, shown on operations with a message of each severity.
#include "harness.hpp"
#include "interposed.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/process.hpp"

namespace olv_test {
namespace {

/** An operation with one error message. */
std::uint32_t fail(bench &b)
{
    return olv_twamp_global_stats_get(b.handle, nullptr);
}

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
    for (const level_case &each : levels) {
        for (const bool in_module : {true, false}) {
            SCOPED_TRACE(testing::Message() << std::hex << each.word << (in_module ? " module" : " system"));
            bench b;
            const auto shows = [&](const std::function<std::uint32_t()> &operation) {
                b.set_log_words(in_module ? each.word : 0, in_module ? 0 : each.word);
                return !b.observe(operation).console.empty();
            };
            EXPECT_EQ(shows([&] { return fail(b); }), each.error);
            EXPECT_EQ(shows([&] { return olv_twamp_shutdown(b.module); }), each.info);
            olv_sim::faults::set(call::hyx_se_state_set, {.code = injected});
            EXPECT_EQ(shows([&] { return olv_twamp_init(b.module); }), each.fatal);
        }
    }
}

TEST(Logging, NamesTheRecordOfTheLine)
{
    bench b({.initialised = false});
    b.module->log_name = "probe";
    b.framework.system()->log_name = "rack";
    olv_sim::faults::set(call::hyx_nvm_calloc, {.code = injected});
    EXPECT_EQ(b.observe([&] { return olv_twamp_init(b.module); }).console,
              "[probe_log: function] twamp.c:LINE [00000012:00000034] Entering olv_twamp_init\n"
              "[rack_log: FATAL] twamp.c:LINE Fail to allocate memory\n"
              "[rack_log: FATAL] twamp.c:LINE TWAMP: out of memory\n"
              "[probe_log: function] twamp.c:LINE [00000012:00000034] Exiting olv_twamp_init\n");
}

TEST(Logging, FetchesAStatusTextForTheConsoleAndForTheTrace)
{
    bench b;
    constexpr auto text = static_cast<unsigned>(olv_sim::call_kind::text);
    const std::string fetched = "olv_sys_status_get(system=system, status=0x30008)";
    EXPECT_THAT(b.observe([&] { return fail(b); }, text).calls(), testing::ElementsAre(fetched, fetched));
    b.set_log_words(1, 1);
    EXPECT_THAT(b.observe([&] { return fail(b); }, text).calls(), testing::ElementsAre(fetched));
}

TEST(Logging, FetchesStatusTextsWithTheSystemRecordWhereThereIsOne)
{
    constexpr auto text = static_cast<unsigned>(olv_sim::call_kind::text);
    {
        bench b({.initialised = false});
        olv_sim::faults::set(call::hyx_nvm_calloc, {.code = injected});
        const std::string fetched = "olv_sys_status_get(system=system, status=0x30012)";
        EXPECT_THAT(b.observe([&] { return olv_twamp_init(b.module); }, text).calls(),
                    testing::ElementsAre(fetched, fetched))
            << "the system record's own line";
    }
    bench b({.system = false});
    const std::string fetched = "olv_sys_status_get(system=NULL, status=0x30008)";
    EXPECT_THAT(b.observe([&] { return fail(b); }, text).calls(), testing::ElementsAre(fetched, fetched));
}

TEST(Logging, LooksTraceFunctionsUpByTheRecordsModule)
{
    bench b({.initialised = false});
    olv_sim::faults::set(call::hyx_nvm_calloc, {.code = injected});
    const observation seen =
        b.observe([&] { return olv_twamp_init(b.module); }, static_cast<unsigned>(olv_sim::call_kind::trace));
    const auto looked_up = [](std::uint32_t module, std::uint32_t level) {
        return "olv_lttng_fn_ptr_get(module=" + std::to_string(module) + ", level=" + std::to_string(level) +
               ")";
    };
    const std::uint32_t system = b.framework.system()->module_id;
    EXPECT_THAT(seen.calls(), testing::ElementsAre(looked_up(b.module->module_id, 8), looked_up(system, 4),
                                                   looked_up(system, 4), looked_up(b.module->module_id, 9)));
}

TEST(Logging, PrintsTheWallClockInEightDigits)
{
    bench b;
    b.set_log_words(OLV_LOG_FUNCTION, 0);
    olv_sim::set_wall_clock(hyx_time{1234567890, 999999});
    EXPECT_THAT(b.observe([&] { return fail(b); }).console,
                testing::StartsWith("[twamp_log: function] twamp.c:LINE [1234567890:00999999] Entering "));
}

TEST(Logging, ReadsTheWallClockBeforeItPrintsTheLine)
{
    bench b;
    b.set_log_words(OLV_LOG_FUNCTION, 0);
    interposition between;
    between.before_gettime = [] { std::printf("<read>\n"); };
    const std::string line = "[twamp_log: function] twamp.c:LINE [00000012:00000034] ";
    const std::string name = " olv_twamp_global_stats_get\n";
    EXPECT_EQ(b.observe([&] { return fail(b); }).console,
              "<read>\n" + line + "Entering" + name + "<read>\n" + line + "Exiting" + name);
}

} // namespace
} // namespace olv_test
