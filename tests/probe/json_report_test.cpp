// Figures as JSON.

#include "apps/common/json_report.hpp"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include "reports.hpp"

namespace olv_probe {
namespace {

using nlohmann::ordered_json;

TEST(Json, SaysWhatHappenedOnTheWay)
{
    const auto document = ordered_json::parse(json_report(report_of(eventful())));
    EXPECT_EQ(document["total"]["events"], ordered_json::parse(R"([
        {"event": "reflector_clock_set", "sequence": 3, "at_s": 0.75, "by_us": 1000000.0},
        {"event": "reflector_restart", "sequence": 5, "at_s": 1.25}])"));
    const ordered_json &periods = document["total"]["periods"];
    ASSERT_EQ(periods.size(), 2u);
    EXPECT_EQ(periods[1]["sequence"], 3);
    EXPECT_EQ(periods[1]["at_s"], 0.75);
    EXPECT_EQ(periods[0]["forward_us"]["delay"]["count"], 2);
    EXPECT_EQ(periods[1]["backward_us"]["delay"]["min"], -999900.0);
    EXPECT_EQ(periods[1]["clock_offset_us"], 999950.0);
    EXPECT_EQ(document["total"]["forward_us"]["delay"], nullptr);
    EXPECT_EQ(document["total"]["clock_offset_us"], nullptr);
    EXPECT_EQ(document["total"]["round_trip_us"]["delay"]["count"], 6);
    EXPECT_EQ(document["total"]["reflector_restarts"], 1);
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
                             {"/total/round_trip_us/delay/p50", 300.0},
                             {"/total/round_trip_us/delay/p90", nullptr},
                             {"/total/round_trip_us/delay/p99_9", nullptr},
                             {"/total/round_trip_us/pdv/max", 200.0},
                             {"/total/round_trip_us/ipdv/count", 1},
                             {"/total/odd", 1},
                             {"/total/measured", 3},
                             {"/total/reflector_numbers", "session"},
                             {"/total/lost_by_way", {{"forward", 0}, {"backward", 1}, {"unknown", 0}}},
                             {"/total/duplicates_by_way", {{"forward", 0}, {"backward", 1}, {"unknown", 0}}},
                             {"/total/reordered_by_way", {{"forward", 1}, {"backward", 1}, {"unknown", 0}}},
                             {"/total/time_scale", "ntp"},
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
    EXPECT_EQ(names_of(document["options"]), "reflector packets size padding ptp strict dscp ecn ttl "
                                             "dont_fragment source interface timeout_s interval_ms "
                                             "schedule count");
    EXPECT_EQ(names_of(document["total"]["hops_forward"]), "ttl_min ttl_max ttl_initial min max");
    EXPECT_EQ(names_of(document["total"]["round_trip_us"]["delay"]),
              "count min mean mean_magnitude stddev p50 p90 p95 p99 p99_9 max");
}

TEST(Json, HasItsNamesInTheirOrderAndNullForWhatWasNotMeasured)
{
    const std::string figures = R"("sent": 0, "received": 0, "valid": 0, "odd": 0, "invalid": 0, "faults": {},
        "measured": 0, "lost": 0,
        "lost_percent": null, "duplicates": 0, "forgotten": 0, "reordered": 0, "reordered_percent": null, "sender_ttl_changed": 0,
        "hops_forward": null, "hops_backward": null, "reply_traffic_classes": [],
        "round_trip_us": {"delay": null, "ipdv": null, "pdv": null},
        "forward_us": {"delay": null, "ipdv": null, "pdv": null},
        "backward_us": {"delay": null, "ipdv": null, "pdv": null}, "clock_offset_us": null,
        "reflector_numbers": null, "lost_by_way": {"forward": 0, "backward": 0, "unknown": 0},
        "duplicates_by_way": {"forward": 0, "backward": 0, "unknown": 0},
        "reordered_by_way": {"forward": 0, "backward": 0, "unknown": 0}, "reflector_restarts": 0,
        "time_scale": null, "events": [], "periods": [], "reflector_clock": null})";
    run_report report = report_of(scripted_session{});
    report.options.window = 8;
    report.options.duration = std::chrono::seconds(2);
    report.options.stamp = true;
    EXPECT_EQ(json_report(report), ordered_json::parse(R"({"options": {
        "reflector": "192.0.2.1:862", "packets": "stamp", "size": 41, "padding": "zero", "ptp": false, "strict": false,
        "dscp": 0, "ecn": "not-ect",
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
