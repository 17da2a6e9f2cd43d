// Global statistics and the dumps under every fault.
#include "fault_sweep.hpp"

namespace olv_test::sweeping {
namespace {

constexpr const char *source = "twamp.c";

// Global statistics

olv_twamp_global_stats counters{};

void counted(bench &b)
{
    counters = {1, 2, 3, 4, 5, 6};
    std::vector<std::uint8_t> bytes(128, 0);
    bytes[3] = 0x11;  // received: 17
    bytes[7] = 0x10;  // transmitted: 16
    bytes[16] = 0x80; // hash errors: 2^31
    bytes[23] = 0x01; // no bind: 1
    b.set_state_bytes(0x7008C1, bytes);
}

path global_stats_steps()
{
    const std::string operation = "olv_twamp_global_stats_get";
    const path last = unlocks(source, exits(source, operation));
    return join(
        {enters(source, operation),
         locks(source,
               join({changes([](outcome &result) { result.record_was_cleared = true; }),
                     calls(
                         call::hyx_se_state_get, [](outcome &result) { result.record_was_written = true; },
                         join({fails(source,
                                     "Failed to read TWAMP Gloabl Stats, RTE error code:0x1ff, error "
                                     "string: {rte 0x1FF}",
                                     "Failed to read TWAMP Gloabl Stats, RTE error code:0x%x, error "
                                     "string: %s\n",
                                     0x3002B),
                               last})),
                     last}))});
}

TEST(FaultSweep, GlobalStatsGet)
{
    sweep({.label = "olv_twamp_global_stats_get",
           .arrange = counted,
           .work = [](bench &b) { return olv_twamp_global_stats_get(b.module, &counters); },
           .steps = global_stats_steps(),
           .afterwards =
               [](bench &, const outcome &expected) {
                   const auto value = [&](std::uint32_t before, std::uint32_t read) {
                       return expected.record_was_written ? read : expected.record_was_cleared ? 0 : before;
                   };
                   EXPECT_EQ(counters.total_rx, value(1, 17));
                   EXPECT_EQ(counters.total_tx, value(2, 16));
                   EXPECT_EQ(counters.drop_no_responder, value(3, 0));
                   EXPECT_EQ(counters.drop_length_check, value(4, 0));
                   EXPECT_EQ(counters.drop_hash_error, value(5, 0x80000000));
                   EXPECT_EQ(counters.drop_no_bind, value(6, 1));
               }});
}

TEST(FaultSweep, GlobalStatsPrint)
{
    sweep({.label = "olv_twamp_global_stats_print",
           .arrange = counted,
           .work = [](bench &b) { return olv_twamp_global_stats_print(b.module); },
           .steps = global_stats_steps(),
           .at_last = prints_unless_failed("\nTWAMP global statistics (Non-zero only)\n"
                                           "Total received packets: 17\n"
                                           "Total transmitted packets: 16\n"
                                           "Packets dropped due to hash errors: -2147483648\n"
                                           "Packets dropped due to bind not defined: 1\n")});
}

// Dumps of two responders and one bind

#define RESPONDERS "{tree olv_twamp.twamp_responder_lookup}, "
#define BINDS "{tree olv_twamp.twamp_bind_to_next_module}, "

constexpr const char *walk_source = "twamp_internal.c";
constexpr remains filled_remains{.responder_ids = 2, .responder_entries = 2, .bind_entries = 1, .blocks = 3};

void fill(bench &b)
{
    (void)b.create_responder();
    (void)b.create_responder();
    static std::uint32_t key;
    key = 0xABCDEF;
    const olv_bind_info info = olv_sim::make_bind_info(b.module, b.framework.ipv4_module(), &key);
    EXPECT_EQ(quiet([&] { return olv_twamp_custom_bind(b.framework.system(), &info); }), 0u);
}

/** The walk: no exit line when all is well. @p failed comes after a walk that ends early. */
path walk_steps(std::uint32_t group, const path &failed, const path &done)
{
    const auto stops = [&](const std::string &index) {
        return join({fails(walk_source, "RTE Error {rte 0x1FF}: Failed to dump TWAMP tree for idx " + index,
                           "RTE Error %s: Failed to dump TWAMP tree for idx %d\n", 0x7E),
                     fails(walk_source, "Failed to dump TWAMP module's trees",
                           "Failed to dump TWAMP module's trees", 0x7E),
                     exits(walk_source, "olv_twamp_dump_tables"), failed});
    };
    const path bind_tree_listed =
        join({calls(call::hyx_ptn_list_ptns, {}, stops("1")),
              prints(BINDS "{key 0xABCDEF}" OLV_PRINTED_ACTION("00000001", "00000401") "\n"), done});
    const path after_responders = (group & 2) != 0 ? bind_tree_listed : done;
    const auto parses = [](const std::string &id, const path &next) {
        return join({prints(RESPONDERS),
                     calls(call::olv_ptn_parse, {}, join({prints("!!Parse Error!!\n"), next})),
                     prints(id + ", DEFINED\n"), next});
    };
    const path responder_tree_listed =
        join({prints("\n" RESPONDERS "RESPONDER-ID, DEFINED/NOT_DEFINED \n"),
              calls(call::hyx_ptn_list_ptns, {}, stops("0")), parses("0x1", parses("0x2", after_responders))});
    return join({enters(walk_source, "olv_twamp_dump_tables"),
                 (group & 1) != 0 ? responder_tree_listed : bind_tree_listed});
}

path dump_steps(std::uint32_t group)
{
    const std::string operation = "olv_twamp_tables_dump";
    const path last = unlocks(source, exits(source, operation));
    return join({enters(source, operation),
                 locks(source, walk_steps(group,
                                          join({fails(source, "Failed to dump TWAMP Tables",
                                                      "Failed to dump TWAMP Tables", 0x3007E),
                                                last}),
                                          last))});
}

TEST(FaultSweep, TablesDump)
{
    for (const std::uint32_t group : {1U, 2U, 3U}) {
        sweep({.label = "olv_twamp_tables_dump, group " + std::to_string(group),
               .arrange = fill,
               .work = [group](bench &b) { return olv_twamp_tables_dump(b.module, group); },
               .steps = dump_steps(group),
               .before = filled_remains,
               .creations_before = 2});
    }
}

TEST(FaultSweep, TablesDumpOfAnInvalidGroup)
{
    const std::string operation = "olv_twamp_tables_dump";
    sweep({.label = operation + ", group 4",
           .work = [](bench &b) { return olv_twamp_tables_dump(b.module, 4); },
           .steps =
               join({enters(source, operation),
                     locks(source, join({says("[olv_unknown_log: ERROR] twamp.c:LINE Invalid table group 4\n",
                                              forced("Invalid table group %d\n")),
                                         yields(0x30008), unlocks(source, exits(source, operation))}))})});
}

TEST(FaultSweep, DumpTables)
{
    sweep({.label = "olv_twamp_dump_tables, group 3",
           .arrange = fill,
           .work = [](bench &b) { return olv_twamp_dump_tables(b.module, 3); },
           .steps = walk_steps(3, {}, {}),
           .before = filled_remains,
           .creations_before = 2});
}

TEST(FaultSweep, TableEntryDump)
{
    olv_ptn pattern{};
    ASSERT_EQ(olv_ptn_new(24, &pattern), 0u);
    ASSERT_EQ(olv_ptn_extend(&pattern, 0xABC, 24), 0u);
    sweep({.label = "olv_twamp_table_entry_dump",
           .work =
               [&pattern](bench &) {
                   const olv_ptn_action not_defined{{1, 0, 0}};
                   olv_twamp_table_entry_dump(0, &pattern, &not_defined);
                   return 0u;
               },
           .steps = join(
               {calls(call::olv_ptn_parse, {}, prints("!!Parse Error!!")), prints("0xABC, NOT_DEFINED")})});
    olv_ptn_free(pattern);
}

TEST(FaultSweep, ResponderEntryDump)
{
    olv_ptn pattern{};
    ASSERT_EQ(olv_ptn_new(24, &pattern), 0u);
    ASSERT_EQ(olv_ptn_extend(&pattern, 0xABC, 24), 0u);
    sweep(
        {.label = "responder_entry_dump",
         .work =
             [&pattern](bench &) {
                 const olv_ptn_action action{{0, 0, 0}};
                 (void)responder_entry_dump(&pattern, &action);
                 return 0u;
             },
         .steps = join({calls(call::olv_ptn_parse, {}, prints("!!Parse Error!!")), prints("0xABC, DEFINED")})});
    olv_ptn_free(pattern);
}

} // namespace
} // namespace olv_test::sweeping
