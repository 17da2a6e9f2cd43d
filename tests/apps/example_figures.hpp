/**
 * @file example_figures.hpp
 * Figures in which no two counters are alike.
 */
#ifndef OLV_TESTS_EXAMPLE_FIGURES_HPP
#define OLV_TESTS_EXAMPLE_FIGURES_HPP

#include "apps/twampctl/figures/figures.hpp"

namespace apps_tests {

/** Received, transmitted, dropped for its length, sessions, dropped for want of one. */
inline twampctl::responder_figures example_responder()
{
    return {.name = "edge",
            .id = 0x1A,
            .counters = olv_twamp_responder_stats{20, 15, 3, 4, 2},
            .session_limit = 61};
}

inline olv_fastpath::listener_statistics example_listener_statistics()
{
    using olv_fastpath::drop_reason;
    olv_fastpath::listener_statistics counters;
    counters.dropped_packets[drop_reason::socket_full] = 30;
    counters.received_packets = 31;
    counters.dropped_packets[drop_reason::source_not_allowed] = 32;
    counters.dropped_packets[drop_reason::source_port] = 33;
    counters.dropped_packets[drop_reason::own_source] = 34;
    counters.dropped_packets[drop_reason::not_to_this_host] = 45;
    counters.dropped_packets[drop_reason::too_long] = 35;
    counters.dropped_packets[drop_reason::answer_to_reply] = 36;
    counters.dropped_packets[drop_reason::unstamped_rate] = 62;
    counters.dropped_packets[drop_reason::packet_rate] = 37;
    counters.sent_replies = 38;
    counters.failed_replies = 39;
    return counters;
}

inline twampctl::listener_figures example_listener()
{
    return {
        .address = "[::1]:8620", .responder = "edge", .bind_key = 6, .counters = example_listener_statistics()};
}

inline twampctl::session_figures example_session()
{
    return {"edge", "192.0.2.7:40000", 41, 1.5, 0.00025};
}

/** Received, transmitted, dropped for want of a responder, of length, of a hash, of a bind. */
inline olv_twamp_global_stats example_module()
{
    return {10, 11, 12, 13, 14, 4294967295};
}

inline twampctl::platform_usage example_usage()
{
    return {51, 52, 53, 54, 55, 56};
}

inline twampctl::figures example_figures()
{
    return {.taken_at = 1738324800.25,
            .processor = "np0",
            .module_up = true,
            .module = example_module(),
            .responders = {example_responder()},
            .listeners = {example_listener()},
            .sessions = {example_session()},
            .gave_way_sessions = 63,
            .usage = example_usage()};
}

/** A name with a quote, a backslash, a line's end, an escape sequence, a letter of two bytes and a byte that is
 * not UTF-8. */
inline constexpr const char *hostile_name = "a\"b\\c\nd\x1b[2J\xc3\xa9\xff";

} // namespace apps_tests

#endif
