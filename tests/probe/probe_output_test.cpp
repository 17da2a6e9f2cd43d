// What twamp-probe alone shows: histograms, pictures, packets, how far a run is.

#include <cstdlib>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/twamp-probe/csv_report.hpp"
#include "apps/twamp-probe/histogram.hpp"
#include "apps/twamp-probe/plot.hpp"
#include "apps/twamp-probe/plot_script.hpp"
#include "apps/twamp-probe/progress_line.hpp"
#include "packets.hpp"

namespace olv_probe {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

TEST(Histogram, OfNothingHasNoBars)
{
    EXPECT_TRUE(histogram_of({}, 20).bars.empty());
    EXPECT_EQ(histogram_text(histogram_of({}, 20)), "");
}

TEST(Histogram, HasRoundEdgesBelowAndAboveZero)
{
    const struct {
        std::vector<std::int64_t> samples;
        std::size_t most;
        std::int64_t start;
        std::int64_t width;
        std::vector<std::uint64_t> bars;
    } rows[] = {{{12'345}, 20, 12'345, 1, {1}},
                {{1'700, 2'100, 2'900, 11'300}, 10, 0, 2'000, {1, 2, 0, 0, 0, 1}},
                {{-1'700, -100, 900}, 4, -2'000, 1'000, {1, 1, 1}}};
    for (const auto &row : rows) {
        const histogram figures = histogram_of(row.samples, row.most);
        EXPECT_EQ(figures.start, row.start);
        EXPECT_EQ(figures.width, row.width);
        EXPECT_EQ(figures.bars, row.bars);
        EXPECT_FALSE(figures.has_above) << row.start;
    }
}

TEST(Histogram, PutsOutliersIntoTheLastBar)
{
    std::vector<std::int64_t> samples(200, 10);
    samples.push_back(15);
    samples.push_back(15);
    samples.push_back(1'000'000);
    const histogram figures = histogram_of(samples, 20);
    EXPECT_EQ(figures.width, 1);
    EXPECT_TRUE(figures.has_above);
    EXPECT_EQ(figures.bars, (std::vector<std::uint64_t>{200, 0, 0, 0, 0, 3}));
}

TEST(Histogram, IsDrawnInBarsOfItsHighest)
{
    const histogram figures{.start = 1'000, .width = 500, .bars = {38, 0, 19, 1}, .has_above = true};
    EXPECT_EQ(histogram_text(figures),
              "       1.000 to        1.500 |###################################### 38\n"
              "       1.500 to        2.000 |0\n"
              "       2.000 to        2.500 |################### 19\n"
              "       2.500 and above       |# 1\n");
}

TEST(PlotScript, HasPointsAndBars)
{
    scripted_session session{3};
    session.receive(0, {.number = 0}, 100'000);
    session.receive(2, {.number = 1}, 300'000);
    const std::string script = plot_script({&session.result}, "to 127.0.0.1:862", false);
    EXPECT_THAT(script, StartsWith("set terminal svg "));
    EXPECT_THAT(script, HasSubstr("$round_trip << END\n0.000000 100.000\n0.500000 300.000\nEND\n"));
    EXPECT_THAT(script, HasSubstr("$bars << END\n102.500 1\n"));
    EXPECT_THAT(script, HasSubstr("title 'to 127.0.0.1:862'\n"));
    EXPECT_THAT(plot_script({&session.result}, "", true), StartsWith("set terminal pngcairo "));
}

TEST(PlotScript, MarksLossesWithTheirNumberAndShowsBothWays)
{
    scripted_session session{400};            // a hundred seconds, so that a mark stands for 2.5
    constexpr std::int64_t forward = 1 << 23; // of 2^-32 seconds: 1953.125 us
    for (std::uint32_t sequence = 0; sequence < 400; ++sequence) {
        const bool lost = sequence == 2 || sequence == 4 || sequence == 399;
        const std::int64_t way = sequence == 1 ? 2 * forward : forward;
        if (!lost) {
            session.receive(sequence, {.number = sequence, .received = way, .sent_back = way},
                            sequence == 1 ? 10'000'000 : 5'000'000);
        }
    }
    const std::string script = plot_script({&session.result}, "", false);
    EXPECT_THAT(script, HasSubstr("$lost << END\n0.750000 2\n99.750000 1\nEND\n")); // 0.5 and 1 s, together
    EXPECT_THAT(script, HasSubstr(" with points pointtype 2 linecolor 'red' title 'lost 3', $lost using "
                                  "1:(0.03):2 axes x1y2 with labels "));
    EXPECT_THAT(script, HasSubstr("$forward << END\n0.000000 0.000\n0.250000 1953.125\n0.750000 0.000\n"));
    EXPECT_THAT(script, HasSubstr("$backward << END\n0.000000 0.000\n0.250000 3046.875\n0.750000 0.000\n"));
    EXPECT_THAT(script, HasSubstr(" title 'forward, shortest 1953.125 us', "));
    EXPECT_THAT(script, HasSubstr(" title 'backward, shortest 3046.875 us'\n"));
}

TEST(PlotScript, LetsNoTitleEndItsText)
{
    scripted_session session;
    const std::string script = plot_script({&session.result}, "a'; system 'b`c\"\\\n", false);
    EXPECT_THAT(script, HasSubstr("title 'a system bc'\n"));
}

TEST(PlotScript, KeepsTheShortestAndTheLongestOfAMoment)
{
    scripted_session session;
    constexpr int packets = 20'000; // four in each moment
    session.send(packets);
    for (std::uint32_t sequence = 0; sequence < packets; ++sequence) {
        session.receive(sequence, {.number = sequence}, 1'000 * (1 + sequence % 4));
    }
    const std::string script = plot_script({&session.result}, "", false);
    const std::string points = script.substr(0, script.find("$forward"));
    EXPECT_EQ(std::count(points.begin(), points.end(), '\n'), 2 + 10'000 + 1);
    EXPECT_THAT(points, HasSubstr(" 1.000\n"));
    EXPECT_THAT(points, HasSubstr(" 4.000\n"));
    EXPECT_THAT(points, Not(HasSubstr(" 2.000\n")));
}

TEST(PlotScript, SaysThatTheLastBarHasEverythingAbove)
{
    scripted_session session{200};
    for (std::uint32_t sequence = 0; sequence < 200; ++sequence) {
        session.receive(sequence, {.number = sequence}, sequence == 7 ? 900'000'000 : 1'000 + sequence);
    }
    EXPECT_THAT(plot_script({&session.result}, "", false), HasSubstr("the last bar and above"));
}

TEST(Plot, OfNothingIsRefused)
{
    scripted_session session{1};
    try {
        draw_plot("x.svg", {&session.result}, "");
        FAIL() << "drawn";
    } catch (const std::runtime_error &error) {
        EXPECT_STREQ(error.what(), "cannot draw 'x.svg': no round trip was measured");
    }
}

std::string csv_of(const std::vector<sender_packets> &senders)
{
    char *buffer = nullptr;
    std::size_t length = 0;
    std::FILE *output = open_memstream(&buffer, &length);
    write_csv(output, senders, 1'795'387'251'446'565'999);
    (void)std::fclose(output); // memory does not fail
    std::string text{buffer, length};
    std::free(buffer);
    return text;
}

TEST(Csv, HasALineForEachPacket)
{
    const scripted_session session = example();
    EXPECT_EQ(
        csv_of({{.address = "192.0.2.9:40000", .result = &session.result}}),
        "sender,sequence,sent_us,result,round_trip_us,forward_us,backward_us,request_ttl,reply_ttl,"
        "reordered,duplicates,reply_dscp,reply_ecn,sent\n"
        "192.0.2.9:40000,0,0.000,valid,300.000,0.000,300.000,255,255,1,0,0,not-ect,"
        "2026-11-22T22:40:51.446565Z\n"
        "192.0.2.9:40000,1,250000.000,reflector sequence number used before,300.000,0.000,300.000,255,255,"
        "1,0,0,not-ect,"
        "2026-11-22T22:40:51.696565Z\n"
        "192.0.2.9:40000,2,500000.000,lost,,,,,,0,0,,,2026-11-22T22:40:51.946565Z\n"
        "192.0.2.9:40000,3,750000.000,valid,100.000,0.000,100.000,250,60,0,1,46,ect0,"
        "2026-11-22T22:40:52.196565Z\n");
}

TEST(Csv, OfNothingIsTheHeader)
{
    EXPECT_THAT(csv_of({}), HasSubstr(",sent\n"));
}

TEST(Progress, SaysHowFarOfHowFar)
{
    session_options options;
    options.count = 1000;
    options.senders = 2;
    EXPECT_EQ(progress_text(options, {milliseconds(1250), 80, 79, 79, nanoseconds(12'340)}),
              "1.2 s, sent 80 of 2000, received 79, round trip 12.3 us");
    options.duration = milliseconds(2500);
    EXPECT_EQ(progress_text(options, {milliseconds(1250), 80, 0, 0, {}}), "1.2 of 2.5 s, sent 80, received 0");
}

TEST(Progress, FitsTheTerminal)
{
    session_options options;
    options.duration = std::chrono::hours(8760);
    const probe_progress most{.elapsed = std::chrono::hours(8759),
                              .sent = 10'000'000,
                              .received = 18'446'744'073'709'551'615u,
                              .valid = 0,
                              .round_trip = std::chrono::hours(8759)};
    EXPECT_EQ(progress_text(options, most).size(), 79u);
}

} // namespace
} // namespace olv_probe
