// What gnuplot is told.

#include "apps/twamp-probe/plot.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "packets.hpp"

namespace olv_probe {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

TEST(PlotScript, HasPointsAndBars)
{
    scripted_session session{3};
    session.receive(0, {.number = 0}, 100'000);
    session.receive(2, {.number = 1}, 300'000);
    const std::string script = plot_script({&session.result}, "to 127.0.0.1:862", false);
    EXPECT_THAT(script, StartsWith("set terminal svg "));
    EXPECT_THAT(script, HasSubstr("$points << END\n0.000000 100.000\n0.500000 300.000\nEND\n"));
    EXPECT_THAT(script, HasSubstr("$bars << END\n102.500 1\n"));
    EXPECT_THAT(script, HasSubstr("title 'to 127.0.0.1:862'\n"));
    EXPECT_THAT(plot_script({&session.result}, "", true), StartsWith("set terminal pngcairo "));
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
    const std::string points = script.substr(0, script.find("$bars"));
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

} // namespace
} // namespace olv_probe
