// What "watch" shows of two instants: rates, and drops of listeners, module and responders by reason.

#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/twampctl/figures/watch_text.hpp"
#include "example_figures.hpp"

namespace apps_tests {
namespace {

using olv_fastpath::drop_reason;
using testing::HasSubstr;
using twampctl::watch_line;
using twampctl::watch_screen;

/** 2025-01-31 12:00:00 UTC, with counters of 0, of a listener and of two responders. */
twampctl::figures figures_before()
{
    twampctl::figures all;
    all.taken_at = 1738324800;
    all.processor = "np0";
    all.module_up = true;
    all.module = olv_twamp_global_stats{};
    all.listeners = {{.address = "[::1]:8620", .responder = "east", .bind_key = 6, .counters = {}}};
    all.responders = {{.name = "east", .id = 1, .counters = olv_twamp_responder_stats{}},
                      {.name = "west", .id = 2, .counters = olv_twamp_responder_stats{}}};
    return all;
}

/** Two seconds later. */
twampctl::figures figures_after()
{
    twampctl::figures all = figures_before();
    all.taken_at += 2;
    all.module->total_rx = 200;
    all.module->total_tx = 180;
    all.module->drop_hash_error = 15; // 14 of them are full sessions
    all.module->drop_no_bind = 5;
    all.responders[0].counters->drop_max_sessions = 10;
    all.responders[1].counters->drop_max_sessions = 4;
    all.listeners[0].counters.dropped_packets[drop_reason::source_not_allowed] = 7;
    all.listeners[0].counters.dropped_packets[drop_reason::socket_full] = 3;
    return all;
}

TEST(WatchLine, HasTheTimeAndCountsWhatListenersDrop)
{
    EXPECT_EQ(watch_line(figures_before(), figures_before()),
              "2025-01-31T12:00:00Z  received 0.0/s  sent 0.0/s  dropped 0.0/s  sessions 0\n");
    EXPECT_EQ(watch_line(figures_before(), figures_after()),
              "2025-01-31T12:00:02Z  received 100.0/s  sent 90.0/s  dropped 15.0/s  sessions 0  "
              "socket_full 3 (1.5/s)  source_not_allowed 7 (3.5/s)  max_sessions 14 (7.0/s)  "
              "hash_error 1 (0.5/s)  no_bind 5 (2.5/s)\n");
    twampctl::figures later = figures_after();
    later.taken_at += 1;
    later.listeners[0].counters.dropped_packets[drop_reason::socket_full] = 4;
    EXPECT_THAT(
        watch_line(figures_after(), later),
        HasSubstr("  dropped 1.0/s  sessions 0  socket_full 4 (1.0/s)  source_not_allowed 7 (0.0/s)  "));
}

TEST(WatchLine, GoesRoundWithTheCountersAndBeginsAnewWithThem)
{
    twampctl::figures before = figures_after();
    before.module->drop_no_bind = 4294967295;
    before.responders[0].counters->drop_max_sessions = 4294967295;
    before.module->drop_hash_error = 4294967295;
    twampctl::figures after = figures_after();
    after.taken_at += 1;
    after.module->drop_no_bind = 1;
    after.responders[0].counters->drop_max_sessions = 2;
    after.module->drop_hash_error = 2;
    after.listeners[0].counters.dropped_packets = {}; // it was closed, and opened again
    after.listeners[0].counters.dropped_packets[drop_reason::socket_full] = 1;
    after.responders[1].id = 3; // another one
    after.responders[1].counters->drop_max_sessions = 0;
    EXPECT_EQ(watch_line(before, after),
              "2025-01-31T12:00:03Z  received 0.0/s  sent 0.0/s  dropped 6.0/s  sessions 0  "
              "socket_full 1 (1.0/s)  max_sessions 2 (3.0/s)  no_bind 1 (2.0/s)\n");
}

TEST(WatchScreen, ShowsDropsByReasonAndFits)
{
    const std::string screen = watch_screen(figures_before(), figures_after(), 24);
    EXPECT_THAT(screen, HasSubstr("processor np0, module up, 12:00:02 UTC, every 2.0 s, Ctrl-C ends\n"
                                  "now      received 100.0/s  sent 90.0/s  dropped 15.0/s  sessions 0\n"
                                  "total    received 200  sent 180  dropped 30\n"
                                  "drops    socket_full 3 (1.5/s)  source_not_allowed 7 (3.5/s)\n"
                                  "         max_sessions 14 (7.0/s)  hash_error 1 (0.5/s)  no_bind 5 (2.5/s)\n"
                                  "\n"
                                  "RESPONDER "));
    EXPECT_THAT(watch_screen(figures_before(), figures_before(), 24),
                HasSubstr("\ntotal    received 0  sent 0  dropped 0\ndrops    none\n\nRESPONDER "));

    twampctl::figures full = figures_after();
    for (const olv_fastpath::drop_reason_entry &each : olv_fastpath::drop_reasons) {
        full.listeners[0].counters.dropped_packets[each.reason] = 1'000'000'000'000u;
    }
    full.responders.resize(40, full.responders[0]);
    full.sessions.resize(40, example_session());
    const std::string crowded = watch_screen(figures_before(), full, 30);
    EXPECT_LE(std::count(crowded.begin(), crowded.end(), '\n'), 29);
    std::size_t start = 0;
    for (std::size_t end = 0; (end = crowded.find('\n', start)) != std::string::npos; start = end + 1) {
        EXPECT_LE(end - start, 79u) << crowded.substr(start, end - start);
    }
}

} // namespace
} // namespace apps_tests
