// The harness and the sweep can fail: what differs from its story in one thing, under one fault, is noticed.
#include "gtest/gtest-spi.h"

#include "interposed.hpp"
#include "olv_sim/violations.hpp"
#include "rows.hpp"

namespace olv_test {
namespace {

constexpr const char *file = "twamp.c";
constexpr const char *refused = "Failed to update service functions";

/** The update of the service functions, of which the story is true where these are left as they are. */
struct told_update {
    story first{};
    story when_refused = fails(file, injected_in_framework, refused);
    story last{};
    std::uint32_t magic = 0;
    std::vector<planned_fault> faults{};
    std::function<void(bench &)> arrange{};
};

row row_of(const told_update &update)
{
    return {.label = "a row of its own",
            .arrange = update.arrange,
            .faults = update.faults,
            .work = [](bench &b) { return olv_twamp_service_function_update(b.module); },
            .tells =
                [update](const bench &b) {
                    const frame of(b, file, "olv_twamp_service_function_update");
                    return update.first + of.begin +
                           calls(call::olv_module_service_function_update, "module=%u, table=set, lli=0x0",
                                 b.module->module_id)
                               .or_else(update.when_refused + of.end) +
                           of.end + update.last;
                }};
}

/** The first failure that a run reports; empty: none. */
std::string failure_of(const std::function<void()> &run)
{
    testing::TestPartResultArray failures;
    {
        const testing::ScopedFakeTestPartResultReporter reporter(
            testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &failures);
        quiet([&] {
            run();
            return 0u;
        });
    }
    return failures.size() == 0 ? "" : failures.GetTestPartResult(0).message();
}

std::string failure_of_row(const told_update &update)
{
    return failure_of([&] { run_and_sweep("olv_twamp_service_function_update", row_of(update)); });
}

using testing::HasSubstr;

TEST(Sweep, AcceptsTheTruth)
{
    EXPECT_EQ(failure_of_row({}), "");
}

TEST(Sweep, TellsTheRow)
{
    EXPECT_THAT(failure_of_row({.last = yields(1)}), HasSubstr("a row of its own"));
}

TEST(Sweep, NoticesWhatDiffersWithoutAFault)
{
    EXPECT_THAT(failure_of_row({.last = yields(1)}), HasSubstr("seen.status"));
    EXPECT_THAT(failure_of_row({.last = prints("more")}), HasSubstr("told"));
    EXPECT_THAT(failure_of_row({.first = calls(call::hyx_gettime, "more")}), HasSubstr("told"));
    EXPECT_THAT(failure_of_row({.last = says(severity::info, file, "more")}), HasSubstr("told"));
    EXPECT_THAT(failure_of_row({.last = changes(adds(&remains::blocks))}), HasSubstr("left"));
    EXPECT_THAT(failure_of_row({.last = changes([](outcome &result) { result.left.log_flags = 1; })}),
                HasSubstr("left"));
}

TEST(Sweep, NoticesWhatDiffersUnderAFault)
{
    const std::uint32_t status = injected_in_framework;
    EXPECT_THAT(failure_of_row({.when_refused = fails(file, status, refused) + yields(1)}),
                HasSubstr("status"));
    EXPECT_THAT(failure_of_row({.when_refused = fails(file, status, "Failed to update service function")}),
                HasSubstr("told"));
    EXPECT_THAT(failure_of_row({.when_refused = fails("twamp_bind.c", status, refused)}), HasSubstr("told"));
    EXPECT_THAT(failure_of_row({.when_refused = fails_fatally(file, status, refused)}), HasSubstr("told"));
    EXPECT_THAT(failure_of_row({.when_refused = fails(file, status, refused).said_by(voice::system)}),
                HasSubstr("told"));
    EXPECT_THAT(failure_of_row({.when_refused = reports(severity::error, file, status)}), HasSubstr("told"));
    EXPECT_THAT(
        failure_of_row({.when_refused = fails(file, status, refused) + calls(call::hyx_nvm_free, "size=1")}),
        HasSubstr("told"));
    EXPECT_THAT(
        failure_of_row({.when_refused = fails(file, status, refused) + changes(adds(&remains::patterns))}),
        HasSubstr("left"));
}

TEST(Sweep, NoticesACallThatIsMadeAndNotTold)
{
    row each = row_of({});
    each.work = [](bench &b) { return olv_twamp_init(b.module); };
    each.setup.initialised = false;
    EXPECT_THAT(failure_of([&] { run_and_sweep("olv_twamp_init", each); }), HasSubstr("hyx_nvm_calloc"));
}

TEST(Sweep, NoticesAnotherCreationCount)
{
    const auto created_unseen = [](bench &b) {
        EXPECT_EQ(quiet([&] { return olv_twamp_responder_create(b.module, &b.info, &b.responder); }), 0u);
    };
    EXPECT_THAT(failure_of_row({.arrange = created_unseen}), HasSubstr("creation count"));
}

TEST(Sweep, NoticesFaultsThatAreNotMetOrCannotBe)
{
    EXPECT_THAT(failure_of_row({.faults = {{call::hyx_se_state_get, {.code = injected}}}}),
                HasSubstr("not called: hyx_se_state_get"));
    EXPECT_THAT(failure_of_row({.faults = {{call::hyx_nvm_free, {.code = injected}}}}),
                HasSubstr("hyx_nvm_free"));
}

void leak_a_block()
{
    void *block = nullptr;
    {
        const bench b;
        block = hyx_nvm_calloc(1, 16);
    }
    hyx_nvm_free(block);
}

void leak_a_pattern()
{
    std::optional<made_pattern> made;
    const bench b;
    made.emplace(listed_entry{1, 24, 0});
}

void free_twice()
{
    const bench b;
    olv_sim::violations::set_echo(false);
    void *const block = hyx_nvm_calloc(1, 16);
    hyx_nvm_free(block);
    hyx_nvm_free(block);
}

void keep_the_lock()
{
    const bench b;
    (void)olv_sys_sem_lock_wait(b.module->lock);
    b.module->lock = 0;
}

TEST(Bench, NoticesWhatIsLeft)
{
    EXPECT_THAT(failure_of(leak_a_block), HasSubstr("memory blocks leaked"));
    EXPECT_THAT(failure_of(leak_a_pattern), HasSubstr("patterns leaked"));
    EXPECT_THAT(failure_of(free_twice), HasSubstr("violations"));
    EXPECT_THAT(failure_of(keep_the_lock), HasSubstr("the module lock is still held"));
}

/** A message of line 10 and its status text. */
observation with_status_of_line(std::uint32_t line, const char *console)
{
    observation seen;
    seen.episodes.push_back(
        {{}, console, seen_event{{2, 0, nullptr, 10, "twamp.c", "message\n", "message\n"}, true, true}});
    seen.episodes.push_back(
        {{}, "", seen_event{{2, 0, nullptr, line, "twamp.c", "%s\n", "text\n"}, true, true}});
    return seen;
}

TEST(Observation, NoticesAnotherSourceLine)
{
    const auto failure = [](std::uint32_t line, const char *console) {
        return failure_of([&] { expect_source_lines_agree(with_status_of_line(line, console)); });
    };
    EXPECT_EQ(failure(10, "[twamp_log: ERROR] twamp.c:10 message\n"), "");
    EXPECT_THAT(failure(11, "[twamp_log: ERROR] twamp.c:10 message\n"), HasSubstr("event.line"));
    EXPECT_THAT(failure(10, "[twamp_log: ERROR] twamp.c:11 message\n"), HasSubstr("event.line"));
}

TEST(Observation, ReplacesSourceLinesOfTheLibraryAlone)
{
    EXPECT_EQ(without_source_lines("[x] twamp.c:123 a twamp_bind.c:9 b twamp_internal.c:77 twamp_responder.c:1 "
                                   "other.c:5 twamp.c:x "),
              "[x] twamp.c:LINE a twamp_bind.c:LINE b twamp_internal.c:LINE twamp_responder.c:LINE other.c:5 "
              "twamp.c:x ");
}

} // namespace
} // namespace olv_test
