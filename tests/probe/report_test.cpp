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
              "odd: 1\n"
              "invalid: 0\n"
              "  reflector sequence number used before: 1\n"
              "lost: 1 (25.00 %)\n"
              "  forward: 0, backward: 1\n"
              "duplicates: 1\n"
              "  forward: 0, backward: 1\n"
              "sender TTL not 255: 1\n"
              "round trip in microseconds: min 100.0, median 300.0, p99 300.0, max 300.0\n"
              "reordered: 2 (66.67 %)\n"
              "  forward: 1, backward: 1\n"
              "hops forward: min 0, max 5 (TTL 250 to 255, sent with 255)\n"
              "hops backward: min 0, max 195 (TTL 60 to 255, assumed 255)\n"
              "replies with DSCP CS0 and ECN not-ect: 2\n"
              "replies with DSCP EF and ECN ect0: 1\n"
              "time stamps: kernel (of 4 requests and 3 replies)\n"
              "\n"
              "microseconds                 round trip            forward           backward\n"
              "min                               100.0                0.0              100.0\n"
              "mean                              233.3                0.0              233.3\n"
              "stddev                             94.3                0.0               94.3\n"
              "p50                               300.0                0.0              300.0\n"
              "p90                               300.0                0.0              300.0\n"
              "p95                               300.0                0.0              300.0\n"
              "p99                               300.0                0.0              300.0\n"
              "p99.9                             300.0                0.0              300.0\n"
              "max                               300.0                0.0              300.0\n"
              "IPDV min                            0.0                0.0                0.0\n"
              "IPDV mean magnitude                 0.0                0.0                0.0\n"
              "IPDV max                            0.0                0.0                0.0\n"
              "PDV p50                           200.0                0.0              200.0\n"
              "PDV p99                           200.0                0.0              200.0\n"
              "PDV p99.9                         200.0                0.0              200.0\n"
              "forward and backward contain the difference of the two clocks; if both ways\n"
              "take equally long, the reflector's is ahead by -50.0 microseconds\n"
              "the reflector calls its clock not synchronised, wrong by at most 976.6 microseconds\n");
}

/** Seven packets: one is lost forward, then the reflector's clock goes a second forward, then its numbers begin
 *  anew; the last reply has no T2. */
scripted_session eventful()
{
    scripted_session session{8};
    const std::int64_t wire_second = second;
    const std::pair<std::uint32_t, answer> replies[] = {
        {0, {.number = 0}},
        {2, {.number = 1}},
        {3, {.number = 2, .received = wire_second, .sent_back = wire_second}},
        {4, {.number = 3, .received = wire_second, .sent_back = wire_second}},
        {5, {.number = 0, .received = wire_second, .sent_back = wire_second}},
        {6, {.number = 1, .received = wire_second, .sent_back = wire_second}}};
    for (const auto &[sequence, given] : replies) {
        session.receive(sequence, given, 100'000);
    }
    std::vector<std::uint8_t> without_time = session.reply(7, {.number = 2});
    std::fill_n(&without_time[16], 8, std::uint8_t{0});
    session.receive_octets(7, without_time, 100'000);
    return session;
}

TEST(Text, SaysWhatHappenedOnTheWay)
{
    const std::string text = text_report(report_of(eventful()));
    EXPECT_THAT(text, testing::StartsWith(
                          "sent: 8\n"
                          "received: 7\n"
                          "valid: 6\n"
                          "odd: 1\n"
                          "invalid: 0\n"
                          "  reflector timestamp 0: 1\n"
                          "not measured: 1\n"
                          "lost: 1 (12.50 %)\n"
                          "  forward: 1, backward: 0\n"
                          "duplicates: 0\n"
                          "round trip in microseconds: min 100.0, median 100.0, p99 100.0, max 100.0\n"
                          "reordered: 0 (0.00 %)\n"
                          "at 0.750 s, packet 3: the reflector's clock was set by +1000000.0 microseconds\n"
                          "at 1.250 s, packet 5: the reflector's numbers began anew\n"
                          "hops forward: "));
    EXPECT_THAT(text, testing::HasSubstr("\nmicroseconds                 round trip\n"
                                         "min                               100.0\n"));
    EXPECT_THAT(text, testing::EndsWith(
                          "one-way delays in microseconds from packet 0 on:\n"
                          "  forward min 0.0, median 0.0, max 0.0\n"
                          "  backward min 100.0, median 100.0, max 100.0\n"
                          "  the reflector's clock is ahead by -50.0 if both ways take equally long\n"
                          "one-way delays in microseconds from packet 3 on:\n"
                          "  forward min 1000000.0, median 1000000.0, max 1000000.0\n"
                          "  backward min -999900.0, median -999900.0, max -999900.0\n"
                          "  the reflector's clock is ahead by 999950.0 if both ways take equally long\n"));
}

TEST(Text, SaysWhyAWayIsNotKnown)
{
    const std::pair<std::vector<std::pair<std::uint32_t, std::uint32_t>>, const char *> rows[] = {
        {{{0, 0}, {2, 2}}, "\nways not known: the reflector's numbers are the requests'\n"},
        {{{1, 0}, {2, 1}}, "\n  forward: 1, backward: 0, not known: 1\nduplicates: 0\n"},
        {{{1, 0}, {2, 1}}, "\nways not known: of packets after which nothing came back\n"},
        {{{0, 0}, {1, 5}}, "\nways not known: the reflector numbers other replies, too\n"},
        {{{0, 0}, {1, 0}}, "\nways not known: the reflector does not number its replies\n"}};
    for (const auto &[replies, line] : rows) {
        scripted_session session{4};
        for (const auto &[sequence, number] : replies) {
            session.receive(sequence, {.number = number}, 1000);
        }
        EXPECT_THAT(text_report(report_of(session)), testing::HasSubstr(line));
    }
}

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

TEST(Complete, IsARunWithARoundTripOfEachPacketUnlessItIsStrict)
{
    const struct {
        const char *label;
        std::uint8_t sender_ttl;
        int answered;
        std::int64_t in_reflector;
        bool complete;
        bool complete_if_strict;
    } rows[] = {{"valid", 255, 2, 0, true, true},
                {"odd", 0, 2, 0, true, false},
                {"not measured", 255, 2, second, false, false},
                {"lost", 255, 1, 0, false, false}};
    for (const auto &row : rows) {
        for (const bool strict : {false, true}) {
            scripted_session session{2, {.judged = strict ? judging::strict : judging::lenient}};
            for (int reply = 0; reply < row.answered; ++reply) {
                const auto sequence = static_cast<std::uint32_t>(reply);
                session.receive(
                    sequence,
                    {.number = sequence, .sent_back = row.in_reflector, .request_ttl = row.sender_ttl}, 1000);
            }
            run_report report = report_of(session);
            report.options.strict = strict;
            EXPECT_EQ(is_complete(report), strict ? row.complete_if_strict : row.complete)
                << row.label << strict;
        }
    }
}

TEST(Text, HasALineForEachOfSeveralSenders)
{
    const scripted_session silent{2};
    run_report report = report_of(example());
    const measurement *result = &silent.result;
    report.senders.push_back({.address = "192.0.2.9:40001", .figures = figures_of({&result, 1})});
    EXPECT_THAT(text_report(report),
                testing::EndsWith(
                    "\n\nsender 192.0.2.9:40000:\n  sent 4, valid 2, odd 1, invalid 0, lost 1, duplicates 1, "
                    "reordered 2\n  round trip min 100.0, median 300.0, max 300.0\n"
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
