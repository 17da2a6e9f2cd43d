// One entry of a dump: its formats, its markers, and what is printed once only.
#include <cstring>

#include "harness.hpp"
#include "interposed.hpp"
#include "olv_sim/faults.hpp"

namespace olv_test {
namespace {

constexpr const char *header = "RESPONDER-ID, DEFINED/NOT_DEFINED ";

struct entry_case {
    const char *label;
    listed_entry entry; ///< Key, key length, third word, action.
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
    {"highest bit", {0x4, 24, 0, 0x80000000}, "0x4!!Unexpected Return!!", 21},
    {"no key, defined", {0, 0, 0, 0}, "*, DEFINED", 9},
    {"no key, not defined", {0, 0, 0, 1}, "*, NOT_DEFINED", 13},
    {"no key, action 2", {0, 0, 0, 2}, "*!!Unexpected Return!!", 21},
    {"16 bits", {0x1234, 16, 0, 0}, "!!Unexpected Pattern!!", 22},
    {"32 bits", {0x12345678, 32, 0, 0}, "!!Unexpected Pattern!!", 22},
    {"1 bit", {1, 1, 0, 2}, "!!Unexpected Pattern!!", 22},
    // The action is needed only to print it.
    {"24 bits, no action", {0x2A, 24, 0, std::nullopt}, "0x2A!!Unexpected Return!!", 21},
    {"no key, no action", {0, 0, 0, std::nullopt}, "*!!Unexpected Return!!", 21},
    {"16 bits, no action", {0x1234, 16, 0, std::nullopt}, "!!Unexpected Pattern!!", 22},
};

/** What an entry's dump prints and returns. */
std::pair<std::string, int> dumped_alone(const listed_entry &entry)
{
    const made_pattern made(entry);
    const olv_ptn_action action{{entry.action.value_or(0), 0, 0}};
    int count = -1;
    const std::string console = captured_console(
        [&] { count = responder_entry_dump(&made.pattern, entry.action ? &action : nullptr); });
    return {console, count};
}

TEST(ResponderEntryDump, PrintsEntriesAndReturnsTheLastCount)
{
    bench b;
    for (const entry_case &each : entries) {
        SCOPED_TRACE(each.label);
        EXPECT_THAT(dumped_alone(each.entry), testing::Pair(each.console, each.count));
    }
}

TEST(ResponderEntryDump, PrintsTheHeaderForNoPattern)
{
    const olv_ptn_action action{};
    for (const olv_ptn_action *each : {static_cast<const olv_ptn_action *>(nullptr), &action}) {
        int count = 0;
        EXPECT_EQ(captured_console([&] { count = responder_entry_dump(nullptr, each); }), header);
        EXPECT_EQ(count, 34);
    }
}

TEST(ResponderEntryDump, MarksAKeyThatCannotBeParsed)
{
    bench b;
    for (const std::optional<std::uint32_t> action : {std::optional{0U}, std::optional<std::uint32_t>{}}) {
        olv_sim::faults::set(call::olv_ptn_parse, {.code = injected});
        EXPECT_THAT(dumped_alone({1, 24, 0, action}), testing::Pair("!!Parse Error!!", 15));
    }
}

TEST(TableEntryDump, PassesTheResponderTreeOnAndPrintsNothingForOthers)
{
    bench b;
    const made_pattern made({0x2A, 24, 0, 0});
    const olv_ptn_action action{};
    EXPECT_EQ(captured_console([&] { olv_twamp_table_entry_dump(0, &made.pattern, &action); }),
              "0x2A, DEFINED");
    EXPECT_EQ(captured_console([] { olv_twamp_table_entry_dump(0, nullptr, nullptr); }), header);
    for (const std::uint32_t index : {1u, 2u, 0xFFFFFFFFu}) {
        EXPECT_EQ(captured_console([&] { olv_twamp_table_entry_dump(index, &made.pattern, &action); }), "");
        EXPECT_EQ(captured_console([&] { olv_twamp_table_entry_dump(index, nullptr, nullptr); }), "");
    }
}

// Entries as the walk lists them

#define RESPONDERS "olv_twamp.twamp_responder_lookup, "
#define HEADER "\n" RESPONDERS "RESPONDER-ID, DEFINED/NOT_DEFINED \n"
#define BINDS "olv_twamp.twamp_bind_to_next_module, "

constexpr std::uint32_t once = 24; // As third word, it has an entry printed once only.

/** What a dump of a table group prints between its function lines for entries listed by hand. */
std::string dumped(bench &b, std::uint32_t table_group, const hand_made_listing & /*in place*/)
{
    b.set_log_words(0, 0);
    return captured_console([&] { EXPECT_EQ(olv_twamp_tables_dump(b.module, table_group), 0u); });
}

TEST(TableEntryDumpFn, EndsEachLineAlsoAfterAMarker)
{
    bench b;
    for (const entry_case &each : entries) {
        SCOPED_TRACE(each.label);
        EXPECT_EQ(dumped(b, 1, hand_made_listing({each.entry})),
                  std::string(HEADER RESPONDERS) + each.console + "\n");
    }
}

TEST(TableEntryDumpFn, PrintsOneEntryWhoseThirdWordIsTheKeyWidthForEachTree)
{
    bench b;
    const hand_made_listing listing({{0x1, 24, 0, 0},
                                     {0x2, 24, once, 0},
                                     {0x3, 24, once, 0},
                                     {0x4, 24, 25, 1},
                                     {0x5, 24, once, 1},
                                     {0x6, 24, 23, 0}});
    const std::string none = " 0x00000000 0x00000000>\n";
    EXPECT_EQ(dumped(b, 3, listing), HEADER RESPONDERS "0x1, DEFINED\n" RESPONDERS "0x2, DEFINED\n" RESPONDERS
                                                       "0x4, NOT_DEFINED\n" RESPONDERS "0x6, DEFINED\n" BINDS
                                                       "<key = 0x000001/24><action = 0x00000000" +
                                         none + BINDS "<key = 0x000002/24><action = 0x00000000" + none +
                                         BINDS "<key = 0x000004/24><action = 0x00000001" + none +
                                         BINDS "<key = 0x000006/24><action = 0x00000000" + none);
    EXPECT_THAT(listing.listed_trees(), testing::ElementsAre(responder_tree_id, bind_tree_id));
}

TEST(TableEntryDumpFn, PrintsOnceAlsoWhenThatEntryIsMalformed)
{
    bench b;
    EXPECT_EQ(dumped(b, 1, hand_made_listing({{0x1234, 16, once, 0}, {0x1, 24, once, 0}, {0, 0, once, 0}})),
              HEADER RESPONDERS "!!Unexpected Pattern!!\n");
    EXPECT_EQ(dumped(b, 2, hand_made_listing({{0x2A, 24, once, std::nullopt}, {0x2B, 24, once, 1}})),
              BINDS "<key = 0x00002a/24>!!Unexpected Return!!\n");
}

TEST(TableEntryDumpFn, PrintsNothingWithoutContextOrPattern)
{
    bench b;
    hand_made_listing listing({{0x1, 24, once, 0}});
    listing.with_null_arguments();
    EXPECT_EQ(dumped(b, 1, listing), HEADER RESPONDERS "0x1, DEFINED\n");
}

TEST(TableEntryDumpFn, LeavesWhatItPrintedBeforeTheListingFailed)
{
    bench b;
    b.set_log_words(0, 0);
    hand_made_listing listing({{0x1, 24, 0, 0}, {0x2, 24, 0, 1}});
    listing.fail_afterwards(injected);
    EXPECT_EQ(captured_console([&] { EXPECT_EQ(olv_twamp_tables_dump(b.module, 3), 0x3007Eu); }),
              HEADER RESPONDERS "0x1, DEFINED\n" RESPONDERS "0x2, NOT_DEFINED\n");
    EXPECT_THAT(listing.listed_trees(), testing::ElementsAre(responder_tree_id)) << "once, and no other";
}

/** Overwrite a field of the private context, by its offset. */
template <typename Field> void set_in_context(const bench &b, std::size_t offset, Field value)
{
    std::memcpy(reinterpret_cast<char *>(b.module->ctx) + offset, &value, sizeof value);
}

TEST(TableEntryDumpFn, GoesByTheDescriptorOfTheTree)
{
    bench b;
    b.set_log_words(0, 0);
    const hand_made_listing listing({{0x1, 24, 9, 1}, {0x2, 24, 9, 1}, {0x3, 24, once, 1}, {0x4, 24, once, 1}});
    const std::string bound = "/24><action = 0x00000001 0x00000000 0x00000000>\n";

    set_in_context(b, 24, std::uint32_t{9}); // key_bits of the responder tree
    set_in_context(b, 52, std::uint8_t{0});  // responder_format
    set_in_context(b, 60, std::uint32_t{4}); // table_group_mask
    EXPECT_EQ(captured_console([&] { EXPECT_EQ(olv_twamp_dump_tables(b.module, 1), 0u); }), "");
    EXPECT_EQ(captured_console([&] { EXPECT_EQ(olv_twamp_dump_tables(b.module, 4), 0u); }),
              RESPONDERS "<key = 0x000001" + bound + RESPONDERS "<key = 0x000003" + bound +
                  RESPONDERS "<key = 0x000004" + bound);

    set_in_context(b, 64, ip_direct_imc_id);                         // tree_id of the bind tree
    set_in_context(b, 68, std::uint32_t{9});                         // key_bits
    set_in_context(b, 96, std::uint8_t{1});                          // responder_format
    const std::string line = "olv_twamp.twamp_to_ip_direct_imc, \n"; // Its index has no responders' format.
    EXPECT_EQ(captured_console([&] { EXPECT_EQ(olv_twamp_dump_tables(b.module, 2), 0u); }),
              "\n" + line + line + line + line);
    EXPECT_THAT(listing.listed_trees(), testing::ElementsAre(responder_tree_id, ip_direct_imc_id));
}

} // namespace
} // namespace olv_test
