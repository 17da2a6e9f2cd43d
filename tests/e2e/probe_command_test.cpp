// "probe": measuring from inside twampctl.

#include <csignal>
#include <regex>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "command_run.hpp"
#include "control_program.hpp"

namespace e2e {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

/** A conversation with a responder that answers. */
class ProbeCommand : public testing::Test {
  protected:
    ProbeCommand()
    {
        for (const char *each : {"up", "bind ipv4", "responder create west", "listen 127.0.0.1:0"}) {
            talk_.tell(each);
        }
        const std::string start = "listening at ";
        const std::string line = talk_.program().wait_for_line(start);
        address_ = line.size() < start.size() ? "" : line.substr(start.size());
    }

    /** Have it list its probes until the list has this. @return Whether it has. */
    bool wait_until_listed(const std::string &pattern)
    {
        for (int attempt = 0; attempt < 300; ++attempt) {
            const std::string end = "list " + std::to_string(attempt) + " ends";
            talk_.tell("wait 0.1");
            talk_.tell("probe list");
            talk_.tell("echo " + end);
            if (talk_.program().wait_for_line(end).empty()) {
                return false;
            }
            if (std::regex_search(talk_.program().output(), std::regex{pattern})) {
                return true;
            }
        }
        return false;
    }

    conversation talk_{"script - --keep-going"};
    std::string address_;
};

TEST_F(ProbeCommand, ShowsWhatItMeasured)
{
    talk_.tell("probe run " + address_ + " --count 5 --interval 1");
    talk_.tell("stats");
    const finished_program finished = talk_.end();
    EXPECT_THAT(finished.output, HasSubstr("sent: 5\nreceived: 5\nvalid: 5\ninvalid: 0\nlost: 0 (0.00 %)\n"));
    EXPECT_THAT(finished.output, HasSubstr("Total received packets: 5\nTotal transmitted packets: 5\n"));
    EXPECT_EQ(finished.errors, "");
    EXPECT_EQ(finished.status, 0);
}

TEST_F(ProbeCommand, ShowsItAsJson)
{
    talk_.tell("probe run " + address_ + " --count 3 --interval 1 --senders 2 --format json");
    const finished_program finished = talk_.end();
    const std::size_t begin = finished.output.find('{');
    ASSERT_NE(begin, std::string::npos);
    const auto figures =
        nlohmann::json::parse(finished.output.substr(begin, finished.output.rfind('}') + 1 - begin));
    EXPECT_EQ(figures["senders"].size(), 2u);
    EXPECT_EQ(finished.status, 0);
}

TEST_F(ProbeCommand, MakesRoundTripsKnown)
{
    talk_.tell("probe run " + address_ + " --count 2 --interval 1");
    talk_.tell("sessions");
    const finished_program finished = talk_.end();
    EXPECT_THAT(finished.output,
                ContainsRegex("         2 +[0-9.]+ +[0-9]+\\.[0-9]+  127\\.0\\.0\\.1:[0-9]+\n"));
}

TEST_F(ProbeCommand, SendsInTheBackgroundUntilItIsStopped)
{
    talk_.tell("probe start " + address_ + " --duration 60 --interval 1");
    const std::string start = "sending from ";
    const std::string line = talk_.program().wait_for_line(start);
    ASSERT_GT(line.size(), start.size());
    const std::string sender = line.substr(start.size());
    EXPECT_TRUE(wait_until_listed(sender + " to " + address_ + ": sent [1-9][0-9]*, received [1-9]"));
    for (const char *each : {"sessions", "watch --count 1 --interval 0.1"}) {
        talk_.tell(each);
    }
    talk_.tell("probe stop " + sender);
    for (const char *each : {"probe list", "sessions"}) {
        talk_.tell(each);
    }
    const finished_program finished = talk_.end();
    EXPECT_THAT(finished.output, ContainsRegex(" +[1-9][0-9]* +[0-9.]+ +[0-9]+\\.[0-9]+  " + sender + "\n"));
    EXPECT_THAT(finished.output, HasSubstr("no longer sending\nno probes\n"));
    EXPECT_EQ(finished.errors, "");
    EXPECT_EQ(finished.status, 0);
}

TEST_F(ProbeCommand, InTheBackgroundEndsByItselfAndWithTheProgram)
{
    talk_.tell("probe start " + address_ + " --count 1");
    talk_.tell("probe start " + address_ + " --duration 60");
    EXPECT_TRUE(wait_until_listed(": sent 1, received 1, valid 1, ended\n"));
    for (const char *each : {"probe stop --all", "probe list"}) {
        talk_.tell(each);
    }
    talk_.tell("probe start " + address_ + " --duration 60");
    const finished_program finished = talk_.end();
    EXPECT_THAT(finished.output, HasSubstr("no longer sending\nno probes\nsending from "));
    EXPECT_EQ(finished.status, 0);
}

TEST_F(ProbeCommand, SaysWhatIsWrong)
{
    for (const char *each :
         {"probe stop 127.0.0.1:1", "probe stop", "probe run 127.0.0.1:1 --count 2 --timeout 0.1",
          "probe run 127.0.0.1", "probe run 127.0.0.1:5 --stamp --size 20", "unbind ipv4"}) {
        talk_.tell(each);
    }
    talk_.tell("probe start " + address_ + " --senders 2");
    talk_.tell("probe run " + address_ + " --count 1 --timeout 0.1");
    const finished_program finished = talk_.end();
    EXPECT_THAT(finished.errors, HasSubstr("no probe sends from 127.0.0.1:1; 'probe list' lists them\n"));
    EXPECT_THAT(finished.errors, HasSubstr("probe stop: give the sender's address, or --all\n"));
    EXPECT_THAT(finished.errors, HasSubstr("probe to 127.0.0.1:1: nobody answers there\n"));
    EXPECT_THAT(finished.errors, HasSubstr("address '127.0.0.1': no port; type 127.0.0.1:862\n"));
    EXPECT_THAT(finished.errors, HasSubstr("a STAMP packet has at least 44 octets, not 20\n"));
    EXPECT_THAT(finished.errors, HasSubstr("probe start: one sender each; start several instead\n"));
    EXPECT_THAT(finished.errors,
                HasSubstr("probe to " + address_ + ": not every packet came back as it should\n"));
    EXPECT_EQ(finished.status, 1);
}

TEST_F(ProbeCommand, IsInterruptedByASignal)
{
    talk_.tell("probe run " + address_ + " --duration 60 --interval 1");
    talk_.tell("echo on");
    while (run_probe({address_, "--count", "1"}).status != 0) {
    }
    talk_.program().send_signal(SIGINT);
    const finished_program finished = talk_.end();
    EXPECT_THAT(finished.errors, HasSubstr("interrupted"));
    EXPECT_THAT(finished.output, Not(HasSubstr("on\n")));
    EXPECT_EQ(finished.status, 1);
}

} // namespace
} // namespace e2e
