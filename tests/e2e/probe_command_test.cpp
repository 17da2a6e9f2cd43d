// "probe": measuring from inside twampctl.

#include <csignal>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "network.hpp"
#include "programs.hpp"

namespace e2e {
namespace {

using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

/** A conversation with a responder that answers. */
class ProbeCommand : public testing::Test {
  protected:
    ProbeCommand()
    {
        talk_.tell({"up", "bind ipv4", "responder create west"});
        address_ = talk_.ask("listen 127.0.0.1:0", "listening at ");
    }

    /** Have it list its probes until a list matches. */
    void wait_until_listed(const testing::Matcher<std::string> &wanted)
    {
        int asked = 0;
        EXPECT_TRUE(holds_in_time([&] {
            talk_.tell("probe list");
            const std::string end = "list " + std::to_string(++asked) + " ends";
            (void)talk_.ask("echo " + end, end);
            return wanted.Matches(talk_.written());
        }));
    }

    conversation talk_{"script - --keep-going"};
    std::string address_;
};

TEST_F(ProbeCommand, ShowsWhatItMeasured)
{
    talk_.tell("probe run " + address_ + " --count 5 --interval 1 --timeout 60");
    talk_.tell({"stats", "sessions"});
    talk_.tell("probe run " + address_ + " --count 3 --interval 1 --timeout 60 --senders 2 --format json");
    const finished_program finished = talk_.wait();
    EXPECT_THAT(finished.output, HasSubstr("\nsent 5, received 5, valid 5\nlost 0 (0.00 %)\n"));
    EXPECT_THAT(finished.output, HasSubstr("Total received packets: 5\nTotal transmitted packets: 5\n"));
    EXPECT_THAT(finished.output, // the round trip is known there
                ContainsRegex("         5 +[0-9.]+ +[0-9]+\\.[0-9]+  127\\.0\\.0\\.1:[0-9]+\n"));
    EXPECT_THAT(finished.output,
                HasSubstr("\n{\n  \"options\": {\n    \"reflector\": \"" + address_ + "\",\n"));
    EXPECT_EQ(count_lines(finished.output, "      \"address\": \"127.0.0.1:"), 2);
    EXPECT_EQ(finished.errors, "");
    EXPECT_EQ(finished.status, 0);
}

TEST_F(ProbeCommand, SendsInTheBackgroundUntilItIsStopped)
{
    const std::string sender =
        talk_.ask("probe start " + address_ + " --duration 60 --interval 1", "sending from ");
    wait_until_listed(ContainsRegex(sender + " to " + address_ + ": sent [1-9][0-9]*, received [1-9]"));
    talk_.tell({"sessions", "watch --count 1 --interval 0.05"});
    talk_.tell("probe stop " + sender);
    talk_.tell("probe list");
    const finished_program finished = talk_.wait();
    EXPECT_THAT(finished.output, ContainsRegex(" +[1-9][0-9]* +[0-9.]+ +[0-9]+\\.[0-9]+  " + sender + "\n"));
    EXPECT_THAT(finished.output, EndsWith("no longer sending\nno probes\n"));
    EXPECT_EQ(finished.errors, "");
    EXPECT_EQ(finished.status, 0);
}

TEST_F(ProbeCommand, InTheBackgroundEndsByItselfAndWithTheProgram)
{
    talk_.tell("probe start " + address_ + " --count 1 --timeout 60");
    talk_.tell("probe start " + address_ + " --duration 60");
    wait_until_listed(HasSubstr(": sent 1, received 1, valid 1, ended\n"));
    talk_.tell({"probe stop --all", "probe list"});
    talk_.tell("probe start " + address_ + " --duration 60");
    const finished_program finished = talk_.wait();
    EXPECT_THAT(finished.output, HasSubstr("no longer sending\nno probes\nsending from "));
    EXPECT_EQ(finished.status, 0);
}

TEST_F(ProbeCommand, SaysWhatIsWrong)
{
    const std::string closed = closed_address();
    const std::pair<std::string, std::string> rows[] = {
        {"probe stop 127.0.0.1:1", "no probe sends from 127.0.0.1:1; 'probe list' lists them"},
        {"probe stop", "probe stop: give the sender's address, or --all"},
        {"probe run " + closed + " --count 2", "probe to " + closed + ": nobody answers there"},
        {"probe run 127.0.0.1:x", "address '127.0.0.1:x': the port has to be a number from 1 to 65535"},
        {"probe run 127.0.0.1:5 --stamp --size 20", "a STAMP packet has at least 44 octets, not 20"},
        {"probe start 127.0.0.1:5 --senders 2", "probe start: one sender each; start several instead"},
        {"probe run " + address_ + " --count 1 --timeout 0.05",
         "probe to " + address_ + ": not every packet came back as it should"}};
    talk_.tell("unbind ipv4");
    for (const auto &[command, error] : rows) {
        talk_.tell(command);
    }
    const finished_program finished = talk_.wait();
    for (const auto &[command, error] : rows) {
        EXPECT_THAT(finished.errors, HasSubstr(": " + error + "\n")) << command;
    }
    EXPECT_EQ(finished.status, 1);
}

TEST_F(ProbeCommand, IsInterruptedByASignal)
{
    loopback_socket silent;
    talk_.tell("probe run " + silent.address() + " --duration 60");
    talk_.tell("echo on");
    (void)silent.receive();
    const finished_program finished = talk_.stop(SIGINT);
    EXPECT_THAT(finished.errors, HasSubstr("probe to " + silent.address() + ": interrupted\n"));
    EXPECT_THAT(finished.output, Not(HasSubstr("\non\n")));
    EXPECT_EQ(finished.status, 1);
}

} // namespace
} // namespace e2e
