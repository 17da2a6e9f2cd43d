// Figures in Prometheus' text format: every metric with its type, help, labels and value.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/twampctl/figures/figures_output.hpp"
#include "example_figures.hpp"

namespace apps_tests {
namespace {

using testing::HasSubstr;
using testing::Not;

std::string prometheus_of(const twampctl::figures_part &part)
{
    return twampctl::format(part, twampctl::output_format::prometheus);
}

constexpr const char *module_metrics =
    R"(# HELP olv_twamp_received_packets_total Test packets that reached the module.
# TYPE olv_twamp_received_packets_total counter
olv_twamp_received_packets_total 10
# HELP olv_twamp_transmitted_packets_total Test packets that the module reflected.
# TYPE olv_twamp_transmitted_packets_total counter
olv_twamp_transmitted_packets_total 11
# HELP olv_twamp_dropped_packets_total Test packets that the module dropped, by reason.
# TYPE olv_twamp_dropped_packets_total counter
olv_twamp_dropped_packets_total{reason="no_responder"} 12
olv_twamp_dropped_packets_total{reason="length_check"} 13
olv_twamp_dropped_packets_total{reason="hash_error"} 14
olv_twamp_dropped_packets_total{reason="no_bind"} 4294967295
)";

constexpr const char *responder_metrics =
    R"(# HELP olv_twamp_responder_received_packets_total Test packets that reached the responder.
# TYPE olv_twamp_responder_received_packets_total counter
olv_twamp_responder_received_packets_total{responder="edge",id="26"} 20
# HELP olv_twamp_responder_transmitted_packets_total Test packets that the responder reflected.
# TYPE olv_twamp_responder_transmitted_packets_total counter
olv_twamp_responder_transmitted_packets_total{responder="edge",id="26"} 15
# HELP olv_twamp_responder_dropped_packets_total Test packets that the responder dropped, by reason.
# TYPE olv_twamp_responder_dropped_packets_total counter
olv_twamp_responder_dropped_packets_total{responder="edge",id="26",reason="length_check"} 3
olv_twamp_responder_dropped_packets_total{responder="edge",id="26",reason="max_sessions"} 2
# HELP olv_twamp_responder_active_sessions Sessions that the responder has.
# TYPE olv_twamp_responder_active_sessions gauge
olv_twamp_responder_active_sessions{responder="edge",id="26"} 4
# HELP olv_twamp_responder_session_limit Sessions that the responder may have.
# TYPE olv_twamp_responder_session_limit gauge
olv_twamp_responder_session_limit{responder="edge",id="26"} 61
)";

constexpr const char *listener_metrics =
    R"(# HELP olv_twamp_listener_info Where the packets of a listener go. Always 1.
# TYPE olv_twamp_listener_info gauge
olv_twamp_listener_info{listener="[::1]:8620",responder="edge",bind_key="6"} 1
# HELP olv_twamp_listener_received_packets_total Datagrams that the listener handed to the reflector.
# TYPE olv_twamp_listener_received_packets_total counter
olv_twamp_listener_received_packets_total{listener="[::1]:8620"} 31
# HELP olv_twamp_listener_dropped_packets_total Datagrams that the listener dropped before the reflector saw them, by reason.
# TYPE olv_twamp_listener_dropped_packets_total counter
olv_twamp_listener_dropped_packets_total{listener="[::1]:8620",reason="socket_full"} 30
olv_twamp_listener_dropped_packets_total{listener="[::1]:8620",reason="source_not_allowed"} 32
olv_twamp_listener_dropped_packets_total{listener="[::1]:8620",reason="source_port"} 33
olv_twamp_listener_dropped_packets_total{listener="[::1]:8620",reason="own_source"} 34
olv_twamp_listener_dropped_packets_total{listener="[::1]:8620",reason="not_to_this_host"} 45
olv_twamp_listener_dropped_packets_total{listener="[::1]:8620",reason="too_long"} 35
olv_twamp_listener_dropped_packets_total{listener="[::1]:8620",reason="answer_to_reply"} 36
olv_twamp_listener_dropped_packets_total{listener="[::1]:8620",reason="unstamped_rate"} 62
olv_twamp_listener_dropped_packets_total{listener="[::1]:8620",reason="packet_rate"} 37
# HELP olv_twamp_listener_sent_replies_total Replies that the system took.
# TYPE olv_twamp_listener_sent_replies_total counter
olv_twamp_listener_sent_replies_total{listener="[::1]:8620"} 38
# HELP olv_twamp_listener_failed_replies_total Replies that the system did not take, counted as reflected all the same.
# TYPE olv_twamp_listener_failed_replies_total counter
olv_twamp_listener_failed_replies_total{listener="[::1]:8620"} 39
)";

constexpr const char *session_metrics =
    R"(# HELP olv_twamp_gave_way_sessions_total Sessions that ended so that new senders could have theirs.
# TYPE olv_twamp_gave_way_sessions_total counter
olv_twamp_gave_way_sessions_total 63
)";

constexpr const char *platform_metrics =
    R"(# HELP olv_twamp_platform_memory_blocks In use on the platform: memory blocks.
# TYPE olv_twamp_platform_memory_blocks gauge
olv_twamp_platform_memory_blocks 51
# HELP olv_twamp_platform_responder_ids In use on the platform: responder IDs.
# TYPE olv_twamp_platform_responder_ids gauge
olv_twamp_platform_responder_ids 52
# HELP olv_twamp_platform_responder_entries In use on the platform: responder entries.
# TYPE olv_twamp_platform_responder_entries gauge
olv_twamp_platform_responder_entries 53
# HELP olv_twamp_platform_bind_entries In use on the platform: bind entries.
# TYPE olv_twamp_platform_bind_entries gauge
olv_twamp_platform_bind_entries 54
# HELP olv_twamp_platform_patterns In use on the platform: patterns.
# TYPE olv_twamp_platform_patterns gauge
olv_twamp_platform_patterns 55
# HELP olv_twamp_platform_violations_total Calls that broke a rule of the platform, such as a double free.
# TYPE olv_twamp_platform_violations_total counter
olv_twamp_platform_violations_total 56
)";

TEST(FiguresPrometheus, HasEveryMetric)
{
    EXPECT_EQ(prometheus_of(example_figures()),
              std::string(R"(# HELP olv_twamp_processor_info The processor that the module runs on. Always 1.
# TYPE olv_twamp_processor_info gauge
olv_twamp_processor_info{processor="np0"} 1
# HELP olv_twamp_module_up Whether the module is initialised: 1 or 0.
# TYPE olv_twamp_module_up gauge
olv_twamp_module_up 1
# HELP olv_twamp_collection_timestamp_seconds When these figures were collected, since 1970.
# TYPE olv_twamp_collection_timestamp_seconds gauge
olv_twamp_collection_timestamp_seconds 1738324800.25
)") + module_metrics +
                  responder_metrics + listener_metrics + session_metrics + platform_metrics);
}

TEST(FiguresPrometheus, OfOnePieceHasItsMetrics)
{
    EXPECT_EQ(prometheus_of(std::optional{example_module()}), module_metrics);
    EXPECT_EQ(prometheus_of(example_responder()), responder_metrics);
    EXPECT_EQ(prometheus_of(std::vector{example_responder()}), responder_metrics);
    EXPECT_EQ(prometheus_of(std::vector{example_listener()}), listener_metrics);
    EXPECT_EQ(prometheus_of(example_usage()), platform_metrics);
}

TEST(FiguresPrometheus, OfSessionsHasASeriesForEach)
{
    twampctl::session_figures other = example_session();
    other.sender = "[2001:db8::7]:40001";
    other.round_trip_seconds = std::nullopt;
    EXPECT_EQ(prometheus_of(std::vector{example_session(), other}),
              R"(# HELP olv_twamp_session_replies_total Replies to the sender.
# TYPE olv_twamp_session_replies_total counter
olv_twamp_session_replies_total{responder="edge",sender="192.0.2.7:40000"} 41
olv_twamp_session_replies_total{responder="edge",sender="[2001:db8::7]:40001"} 41
# HELP olv_twamp_session_idle_seconds Time since the sender's last packet.
# TYPE olv_twamp_session_idle_seconds gauge
olv_twamp_session_idle_seconds{responder="edge",sender="192.0.2.7:40000"} 1.5
olv_twamp_session_idle_seconds{responder="edge",sender="[2001:db8::7]:40001"} 1.5
# HELP olv_twamp_session_round_trip_seconds Round trip of the sender's last packet.
# TYPE olv_twamp_session_round_trip_seconds gauge
olv_twamp_session_round_trip_seconds{responder="edge",sender="192.0.2.7:40000"} 0.00025
)");
}

TEST(FiguresPrometheus, LeavesOutWhatCannotBeRead)
{
    EXPECT_EQ(prometheus_of(std::optional<olv_twamp_global_stats>{}), "");
    EXPECT_EQ(prometheus_of(twampctl::responder_figures{.name = "b", .id = 2, .counters = {}}), "");
    const std::string nothing = prometheus_of(twampctl::figures{});
    EXPECT_THAT(nothing, HasSubstr("\nolv_twamp_module_up 0\n"));
    EXPECT_THAT(nothing, Not(HasSubstr("packets_total")));
}

TEST(FiguresPrometheus, EscapesNames)
{
    twampctl::responder_figures responder = example_responder();
    responder.name = hostile_name;
    EXPECT_THAT(prometheus_of(responder),
                HasSubstr("\nolv_twamp_responder_received_packets_total"
                          "{responder=\"a\\\"b\\\\c\\nd\x1b[2J\xc3\xa9\xef\xbf\xbd\",id=\"26\"} 20\n"));
}

} // namespace
} // namespace apps_tests
