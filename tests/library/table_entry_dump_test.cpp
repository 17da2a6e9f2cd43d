// One entry of a dump: its formats, its markers, and what is printed once only.
#include "listing.hpp"
#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "rows.hpp"

namespace olv_test {
namespace {

constexpr std::uint32_t printed_each_time = 0; // Third word of a pattern; 24, the key width, is printed once.

struct entry_case {
    const char *label;
    listed_entry entry;
    const char *console;
    int count; ///< Of the last printf.
};

const entry_case entries[] = {
    {"defined", {0x1, 24, 0, 0}, "0x1, DEFINED", 9},
    {"upper case", {0xABCDEF, 24, 0, 0}, "0xABCDEF, DEFINED", 9},
    {"largest ID", {0xFFFFFF, 24, 24, 0}, "0xFFFFFF, DEFINED", 9},
    {"action 4 is defined too", {0x2, 24, 0, 4}, "0x2, DEFINED", 9},
    {"not defined", {0x3, 24, 0, 1}, "0x3, NOT_DEFINED", 13},
    {"action 2", {0x4, 24, 0, 2}, "0x4!!Unexpected Return!!", 21},
    {"action 3", {0x4, 24, 0, 3}, "0x4!!Unexpected Return!!", 21},
    {"action 5", {0x4, 24, 0, 5}, "0x4!!Unexpected Return!!", 21},
    {"action 8", {0x4, 24, 0, 8}, "0x4!!Unexpected Return!!", 21},
    {"no key, defined", {0, 0, 0, 0}, "*, DEFINED", 9},
    {"no key, not defined", {0, 0, 0, 1}, "*, NOT_DEFINED", 13},
    {"no key, action 2", {0, 0, 0, 2}, "*!!Unexpected Return!!", 21},
    {"16 bits", {0x1234, 16, 0, 0}, "!!Unexpected Pattern!!", 22},
    {"32 bits", {0x12345678, 32, 0, 0}, "!!Unexpected Pattern!!", 22},
    {"1 bit", {1, 1, 0, 2}, "!!Unexpected Pattern!!", 22},
};

/** What the entries print when they have no action: only what would be printed of it is missing. */
const entry_case entries_without_action[] = {
    {"24 bits", {0x2A, 24, 0, 0, false}, "0x2A!!Unexpected Return!!", 21},
    {"no key", {0, 0, 0, 0, false}, "*!!Unexpected Return!!", 21},
    {"16 bits", {0x1234, 16, 0, 0, false}, "!!Unexpected Pattern!!", 22},
};

TEST(ResponderEntryDump, PrintsEntriesAndReturnsTheLastCount)
{
    bench b;
    for (const entry_case &each : entries) {
        SCOPED_TRACE(each.label);
        const olv_ptn pattern = make_pattern(each.entry);
        const olv_ptn_action action{{each.entry.action, 0, 0}};
        int count = -1;
        EXPECT_EQ(captured_console([&] { count = responder_entry_dump(&pattern, &action); }), each.console);
        EXPECT_EQ(count, each.count);
        if (each.entry.key_length != 0)
            olv_ptn_free(pattern);
    }
}

TEST(ResponderEntryDump, NeedsAnActionOnlyToPrintIt)
{
    bench b;
    for (const entry_case &each : entries_without_action) {
        SCOPED_TRACE(each.label);
        const olv_ptn pattern = make_pattern(each.entry);
        int count = -1;
        EXPECT_EQ(captured_console([&] { count = responder_entry_dump(&pattern, nullptr); }), each.console);
        EXPECT_EQ(count, each.count);
        if (each.entry.key_length != 0)
            olv_ptn_free(pattern);
    }
}

TEST(ResponderEntryDump, PrintsTheHeaderForNoPattern)
{
    const olv_ptn_action action{};
    int count = 0;
    EXPECT_EQ(captured_console([&] { count = responder_entry_dump(nullptr, nullptr); }),
              "RESPONDER-ID, DEFINED/NOT_DEFINED ");
    EXPECT_EQ(count, 34);
    EXPECT_EQ(captured_console([&] { count = responder_entry_dump(nullptr, &action); }),
              "RESPONDER-ID, DEFINED/NOT_DEFINED ");
    EXPECT_EQ(count, 34);
}

TEST(ResponderEntryDump, MarksAKeyThatCannotBeParsed)
{
    bench b;
    const olv_ptn pattern = make_pattern({1, 24, 0, 0});
    const olv_ptn_action action{};
    olv_sim::faults::set(call::olv_ptn_parse, {.code = 0x1FF});
    int count = 0;
    EXPECT_EQ(captured_console([&] { count = responder_entry_dump(&pattern, &action); }), "!!Parse Error!!");
    EXPECT_EQ(count, 15);
    olv_ptn_free(pattern);
}

TEST(TableEntryDump, PassesTheResponderTreeOnAndPrintsNothingForOthers)
{
    bench b;
    const olv_ptn pattern = make_pattern({0x2A, 24, 0, 0});
    const olv_ptn_action action{};
    EXPECT_EQ(captured_console([&] { olv_twamp_table_entry_dump(0, &pattern, &action); }), "0x2A, DEFINED");
    EXPECT_EQ(captured_console([] { olv_twamp_table_entry_dump(0, nullptr, nullptr); }),
              "RESPONDER-ID, DEFINED/NOT_DEFINED ");
    for (const std::uint32_t index : {1u, 2u, 0xFFFFFFFFu}) {
        EXPECT_EQ(captured_console([&] { olv_twamp_table_entry_dump(index, &pattern, &action); }), "");
        EXPECT_EQ(captured_console([&] { olv_twamp_table_entry_dump(index, nullptr, nullptr); }), "");
    }
    olv_ptn_free(pattern);
}

/** What a dump of a table group prints between its function lines for entries listed by hand. */
std::string dumped(bench &b, std::uint32_t table_group, const std::vector<listed_entry> &listed)
{
    b.set_log_words(0, 0);
    const hand_made_listing listing(listed);
    const observation seen = b.observe([&] { return olv_twamp_tables_dump(b.module, table_group); });
    EXPECT_EQ(seen.status, 0u);
    return seen.console;
}

#define HEADER "\n{tree olv_twamp.twamp_responder_lookup}, RESPONDER-ID, DEFINED/NOT_DEFINED \n"
#define RESPONDERS "{tree olv_twamp.twamp_responder_lookup}, "
#define BINDS "{tree olv_twamp.twamp_bind_to_next_module}, "

TEST(TableEntryDumpFn, EndsEachLineAlsoAfterAMarker)
{
    bench b;
    for (const entry_case &each : entries) {
        SCOPED_TRACE(each.label);
        EXPECT_EQ(dumped(b, 1, {each.entry}), b.expand(std::string(HEADER RESPONDERS) + each.console + "\n"));
    }
}

TEST(TableEntryDumpFn, NeedsAnActionOnlyToPrintIt)
{
    bench b;
    for (const entry_case &each : entries_without_action) {
        SCOPED_TRACE(each.label);
        EXPECT_EQ(dumped(b, 1, {each.entry}), b.expand(std::string(HEADER RESPONDERS) + each.console + "\n"));
    }
    EXPECT_EQ(dumped(b, 2, {{0x2A, 24, 0, 0, false}, {0x2B, 24, 0, 1}}),
              b.expand(BINDS "{key 0x2A}!!Unexpected Return!!\n" BINDS "{key 0x2B}{action 1}\n"));
    EXPECT_EQ(dumped(b, 2, {{0x2A, 24, 24, 0, false}, {0x2B, 24, 24, 1}}),
              b.expand(BINDS "{key 0x2A}!!Unexpected Return!!\n"))
        << "what is printed once counts as printed";
}

TEST(TableEntryDumpFn, MarksAKeyThatCannotBeParsedWithoutAnAction)
{
    bench b;
    olv_sim::faults::set(call::olv_ptn_parse, {.code = 0x1FF});
    EXPECT_EQ(dumped(b, 1, {{0x2A, 24, 0, 0, false}}), b.expand(HEADER RESPONDERS "!!Parse Error!!\n"));
}

TEST(TableEntryDumpFn, PrintsOneEntryWhoseThirdWordIsTheKeyWidthForEachTree)
{
    bench b;
    EXPECT_EQ(dumped(b, 3,
                     {{0x1, 24, 24, 0},
                      {0x2, 24, printed_each_time, 0},
                      {0x3, 24, 24, 0},
                      {0x4, 24, 25, 1},
                      {0x5, 24, 24, 1},
                      {0x6, 24, 23, 0}}),
              b.expand(HEADER RESPONDERS "0x1, DEFINED\n" RESPONDERS "0x2, DEFINED\n" RESPONDERS
                                         "0x4, NOT_DEFINED\n" RESPONDERS "0x6, DEFINED\n" BINDS
                                         "{key 1}{action 0}\n" BINDS "{key 2}{action 0}\n" BINDS
                                         "{key 4}{action 1}\n" BINDS "{key 6}{action 0}\n"));
}

TEST(TableEntryDumpFn, PrintsAnEntryWhoseThirdWordIsTheKeyWidthAfterOthers)
{
    bench b;
    EXPECT_EQ(dumped(b, 1, {{0x1, 24, printed_each_time, 0}, {0x2, 24, 24, 0}, {0x3, 24, 24, 0}}),
              b.expand(HEADER RESPONDERS "0x1, DEFINED\n" RESPONDERS "0x2, DEFINED\n"));
}

TEST(TableEntryDumpFn, PrintsOnceAlsoWhenThatEntryIsMalformed)
{
    bench b;
    EXPECT_EQ(dumped(b, 1, {{0x1234, 16, 24, 0}, {0x1, 24, 24, 0}, {0, 0, 24, 0}}),
              b.expand(HEADER RESPONDERS "!!Unexpected Pattern!!\n"));
}

TEST(TableEntryDumpFn, GoesOnAfterAKeyThatCannotBeParsed)
{
    bench b;
    olv_sim::faults::set(call::olv_ptn_parse, {.code = 0x1FF});
    EXPECT_EQ(dumped(b, 1, {{0x1, 24, 0, 0}, {0x2, 24, 0, 0}}),
              b.expand(HEADER RESPONDERS "!!Parse Error!!\n" RESPONDERS "0x2, DEFINED\n"));
}

TEST(TableEntryDumpFn, PrintsNothingWithoutContextOrPattern)
{
    bench b;
    b.set_log_words(0, 0);
    hand_made_listing listing({{0x1, 24, 24, 0}});
    listing.with_null_arguments();
    EXPECT_EQ(b.observe([&] { return olv_twamp_tables_dump(b.module, 3); }).console,
              b.expand(HEADER RESPONDERS "0x1, DEFINED\n" BINDS "{key 1}{action 0}\n"));
}

TEST(TableEntryDumpFn, ListsTheTreesOfTheGroupInOrder)
{
    bench b;
    std::uint32_t responders = 0;
    std::uint32_t binds = 0;
    ASSERT_EQ(hyx_ptn_symbol_get_id(b.module->rte_handle, responder_tree, &responders), 0u);
    ASSERT_EQ(hyx_ptn_symbol_get_id(b.module->rte_handle, bind_tree, &binds), 0u);
    const hand_made_listing listing({});
    for (const std::uint32_t table_group : {1u, 2u, 3u})
        quiet([&] { return olv_twamp_tables_dump(b.module, table_group); });
    EXPECT_THAT(listing.listed_trees(), testing::ElementsAre(responders, binds, responders, binds));
}

} // namespace
} // namespace olv_test
