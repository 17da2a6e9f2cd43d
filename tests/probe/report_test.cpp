// Figures as text, JSON and CSV.

#include "apps/common/json_report.hpp"
#include "apps/common/text_report.hpp"
#include "apps/twamp-probe/csv_report.hpp"

#include <cstdlib>

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "packets.hpp"

namespace olv_probe {
namespace {

using nlohmann::ordered_json;
using testing::HasSubstr;

/** Four packets: late and 300 us, a repeated number, lost, 100 us and a duplicate of it. */
scripted_session example()
{
    scripted_session session{4};
    session.receive(3, {.number = 0, .request_ttl = 250, .reply_ttl = 60}, 100'000);
    session.receive(3, {.number = 0}, 200'000);
    session.receive(0, {.number = 2}, 300'000);
    session.receive(1, {.number = 2}, 300'000);
    return session;
}

run_report report_of(const scripted_session &session)
{
    run_report report;
    report.options.reflector = olv_net::parse_socket_address("192.0.2.1:862");
    report.options.count = 4;
    report.elapsed = std::chrono::milliseconds(1500);
    const measurement *result = &session.result;
    report.total = figures_of({&result, 1});
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
              "take equally long, the reflector's is ahead by -50.0 microseconds\n");
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
                                                          "reordered: 0 (0.00 %)\n");
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

TEST(Json, HasTheDocumentedNames)
{
    const auto document = ordered_json::parse(json_report(report_of(example())));
    EXPECT_EQ(names_of(document), "options elapsed_s interrupted refused total senders");
    EXPECT_EQ(names_of(document["options"]),
              "reflector packets size padding dscp ttl timeout_s interval_ms count");
    const std::string figures = "sent received valid invalid faults lost lost_percent duplicates reordered "
                                "reordered_percent sender_ttl_changed hops_forward hops_backward round_trip_us "
                                "forward_us backward_us clock_offset_us";
    EXPECT_EQ(names_of(document["total"]), figures);
    EXPECT_EQ(names_of(document["senders"][0]), "address " + figures);
    EXPECT_EQ(names_of(document["total"]["hops_forward"]), "ttl_min ttl_max ttl_initial min max");
    EXPECT_EQ(names_of(document["total"]["round_trip_us"]), "delay ipdv pdv");
    EXPECT_EQ(names_of(document["total"]["round_trip_us"]["delay"]),
              "count min mean mean_magnitude stddev p50 p90 p95 p99 p99_9 max");
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
                             {"/senders/0/address", "192.0.2.9:40000"},
                             {"/senders/0/sent", 4}});
    EXPECT_EQ(document["senders"].size(), 1u);
}

TEST(Json, HasNullForWhatWasNotMeasured)
{
    run_report report = report_of(scripted_session{});
    report.options.window = 8;
    report.options.duration = std::chrono::seconds(2);
    report.options.stamp = true;
    const auto document = ordered_json::parse(json_report(report));
    EXPECT_EQ(names_of(document["options"]),
              "reflector packets size padding dscp ttl timeout_s window duration_s");
    expect_values(document, {{"/options/window", 8},
                             {"/options/duration_s", 2.0},
                             {"/options/packets", "stamp"},
                             {"/options/padding", "zero"},
                             {"/total/lost_percent", nullptr},
                             {"/total/hops_forward", nullptr},
                             {"/total/round_trip_us/delay", nullptr},
                             {"/total/clock_offset_us", nullptr}});
}

std::string csv_of(const std::vector<sender_packets> &senders)
{
    char *buffer = nullptr;
    std::size_t length = 0;
    std::FILE *output = open_memstream(&buffer, &length);
    write_csv(output, senders);
    (void)std::fclose(output); // memory does not fail
    std::string text{buffer, length};
    std::free(buffer);
    return text;
}

TEST(Csv, HasALineForEachPacket)
{
    const scripted_session session = example();
    EXPECT_EQ(csv_of({{.address = "192.0.2.9:40000", .result = &session.result}}),
              "sender,sequence,sent_us,result,round_trip_us,forward_us,backward_us,request_ttl,reply_ttl,"
              "reordered,duplicates\n"
              "192.0.2.9:40000,0,0.000,valid,300.000,0.000,300.000,255,255,1,0\n"
              "192.0.2.9:40000,1,250000.000,reflector sequence number not above the one before,,,,,,1,0\n"
              "192.0.2.9:40000,2,500000.000,lost,,,,,,0,0\n"
              "192.0.2.9:40000,3,750000.000,valid,100.000,0.000,100.000,250,60,0,1\n");
}

TEST(Csv, OfNothingIsTheHeader)
{
    EXPECT_THAT(csv_of({}), HasSubstr("duplicates\n"));
}

} // namespace
} // namespace olv_probe
