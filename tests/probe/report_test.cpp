// Figures as text and JSON.

#include "apps/common/json_report.hpp"
#include "apps/common/text_report.hpp"

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "packets.hpp"

namespace olv_probe {
namespace {

using nlohmann::ordered_json;

run_report report_of(const scripted_session &session)
{
    run_report report;
    report.options.reflector = olv_net::parse_socket_address("192.0.2.1:862");
    report.options.count = 4;
    report.started = 1'795'387'251'446'565'999;
    report.timestamps = timestamp_source::kernel;
    report.elapsed = std::chrono::milliseconds(1500);
    const measurement *result = &session.result;
    report.total = figures_of({&result, 1});
    report.stamps = {.requests = report.total.counts.sent, .replies = 3};
    report.senders.push_back({.address = "192.0.2.9:40000", .figures = report.total});
    return report;
}

TEST(Announcement, SaysWhatIsSent)
{
    session_options options;
    options.reflector = olv_net::parse_socket_address("[2001:db8::1]:862");
    EXPECT_EQ(announcement(options), "100 packets of 41 octets to [2001:db8::1]:862\n");
    options.senders = 3;
    EXPECT_EQ(announcement(options), "100 packets of 41 octets to [2001:db8::1]:862 from each of 3 senders\n");
    options.senders = 1;
    options.duration = std::chrono::milliseconds(2500);
    EXPECT_EQ(announcement(options), "packets of 41 octets to [2001:db8::1]:862 for 2.5 s\n");
}

TEST(Text, HasAllFigures)
{
    EXPECT_EQ(text_report(report_of(example())),
              "sent: 4\n"
              "received: 4\n"
              "valid: 2\n"
              "invalid: 1\n"
              "  reflector sequence number not above the one before: 1\n"
              "lost: 1 (25.00 %)\n"
              "duplicates: 1\n"
              "sender TTL not 255: 1\n"
              "round trip in microseconds: min 100.0, median 100.0, p99 300.0, max 300.0\n"
              "reordered: 2 (66.67 %)\n"
              "hops forward: min 0, max 5 (TTL 250 to 255, sent with 255)\n"
              "hops backward: min 0, max 195 (TTL 60 to 255, assumed 255)\n"
              "replies with DSCP CS0 and ECN not-ect: 1\n"
              "replies with DSCP EF and ECN ect0: 1\n"
              "time stamps: kernel (of 4 requests and 3 replies)\n"
              "\n"
              "microseconds                 round trip            forward           backward\n"
              "min                               100.0                0.0              100.0\n"
              "mean                              200.0                0.0              200.0\n"
              "stddev                            100.0                0.0              100.0\n"
              "p50                               100.0                0.0              100.0\n"
              "p90                               300.0                0.0              300.0\n"
              "p95                               300.0                0.0              300.0\n"
              "p99                               300.0                0.0              300.0\n"
              "p99.9                             300.0                0.0              300.0\n"
              "max                               300.0                0.0              300.0\n"
              "IPDV min                            0.0                0.0                0.0\n"
              "IPDV mean magnitude                 0.0                0.0                0.0\n"
              "IPDV max                            0.0                0.0                0.0\n"
              "PDV p50                             0.0                0.0                0.0\n"
              "PDV p99                           200.0                0.0              200.0\n"
              "PDV p99.9                         200.0                0.0              200.0\n"
              "forward and backward contain the difference of the two clocks; if both ways\n"
              "take equally long, the reflector's is ahead by -50.0 microseconds\n"
              "the reflector calls its clock not synchronised, wrong by at most 976.6 microseconds\n");
}

TEST(Text, HasALineForEachOfSeveralSenders)
{
    const scripted_session silent{2};
    run_report report = report_of(example());
    const measurement *result = &silent.result;
    report.senders.push_back({.address = "192.0.2.9:40001", .figures = figures_of({&result, 1})});
    EXPECT_THAT(
        text_report(report),
        testing::EndsWith("\n\nsender 192.0.2.9:40000:\n  sent 4, valid 2, invalid 1, lost 1, duplicates 1, "
                          "reordered 2\n  round trip min 100.0, median 100.0, max 300.0\n"
                          "sender 192.0.2.9:40001:\n  sent 2, valid 0, invalid 0, lost 2, duplicates 0, "
                          "reordered 0\n"));
}

TEST(Text, OfNothingSaysSo)
{
    EXPECT_EQ(text_report(report_of(scripted_session{})), "sent: 0\n"
                                                          "received: 0\n"
                                                          "valid: 0\n"
                                                          "invalid: 0\n"
                                                          "lost: 0 (0.00 %)\n"
                                                          "duplicates: 0\n"
                                                          "round trip: not measured\n"
                                                          "reordered: 0 (0.00 %)\n"
                                                          "time stamps: kernel\n");
}

/** "sent received valid". */
std::string names_of(const ordered_json &object)
{
    std::string names;
    for (const auto &entry : object.items()) {
        names += (names.empty() ? "" : " ") + entry.key();
    }
    return names;
}

/** Expects the values at these places of a document. */
void expect_values(const ordered_json &document,
                   const std::vector<std::pair<const char *, ordered_json>> &values)
{
    for (const auto &[place, value] : values) {
        EXPECT_EQ(document[ordered_json::json_pointer(place)], value) << place;
    }
}

TEST(Json, HasTheFigures)
{
    const auto document = ordered_json::parse(json_report(report_of(example())));
    expect_values(document, {{"/elapsed_s", 1.5},
                             {"/options/reflector", "192.0.2.1:862"},
                             {"/total/sent", 4},
                             {"/total/faults", {{"reflector_sequence", 1}}},
                             {"/total/lost_percent", 25.0},
                             {"/total/sender_ttl_changed", 1},
                             {"/total/hops_forward/max", 5},
                             {"/total/hops_backward/ttl_initial", 255},
                             {"/total/round_trip_us/delay/p99_9", 300.0},
                             {"/total/round_trip_us/pdv/max", 200.0},
                             {"/total/round_trip_us/ipdv", nullptr},
                             {"/total/clock_offset_us", -50.0},
                             {"/total/reflector_clock/synchronized", 0},
                             {"/total/reflector_clock/error_us_max", 976.5625},
                             {"/total/reply_traffic_classes/1/dscp", 46},
                             {"/total/reply_traffic_classes/1/dscp_name", "EF"},
                             {"/total/reply_traffic_classes/1/ecn", "ect0"},
                             {"/total/reply_traffic_classes/1/replies", 1},
                             {"/started", "2026-11-22T22:40:51.446565Z"},
                             {"/timestamps/replies", 3},
                             {"/senders/0/address", "192.0.2.9:40000"},
                             {"/senders/0/sent", 4}});
    EXPECT_EQ(
        names_of(document["options"]),
        "reflector packets size padding dscp ecn ttl dont_fragment source interface timeout_s interval_ms "
        "schedule count");
    EXPECT_EQ(names_of(document["total"]["hops_forward"]), "ttl_min ttl_max ttl_initial min max");
    EXPECT_EQ(names_of(document["total"]["round_trip_us"]["delay"]),
              "count min mean mean_magnitude stddev p50 p90 p95 p99 p99_9 max");
}

TEST(Json, HasItsNamesInTheirOrderAndNullForWhatWasNotMeasured)
{
    const std::string figures = R"("sent": 0, "received": 0, "valid": 0, "invalid": 0, "faults": {}, "lost": 0,
        "lost_percent": null, "duplicates": 0, "forgotten": 0, "reordered": 0, "reordered_percent": null, "sender_ttl_changed": 0,
        "hops_forward": null, "hops_backward": null, "reply_traffic_classes": [],
        "round_trip_us": {"delay": null, "ipdv": null, "pdv": null},
        "forward_us": {"delay": null, "ipdv": null, "pdv": null},
        "backward_us": {"delay": null, "ipdv": null, "pdv": null}, "clock_offset_us": null,
        "reflector_clock": null})";
    run_report report = report_of(scripted_session{});
    report.options.window = 8;
    report.options.duration = std::chrono::seconds(2);
    report.options.stamp = true;
    EXPECT_EQ(json_report(report), ordered_json::parse(R"({"options": {
        "reflector": "192.0.2.1:862", "packets": "stamp", "size": 41, "padding": "zero", "dscp": 0, "ecn": "not-ect",
        "ttl": 255, "dont_fragment": false, "source": null, "interface": null,
        "timeout_s": 2.0, "window": 8, "duration_s": 2.0
    }, "started": "2026-11-22T22:40:51.446565Z", "elapsed_s": 1.5, "interrupted": false, "refused": false,
    "timestamps": {"source": "kernel", "requests": 0, "replies": 3},
    "total": {)" + figures + R"(, "senders": [{"address": "192.0.2.9:40000", )" +
                                                       figures + "]}")
                                           .dump(2) +
                                       "\n");
}

} // namespace
} // namespace olv_probe
