// The harness can fail: each kind of difference is one failure, with the row's label in its message.
#include "gtest/gtest-spi.h"

#include "listing.hpp"
#include "olv_sim/calls.hpp"
#include "olv_sim/violations.hpp"
#include "rows.hpp"

namespace olv_test {
namespace {

#define ENTERING OLV_ENTERING("twamp.c", "olv_twamp_global_stats_get")
#define EXITING OLV_EXITING("twamp.c", "olv_twamp_global_stats_get")

std::uint32_t fail(bench &b)
{
    return olv_twamp_global_stats_get(b.handle, nullptr);
}

/** What fail() does, to the letter. */
row truth()
{
    return {.label = "a row of its own",
            .status = 0x30008,
            .console = ENTERING "[twamp_log: ERROR] twamp.c:LINE Null Stats Pointer\n"
                                "[twamp_log: ERROR] twamp.c:LINE {status 0x30008}\n" EXITING,
            .traces = {entry("olv_twamp_global_stats_get"), error("Null Stats Pointer"), error_status(),
                       exit("olv_twamp_global_stats_get")},
            .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_sem_post", "hyx_gettime"}};
}

/** Run the row with one thing in it changed. */
void run_changed(void (*change)(row &))
{
    row changed = truth();
    change(changed);
    run_row(changed, fail);
}

TEST(Harness, AcceptsTheTruth)
{
    run_row(truth(), fail);
    run_row_at_every_level(truth(), fail);
}

TEST(Harness, NoticesAnotherStatus)
{
    EXPECT_NONFATAL_FAILURE(run_changed([](row &each) { each.status = 0x30009; }), "a row of its own");
}

TEST(Harness, NoticesAnotherConsole)
{
    EXPECT_NONFATAL_FAILURE(run_changed([](row &each) { each.console += "\n"; }), "a row of its own");
    EXPECT_NONFATAL_FAILURE(run_changed([](row &each) { each.console.clear(); }), "Null Stats Pointer");
}

TEST(Harness, NoticesAnotherTrace)
{
    EXPECT_NONFATAL_FAILURE(run_changed([](row &each) { each.traces.pop_back(); }), "a row of its own");
    EXPECT_NONFATAL_FAILURE(run_changed([](row &each) { each.traces[1].level = 4; }), "traces");
    EXPECT_NONFATAL_FAILURE(run_changed([](row &each) { each.traces[1].text += "\n"; }), "traces");
    EXPECT_NONFATAL_FAILURE(run_changed([](row &each) { each.traces[1].by_system = true; }), "by system");
}

TEST(Harness, NoticesOtherCalls)
{
    EXPECT_NONFATAL_FAILURE(run_changed([](row &each) { std::swap(each.calls[1], each.calls[2]); }),
                            "a row of its own");
}

TEST(Harness, NoticesOtherRemains)
{
    EXPECT_NONFATAL_FAILURE(run_changed([](row &each) { each.left.blocks = 2; }), "2 blocks");
    EXPECT_NONFATAL_FAILURE(run_changed([](row &each) { each.left.lock_held = 1; }), "a row of its own");
}

TEST(Harness, NoticesAFaultThatIsNotMet)
{
    EXPECT_NONFATAL_FAILURE(run_changed([](row &each) { each.faults = {failing(call::hyx_se_state_get)}; }),
                            "not called: hyx_se_state_get");
}

TEST(Harness, NoticesACallThatCannotFail)
{
    EXPECT_FATAL_FAILURE(run_changed([](row &each) { each.faults = {failing(call::hyx_nvm_free)}; }),
                         "hyx_nvm_free");
}

TEST(Harness, NoticesALineThatIsPrintedAtTooLowALevel)
{
    EXPECT_NONFATAL_FAILURE(run_changed([](row &each) {
                                each.console = filtered_console(each.console, 1, 1);
                                each.setup.module_flags = 3;
                                each.setup.system_flags = 1;
                                std::erase(each.calls, "hyx_gettime");
                            }),
                            "Null Stats Pointer");
}

void leak_a_block()
{
    static void *block;
    {
        bench b;
        block = hyx_nvm_calloc(1, 16);
    }
    hyx_nvm_free(block);
}

void leak_a_pattern()
{
    static olv_ptn pattern;
    {
        bench b;
        pattern = make_pattern({1, 24, 0, 0});
    }
    olv_ptn_free(pattern);
}

void free_twice()
{
    bench b;
    olv_sim::violations::set_echo(false);
    void *const block = hyx_nvm_calloc(1, 16);
    hyx_nvm_free(block);
    hyx_nvm_free(block);
}

void keep_the_lock()
{
    static std::uint32_t lock;
    bench b;
    lock = b.module->lock;
    static_cast<void>(olv_sys_sem_lock_wait(lock));
    b.module->lock = 0;
}

TEST(Harness, NoticesWhatABenchLeaves)
{
    EXPECT_NONFATAL_FAILURE(leak_a_block(), "memory blocks leaked");
    EXPECT_NONFATAL_FAILURE(leak_a_pattern(), "patterns leaked");
    EXPECT_NONFATAL_FAILURE(free_twice(), "violations");
    EXPECT_NONFATAL_FAILURE(keep_the_lock(), "the module lock is still held");
}

observation with_events(std::uint32_t line_of_status)
{
    observation seen;
    seen.raw_console = "[twamp_log: ERROR] twamp.c:10 message\n[twamp_log: ERROR] twamp.c:10 text\n";
    seen.events.push_back({2, 0, nullptr, 10, "twamp.c", "message\n", "message\n"});
    seen.events.push_back({2, 0, nullptr, line_of_status, "twamp.c", "%s\n", "text\n"});
    return seen;
}

TEST(Harness, NoticesAStatusLineOfAnotherSourceLine)
{
    expect_status_lines_follow_messages(with_events(10));
    expect_console_agrees_with_traces(with_events(10));
    EXPECT_NONFATAL_FAILURE(expect_status_lines_follow_messages(with_events(11)), "event.line");
    EXPECT_FATAL_FAILURE(expect_console_agrees_with_traces(with_events(11)), "not on the console");
}

TEST(Harness, CapturesStandardOutputInOrder)
{
    EXPECT_EQ(captured_console([] {
                  std::printf("one ");
                  olv_byte_string_print("\x12", 1);
                  std::printf(" three\n");
              }),
              "one 12 three\n");
}

TEST(Harness, ReplacesSourceLinesOfTheLibraryAlone)
{
    EXPECT_EQ(without_source_lines("[x] twamp.c:123 a twamp_bind.c:9 b twamp_internal.c:77 twamp_responder.c:1 "
                                   "other.c:5 twamp.c:x "),
              "[x] twamp.c:LINE a twamp_bind.c:LINE b twamp_internal.c:LINE twamp_responder.c:LINE other.c:5 "
              "twamp.c:x ");
}

TEST(Harness, FiltersTheConsoleByTheLogRules)
{
    const std::string all = "[twamp_log: FATAL] f\n[twamp_log: ERROR] e![twamp_log: info] i\n{plain}text\n"
                            "[twamp_log: function] [1:2]\n[twamp_log: se_write] s\n[twamp_log: ptn_learn] p\n"
                            "[olv_unknown_log: ERROR] u\n[system_log: FATAL] s\n";
    EXPECT_EQ(filtered_console(all, 0, 0), "{plain}text\n[olv_unknown_log: ERROR] u\n");
    EXPECT_EQ(filtered_console(all, 1, 0), "[twamp_log: FATAL] f\n{plain}text\n[olv_unknown_log: ERROR] u\n");
    EXPECT_EQ(filtered_console(all, 0, 7), "[twamp_log: FATAL] f\n[twamp_log: ERROR] e!{plain}text\n"
                                           "[olv_unknown_log: ERROR] u\n[system_log: FATAL] s\n");
    EXPECT_EQ(filtered_console(all, 1, std::nullopt),
              "[twamp_log: FATAL] f\n{plain}text\n[olv_unknown_log: ERROR] u\n[twamp_log: FATAL] s\n");
    EXPECT_EQ(filtered_console(all, 0x50, 0x80),
              "{plain}text\n[twamp_log: function] [1:2]\n[twamp_log: se_write] s\n[twamp_log: ptn_learn] p\n"
              "[olv_unknown_log: ERROR] u\n");
    EXPECT_EQ(filtered_console(all, 0, 15, "] i"), "[twamp_log: FATAL] f\n[twamp_log: ERROR] e!{plain}text\n"
                                                   "[olv_unknown_log: ERROR] u\n[system_log: FATAL] s\n");
}

} // namespace
} // namespace olv_test
