// Commands while packets flow, and while signals come.

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
using testing::MatchesRegex;
using testing::Not;

TEST(Listen, AnswersUntilItIsTakenBack)
{
    conversation talk;
    talk.tell({"up", "bind ipv4", "responder create west"});
    const std::string address = talk.ask("listen 127.0.0.1:0 --id 1", "listening at ");
    EXPECT_EQ(measure(address + " --count 3 --interval 1").status, 0);
    EXPECT_EQ(talk.ask("unlisten --all", "no longer listening at "), address);
    EXPECT_EQ(twamp_probe(address + " --count 1").errors, "twamp-probe: " + address + ": connection refused\n");
    talk.tell("listeners");
    const finished_program finished = talk.wait();
    EXPECT_THAT(finished.output, EndsWith("\nNo listeners\n"));
    EXPECT_EQ(finished.errors, "");
    EXPECT_EQ(finished.status, 0);
}

TEST(Listen, ThatFailsLeavesTheAddressesBeforeIt)
{
    const loopback_socket other;
    const finished_program finished = twampctl_reading(
        "up\nresponder create\nlisten 127.0.0.1:0 " + other.address() + "\nstatus\n", "script - --keep-going");
    EXPECT_THAT(finished.output, HasSubstr("responders: 1, listeners: 1\n"));
    EXPECT_EQ(finished.errors, "twampctl: standard input:3: cannot listen on " + other.address() +
                                   ": Address already in use\ntwampctl: standard input: 1 command failed\n");
    EXPECT_EQ(finished.status, 1);
}

TEST(Sessions, EndWhenTheyAreIdle)
{
    conversation talk;
    talk.tell({"processor create patient --refwait 5", "clock timer 0", "up", "bind ipv4", "responder create"});
    loopback_socket sender;
    sender.send_to(talk.ask("listen 127.0.0.1:0", "listening at "), octets(41));
    EXPECT_EQ(sender.receive().size(), 41u);
    EXPECT_EQ(talk.ask("sessions", "Sessions of "), "1");
    talk.tell({"clock timer 1000000000000000", "sessions"});
    EXPECT_THAT(talk.wait().output, EndsWith("\nNo sessions\n"));
}

TEST(Sessions, EndByHand)
{
    conversation talk;
    talk.tell({"up", "bind ipv4", "responder create west", "responder create east"});
    loopback_socket sender;
    sender.send_to(talk.ask("listen 127.0.0.1:0 --responder west", "listening at "), octets(41));
    EXPECT_EQ(sender.receive().size(), 41u);
    talk.tell({"sessions clear east", "sessions clear west", "sessions clear", "sessions clear north"});
    const finished_program finished = talk.wait();
    EXPECT_THAT(finished.output, EndsWith("\nsessions cleared: 0\nsessions cleared: 1\nsessions cleared: 0\n"));
    EXPECT_THAT(finished.errors, HasSubstr("north"));
}

TEST(Show, HasEachFormatAndNothingElseWhenQuiet)
{
    const std::pair<const char *, const char *> rows[] = {
        {"show", "Processor main, module up, .* UTC\n\nModule\n  received packets  *0\n"},
        {"show --format json",
         "\\{\n  \"taken_at\": .*,\n  \"processor\": \"main\",\n  \"module_up\": true,\n"},
        {"show --format prometheus", "# HELP olv_twamp_processor_info "},
        {"listeners", "Listener 127\\.0\\.0\\.1:[0-9]+\n  responder  *west\n  bind key  *4\n"},
        {"listeners --format json", "\\[\n  \\{\n    \"address\": \"127"},
        {"listeners --format prometheus", "# HELP olv_twamp_listener_"},
        {"sessions --format json", "\\[\\]\n"},
        {"usage", "Platform\n  memory blocks  *2\n  responder IDs  *1\n"},
        {"stats --format json", "\\{\n  \"received_packets\": 0,\n"},
        {"stats --format prometheus", "# HELP olv_twamp_received_packets_total "},
        {"responder stats west --format json", "\\{\n  \"name\": \"west\",\n  \"id\": 1,\n"},
        {"responder stats west --format prometheus", "# HELP olv_twamp_responder_"},
        {"responder list --format json", "\\[\n  \\{\n    \"name\": \"west\",\n"}};
    const std::string up = "--quiet up then responder create west then listen 127.0.0.1:0 then ";
    for (const auto &[command, shown] : rows) {
        EXPECT_THAT(twampctl(up + command).output, ContainsRegex(std::string("^") + shown)) << command;
    }
}

TEST(Metrics, AreServedUntilTheyAreOff)
{
    conversation talk;
    talk.tell("up");
    const std::string url = talk.ask("metrics at 127.0.0.1:0", "metrics http://");
    const std::string host = url.substr(0, url.find('/'));
    EXPECT_THAT(http_get(host, "/metrics"), HasSubstr("\nolv_twamp_processor_info{processor=\"main\"} 1\n"));
    talk.tell({"processor create b", "processor remove main"});
    EXPECT_EQ(talk.ask("metrics off", "metrics are "), "no longer served");
    EXPECT_EQ(http_get(host, "/metrics"), "");
    EXPECT_EQ(talk.wait().errors, "");
}

TEST(Watch, PrintsALineEachTime)
{
    const std::string line = "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z  "
                             "received 0\\.0/s  sent 0\\.0/s  dropped 0\\.0/s  sessions 0\n";
    EXPECT_THAT(twampctl("up then watch --interval 0.05 --count 2").output,
                MatchesRegex("module initialised\n(" + line + "){2}"));
}

/** Run "twampctl LINE"; once it has printed a line like this and sleeps, send it a signal. */
finished_program interrupted(const std::string &line, const std::string &after, int signal)
{
    child_program program{TWAMPCTL, words_of(line)};
    (void)program.wait_for_line(after);
    EXPECT_TRUE(program.wait_until_asleep());
    return program.stop(signal);
}

TEST(Interrupt, EndsWatchAndTerminationAll)
{
    const std::string line = "up then watch --interval 0.05 then echo on";
    const finished_program gone_on = interrupted(line, "20", SIGINT);
    EXPECT_THAT(gone_on.output, HasSubstr("sessions 0\non\n"));
    EXPECT_EQ(gone_on.errors, "");
    EXPECT_EQ(gone_on.status, 0);
    const finished_program ended = interrupted(line, "20", SIGTERM);
    EXPECT_THAT(ended.output, Not(HasSubstr("on\n")));
    EXPECT_EQ(ended.errors, "twampctl: terminated while watching\n");
    EXPECT_EQ(ended.status, 1);
}

TEST(Interrupt, EndsWait)
{
    for (const int signal : {SIGINT, SIGTERM}) {
        EXPECT_EQ(interrupted("up then echo waiting then wait 60 then echo on", "waiting", signal),
                  ends(1, "module initialised\nwaiting\n", "twampctl: interrupted while waiting\n"));
    }
}

TEST(Interrupt, EndsTheCreationOfMany)
{
    child_program program{
        TWAMPCTL,
        words_of("processor create large --capacity 300000 then up then responder create --count 200000")};
    (void)program.wait_for_line("responder 10 created");
    const finished_program finished = program.stop(SIGINT);
    EXPECT_THAT(finished.errors, MatchesRegex("twampctl: interrupted after [0-9]+ of 200000 responders\n"));
    EXPECT_EQ(finished.status, 1);
}

TEST(Interrupt, SaysTheLineOfTheScript)
{
    const test_folder folder;
    folder.write("tour", "up\necho waiting\nwait 60\necho on\n");
    child_program program{TWAMPCTL, {"script", "tour", "--keep-going"}, folder.enter()};
    (void)program.wait_for_line("waiting");
    EXPECT_TRUE(program.wait_until_asleep());
    EXPECT_EQ(program.stop(SIGINT), ends(1, "module initialised\nwaiting\n",
                                         "twampctl: tour:3: interrupted while waiting\n"
                                         "twampctl: tour:4: interrupted before this line\n"));
}

TEST(Interrupt, EndsAScriptThatWaitsForItsInput)
{
    for (const char *line : {"script -", "shell"}) {
        SCOPED_TRACE(line);
        conversation talk{line};
        (void)talk.ask("up", "module initialised");
        const finished_program finished = talk.stop(SIGINT);
        EXPECT_EQ(finished.status, 1);
        EXPECT_EQ(finished.errors, "twampctl: standard input:2: interrupted before this line\n");
    }
}

/** A signal that waits until the program takes it. */
bool interrupt_at_once()
{
    sigset_t signals;
    return sigemptyset(&signals) == 0 && sigaddset(&signals, SIGINT) == 0 &&
           sigprocmask(SIG_BLOCK, &signals, nullptr) == 0 && raise(SIGINT) == 0;
}

TEST(Interrupt, BeforeACommand)
{
    EXPECT_EQ(twampctl("up", interrupt_at_once), ends(1, "", "twampctl: interrupted before 'up'\n"));
}

} // namespace
} // namespace e2e
