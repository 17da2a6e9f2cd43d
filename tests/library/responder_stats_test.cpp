#include <tuple>

#include "responder_rows.hpp"

namespace olv_test {
namespace {

#define STATS_ENTERING OLV_ENTERING("twamp_responder.c", "olv_twamp_responder_stats_get")
#define STATS_EXITING OLV_EXITING("twamp_responder.c", "olv_twamp_responder_stats_get")
#define STATS_ERROR(text) OLV_ERROR("twamp_responder.c", text)
#define STATS_UNKNOWN(text) OLV_UNKNOWN("twamp_responder.c", text)

constexpr const char *operation_name = "olv_twamp_responder_stats_get";
constexpr const char *invalid_module = "Invalid TWAMP module handle 0x%08x\n";
constexpr const char *invalid_responder = "Invalid TWAMP Responder handle 0x%08x\n";
constexpr const char *cannot_delete = "Failed to delete Responder Handle";
constexpr const char *read_refused = "Failed to read Responder state, RTE error code:0x%x, error string: %s\n";

constexpr remains one_responder{.responder_ids = 1, .responder_entries = 1, .blocks = 2};

/** Where the rows' operation reads to. */
olv_twamp_responder_stats stats{};

std::uint32_t get(bench &b)
{
    return olv_twamp_responder_stats_get(b.handle, b.responder, &stats);
}

/** Received, transmitted, length-check drops, active sessions, session drops. */
auto counters()
{
    return std::tuple{stats.received, stats.transmitted, stats.drop_length_check, stats.active_sessions,
                      stats.drop_max_sessions};
}

std::tuple<std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t>
counts(std::uint32_t received, std::uint32_t transmitted, std::uint32_t length_check, std::uint32_t sessions,
       std::uint32_t maximum)
{
    return {received, transmitted, length_check, sessions, maximum};
}

void spoil_stats(bench &)
{
    stats = {0xA1, 0xA2, 0xA3, 0xA4, 0xA5};
}

void with_responder(bench &b)
{
    spoil_stats(b);
    b.responder = b.create_responder();
}

/** Put counters into the responder's state entry, where bytes 32-51 hold them in the fast path's order. */
void count(bench &b, const std::vector<std::uint8_t> &bytes_32_to_51)
{
    auto bytes = b.state_bytes(b.responder->responder_id);
    ASSERT_EQ(bytes.size(), 60u);
    ASSERT_EQ(bytes_32_to_51.size(), 20u);
    std::copy(bytes_32_to_51.begin(), bytes_32_to_51.end(), bytes.begin() + 32);
    b.set_state_bytes(b.responder->responder_id, bytes);
}

void with_counts(bench &b)
{
    with_responder(b);
    count(b, {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x00, 0x00,
              0x00, 0x05, 0x00, 0x00, 0x00, 0x07, 0x80, 0x00, 0x00, 0x01});
}

void stats_are_filled(bench &)
{
    EXPECT_EQ(counters(), counts(0x01020304, 0x05060708, 7, 5, 0x80000001));
}

void stats_are_zero(bench &)
{
    EXPECT_EQ(counters(), counts(0, 0, 0, 0, 0));
}

void stats_are_untouched(bench &)
{
    EXPECT_EQ(counters(), counts(0xA1, 0xA2, 0xA3, 0xA4, 0xA5));
}

const std::vector<std::string> all_calls{"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_se_state_get",
                                         "hyx_sem_post", "hyx_gettime"};

const table get_rows{
    operation_name,
    get,
    {
        {.label = "read",
         .setup = known(),
         .arrange = with_counts,
         .status = 0,
         .console = STATS_ENTERING STATS_EXITING,
         .traces = {entry(operation_name), exit(operation_name)},
         .calls = all_calls,
         .left = one_responder,
         .check = stats_are_filled},
        {.label = "read without a lock",
         .setup = known_without_lock(),
         .arrange = with_counts,
         .status = 0,
         .console = STATS_ENTERING STATS_EXITING,
         .traces = {entry(operation_name), exit(operation_name)},
         .calls = {"hyx_gettime", "hyx_se_state_get", "hyx_gettime"},
         .left = one_responder,
         .check = stats_are_filled},
        {.label = "a new responder reads zeros",
         .setup = known(),
         .arrange = with_responder,
         .status = 0,
         .console = STATS_ENTERING STATS_EXITING,
         .traces = {entry(operation_name), exit(operation_name)},
         .calls = all_calls,
         .left = one_responder,
         .check = stats_are_zero},
        {.label = "a deleted responder reads zeros",
         .setup = known(),
         .arrange =
             [](bench &b) {
                 with_counts(b);
                 (void)captured_console(
                     [&] { EXPECT_EQ(olv_twamp_responder_delete(b.module, b.responder), 0u); });
             },
         .status = 0,
         .console = STATS_ENTERING STATS_EXITING,
         .traces = {entry(operation_name), exit(operation_name)},
         .calls = all_calls,
         .left = {.blocks = 2},
         .check = stats_are_zero},

        {.label = "null module",
         .setup = known(),
         .arrange =
             [](bench &b) {
                 with_counts(b);
                 use_null_handle(b);
             },
         .status = 1,
         .console = STATS_UNKNOWN("Invalid TWAMP module handle 0x00000000")
             STATS_UNKNOWN("Failed to delete Responder Handle"),
         .traces = {forced(invalid_module), forced(cannot_delete)},
         .left = one_responder,
         .check = stats_are_untouched},
        {.label = "wrong module magic",
         .setup = known(),
         .arrange =
             [](bench &b) {
                 with_counts(b);
                 use_foreign_handle(b);
             },
         .status = 1,
         .console = STATS_UNKNOWN("Invalid TWAMP module handle 0x{module}")
             STATS_UNKNOWN("Failed to delete Responder Handle"),
         .traces = {forced(invalid_module), forced(cannot_delete)},
         .left = one_responder,
         .check = stats_are_untouched},
        {.label = "module not initialised: looked at before responder and stats",
         .setup = known_uninitialised(),
         .arrange = spoil_stats,
         .instead = [](bench &b) { return olv_twamp_responder_stats_get(b.handle, nullptr, nullptr); },
         .status = 1,
         .console = STATS_UNKNOWN("Invalid TWAMP module handle 0x{module}")
             STATS_UNKNOWN("Failed to delete Responder Handle"),
         .traces = {forced(invalid_module), forced(cannot_delete)},
         .left = nothing},
        {.label = "wrong context magic",
         .setup = known(),
         .arrange =
             [](bench &b) {
                 with_counts(b);
                 break_context(b);
             },
         .status = 1,
         .console = STATS_UNKNOWN("Invalid TWAMP module handle 0x{module}")
             STATS_UNKNOWN("Failed to delete Responder Handle"),
         .traces = {forced(invalid_module), forced(cannot_delete)},
         .left = {.responder_ids = 1, .responder_entries = 1, .blocks = 2, .initialised = false},
         .check =
             [](bench &b) {
                 stats_are_untouched(b);
                 repair_context(b);
             }},
        {.label = "null responder",
         .setup = known(),
         .arrange = spoil_stats,
         .status = 1,
         .console = STATS_UNKNOWN("Invalid TWAMP Responder handle 0x00000000")
             STATS_UNKNOWN("Failed to delete Responder Handle"),
         .traces = {forced(invalid_responder), forced(cannot_delete)},
         .check = stats_are_untouched},
        {.label = "responder magic cleared",
         .setup = known_and_named(),
         .arrange =
             [](bench &b) {
                 with_counts(b);
                 b.responder->magic = 0;
             },
         .instead = named(get),
         .status = 1,
         .console = STATS_UNKNOWN("Invalid TWAMP Responder handle RESPONDER")
             STATS_UNKNOWN("Failed to delete Responder Handle"),
         .traces = {forced(invalid_responder), forced(cannot_delete)},
         .left = one_responder,
         .check = stats_are_untouched},

        {.label = "lock not taken",
         .setup = known(),
         .arrange = with_counts,
         .faults = {failing(call::olv_sys_sem_lock_wait)},
         .status = 0x300A5,
         .console = STATS_ENTERING OLV_LOCK_REFUSED("twamp_responder.c"),
         .traces = {entry(operation_name), error(lock_refused), error_status()},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait"},
         .left = one_responder,
         .check = stats_are_untouched},
        {.label = "null stats",
         .setup = known(),
         .arrange = with_counts,
         .instead = [](bench &b) { return olv_twamp_responder_stats_get(b.handle, b.responder, nullptr); },
         .status = 0x30008,
         .console =
             STATS_ENTERING STATS_ERROR("Null Stats Pointer") STATS_ERROR("{status 0x30008}") STATS_EXITING,
         .traces = {entry(operation_name), error("Null Stats Pointer"), error_status(), exit(operation_name)},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_sem_post", "hyx_gettime"},
         .left = one_responder},
        {.label = "state not read",
         .setup = known(),
         .arrange = with_counts,
         .faults = {failing(call::hyx_se_state_get)},
         .status = 0x3002B,
         .console = STATS_ENTERING STATS_ERROR(
             "Failed to read Responder state, RTE error code:0x1ff, error string: {rte 0x1FF}")
             STATS_ERROR("{status 0x3002B}") STATS_EXITING,
         .traces = {entry(operation_name), error(read_refused), error_status(), exit(operation_name)},
         .calls = all_calls,
         .left = one_responder,
         .check = stats_are_untouched},
        {.label = "lock not released after success: the counters are there",
         .setup = known(),
         .arrange = with_counts,
         .faults = {failing(call::hyx_sem_post)},
         .status = 0x300A5,
         .console = STATS_ENTERING OLV_RELEASE_REFUSED("twamp_responder.c") STATS_EXITING,
         .traces = {entry(operation_name), error(release_refused), error_status(), exit(operation_name)},
         .calls = all_calls,
         .left = {.responder_ids = 1, .responder_entries = 1, .blocks = 2, .lock_held = 1},
         .check = stats_are_filled},
        {.label = "lock not released after a failure",
         .setup = known(),
         .arrange = with_counts,
         .faults = {failing(call::hyx_se_state_get), failing(call::hyx_sem_post)},
         .status = 0x300A5,
         .console = STATS_ENTERING STATS_ERROR(
             "Failed to read Responder state, RTE error code:0x1ff, error string: {rte 0x1FF}")
             STATS_ERROR("{status 0x3002B}") OLV_RELEASE_REFUSED("twamp_responder.c") STATS_EXITING,
         .traces = {entry(operation_name), error(read_refused), error_status(), error(release_refused),
                    error_status(), exit(operation_name)},
         .calls = all_calls,
         .left = {.responder_ids = 1, .responder_entries = 1, .blocks = 2, .lock_held = 1},
         .check = stats_are_untouched},
    }};

TEST(ResponderStatsGet, GoesAsEachRowSays)
{
    get_rows.run();
}

TEST(ResponderStatsGet, ReadsEachCounterFromItsBytes)
{
    const struct {
        std::size_t byte;
        std::tuple<std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t> expected;
    } places[] = {{35, counts(9, 0, 0, 0, 0)},
                  {39, counts(0, 9, 0, 0, 0)},
                  {43, counts(0, 0, 0, 9, 0)},
                  {47, counts(0, 0, 9, 0, 0)},
                  {51, counts(0, 0, 0, 0, 9)}};
    for (const auto &place : places) {
        SCOPED_TRACE(place.byte);
        bench b({.module_flags = 0, .system_flags = 0});
        with_responder(b);
        std::vector<std::uint8_t> bytes(20, 0);
        bytes[place.byte - 32] = 9;
        count(b, bytes);
        EXPECT_EQ(get(b), 0u);
        EXPECT_EQ(counters(), place.expected);
    }
}

TEST(ResponderStatsGet, ReadsTheWholeEntryInOneCallAndChangesNothing)
{
    bench b;
    with_counts(b);
    const auto before = b.state_bytes(1);
    const observation seen = b.observe([&] { return get(b); });
    std::size_t reads = 0;
    for (const auto &call : seen.recorded) {
        reads += call.which == olv_sim::call::hyx_se_state_get ? 1 : 0;
    }
    EXPECT_EQ(reads, 1u);
    EXPECT_EQ(b.state_bytes(1), before);
}

TEST(ResponderStatsGet, ServesAnyModuleOfTheProcessor)
{
    bench b({.module_flags = 0, .system_flags = 0});
    with_counts(b);
    b.responder->module = nullptr;
    EXPECT_EQ(get(b), 0u);
    stats_are_filled(b);
}

// ---------------------------------------------------------------------------------------------------------
// Printing
// ---------------------------------------------------------------------------------------------------------

std::uint32_t print(bench &b)
{
    return olv_twamp_responder_stats_print(b.handle, b.responder);
}

#define STATS_TITLE "\nTWAMP responder statistics (Non-zero only)\n"

const table print_rows{
    "olv_twamp_responder_stats_print",
    print,
    {
        {.label = "only the title while every counter is 0",
         .setup = known(),
         .arrange = with_responder,
         .status = 0,
         .console = STATS_ENTERING STATS_EXITING STATS_TITLE,
         .traces = {entry(operation_name), exit(operation_name)},
         .calls = all_calls,
         .left = one_responder,
         .every_level = false},
        {.label = "every counter, those above 2^31 negative",
         .setup = known(),
         .arrange = with_counts,
         .status = 0,
         .console = STATS_ENTERING STATS_EXITING STATS_TITLE
         "received packets: 16909060\n"
         "transmitted packets: 84281096\n"
         "Packets dropped due to length check failed: 7\n"
         "Number of active sessions: 5\n"
         "Packets dropped due to max number of sessions reached: -2147483647\n",
         .traces = {entry(operation_name), exit(operation_name)},
         .calls = all_calls,
         .left = one_responder,
         .every_level = false},
        {.label = "the printing is outside the lock, which cannot be released: nothing printed",
         .setup = known(),
         .arrange = with_counts,
         .faults = {failing(call::hyx_sem_post)},
         .status = 0,
         .console = STATS_ENTERING OLV_RELEASE_REFUSED("twamp_responder.c") STATS_EXITING,
         .traces = {entry(operation_name), error(release_refused), error_status(), exit(operation_name)},
         .calls = all_calls,
         .left = {.responder_ids = 1, .responder_entries = 1, .blocks = 2, .lock_held = 1}},
        {.label = "lock not taken",
         .setup = known(),
         .arrange = with_counts,
         .faults = {failing(call::olv_sys_sem_lock_wait)},
         .status = 0,
         .console = STATS_ENTERING OLV_LOCK_REFUSED("twamp_responder.c"),
         .traces = {entry(operation_name), error(lock_refused), error_status()},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait"},
         .left = one_responder},
        {.label = "state not read",
         .setup = known(),
         .arrange = with_counts,
         .faults = {failing(call::hyx_se_state_get)},
         .status = 0,
         .console = STATS_ENTERING STATS_ERROR(
             "Failed to read Responder state, RTE error code:0x1ff, error string: {rte 0x1FF}")
             STATS_ERROR("{status 0x3002B}") STATS_EXITING,
         .traces = {entry(operation_name), error(read_refused), error_status(), exit(operation_name)},
         .calls = all_calls,
         .left = one_responder},
        {.label = "null module",
         .setup = known(),
         .arrange = use_null_handle,
         .status = 0,
         .console = STATS_UNKNOWN("Invalid TWAMP module handle 0x00000000")
             STATS_UNKNOWN("Failed to delete Responder Handle"),
         .traces = {forced(invalid_module), forced(cannot_delete)}},
        {.label = "module not initialised",
         .setup = known_uninitialised(),
         .status = 0,
         .console = STATS_UNKNOWN("Invalid TWAMP module handle 0x{module}")
             STATS_UNKNOWN("Failed to delete Responder Handle"),
         .traces = {forced(invalid_module), forced(cannot_delete)},
         .left = nothing},
        {.label = "null responder",
         .setup = known(),
         .status = 0,
         .console = STATS_UNKNOWN("Invalid TWAMP Responder handle 0x00000000")
             STATS_UNKNOWN("Failed to delete Responder Handle"),
         .traces = {forced(invalid_responder), forced(cannot_delete)}},
    }};

TEST(ResponderStatsPrint, GoesAsEachRowSays)
{
    print_rows.run();
}

TEST(ResponderStatsPrint, PrintsOutsideTheLogLevels)
{
    for (const std::uint32_t word : {0u, 1u, 3u, 7u, 15u}) {
        SCOPED_TRACE(word);
        bench b({.module_flags = word, .system_flags = word});
        with_responder(b);
        count(b, {0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 4, 0, 0, 0, 5});
        EXPECT_EQ(b.observe([&] { return print(b); }).console,
                  STATS_TITLE "received packets: 1\n"
                              "transmitted packets: 2\n"
                              "Packets dropped due to length check failed: 4\n"
                              "Number of active sessions: 3\n"
                              "Packets dropped due to max number of sessions reached: 5\n");
    }
}

TEST(ResponderStatsPrint, LeavesOutEachCounterThatIsZero)
{
    const struct {
        std::size_t byte;
        const char *line;
    } places[] = {{35, "received packets: 6\n"},
                  {39, "transmitted packets: 6\n"},
                  {43, "Number of active sessions: 6\n"},
                  {47, "Packets dropped due to length check failed: 6\n"},
                  {51, "Packets dropped due to max number of sessions reached: 6\n"}};
    for (const auto &place : places) {
        SCOPED_TRACE(place.byte);
        bench b({.module_flags = 0, .system_flags = 0});
        with_responder(b);
        std::vector<std::uint8_t> bytes(20, 0);
        bytes[place.byte - 32] = 6;
        count(b, bytes);
        EXPECT_EQ(b.observe([&] { return print(b); }).console, std::string(STATS_TITLE) + place.line);
    }
}

TEST(ResponderStatsPrint, PrintsEveryCounterSigned)
{
    bench b({.module_flags = 0, .system_flags = 0});
    with_responder(b);
    count(b, std::vector<std::uint8_t>(20, 0xFF));
    EXPECT_EQ(b.observe([&] { return print(b); }).console,
              STATS_TITLE "received packets: -1\n"
                          "transmitted packets: -1\n"
                          "Packets dropped due to length check failed: -1\n"
                          "Number of active sessions: -1\n"
                          "Packets dropped due to max number of sessions reached: -1\n");
}

TEST(ResponderStatsPrint, PrintsCountersOf2To31AndMoreNegative)
{
    bench b({.module_flags = 0, .system_flags = 0});
    with_responder(b);
    count(b, {0xFF, 0xFF, 0xFF, 0xFF, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x7F, 0xFF, 0xFF, 0xFF});
    EXPECT_EQ(b.observe([&] { return print(b); }).console,
              STATS_TITLE "received packets: -1\n"
                          "transmitted packets: -2147483648\n"
                          "Packets dropped due to max number of sessions reached: 2147483647\n");
}

} // namespace
} // namespace olv_test
