// Creation, deletion and statistics of responders under every fault.
#include <bit>

#include "fault_sweep.hpp"

namespace olv_test::sweeping {
namespace {

constexpr const char *source = "twamp_responder.c";
constexpr remains one_responder{.responder_ids = 1, .responder_entries = 1, .blocks = 2};
const std::string rte_error = "RTE error code:0x1ff, error string: {rte 0x1FF}";

path free_record()
{
    return calls(call::hyx_nvm_free, takes(&remains::blocks));
}

path free_id()
{
    return calls(call::hyx_rsrc_free, takes(&remains::responder_ids));
}

path free_pattern()
{
    return calls(call::olv_ptn_free, takes(&remains::patterns));
}

// Creation of the responder that becomes the Nth: parameters 0x1234 and 0x5678, 1700000000.5 s, timer
// 0x0123456789ABCDEF.

/** How a creation ends that has failed: what was done is undone, then this. */
path create_fails(std::uint32_t status)
{
    return join({fails(source, "TWAMP Failed to create responder", "TWAMP Failed to create responder", status),
                 unlocks(source, exits(source, "olv_twamp_responder_create"))});
}

std::string created_state(const outcome &result)
{
    const std::string parameters = "12340002"
                                   "80005678"; // the latter with bit 31
    const std::string count = "0000000" + std::to_string(result.creations);
    const std::string instant = "e8fe6f80"
                                "7fffffff"; // 1700000000 + 2208988800, half a second
    const std::string timer = result.timer_was_read ? "0123456789abcdef" : "0000000000000000";
    const std::string host_order_32 = std::endian::native == std::endian::little ? "20000000" : "00000020";
    return parameters + count + "00000000" + instant + timer + std::string(40, '0') + host_order_32 +
           "00000000";
}

/** The record; without memory the creation ends. */
path allocate_record()
{
    return calls(call::hyx_nvm_calloc, adds(&remains::blocks),
                 join({says(OLV_FATAL("twamp_responder.c", "Memory allocation failed responder handle"),
                            fatal("Memory allocation failed responder handle")),
                       says(OLV_FATAL("twamp_responder.c", "{status 0x30012}"), fatal_status()),
                       yields(0x30012), create_fails(0x30012)}));
}

/** The namespace gave no ID. */
path no_id(const std::string &error_text)
{
    return join({fails(source, "Failed to allocate index from namespace handle NAMESPACE, " + error_text,
                       "Failed to allocate index from namespace handle 0x%0x, RTE error code:0x%x, error "
                       "string: %s\n",
                       0x3001D),
                 free_record(), create_fails(0x3001D)});
}

path create_steps(const std::string &nth)
{
    const path fill_entry = join(
        {allocate_record(),
         calls(
             call::hyx_rsrc_allocate,
             [](outcome &result) {
                 ++result.left.responder_ids;
                 ++result.creations;
             },
             no_id(rte_error)),
         calls(call::hyx_timer_get_timestamp, [](outcome &result) { result.timer_was_read = true; }),
         calls(
             call::hyx_se_state_set, [](outcome &result) { result.state = created_state(result); },
             join({fails(source, "Failed to reset Responder state, " + rte_error,
                         "Failed to reset Responder state, RTE error code:0x%x, error string: %s\n", 0x3002C),
                   free_id(), free_record(), create_fails(0x3002C)}))});
    const path learn_key =
        join({calls(call::olv_ptn_new, adds(&remains::patterns),
                    join({fails(source, "Failed to allocate the pattern structure",
                                "Failed to allocate the pattern structure", 0x201FF),
                          free_id(), free_record(), create_fails(0x201FF)})),
              calls(call::olv_ptn_extend, {},
                    join({fails(source, "Failed to add the responder flow ID to the pattern",
                                "Failed to add the responder flow ID to the pattern", 0x201FF),
                          free_pattern(), free_id(), free_record(), create_fails(0x201FF)})),
              calls(call::hyx_ptn_learn, adds(&remains::responder_entries),
                    join({fails(source, "Failed to learn the tree entry, treeID = 257" + rte_error,
                                "Failed to learn the tree entry, treeID = %dRTE error code:0x%x, error string: "
                                "%s\n",
                                0x30040),
                          free_pattern(), free_id(), free_record(), create_fails(0x30040)})),
              says("[twamp_log: ptn_learn] twamp_responder.c:LINE olv_twamp.twamp_responder_lookup: <key = "
                   "0x00000" +
                       nth + "/24>" OLV_PRINTED_ACTION("00000000", "00000000") "\n",
                   learnt("olv_twamp.twamp_responder_lookup " OLV_TRACED_PATTERN
                          " 0x00000000 0x00000000 0x00000000")),
              free_pattern()});
    return join({enters(source, "olv_twamp_responder_create"),
                 locks(source, join({fill_entry, learn_key,
                                     unlocks(source, exits(source, "olv_twamp_responder_create"))}))});
}

std::uint32_t create(bench &b)
{
    b.info = {0x1234, 0x5678};
    return olv_twamp_responder_create(b.module, &b.info, b.slot);
}

TEST(FaultSweep, CreateOfTheFirstResponder)
{
    sweep({.label = "olv_twamp_responder_create, no responder", .work = create, .steps = create_steps("1")});
}

TEST(FaultSweep, CreateBesideTwoResponders)
{
    sweep({.label = "olv_twamp_responder_create, two responders",
           .arrange =
               [](bench &b) {
                   (void)b.create_responder();
                   (void)b.create_responder();
               },
           .work = create,
           .steps = create_steps("3"),
           .before = {.responder_ids = 2, .responder_entries = 2, .blocks = 3},
           .creations_before = 2,
           .watched_state = 3});
}

TEST(FaultSweep, CreateInAnExhaustedNamespace)
{
    sweep({.label = "olv_twamp_responder_create, no ID left",
           .setup = known_with_responders(2),
           .arrange =
               [](bench &b) {
                   (void)b.create_responder();
                   b.responder = b.create_responder();
               },
           .work =
               [](bench &b) {
                   twamp_responder_handle *none = nullptr;
                   const std::uint32_t status = olv_twamp_responder_create(b.module, &b.info, &none);
                   EXPECT_EQ(none, nullptr);
                   return status;
               },
           .steps = join(
               {enters(source, "olv_twamp_responder_create"),
                locks(source, join({allocate_record(), calls(call::hyx_rsrc_allocate, {}, no_id(rte_error)),
                                    no_id("RTE error code:0x107, error string: {rte 0x107}")}))}),
           .before = {.responder_ids = 2, .responder_entries = 2, .blocks = 3},
           .creations_before = 2,
           .afterwards =
               [](bench &b, const outcome &) {
                   EXPECT_EQ(quiet([&] { return olv_twamp_responder_delete(b.module, b.responder); }), 0u);
               }});
}

TEST(FaultSweep, CreateWithoutARequestFreesWhatTheSlotHolds)
{
    sweep({.label = "olv_twamp_responder_create, null request, slot with a responder",
           .arrange =
               [](bench &b) {
                   EXPECT_EQ(quiet([&] { return olv_twamp_responder_create(b.module, &b.info, &b.responder); }),
                             0u);
               },
           .work = [](bench &b) { return olv_twamp_responder_create(b.module, nullptr, b.slot); },
           .steps = join({enters(source, "olv_twamp_responder_create"),
                          locks(source, join({fails(source, "Null Info / Flow Handle Pointer",
                                                    "Null Info / Flow Handle Pointer", 0x30008),
                                              free_record(), create_fails(0x30008)}))}),
           .before = one_responder,
           .creations_before = 1});
}

// Deletion

path delete_ends()
{
    return unlocks(source, exits(source, "olv_twamp_responder_delete"));
}

path delete_after_pattern()
{
    return join({free_pattern(), delete_ends()});
}

/** The steps around the unlearning, which fails on an absent entry by itself. */
path delete_steps(const path &after_unlearning, effect unlearnt)
{
    return join(
        {enters(source, "olv_twamp_responder_delete"),
         locks(source,
               join({calls(call::olv_ptn_new, adds(&remains::patterns),
                           join({fails(source, "Failed to allocate the pattern structure",
                                       "Failed to allocate the pattern structure", 0x201FF),
                                 delete_ends()})),
                     calls(call::olv_ptn_extend, {},
                           join({fails(source, "Failed to add the responder flow ID to the pattern",
                                       "Failed to add the responder flow ID to the pattern", 0x201FF),
                                 delete_after_pattern()})),
                     calls(call::hyx_ptn_unlearn, std::move(unlearnt),
                           join({fails(source, "Failed to learn the tree entry, treeID = 257" + rte_error,
                                       "Failed to learn the tree entry, treeID = %dRTE error code:0x%x, error "
                                       "string: %s\n",
                                       0x30040),
                                 delete_after_pattern()})),
                     after_unlearning}))});
}

std::uint32_t remove(bench &b)
{
    return olv_twamp_responder_delete(b.module, b.responder);
}

TEST(FaultSweep, DeleteOfAResponder)
{
    const path returns_and_clears = join(
        {says("[twamp_log: ptn_unlearn] twamp_responder.c:LINE "
              "olv_twamp.twamp_responder_lookup: " OLV_PRINTED_PATTERN(
                  "000001") "<xsize = 24>" OLV_PRINTED_ACTION("00000000", "00000000") "\n",
              removed("olv_twamp.twamp_responder_lookup " OLV_TRACED_PATTERN
                      " 24 0x00000000 0x00000000 0x00000000")),
         calls(call::hyx_rsrc_free, takes(&remains::responder_ids),
               join({fails(source, "Failed to free resource to namespace handle NAMESPACE, " + rte_error,
                           "Failed to free resource to namespace handle 0x%0x, RTE error code:0x%x, error "
                           "string: %s\n",
                           0x3001E),
                     delete_after_pattern()})),
         calls(
             call::hyx_se_state_set, [](outcome &result) { result.state = std::string(120, '0'); },
             join({fails(source, "Failed to reset Responder state, " + rte_error,
                         "Failed to reset Responder state, RTE error code:0x%x, error string: %s\n", 0x3002C),
                   delete_after_pattern()})),
         delete_after_pattern()});
    sweep({.label = "olv_twamp_responder_delete",
           .arrange = [](bench &b) { b.responder = b.create_responder(); },
           .work = remove,
           .steps = delete_steps(returns_and_clears, takes(&remains::responder_entries)),
           .before = one_responder,
           .creations_before = 1});
}

TEST(FaultSweep, DeleteOfADeletedResponder)
{
    const path absent = join(
        {fails(source,
               "Failed to learn the tree entry, treeID = 257RTE error code:0x10c, error string: {rte 0x10C}",
               "Failed to learn the tree entry, treeID = %dRTE error code:0x%x, error string: %s\n", 0x30040),
         delete_after_pattern()});
    sweep({.label = "olv_twamp_responder_delete, deleted before",
           .arrange =
               [](bench &b) {
                   b.responder = b.create_responder();
                   EXPECT_EQ(quiet([&] { return remove(b); }), 0u);
               },
           .work = remove,
           .steps = delete_steps(absent, {}),
           .before = {.blocks = 2},
           .creations_before = 1});
}

// Statistics

constexpr olv_twamp_responder_stats untouched{0xA1, 0xA2, 0xA3, 0xA4, 0xA5};
olv_twamp_responder_stats stats = untouched;

void with_counts(bench &b)
{
    stats = untouched;
    b.responder = b.create_responder();
    auto bytes = b.state_bytes(1);
    const std::vector<std::uint8_t> counters{0x00, 0x00, 0x01, 0x02, 0x80, 0x00, 0x00, 0x00, 0x00, 0x00,
                                             0x00, 0x05, 0x00, 0x00, 0x00, 0x07, 0x00, 0x00, 0x00, 0x09};
    std::copy(counters.begin(), counters.end(), bytes.begin() + 32);
    b.set_state_bytes(1, bytes);
}

path stats_steps()
{
    const std::string operation = "olv_twamp_responder_stats_get";
    const path last = unlocks(source, exits(source, operation));
    return join(
        {enters(source, operation),
         locks(source,
               join({calls(
                         call::hyx_se_state_get, [](outcome &result) { result.record_was_written = true; },
                         join({fails(source, "Failed to read Responder state, " + rte_error,
                                     "Failed to read Responder state, RTE error code:0x%x, error string: %s\n",
                                     0x3002B),
                               last})),
                     last}))});
}

TEST(FaultSweep, ResponderStatsGet)
{
    sweep({.label = "olv_twamp_responder_stats_get",
           .arrange = with_counts,
           .work = [](bench &b) { return olv_twamp_responder_stats_get(b.module, b.responder, &stats); },
           .steps = stats_steps(),
           .before = one_responder,
           .creations_before = 1,
           .afterwards =
               [](bench &, const outcome &expected) {
                   const bool written = expected.record_was_written;
                   EXPECT_EQ(stats.received, written ? 0x102u : 0xA1u);
                   EXPECT_EQ(stats.transmitted, written ? 0x80000000u : 0xA2u);
                   EXPECT_EQ(stats.drop_length_check, written ? 7u : 0xA3u);
                   EXPECT_EQ(stats.active_sessions, written ? 5u : 0xA4u);
                   EXPECT_EQ(stats.drop_max_sessions, written ? 9u : 0xA5u);
               }});
}

TEST(FaultSweep, ResponderStatsGetWithoutARecord)
{
    const std::string operation = "olv_twamp_responder_stats_get";
    sweep(
        {.label = operation + ", null record",
         .arrange = with_counts,
         .work = [](bench &b) { return olv_twamp_responder_stats_get(b.module, b.responder, nullptr); },
         .steps = join({enters(source, operation),
                        locks(source, join({fails(source, "Null Stats Pointer", "Null Stats Pointer", 0x30008),
                                            unlocks(source, exits(source, operation))}))}),
         .before = one_responder,
         .creations_before = 1});
}

TEST(FaultSweep, ResponderStatsPrint)
{
    sweep({.label = "olv_twamp_responder_stats_print",
           .arrange = with_counts,
           .work = [](bench &b) { return olv_twamp_responder_stats_print(b.module, b.responder); },
           .steps = stats_steps(),
           .at_last = prints_unless_failed("\nTWAMP responder statistics (Non-zero only)\n"
                                           "received packets: 258\n"
                                           "transmitted packets: -2147483648\n"
                                           "Packets dropped due to length check failed: 7\n"
                                           "Number of active sessions: 5\n"
                                           "Packets dropped due to max number of sessions reached: 9\n"),
           .before = one_responder,
           .creations_before = 1});
}

} // namespace
} // namespace olv_test::sweeping
