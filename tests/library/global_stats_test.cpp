#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/processor.hpp"
#include "rows.hpp"

namespace olv_test {
namespace {

olv_twamp_global_stats counters{};
constexpr olv_twamp_global_stats rubbish{1, 2, 3, 4, 5, 6};

std::uint32_t get(bench &b)
{
    counters = rubbish;
    return olv_twamp_global_stats_get(b.handle, &counters);
}

std::uint32_t get_into_null(bench &b)
{
    return olv_twamp_global_stats_get(b.handle, nullptr);
}

std::uint32_t print(bench &b)
{
    return olv_twamp_global_stats_print(b.handle);
}

#define ENTERING OLV_ENTERING("twamp.c", "olv_twamp_global_stats_get")
#define EXITING OLV_EXITING("twamp.c", "olv_twamp_global_stats_get")
#define REFUSED_HANDLE                                                                                         \
    "[olv_unknown_log: ERROR] twamp.c:LINE Invalid TWAMP module handle 0x{module}\n"                           \
    "[olv_unknown_log: ERROR] twamp.c:LINE Failed to delete Responder Handle\n"
#define UNREADABLE                                                                                             \
    "[twamp_log: ERROR] twamp.c:LINE Failed to read TWAMP Gloabl Stats, RTE error code:0x1ff, error string: "  \
    "{rte 0x1FF}\n"                                                                                            \
    "[twamp_log: ERROR] twamp.c:LINE {status 0x3002B}\n"
#define TITLE "{plain}\nTWAMP global statistics (Non-zero only)\n"

const std::string operation_name = "olv_twamp_global_stats_get";
const std::string unreadable = "Failed to read TWAMP Gloabl Stats, RTE error code:0x%x, error string: %s\n";
const std::vector<std::string> read_calls{"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_se_state_get",
                                          "hyx_sem_post", "hyx_gettime"};
const std::vector<std::string> refused_calls{"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_sem_post",
                                             "hyx_gettime"};
const std::vector<trace> refused_handle{forced("Invalid TWAMP module handle 0x%08x\n"),
                                        forced("Failed to delete Responder Handle")};
const std::vector<trace> framed{entry(operation_name), exit(operation_name)};
const std::vector<trace> failed_read{entry(operation_name), error(unreadable), error_status(),
                                     exit(operation_name)};

options without_lock()
{
    options setup;
    setup.locked = false;
    return setup;
}

std::function<void(bench &)> counted(std::vector<std::uint8_t> bytes)
{
    return [bytes](bench &b) { b.set_state_bytes(0x7008C1, bytes); };
}

std::function<void(bench &)> reads(olv_twamp_global_stats expected)
{
    return [expected](bench &) {
        EXPECT_EQ(counters.total_rx, expected.total_rx);
        EXPECT_EQ(counters.total_tx, expected.total_tx);
        EXPECT_EQ(counters.drop_no_responder, expected.drop_no_responder);
        EXPECT_EQ(counters.drop_length_check, expected.drop_length_check);
        EXPECT_EQ(counters.drop_hash_error, expected.drop_hash_error);
        EXPECT_EQ(counters.drop_no_bind, expected.drop_no_bind);
    };
}

void null_handle(bench &b)
{
    b.handle = nullptr;
}
void foreign_handle(bench &b)
{
    b.handle = &b.foreign;
}
void shut_down(bench &b)
{
    quiet([&] { return olv_twamp_shutdown(b.module); });
}

const std::vector<std::uint8_t> six_counters{0x12, 0x34, 0x56, 0x78, 0, 0, 0, 2,    0, 0, 1, 0,
                                             0,    0,    0,    4,    0, 1, 0, 0xFF, 0, 0, 0, 6};
const std::vector<std::uint8_t> hash_errors{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                            0, 0, 0, 0, 0, 0, 0, 9, 0, 0, 0, 0};
const std::vector<std::uint8_t> large_counters{0x80, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF};

const table get_rows{
    "olv_twamp_global_stats_get",
    get,
    {
        {.label = "fresh module",
         .console = ENTERING EXITING,
         .traces = framed,
         .calls = read_calls,
         .check = reads({})},
        {.label = "each counter from big-endian",
         .arrange = counted(six_counters),
         .console = ENTERING EXITING,
         .traces = framed,
         .calls = read_calls,
         .check = reads({0x12345678, 2, 0x100, 4, 0x100FF, 6})},
        {.label = "without a lock",
         .setup = without_lock(),
         .arrange = counted(six_counters),
         .console = ENTERING EXITING,
         .traces = framed,
         .calls = {"hyx_gettime", "hyx_se_state_get", "hyx_gettime"},
         .check = reads({0x12345678, 2, 0x100, 4, 0x100FF, 6})},
        {.label = "null handle",
         .arrange = null_handle,
         .status = 1,
         .console = REFUSED_HANDLE,
         .traces = refused_handle,
         .check = reads(rubbish)},
        {.label = "record that is no module's",
         .arrange = foreign_handle,
         .status = 1,
         .console = REFUSED_HANDLE,
         .traces = refused_handle,
         .check = reads(rubbish)},
        {.label = "not initialised",
         .arrange = shut_down,
         .status = 1,
         .console = REFUSED_HANDLE,
         .traces = refused_handle,
         .left = nothing,
         .check = reads(rubbish)},
        {.label = "lock not taken",
         .faults = {failing(call::olv_sys_sem_lock_wait)},
         .status = 0x300A5,
         .console = ENTERING OLV_LOCK_REFUSED("twamp.c"),
         .traces = {entry(operation_name), error(lock_refused), error_status()},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait"},
         .check = reads(rubbish)},
        {.label = "null record",
         .instead = get_into_null,
         .status = 0x30008,
         .console = ENTERING "[twamp_log: ERROR] twamp.c:LINE Null Stats Pointer\n"
                             "[twamp_log: ERROR] twamp.c:LINE {status 0x30008}\n" EXITING,
         .traces = {entry(operation_name), error("Null Stats Pointer"), error_status(), exit(operation_name)},
         .calls = refused_calls},
        {.label = "state cannot be read: zeros",
         .arrange = counted(six_counters),
         .faults = {failing(call::hyx_se_state_get)},
         .status = 0x3002B,
         .console = ENTERING UNREADABLE EXITING,
         .traces = failed_read,
         .calls = read_calls,
         .check = reads({})},
        {.label = "lock not released after success",
         .arrange = counted(six_counters),
         .faults = {failing(call::hyx_sem_post)},
         .status = 0x300A5,
         .console = ENTERING OLV_RELEASE_REFUSED("twamp.c") EXITING,
         .traces = {entry(operation_name), error(release_refused), error_status(), exit(operation_name)},
         .calls = read_calls,
         .left = {.lock_held = 1},
         .check = reads({0x12345678, 2, 0x100, 4, 0x100FF, 6})},
        {.label = "lock not released after a failed read",
         .faults = {failing(call::hyx_se_state_get), failing(call::hyx_sem_post)},
         .status = 0x300A5,
         .console = ENTERING UNREADABLE OLV_RELEASE_REFUSED("twamp.c") EXITING,
         .traces = {entry(operation_name), error(unreadable), error_status(), error(release_refused),
                    error_status(), exit(operation_name)},
         .calls = read_calls,
         .left = {.lock_held = 1},
         .check = reads({})},
    }};

TEST(GlobalStatsGet, Rows)
{
    get_rows.run();
}

TEST(GlobalStatsGet, DoesNotResetTheCounters)
{
    bench b;
    b.set_state_bytes(0x7008C1, six_counters);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(quiet([&] { return get(b); }), 0u);
        reads({0x12345678, 2, 0x100, 4, 0x100FF, 6})(b);
    }
}

TEST(GlobalStatsGet, ConvertsSixWordsAndNoneAfterAFailure)
{
    bench b;
    constexpr auto byte_order = static_cast<unsigned>(olv_sim::call_kind::byte_order);
    EXPECT_EQ(b.observe([&] { return get(b); }, byte_order).calls, std::vector<std::string>(6, "hyx_ntohl"));
    olv_sim::faults::set(call::hyx_se_state_get, {.code = 0x1FF});
    EXPECT_THAT(b.observe([&] { return get(b); }, byte_order).calls, testing::IsEmpty());
}

const table print_rows{
    "olv_twamp_global_stats_print",
    print,
    {
        {.label = "fresh module: the title alone",
         .console = ENTERING EXITING TITLE,
         .traces = framed,
         .calls = read_calls},
        {.label = "every counter",
         .arrange = counted(six_counters),
         .console = ENTERING EXITING TITLE "Total received packets: 305419896\n"
                                           "Total transmitted packets: 2\n"
                                           "Packets dropped due to responder not defined : 256\n"
                                           "Packets dropped due to length check failed: 4\n"
                                           "Packets dropped due to hash errors: 65791\n"
                                           "Packets dropped due to bind not defined: 6\n",
         .traces = framed,
         .calls = read_calls},
        {.label = "hash errors alone",
         .arrange = counted(hash_errors),
         .console = ENTERING EXITING TITLE "Packets dropped due to hash errors: 9\n",
         .traces = framed,
         .calls = read_calls},
        {.label = "counters of 2^31 and more are negative",
         .arrange = counted(large_counters),
         .console = ENTERING EXITING TITLE "Total received packets: -2147483648\n"
                                           "Total transmitted packets: -1\n",
         .traces = framed,
         .calls = read_calls},
        {.label = "null handle", .arrange = null_handle, .console = REFUSED_HANDLE, .traces = refused_handle},
        {.label = "record that is no module's",
         .arrange = foreign_handle,
         .console = REFUSED_HANDLE,
         .traces = refused_handle},
        {.label = "not initialised",
         .arrange = shut_down,
         .console = REFUSED_HANDLE,
         .traces = refused_handle,
         .left = nothing},
        {.label = "lock not taken",
         .faults = {failing(call::olv_sys_sem_lock_wait)},
         .console = ENTERING OLV_LOCK_REFUSED("twamp.c"),
         .traces = {entry(operation_name), error(lock_refused), error_status()},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait"}},
        {.label = "state cannot be read",
         .arrange = counted(six_counters),
         .faults = {failing(call::hyx_se_state_get)},
         .console = ENTERING UNREADABLE EXITING,
         .traces = failed_read,
         .calls = read_calls},
        {.label = "lock not released: nothing is printed",
         .arrange = counted(six_counters),
         .faults = {failing(call::hyx_sem_post)},
         .console = ENTERING OLV_RELEASE_REFUSED("twamp.c") EXITING,
         .traces = {entry(operation_name), error(release_refused), error_status(), exit(operation_name)},
         .calls = read_calls,
         .left = {.lock_held = 1}},
    }};

TEST(GlobalStatsPrint, Rows)
{
    print_rows.run();
}

TEST(GlobalStatsPrint, PrintsEveryCounterSigned)
{
    bench b({.module_flags = 0, .system_flags = 0});
    b.set_state_bytes(0x7008C1, std::vector<std::uint8_t>(24, 0xFF));
    EXPECT_EQ(b.observe([&] { return print(b); }).console, "\nTWAMP global statistics (Non-zero only)\n"
                                                           "Total received packets: -1\n"
                                                           "Total transmitted packets: -1\n"
                                                           "Packets dropped due to responder not defined : -1\n"
                                                           "Packets dropped due to length check failed: -1\n"
                                                           "Packets dropped due to hash errors: -1\n"
                                                           "Packets dropped due to bind not defined: -1\n");
}

} // namespace
} // namespace olv_test
