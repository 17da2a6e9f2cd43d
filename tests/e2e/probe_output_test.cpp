// What twamp-probe prints and draws, and what it says when that fails.

#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "network.hpp"
#include "programs.hpp"

namespace e2e {
namespace {

using testing::ContainsRegex;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class ProbeOutput : public testing::Test {
  protected:
    [[nodiscard]] finished_program probe(const std::string &options) const
    {
        return measure(address() + " --interval 1 " + options);
    }
    [[nodiscard]] const std::string &address() const { return control_.address(); }

  private:
    control_program control_{"--listen 127.0.0.1:0"};
};

TEST_F(ProbeOutput, TextMayHaveAHistogram)
{
    const finished_program finished = probe("--count 20 --histogram");
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.errors, "");
    EXPECT_THAT(finished.output, ContainsRegex("\nmicroseconds +round trip +forward +backward\nmin "));
    EXPECT_THAT(finished.output, ContainsRegex("\nround trips in microseconds, packets\n"
                                               "( +[0-9.]+ (to +[0-9.]+|and above +) \\|#* ?[0-9]+\n)+"
                                               "\n127.0.0.1:[0-9]+: 20 packets "));
}

TEST_F(ProbeOutput, JsonHasTotalsAndSenders)
{
    const finished_program finished = probe("--count 20 --senders 3 --format json");
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.errors, "");
    EXPECT_THAT(finished.output,
                StartsWith("{\n  \"options\": {\n    \"reflector\": \"" + address() + "\",\n"));
    EXPECT_THAT(finished.output, HasSubstr("\n  \"interrupted\": false,\n"));
    EXPECT_THAT(finished.output,
                HasSubstr("\n  \"total\": {\n    \"sent\": 60,\n    \"received\": 60,\n    \"valid\": 60,\n"));
    EXPECT_EQ(count_lines(finished.output, "      \"address\": \"127.0.0.1:"), 3);
    EXPECT_EQ(count_lines(finished.output, "      \"valid\": 20,"), 3);
    EXPECT_THAT(finished.output, EndsWith("\n  ]\n}\n"));
}

TEST_F(ProbeOutput, CsvHasALineForEachPacket)
{
    const finished_program finished = probe("--count 5 --senders 2 --format csv");
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.errors, "");
    EXPECT_THAT(finished.output,
                StartsWith("sender,sequence,sent_us,result,round_trip_us,forward_us,backward_us,request_ttl,"
                           "reply_ttl,reordered,duplicates,reply_dscp,reply_ecn,sent\n127.0.0.1:"));
    EXPECT_EQ(count_lines(finished.output, ""), 11);
    EXPECT_EQ(count_lines(finished.output, ",valid,"), 10);
}

TEST_F(ProbeOutput, FiguresThatCannotBeWrittenAreAFailure)
{
    EXPECT_EQ(in_shell("exec \"$@\" >/dev/full", {TWAMP_PROBE, address(), "--count", "2"}),
              ends(1, "", "twamp-probe: cannot write the figures: No space left on device\n"));
}

TEST_F(ProbeOutput, DrawsAnSvg)
{
    const test_folder folder;
    const finished_program finished = probe("--count 10 --plot " + folder.path("delay.svg"));
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.errors, "");
    EXPECT_THAT(folder.names(), ElementsAre("delay.svg"));
    const std::string picture = folder.read("delay.svg");
    EXPECT_THAT(picture, StartsWith("<?xml version=\"1.0\""));
    EXPECT_THAT(picture, HasSubstr("10 packets of 41 octets to " + address()));
    EXPECT_THAT(picture, EndsWith("</svg>\n\n"));
}

TEST(ProbePicture, ShowsOddRepliesToo)
{
    const test_folder folder;
    loopback_socket reflector;
    child_program drawing{
        TWAMP_PROBE,
        {reflector.address(), "--count", "1", "--timeout", "60", "--plot", folder.path("delay.svg")}};
    octets reply = reply_to(reflector.receive());
    reply[13] = 0; // no multiplier
    reflector.answer(reply);
    const finished_program finished = drawing.wait();
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.errors, "");
    EXPECT_THAT(folder.names(), ElementsAre("delay.svg"));
}

TEST_F(ProbeOutput, DrawsAPngOverAnOldOne)
{
    const test_folder folder;
    const std::string name = "it's; `a` $(b) \"c\".png";
    folder.write(name, "old");
    child_program drawing{TWAMP_PROBE,
                          {address(), "--count", "10", "--interval", "1", "--plot", folder.path(name)}};
    EXPECT_EQ(drawing.wait().status, 0);
    EXPECT_THAT(folder.names(), ElementsAre(name));
    EXPECT_THAT(folder.read(name), StartsWith("\x89PNG\r\n\x1a\n"));
    EXPECT_THAT(folder.read(name), EndsWith("IEND\xAE\x42\x60\x82"));
}

TEST_F(ProbeOutput, PictureThatCannotBeDrawnIsSaidBeforeTheMeasurement)
{
    const test_folder folder;
    std::filesystem::create_directory(folder.path("delay.svg"));
    const std::string measuring = "--count 2 --plot ";
    const auto refused = [](const std::string &name, const std::string &reason) {
        return ends(2, "", "twamp-probe: cannot draw '" + name + "': " + reason + "\n");
    };
    const std::string taken = folder.path("delay.svg");
    EXPECT_EQ(probe(measuring + taken), refused(taken, "Is a directory"));
    const std::string nowhere = "/nonexistent/delay.svg";
    EXPECT_EQ(probe(measuring + nowhere), refused(nowhere, "No such file or directory"));
    const std::string good = folder.path("good.svg");
    EXPECT_EQ(in_shell("PATH=$1; shift; exec \"$@\"",
                       {folder.path(""), TWAMP_PROBE, address(), "--count", "2", "--plot", good}),
              refused(good, "the program gnuplot is not installed"));
    EXPECT_THAT(folder.names(), ElementsAre("delay.svg"));
}

TEST_F(ProbeOutput, PictureWithoutAGnuplotThatWorksIsAFailure)
{
    const std::pair<const char *, const char *> rows[] = {
        {"#!/bin/sh\necho '<svg half a picture'\necho 'out of ink' >&2\nexit 1\n",
         "gnuplot failed: out of ink"},
        {"#!/bin/sh\nexit 0\n", "gnuplot failed"}};
    for (const auto &[gnuplot, reason] : rows) {
        SCOPED_TRACE(reason);
        const test_folder folder;
        std::filesystem::create_directory(folder.path("bin"));
        folder.write("bin/gnuplot", gnuplot);
        std::filesystem::permissions(folder.path("bin/gnuplot"), std::filesystem::perms::owner_all);
        const finished_program finished =
            in_shell("PATH=$1; shift; exec \"$@\"", {folder.path("bin"), TWAMP_PROBE, address(), "--count", "2",
                                                     "--interval", "1", "--plot", folder.path("delay.svg")});
        EXPECT_EQ(finished.status, 1);
        EXPECT_THAT(finished.output, HasSubstr(", valid 2\n")) << "what was measured is shown";
        EXPECT_EQ(finished.errors,
                  "twamp-probe: cannot draw '" + folder.path("delay.svg") + "': " + reason + "\n");
        EXPECT_THAT(folder.names(), ElementsAre("bin"));
    }
}

} // namespace
} // namespace e2e
