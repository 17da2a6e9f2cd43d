// Reading and printing a responder's counters.
#include <algorithm>

#include "rows.hpp"

namespace olv_test {
namespace {

constexpr const char *file = "twamp_responder.c";
constexpr olv_twamp_responder_stats rubbish{0xA1, 0xA2, 0xA3, 0xA4, 0xA5};
olv_twamp_responder_stats stats = rubbish;

std::uint32_t get(bench &b)
{
    stats = rubbish;
    return olv_twamp_responder_stats_get(b.handle, b.responder, &stats);
}

std::uint32_t print(bench &b)
{
    return olv_twamp_responder_stats_print(b.handle, b.responder);
}

/** A responder with these bytes from byte 32 of its state entry on: received, transmitted, active sessions,
 *  length-check drops, session drops. */
std::function<void(bench &)> counted(const std::vector<std::uint8_t> &bytes_32_to_51)
{
    return [bytes_32_to_51](bench &b) {
        b.responder = b.create_responder();
        auto bytes = b.state_bytes(b.responder->responder_id);
        ASSERT_EQ(bytes.size(), 60u);
        std::copy(bytes_32_to_51.begin(), bytes_32_to_51.end(), bytes.begin() + 32);
        b.set_state_bytes(b.responder->responder_id, bytes);
    };
}

const auto each_counter = counted({0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x00, 0x00, //
                                   0x00, 0x05, 0x00, 0x00, 0x00, 0x07, 0x80, 0x00, 0x00, 0x01});
const auto new_responder = counted({});

/** Words of which only the last byte of each is not 0. */
std::function<void(bench &)> small(std::uint8_t received, std::uint8_t transmitted, std::uint8_t sessions,
                                   std::uint8_t length_check, std::uint8_t maximum)
{
    return counted({0, 0, 0, received,     0, 0, 0, transmitted, 0, 0, 0, sessions, //
                    0, 0, 0, length_check, 0, 0, 0, maximum});
}

void deleted(bench &b)
{
    each_counter(b);
    EXPECT_EQ(quiet([&] { return olv_twamp_responder_delete(b.module, b.responder); }), 0u);
}

std::vector<std::uint32_t> words_of(const olv_twamp_responder_stats &read)
{
    return {read.received, read.transmitted, read.drop_length_check, read.active_sessions,
            read.drop_max_sessions};
}

/** The caller's record: what was read, or what it held before. */
std::function<void(bench &, const outcome &)> read_as(const olv_twamp_responder_stats &read)
{
    return [read](bench &, const outcome &expected) {
        EXPECT_EQ(words_of(stats), words_of(expected.result_written ? read : rubbish));
    };
}

story reads(const bench &b)
{
    const frame of(b, file, "olv_twamp_responder_stats_get");
    return of.begin +
           calls(call::hyx_se_state_get, "rte=%u, namespace=0x%06x, index=0, length=60", b.module->rte_handle,
                 b.responder->responder_id)
               .then(writes_result())
               .or_else(fails(file, 0x3002B,
                              "Failed to read Responder state, RTE error code:0x%x, error string: %s\n",
                              injected, rte_text(injected)) +
                        of.end) +
           of.end;
}

/** Deletion's words, as for a module. */
story refuses_responder(const bench &b)
{
    return says_unknown(file, "Invalid TWAMP Responder handle 0x%08x\n", low_word(b.responder)) +
           says_unknown(file, "Failed to delete Responder Handle") + yields(1);
}

story refuses(const bench &b)
{
    return refuses_module(b, file, "Failed to delete Responder Handle");
}

void magic_cleared(bench &b)
{
    each_counter(b);
    b.responder->magic = 0;
}

const table get_rows{
    "olv_twamp_responder_stats_get",
    row_list{{.label = "every counter",
              .arrange = each_counter,
              .work = get,
              .tells = reads,
              .afterwards = read_as({0x01020304, 0x05060708, 7, 5, 0x80000001})},
             {.label = "new responder",
              .arrange = new_responder,
              .work = get,
              .tells = reads,
              .afterwards = read_as({0, 0, 0, 0, 0})},
             {.label = "deleted responder: zeros",
              .arrange = deleted,
              .work = get,
              .tells = reads,
              .afterwards = read_as({0, 0, 0, 0, 0})},
             {.label = "the module of the record is not looked at",
              .arrange =
                  [](bench &b) {
                      each_counter(b);
                      b.responder->module = nullptr;
                  },
              .work = get,
              .tells = reads},
             {.label = "null record",
              .arrange = each_counter,
              .work = [](bench &b) { return olv_twamp_responder_stats_get(b.handle, b.responder, nullptr); },
              .tells =
                  [](const bench &b) {
                      const frame of(b, file, "olv_twamp_responder_stats_get");
                      return of.begin + fails(file, 0x30008, "Null Stats Pointer") + of.end;
                  }},
             {.label = "null responder", .work = get, .tells = refuses_responder, .afterwards = read_as({})},
             {.label = "responder with a cleared magic",
              .arrange = magic_cleared,
              .work = get,
              .tells = refuses_responder,
              .afterwards = read_as({})},
             {.label = "null responder and null record of a module that is not initialised",
              .setup = {.initialised = false},
              .work = [](bench &b) { return olv_twamp_responder_stats_get(b.handle, nullptr, nullptr); },
              .tells = refuses}} +
        unusable_handles({.arrange = each_counter, .work = get, .afterwards = read_as({})}, refuses)};

TEST(ResponderStatsGet, GoesAsEachRowSays)
{
    get_rows.run();
}

TEST(ResponderStatsGet, ConvertsEachWordInFieldOrder)
{
    bench b;
    // The words are the same in both byte orders. In the state entry the third and fourth are exchanged.
    counted({1, 0, 0, 1, 2, 0, 0, 2, 3, 0, 0, 3, 4, 0, 0, 4, 5, 0, 0, 5})(b);
    EXPECT_THAT(
        b.observe([&] { return get(b); }, static_cast<unsigned>(olv_sim::call_kind::byte_order)).calls(),
        testing::ElementsAre("hyx_ntohl(value=0x1000001)", "hyx_ntohl(value=0x2000002)",
                             "hyx_ntohl(value=0x4000004)", "hyx_ntohl(value=0x3000003)",
                             "hyx_ntohl(value=0x5000005)"));
}

// Printing

#define TITLE "\nTWAMP responder statistics (Non-zero only)\n"

/** Each counter alone, and its line. */
const struct {
    const char *label;
    std::function<void(bench &)> arrange;
    const char *line;
} single_counters[] = {
    {"received alone", small(9, 0, 0, 0, 0), "received packets: 9\n"},
    {"transmitted alone", small(0, 9, 0, 0, 0), "transmitted packets: 9\n"},
    {"sessions alone", small(0, 0, 9, 0, 0), "Number of active sessions: 9\n"},
    {"length check alone", small(0, 0, 0, 9, 0), "Packets dropped due to length check failed: 9\n"},
    {"maximum alone", small(0, 0, 0, 0, 9), "Packets dropped due to max number of sessions reached: 9\n"},
};

row_list single_counters_printed()
{
    row_list list;
    for (const auto &each : single_counters) {
        list.push_back({.label = each.label,
                        .arrange = each.arrange,
                        .work = print,
                        .tells = reads,
                        .figures = std::string(TITLE) + each.line,
                        .variation = true});
    }
    return list;
}

const table print_rows{
    "olv_twamp_responder_stats_print",
    row_list{{.label = "new responder: the title alone",
              .arrange = new_responder,
              .work = print,
              .tells = reads,
              .figures = TITLE},
             {.label = "every counter, one of them above 2^31: negative",
              .arrange = each_counter,
              .work = print,
              .tells = reads,
              .figures = TITLE "received packets: 16909060\n"
                               "transmitted packets: 84281096\n"
                               "Packets dropped due to length check failed: 7\n"
                               "Number of active sessions: 5\n"
                               "Packets dropped due to max number of sessions reached: -2147483647\n"},
             {.label = "all bits of every counter",
              .arrange = counted(std::vector<std::uint8_t>(20, 0xFF)),
              .work = print,
              .tells = reads,
              .figures = TITLE "received packets: -1\n"
                               "transmitted packets: -1\n"
                               "Packets dropped due to length check failed: -1\n"
                               "Number of active sessions: -1\n"
                               "Packets dropped due to max number of sessions reached: -1\n"},
             {.label = "null responder", .work = print, .tells = refuses_responder, .figures = TITLE}} +
        single_counters_printed() +
        unusable_handles({.arrange = each_counter, .work = print, .figures = TITLE}, refuses)};

TEST(ResponderStatsPrint, GoesAsEachRowSays)
{
    print_rows.run();
}

} // namespace
} // namespace olv_test
