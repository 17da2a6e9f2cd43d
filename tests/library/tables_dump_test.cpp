#include <optional>

#include "olv_sim/calls.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/resources.hpp"
#include "olv_sim/tracer.hpp"
#include "rows.hpp"

namespace olv_test {
namespace {

std::uint32_t group = 0; // Of the next call.

std::uint32_t dump(bench &b)
{
    return olv_twamp_tables_dump(b.handle, group);
}

#define ENTERING OLV_ENTERING("twamp.c", "olv_twamp_tables_dump")
#define EXITING OLV_EXITING("twamp.c", "olv_twamp_tables_dump")
#define WALKING OLV_ENTERING("twamp_internal.c", "olv_twamp_dump_tables")
#define WALK_FAILED OLV_EXITING("twamp_internal.c", "olv_twamp_dump_tables")
#define RESPONDERS "{tree olv_twamp.twamp_responder_lookup}, "
#define BINDS "{tree olv_twamp.twamp_bind_to_next_module}, "
#define HEADER "{plain}\n" RESPONDERS "RESPONDER-ID, DEFINED/NOT_DEFINED \n"
#define INVALID_HANDLE "[olv_unknown_log: ERROR] twamp.c:LINE Invalid module handle 0x{module}\n"
#define NOT_INITIALISED                                                                                        \
    "[olv_unknown_log: ERROR] twamp.c:LINE Invalid TWAMP module handle 0x{module}\n"                           \
    "[olv_unknown_log: ERROR] twamp.c:LINE failed to dump TWAMP tables\n"
#define LISTING_FAILED(index)                                                                                  \
    "[twamp_log: ERROR] twamp_internal.c:LINE RTE Error {rte 0x1FF}: Failed to dump TWAMP tree for idx " index \
    "\n[twamp_log: ERROR] twamp_internal.c:LINE {status 0x7E}\n"                                               \
    "[twamp_log: ERROR] twamp_internal.c:LINE Failed to dump TWAMP module's trees\n"                           \
    "[twamp_log: ERROR] twamp_internal.c:LINE {status 0x7E}\n" WALK_FAILED
#define DUMP_FAILED                                                                                            \
    "[twamp_log: ERROR] twamp.c:LINE Failed to dump TWAMP Tables\n"                                            \
    "[twamp_log: ERROR] twamp.c:LINE {status 0x3007E}\n"

const std::string listing_failed = "RTE Error %s: Failed to dump TWAMP tree for idx %d\n";
const trace in = entry("olv_twamp_tables_dump");
const trace walk = entry("olv_twamp_dump_tables");
const trace out = exit("olv_twamp_tables_dump");
const std::vector<trace> walked{in, walk, out}; // A walk that succeeds has no exit line of its own.
const std::vector<trace> walk_failed{in,
                                     walk,
                                     error(listing_failed),
                                     error_status(),
                                     error("Failed to dump TWAMP module's trees"),
                                     error_status(),
                                     exit("olv_twamp_dump_tables"),
                                     error("Failed to dump TWAMP Tables"),
                                     error_status(),
                                     out};

/** The calls of a dump that makes these between lock and post. */
std::vector<std::string> dump_calls(const std::vector<std::string> &inner)
{
    std::vector<std::string> calls{"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_gettime"};
    calls.insert(calls.end(), inner.begin(), inner.end());
    calls.insert(calls.end(), {"hyx_sem_post", "hyx_gettime"});
    return calls;
}

std::function<void(bench &)> asking_for(std::uint32_t table_group)
{
    return [table_group](bench &) { group = table_group; };
}

void learn(bench &b, const char *tree, std::optional<std::uint32_t> key, std::uint32_t return_value)
{
    std::uint32_t id = 0;
    ASSERT_EQ(hyx_ptn_symbol_get_id(b.module->rte_handle, tree, &id), 0u);
    olv_ptn pattern{};
    ASSERT_EQ(olv_ptn_new(24, &pattern), 0u);
    if (key) {
        EXPECT_EQ(olv_ptn_extend(&pattern, *key, 24), 0u);
    }
    olv_ptn_action action{{return_value, 0, 0}};
    EXPECT_EQ(hyx_ptn_learn(b.module->rte_handle, id, &pattern, &action), 0u);
    olv_ptn_free(pattern);
}

/** One responder, whose ID is 1, and one bind of key 0xABCDEF to entry point 0x401. */
std::function<void(bench &)> filled(std::uint32_t table_group)
{
    return [table_group](bench &b) {
        group = table_group;
        EXPECT_EQ(b.create_responder()->responder_id, 1u);
        learn(b, bind_tree, 0xABCDEF, 0x401);
    };
}

constexpr remains one_of_each{.responder_ids = 1, .responder_entries = 1, .bind_entries = 1, .blocks = 2};

options without_lock()
{
    options setup;
    setup.locked = false;
    return setup;
}

row invalid_group(std::uint32_t table_group, const std::string &printed)
{
    return {.label = "table group " + printed,
            .arrange = asking_for(table_group),
            .status = 0x30008,
            .console =
                ENTERING "[olv_unknown_log: ERROR] twamp.c:LINE Invalid table group " + printed + "\n" EXITING,
            .traces = {in, forced("Invalid table group %d\n"), out},
            .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_sem_post", "hyx_gettime"}};
}

const table rows{
    "olv_twamp_tables_dump",
    dump,
    {
        {.label = "responder tree, empty: the header",
         .arrange = asking_for(1),
         .console = ENTERING WALKING HEADER EXITING,
         .traces = walked,
         .calls = dump_calls({"hyx_ptn_list_ptns"})},
        {.label = "bind tree, empty: nothing",
         .arrange = asking_for(2),
         .console = ENTERING WALKING EXITING,
         .traces = walked,
         .calls = dump_calls({"hyx_ptn_list_ptns"})},
        {.label = "both trees",
         .arrange = filled(3),
         .console =
             ENTERING WALKING HEADER RESPONDERS "0x1, DEFINED\n" BINDS "{key 0xABCDEF}{action 0x401}\n" EXITING,
         .traces = walked,
         .calls = dump_calls({"hyx_ptn_list_ptns", "olv_ptn_parse", "hyx_ptn_list_ptns"}),
         .left = one_of_each},
        {.label = "responder tree of both",
         .arrange = filled(1),
         .console = ENTERING WALKING HEADER RESPONDERS "0x1, DEFINED\n" EXITING,
         .traces = walked,
         .calls = dump_calls({"hyx_ptn_list_ptns", "olv_ptn_parse"}),
         .left = one_of_each},
        {.label = "bind tree of both: no header",
         .arrange = filled(2),
         .console = ENTERING WALKING "{plain}" BINDS "{key 0xABCDEF}{action 0x401}\n" EXITING,
         .traces = walked,
         .calls = dump_calls({"hyx_ptn_list_ptns"}),
         .left = one_of_each},
        {.label = "without a lock",
         .setup = without_lock(),
         .arrange = asking_for(3),
         .console = ENTERING WALKING HEADER EXITING,
         .traces = walked,
         .calls = {"hyx_gettime", "hyx_gettime", "hyx_ptn_list_ptns", "hyx_ptn_list_ptns", "hyx_gettime"}},
        {.label = "entry without a key",
         .arrange =
             [](bench &b) {
                 group = 1;
                 learn(b, responder_tree, std::nullopt, 1);
             },
         .console = ENTERING WALKING HEADER RESPONDERS "*, NOT_DEFINED\n" EXITING,
         .traces = walked,
         .calls = dump_calls({"hyx_ptn_list_ptns"}),
         .left = {.responder_entries = 1}},
        {.label = "key that cannot be parsed",
         .arrange = filled(1),
         .faults = {failing(call::olv_ptn_parse)},
         .console = ENTERING WALKING HEADER RESPONDERS "!!Parse Error!!\n" EXITING,
         .traces = walked,
         .calls = dump_calls({"hyx_ptn_list_ptns", "olv_ptn_parse"}),
         .left = one_of_each},
        {.label = "null handle",
         .arrange =
             [](bench &b) {
                 group = 3;
                 b.handle = nullptr;
             },
         .status = 0x30001,
         .console = INVALID_HANDLE,
         .traces = {forced("Invalid module handle 0x%08x\n")}},
        {.label = "record that is no module's",
         .arrange =
             [](bench &b) {
                 group = 3;
                 b.handle = &b.foreign;
             },
         .status = 0x30001,
         .console = INVALID_HANDLE,
         .traces = {forced("Invalid module handle 0x%08x\n")}},
        {.label = "not initialised",
         .arrange =
             [](bench &b) {
                 group = 0;
                 quiet([&] { return olv_twamp_shutdown(b.module); });
             },
         .status = 1,
         .console = NOT_INITIALISED,
         .traces = {forced("Invalid TWAMP module handle 0x%08x\n"), forced("failed to dump TWAMP tables")},
         .left = nothing},
        {.label = "lock not taken",
         .arrange = asking_for(3),
         .faults = {failing(call::olv_sys_sem_lock_wait)},
         .status = 0x300A5,
         .console = ENTERING OLV_LOCK_REFUSED("twamp.c"),
         .traces = {in, error(lock_refused), error_status()},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait"}},
        invalid_group(0, "0"),
        invalid_group(4, "4"),
        invalid_group(7, "7"),
        invalid_group(0xFFFFFFFF, "-1"),
        {.label = "responder tree cannot be listed: the bind tree is not",
         .arrange = filled(3),
         .faults = {failing(call::hyx_ptn_list_ptns)},
         .status = 0x3007E,
         .console = ENTERING WALKING HEADER LISTING_FAILED("0") DUMP_FAILED EXITING,
         .traces = walk_failed,
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_gettime", "hyx_ptn_list_ptns", "hyx_gettime",
                   "hyx_sem_post", "hyx_gettime"},
         .left = one_of_each},
        {.label = "bind tree cannot be listed: what was printed stays printed",
         .arrange = filled(3),
         .faults = {failing(call::hyx_ptn_list_ptns, 1)},
         .status = 0x3007E,
         .console = ENTERING WALKING HEADER RESPONDERS "0x1, DEFINED\n" LISTING_FAILED("1") DUMP_FAILED EXITING,
         .traces = walk_failed,
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_gettime", "hyx_ptn_list_ptns", "olv_ptn_parse",
                   "hyx_ptn_list_ptns", "hyx_gettime", "hyx_sem_post", "hyx_gettime"},
         .left = one_of_each},
        {.label = "lock not released after success",
         .arrange = asking_for(1),
         .faults = {failing(call::hyx_sem_post)},
         .status = 0x300A5,
         .console = ENTERING WALKING HEADER OLV_RELEASE_REFUSED("twamp.c") EXITING,
         .traces = {in, walk, error(release_refused), error_status(), out},
         .calls = dump_calls({"hyx_ptn_list_ptns"}),
         .left = {.lock_held = 1}},
        {.label = "lock not released after an invalid group",
         .arrange = asking_for(4),
         .faults = {failing(call::hyx_sem_post)},
         .status = 0x300A5,
         .console = ENTERING
         "[olv_unknown_log: ERROR] twamp.c:LINE Invalid table group 4\n" OLV_RELEASE_REFUSED("twamp.c") EXITING,
         .traces = {in, forced("Invalid table group %d\n"), error(release_refused), error_status(), out},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_sem_post", "hyx_gettime"},
         .left = {.lock_held = 1}},
    }};

TEST(TablesDump, Rows)
{
    rows.run();
}

/** The walk itself: for callers that hold the lock. */
std::uint32_t walk_trees(bench &b)
{
    return olv_twamp_dump_tables(b.handle, group);
}

const table walk_rows{
    "olv_twamp_dump_tables",
    walk_trees,
    {
        {.label = "success has no exit line",
         .arrange = filled(3),
         .console = WALKING HEADER RESPONDERS "0x1, DEFINED\n" BINDS "{key 0xABCDEF}{action 0x401}\n",
         .traces = {walk},
         .calls = {"hyx_gettime", "hyx_ptn_list_ptns", "olv_ptn_parse", "hyx_ptn_list_ptns"},
         .left = one_of_each},
        {.label = "group of no tree",
         .arrange = asking_for(4),
         .console = WALKING,
         .traces = {walk},
         .calls = {"hyx_gettime"}},
        {.label = "bind tree cannot be listed",
         .arrange = asking_for(2),
         .faults = {failing(call::hyx_ptn_list_ptns)},
         .status = 0x7E,
         .console = WALKING LISTING_FAILED("1"),
         .traces = {walk, error(listing_failed), error_status(), error("Failed to dump TWAMP module's trees"),
                    error_status(), exit("olv_twamp_dump_tables")},
         .calls = {"hyx_gettime", "hyx_ptn_list_ptns", "hyx_gettime"}},
    }};

TEST(DumpTables, Rows)
{
    walk_rows.run();
}

TEST(DumpTables, RefusesAnUnusableHandleInOneLine)
{
    const char *const refused =
        "[olv_unknown_log: ERROR] twamp_internal.c:LINE Invalid TWAMP module handle 0x{module}\n";
    bench b;
    olv_module_handle foreign = *b.module;
    foreign.magic = 0x53248790;
    olv_module_handle uninitialised = *b.module;
    uninitialised.ctx = nullptr;
    for (olv_module_handle *const handle :
         {static_cast<olv_module_handle *>(nullptr), &foreign, &uninitialised}) {
        b.handle = handle;
        const observation seen = b.observe([&] { return olv_twamp_dump_tables(b.handle, 3); });
        EXPECT_EQ(seen.status, 1u);
        EXPECT_EQ(seen.console, b.expand(refused));
        EXPECT_THAT(seen.traces, testing::ElementsAre(forced("Invalid TWAMP module handle 0x%08x\n")));
        EXPECT_THAT(seen.calls, testing::IsEmpty());
    }
}

TEST(TablesDump, HoldsTheLockThroughoutTheWalk)
{
    bench b;
    static std::uint32_t lock;
    static std::uint32_t held_while_listing;
    lock = b.module->lock;
    held_while_listing = 0;
    class watching_sink : public olv_sim::trace_sink {
        void event(const olv_sim::trace_event &event) override
        {
            if (event.text == "olv_twamp_dump_tables")
                held_while_listing += olv_sim::semaphores::held(lock);
        }
    } sink;
    olv_sim::tracer::set_sink(&sink);
    EXPECT_EQ(quiet([&] { return olv_twamp_tables_dump(b.module, OLV_TWAMP_TABLE_GROUP_ALL); }), 0u);
    olv_sim::tracer::set_sink(nullptr);
    EXPECT_EQ(held_while_listing, 1u);
    EXPECT_EQ(olv_sim::semaphores::held(lock), 0u);
}

} // namespace
} // namespace olv_test
