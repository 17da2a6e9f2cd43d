// Figures as text, and whether a run was complete.

#include "apps/common/text_report.hpp"
#include "apps/common/text_summary.hpp"

#include <algorithm>
#include <cmath>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "reports.hpp"

namespace olv_probe {
namespace {

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

TEST(Text, EndsWithWhatAPersonWants)
{
    EXPECT_EQ(text_report(report_of(example()), "a picture\n"),
              "microseconds                 round trip            forward           backward\n"
              "min                               100.0                0.0              100.0\n"
              "mean                              233.3                0.0              233.3\n"
              "stddev                             94.3                0.0               94.3\n"
              "p50                               300.0                0.0              300.0\n"
              "max                               300.0                0.0              300.0\n"
              "IPDV min                            0.0                0.0                0.0\n"
              "IPDV mean magnitude                 0.0                0.0                0.0\n"
              "IPDV max                            0.0                0.0                0.0\n"
              "PDV p50                           200.0                0.0              200.0\n"
              "forward and backward contain the difference of the two clocks\n"
              "time stamps: kernel (of 4 requests and 3 replies)\n"
              "replies with DSCP CS0 and ECN not-ect: 2\n"
              "replies with DSCP EF and ECN ect0: 1\n"
              "hops forward: min 0, max 5 (TTL 250 to 255, sent with 255)\n"
              "hops backward: min 0, max 195 (TTL 60 to 255, assumed 255)\n"
              "sender TTL not 255: 1\n"
              "odd and invalid replies:\n"
              "  reflector sequence number used before: 1\n"
              "a picture\n"
              "\n"
              "192.0.2.1:862: 4 packets of 41 octets in 1.50 s\n"
              "sent 4, received 4, valid 2, odd 1\n"
              "lost 1 (25.00 %): forward 0, backward 1\n"
              "duplicates 1: forward 0, backward 1\n"
              "reordered 2 (66.67 %): forward 1, backward 1\n"
              "microseconds          min       median          max\n"
              "round trip          100.0        300.0        300.0\n"
              "forward               0.0          0.0          0.0\n"
              "backward            100.0        300.0        300.0\n"
              "the reflector's clock is 50.0 us behind, if both ways take equally long\n"
              "the reflector calls its clock not synchronised, wrong by up to 976.6 us\n"
              "hops forward 0 to 5, backward 0 to 195\n");
}

/** A session whose round trips take 1, 2, 3… us. */
run_report of_round_trips(int packets)
{
    scripted_session session{packets};
    for (int packet = 0; packet < packets; ++packet) {
        const auto sequence = static_cast<std::uint32_t>(packet);
        session.receive(sequence, {.number = sequence}, (packet + 1) * 1000);
    }
    return report_of(session);
}

TEST(Text, HasPercentilesOfAsManyPacketsAsCarryThem)
{
    const struct {
        int packets;
        std::vector<const char *> rows;
        const char *columns;
    } cases[] = {{9, {"p50"}, " min       median          max\n"},
                 {10, {"p50", "p90"}, " min       median          max\n"},
                 {20, {"p50", "p90", "p95"}, " min       median          p95          max\n"},
                 {100,
                  {"p50", "p90", "p95", "p99", "PDV p99"},
                  " min       median          p95          p99          max\n"
                  "round trip            1.0         50.0         95.0         99.0        100.0\n"},
                 {1000, {"p50", "p90", "p95", "p99", "p99.9", "PDV p99", "PDV p99.9"}, " p99 "}};
    for (const auto &each : cases) {
        const std::string text = text_report(of_round_trips(each.packets));
        for (const std::string name : {"p50", "p90", "p95", "p99", "p99.9", "PDV p99", "PDV p99.9"}) {
            const bool wanted = std::find(each.rows.begin(), each.rows.end(), name) != each.rows.end();
            EXPECT_EQ(text.find('\n' + name + "  ") != std::string::npos, wanted) << each.packets << name;
        }
        EXPECT_THAT(text, testing::HasSubstr(each.columns));
    }
}

TEST(Text, SaysWhatHappenedOnTheWay)
{
    const std::string text = text_report(report_of(eventful()));
    EXPECT_THAT(text, testing::StartsWith("microseconds                 round trip\n"
                                          "min                               100.0\n"));
    EXPECT_THAT(
        text, testing::EndsWith("odd and invalid replies:\n"
                                "  reflector timestamp 0: 1\n"
                                "at 0.750 s, packet 3: the reflector's clock was set forward by 1.000 s\n"
                                "at 1.250 s, packet 5: the reflector's numbers began anew\n"
                                "one-way delays in microseconds from packet 0 on:\n"
                                "  forward min 0.0, median 0.0, max 0.0\n"
                                "  backward min 100.0, median 100.0, max 100.0\n"
                                "  the reflector's clock is 50.0 us behind, if both ways take equally long\n"
                                "one-way delays in microseconds from packet 3 on:\n"
                                "  forward min 1000000.0, median 1000000.0, max 1000000.0\n"
                                "  backward min -999900.0, median -999900.0, max -999900.0\n"
                                "  the reflector's clock is 999.950 ms ahead, if both ways take equally long\n"
                                "\n"
                                "192.0.2.1:862: 8 packets of 41 octets in 1.50 s\n"
                                "sent 8, received 7, valid 6, odd 1, not measured 1\n"
                                "lost 1 (12.50 %): forward 1, backward 0\n"
                                "duplicates 0\n"
                                "reordered 0 (0.00 %)\n"
                                "microseconds          min       median          max\n"
                                "round trip          100.0        100.0        100.0\n"
                                "a clock was set: the one-way delays before and after stand above\n"
                                "the reflector calls its clock not synchronised, wrong by up to 976.6 us\n"
                                "hops forward 0, backward 0\n"));
}

/** The lines of a text that are too long. */
std::vector<std::string> long_lines(const std::string &text)
{
    std::vector<std::string> found;
    std::istringstream lines{text};
    for (std::string line; std::getline(lines, line);) {
        if (line.size() > 80) {
            found.push_back(line);
        }
    }
    return found;
}

/** As many digits as counts have in a run that is not endless, and figures as long as reflectors can make them.
 */
run_report greatest()
{
    run_report report = of_round_trips(1000);
    report.options.reflector = olv_net::parse_socket_address("[2001:db8:1234:5678:9abc:def0:1234:5678]:65535");
    report.options.size = 65507;
    report.options.senders = 1000;
    report.elapsed = std::chrono::hours(24 * 366);
    packet_counts &counts = report.total.counts;
    counts.sent = 9'999'999;
    counts.received = 29'999'999;
    counts.answered = 5'555'555;
    counts.valid = 2'222'222;
    counts.odd = 3'333'333;
    counts.measured = 1'111'111;
    counts.duplicates = 9'999'999;
    counts.reordered = 5'555'555;
    counts.faults.fill(9'999'999);
    counts.request_ttl = counts.reply_ttl = {.minimum = 1, .maximum = 254};
    counts.reflector_clock = {.replies = 2, .synchronized = 1, .greatest_error = std::ldexp(255e9, 31)};
    report.total.lost = report.total.duplicates = report.total.reordered = {3'333'333, 3'333'333, 3'333'333};
    constexpr std::int64_t days = 86'400'000'000'000;
    period_figures &whole = report.total.periods.front();
    for (path_figures *const path : {&report.total.round_trip, &whole.forward, &whole.backward}) {
        path->delay.minimum = -1 * days - 1;
        path->delay.maximum = days * 39 / 24;
        path->delay.percentiles.fill(1'000'000'000'000);
    }
    whole.clock_offset = -1 * days;
    return report;
}

TEST(Summary, FitsOnAScreenWhateverHappened)
{
    std::vector<run_report> reports{greatest(),
                                    greatest(),
                                    greatest(),
                                    report_of(example()),
                                    report_of(eventful()),
                                    report_of(scripted_session{4})};
    for (way_counts *const ways :
         {&reports[0].total.lost, &reports[0].total.duplicates, &reports[0].total.reordered}) {
        *ways = {1'333'333'333, 1'333'333'333, 1'333'333'333}; // of an endless run
    }
    reports[1].total.periods.clear();
    reports[2].total.periods.push_back({});
    for (const run_report &report : reports) {
        const std::string text = text_summary(report);
        EXPECT_LE(std::count(text.begin(), text.end(), '\n'), 12) << text;
        EXPECT_THAT(long_lines(text), testing::ElementsAre()) << text;
        EXPECT_THAT(text_report(report), testing::EndsWith("\n\n" + text));
    }
    EXPECT_EQ(text_summary(greatest()),
              "[2001:db8:1234:5678:9abc:def0:1234:5678]:65535: 31622400.0 s\n"
              "sent 9999999, received 29999999, valid 2222222, odd 3333333, invalid 14444445,\n"
              "not measured 4444444\n"
              "lost 4444444 (44.44 %): forward 3333333, backward 3333333, unknown 3333333\n"
              "duplicates 9999999: forward 3333333, backward 3333333, unknown 3333333\n"
              "reordered 5555555 (100.00 %): forward 3333333, backward 3333333, unknown 3333333\n"
              "microseconds          min       median          p95          p99          max\n"
              "round trip    -86400.00 s 1000000000.0 1000000000.0 1000000000.0  140400.00 s\n"
              "forward       -86400.00 s 1000000000.0 1000000000.0 1000000000.0  140400.00 s\n"
              "backward      -86400.00 s 1000000000.0 1000000000.0 1000000000.0  140400.00 s\n"
              "the reflector's clock is 86400.000 s behind, if both ways take equally long\n"
              "the reflector calls its clock synchronised at times, wrong by up to 6338059 days\n");
}

TEST(Summary, SaysWhyThereAreNoOneWayDelays)
{
    run_report differing = report_of(example());
    differing.total.periods.clear();
    EXPECT_THAT(text_summary(differing),
                testing::HasSubstr("\nround trip          100.0        300.0        300.0\n"
                                   "clocks were set, and not all senders saw the same: no one-way delays\n"));
    run_report without = report_of(example());
    without.total.periods.front().clock_offset.reset();
    without.total.counts.reflector_clock = {};
    EXPECT_THAT(text_summary(without),
                testing::HasSubstr("\nround trip          100.0        300.0        300.0\n"
                                   "no one-way delays\n"
                                   "hops "));
}

TEST(Duration, HasAUnitThatSuitsIt)
{
    const std::pair<double, const char *> rows[] = {
        {0, "0.0 us"},         {976'562.5, "976.6 us"},     {-1'500, "-1.5 us"}, {9'999'900, "9999.9 us"},
        {10e6, "10.000 ms"},   {999'999'000, "999.999 ms"}, {1e9, "1.000 s"},    {86'400e9, "86400.000 s"},
        {864'000e9, "10 days"}};
    for (const auto &[nanoseconds, text] : rows) {
        EXPECT_EQ(duration_text(nanoseconds), text);
    }
}

TEST(Text, SaysWhyAWayIsNotKnown)
{
    const std::pair<std::vector<std::pair<std::uint32_t, std::uint32_t>>, const char *> rows[] = {
        {{{0, 0}, {2, 2}}, "\nways not known: the reflector's numbers are the requests'\n"},
        {{{1, 0}, {2, 1}}, "\nlost 2 (50.00 %): forward 1, backward 0, unknown 1\nduplicates 0\n"},
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
    EXPECT_THAT(text_report(report), testing::HasSubstr("\nsender 192.0.2.9:40000:\n"
                                                        "  sent 4, received 4, valid 2, odd 1\n"
                                                        "  lost 1, duplicates 1, reordered 2\n"
                                                        "  round trip min 100.0, median 300.0, max 300.0 us\n"
                                                        "sender 192.0.2.9:40001:\n"
                                                        "  sent 2, received 0, valid 0\n"
                                                        "  lost 2, duplicates 0, reordered 0\n"));
}

TEST(Text, OfNothingSaysSo)
{
    EXPECT_EQ(text_report(report_of(scripted_session{})),
              "time stamps: kernel\n\n192.0.2.1:862: 0 packets of 41 octets in 1.50 s\n"
              "sent 0, received 0, valid 0\nlost 0 (0.00 %)\nduplicates 0\nreordered 0 (0.00 %)\n"
              "round trip not measured\n");
}

} // namespace
} // namespace olv_probe
