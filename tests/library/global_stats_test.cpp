// Reading and printing the module's counters.
#include "rows.hpp"

namespace olv_test {
namespace {

constexpr const char *file = "twamp.c";
constexpr const char *read_refused =
    "Failed to read TWAMP Gloabl Stats, RTE error code:0x%x, error string: %s\n";
constexpr olv_twamp_global_stats rubbish{1, 2, 3, 4, 5, 6};
olv_twamp_global_stats counters = rubbish;

std::uint32_t get(bench &b)
{
    counters = rubbish;
    return olv_twamp_global_stats_get(b.handle, &counters);
}

std::uint32_t print(bench &b)
{
    return olv_twamp_global_stats_print(b.handle);
}

/** The statistics block holds these words. */
std::function<void(bench &)> counted(const std::vector<std::uint8_t> &bytes)
{
    return [bytes](bench &b) { b.set_state_bytes(0x7008C1, bytes); };
}

const auto each_counter = counted({0x12, 0x34, 0x56, 0x78, 0, 0, 0, 2,    0, 0, 1, 0, //
                                   0,    0,    0,    4,    0, 1, 0, 0xFF, 0, 0, 0, 6});

std::vector<std::uint32_t> words_of(const olv_twamp_global_stats &stats)
{
    return {stats.total_rx,          stats.total_tx,        stats.drop_no_responder,
            stats.drop_length_check, stats.drop_hash_error, stats.drop_no_bind};
}

/** The caller's record: what was read, zeros once it was cleared, or what it held before. */
std::function<void(bench &, const outcome &)> read_as(const olv_twamp_global_stats &read)
{
    return [read](bench &, const outcome &expected) {
        EXPECT_EQ(words_of(counters), words_of(expected.result_written   ? read
                                               : expected.result_cleared ? olv_twamp_global_stats{}
                                                                         : rubbish));
    };
}

story reads(const bench &b)
{
    const frame of(b, file, "olv_twamp_global_stats_get");
    return of.begin + changes([](outcome &result) { result.result_cleared = true; }) +
           calls(call::hyx_se_state_get, "rte=%u, namespace=0x7008c1, index=0, length=24", b.module->rte_handle)
               .then(writes_result())
               .or_else(fails(file, 0x3002B, read_refused, injected, rte_text(injected)) + of.end) +
           of.end;
}

story refuses(const bench &b)
{
    return refuses_module(b, file, "Failed to delete Responder Handle");
}

const table get_rows{
    "olv_twamp_global_stats_get",
    row_list{{.label = "fresh module", .work = get, .tells = reads, .afterwards = read_as({})},
             {.label = "each counter from big-endian",
              .arrange = each_counter,
              .work = get,
              .tells = reads,
              .afterwards = read_as({0x12345678, 2, 0x100, 4, 0x100FF, 6})},
             {.label = "null record",
              .work = [](bench &b) { return olv_twamp_global_stats_get(b.handle, nullptr); },
              .tells =
                  [](const bench &b) {
                      const frame of(b, file, "olv_twamp_global_stats_get");
                      return of.begin + fails(file, 0x30008, "Null Stats Pointer") + of.end;
                  }}} +
        unusable_handles({.arrange = each_counter, .work = get, .afterwards = read_as({})}, refuses)};

TEST(GlobalStatsGet, GoesAsEachRowSays)
{
    get_rows.run();
}

TEST(GlobalStatsGet, DoesNotResetTheCounters)
{
    bench b;
    each_counter(b);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(quiet([&] { return get(b); }), 0u);
        EXPECT_EQ(counters.total_rx, 0x12345678u);
    }
}

TEST(GlobalStatsGet, ConvertsEachWordInFieldOrderAndNoneAfterAFailure)
{
    constexpr auto byte_order = static_cast<unsigned>(olv_sim::call_kind::byte_order);
    bench b;
    // The words are the same in both byte orders.
    counted({1, 0, 0, 1, 2, 0, 0, 2, 3, 0, 0, 3, 4, 0, 0, 4, 5, 0, 0, 5, 6, 0, 0, 6})(b);
    EXPECT_THAT(b.observe([&] { return get(b); }, byte_order).calls(),
                testing::ElementsAre("hyx_ntohl(value=0x1000001)", "hyx_ntohl(value=0x2000002)",
                                     "hyx_ntohl(value=0x3000003)", "hyx_ntohl(value=0x4000004)",
                                     "hyx_ntohl(value=0x5000005)", "hyx_ntohl(value=0x6000006)"));
    olv_sim::faults::set(call::hyx_se_state_get, {.code = injected});
    EXPECT_THAT(b.observe([&] { return get(b); }, byte_order).calls(), testing::IsEmpty());
}

// Printing

#define TITLE "\nTWAMP global statistics (Non-zero only)\n"

const table print_rows{
    "olv_twamp_global_stats_print",
    row_list{{.label = "fresh module: the title alone", .work = print, .tells = reads, .figures = TITLE},
             {.label = "every counter",
              .arrange = each_counter,
              .work = print,
              .tells = reads,
              .figures = TITLE "Total received packets: 305419896\n"
                               "Total transmitted packets: 2\n"
                               "Packets dropped due to responder not defined : 256\n"
                               "Packets dropped due to length check failed: 4\n"
                               "Packets dropped due to hash errors: 65791\n"
                               "Packets dropped due to bind not defined: 6\n"},
             {.label = "hash errors alone",
              .arrange = counted({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9, 0, 0, 0, 0}),
              .work = print,
              .tells = reads,
              .figures = TITLE "Packets dropped due to hash errors: 9\n"},
             {.label = "counters of 2^31 and more are negative",
              .arrange = counted({0x80, 0,    0,    0,    0x7F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, //
                                  0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}),
              .work = print,
              .tells = reads,
              .figures = TITLE "Total received packets: -2147483648\n"
                               "Total transmitted packets: 2147483647\n"
                               "Packets dropped due to responder not defined : -1\n"
                               "Packets dropped due to length check failed: -1\n"
                               "Packets dropped due to hash errors: -1\n"
                               "Packets dropped due to bind not defined: -1\n"}} +
        unusable_handles({.arrange = each_counter, .work = print, .figures = TITLE}, refuses)};

TEST(GlobalStatsPrint, GoesAsEachRowSays)
{
    print_rows.run();
}

} // namespace
} // namespace olv_test
