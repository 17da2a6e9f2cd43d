// Commands while packets flow, and while signals come.

#include <csignal>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "command_run.hpp"
#include "control_program.hpp"

namespace e2e {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::MatchesRegex;

/** What follows the first word or words of a line. */
std::string rest_of(const std::string &line, const std::string &start)
{
    return line.size() < start.size() ? "" : line.substr(start.size());
}

TEST(Listen, AnswersUntilItIsTakenBack)
{
    conversation talk;
    for (const char *each : {"up", "bind ipv4", "responder create west --sessions 1", "responder create east",
                             "listen 127.0.0.1:0 --responder west"}) {
        talk.tell(each);
    }
    const std::string start = "listening at ";
    const std::string address = rest_of(talk.program().wait_for_line(start), start);
    EXPECT_EQ(run_probe({address, "--count", "3", "--interval", "1"}).status, 0);
    talk.tell("redirect " + address + " --responder east");
    (void)talk.program().wait_for_line("packets to "); // has come: the next command shows it
    EXPECT_EQ(run_probe({address, "--count", "2", "--interval", "1"}).status, 0);
    for (const char *each : {"responder list", "sessions", "stats", "unlisten --all", "listeners"}) {
        talk.tell(each);
    }
    const finished_program finished = talk.end();
    EXPECT_THAT(finished.output,
                HasSubstr("0x1               3           3          0          0          1  west\n"
                          "0x2               2           2          0          0          1  east\n"));
    EXPECT_THAT(finished.output, ContainsRegex("Sessions of east\n   replies   idle s    trip ms  SENDER\n"
                                               "         2 +[0-9.]+ +- +127\\.0\\.0\\.1:[0-9]+\n"));
    EXPECT_THAT(finished.output, HasSubstr("Total received packets: 5\nTotal transmitted packets: 5\n"
                                           "no longer listening at " +
                                           address + "\nNo listeners\n"));
    EXPECT_EQ(finished.errors, "");
    EXPECT_EQ(finished.status, 0);
}

TEST(Listen, AtAnIdThatNobodyHas)
{
    conversation talk;
    for (const char *each : {"up", "bind ipv4", "listen 127.0.0.1:0 --id 0x99"}) {
        talk.tell(each);
    }
    const std::string start = "listening at ";
    const std::string address = rest_of(talk.program().wait_for_line(start), start);
    EXPECT_EQ(run_probe({address, "--count", "1", "--timeout", "0.2"}).status, 1);
    EXPECT_TRUE(wait_until_taken(address));
    talk.tell("listeners"); // waits until the packet is dealt with
    talk.tell("stats");
    const finished_program finished = talk.end();
    EXPECT_THAT(finished.output, HasSubstr("Packets dropped due to responder not defined : 1\n"));
    EXPECT_EQ(finished.status, 0) << finished.errors;
}

TEST(Listen, ThatFailsLeavesTheAddressesBeforeIt)
{
    const loopback_socket other;
    const finished_program finished = run_commands(
        "script - --keep-going", "up\nresponder create\nlisten 127.0.0.1:0 " + other.address() + "\nstatus\n");
    EXPECT_THAT(finished.output, HasSubstr("responders: 1, listeners: 1\n"));
    EXPECT_EQ(finished.errors, "twampctl: standard input:3: cannot listen on " + other.address() +
                                   ": Address already in use\ntwampctl: standard input: 1 command failed\n");
    EXPECT_EQ(finished.status, 1);
}

TEST(Listen, NamesTheAddressesThereAre)
{
    const finished_program finished =
        run_commands("up then responder create then listen 127.0.0.1:0 then unlisten 127.0.0.1:1");
    EXPECT_THAT(
        finished.errors,
        MatchesRegex("twampctl: nothing listens at 127\\.0\\.0\\.1:1; there are: 127\\.0\\.0\\.1:[0-9]+\n"));
    EXPECT_EQ(finished.status, 1);
}

TEST(Show, HasEachFormat)
{
    const std::string up = "up then responder create west then listen 127.0.0.1:0 then ";
    EXPECT_THAT(run_commands(up + "show").output,
                ContainsRegex("Processor main, module up, .* UTC\n\nModule\n  received packets  *0\n"));
    EXPECT_THAT(run_commands(up + "show --format json").output,
                HasSubstr("  \"processor\": \"main\",\n  \"module_up\": true,\n"));
    EXPECT_THAT(run_commands(up + "show --format prometheus").output, HasSubstr("responder=\"west\""));
    EXPECT_THAT(run_commands(up + "listeners").output,
                ContainsRegex("Listener 127\\.0\\.0\\.1:[0-9]+\n  responder  *west\n  bind key  *4\n"));
    EXPECT_THAT(run_commands(up + "sessions --format json").output, HasSubstr("\n[]\n"));
    EXPECT_THAT(run_commands(up + "usage --format json").output, HasSubstr("\"responder_ids\": 1,\n"));
    EXPECT_THAT(run_commands(up + "listeners --format prometheus").output, HasSubstr("# TYPE "));
    EXPECT_THAT(run_commands(up + "stats --format prometheus").output, HasSubstr("# TYPE "));
    EXPECT_THAT(run_commands(up + "responder stats west --format prometheus").output, HasSubstr("# TYPE "));
}

TEST(State, IsShownInWords)
{
    const finished_program finished = run_commands(
        "up then responder create w --param-a 0x1234 --param-b 2 --sessions 7 then responder state w");
    EXPECT_THAT(finished.output,
                MatchesRegex("module initialised\nresponder w created: ID 0x1\n"
                             "state entry 0x1 of responder w, 60 bytes:\n"
                             "1234[0-9A-F]{4} 80000002 [0-9A-F]{8} [0-9A-F]{8}\n"
                             "[0-9A-F]{8} [0-9A-F]{8} [0-9A-F]{8} [0-9A-F]{8}\n"
                             "00000000 00000000 00000000 00000000\n00000000 07000000 [0-9A-F]{8}\n"));
    EXPECT_EQ(finished.status, 0);
}

TEST(Clock, StandsStillAndRuns)
{
    const finished_program finished =
        run_commands("clock timer 1000000 then clock wall 1700000000 then clock show then clock run");
    EXPECT_THAT(finished.output, HasSubstr("wall clock: 1700000000.000000 s\ntimer 0: 1000000 ticks, "));
    EXPECT_EQ(finished.status, 0) << finished.errors;
}

TEST(Metrics, AreServedUntilTheyAreOff)
{
    const finished_program finished = run_commands("up then metrics at 127.0.0.1:0 then metrics off then "
                                                   "metrics at 127.0.0.1:0 then processor create b then "
                                                   "processor remove main");
    EXPECT_THAT(finished.output, ContainsRegex("metrics http://127\\.0\\.0\\.1:[0-9]+/metrics\n"
                                               "metrics are no longer served\nmetrics http"));
    EXPECT_EQ(finished.errors, "");
    EXPECT_EQ(finished.status, 0);
}

TEST(Watch, PrintsALineEachTime)
{
    const finished_program finished = run_commands("up then watch --interval 0.05 --count 2");
    EXPECT_EQ(finished.output, "module initialised\n"
                               "received 0.0/s  sent 0.0/s  dropped 0.0/s  sessions 0\n"
                               "received 0.0/s  sent 0.0/s  dropped 0.0/s  sessions 0\n");
    EXPECT_EQ(finished.errors, "");
    EXPECT_EQ(finished.status, 0);
}

/** Send a program a signal and wait for its end. */
finished_program end_by(int signal, child_program &program)
{
    program.send_signal(signal);
    const int status = program.wait();
    return {.status = status, .output = program.output(), .errors = program.errors()};
}

/** Run "twampctl LINE"; once it has printed a line like this, send it a signal. */
finished_program interrupted(const std::string &line, const std::string &after, int signal)
{
    child_program program{TWAMPCTL, words_of(line)};
    EXPECT_NE(program.wait_for_line(after), "");
    return end_by(signal, program);
}

TEST(Interrupt, EndsWatchAndGoesOn)
{
    const finished_program finished =
        interrupted("up then watch --interval 0.05 then echo on", "received", SIGINT);
    EXPECT_THAT(finished.output, HasSubstr("sessions 0\non\n"));
    EXPECT_EQ(finished.errors, "");
    EXPECT_EQ(finished.status, 0);
}

TEST(Interrupt, TerminationInWatchEndsAll)
{
    const finished_program finished =
        interrupted("up then watch --interval 0.05 then echo on", "received", SIGTERM);
    EXPECT_THAT(finished.output, testing::Not(HasSubstr("on\n")));
    EXPECT_EQ(finished.errors, "twampctl: terminated while watching\n");
    EXPECT_EQ(finished.status, 1);
}

TEST(Interrupt, EndsWait)
{
    for (const int signal : {SIGINT, SIGTERM}) {
        child_program program{
            TWAMPCTL, words_of("up then responder create west then echo waiting then wait 60 then echo on")};
        EXPECT_NE(program.wait_for_line("waiting"), "");
        EXPECT_TRUE(program.wait_until_asleep());
        const finished_program finished = end_by(signal, program);
        EXPECT_EQ(finished.output, "module initialised\nresponder west created: ID 0x1\nwaiting\n");
        EXPECT_EQ(finished.errors, "twampctl: interrupted while waiting\n");
        EXPECT_EQ(finished.status, 1);
    }
}

TEST(Interrupt, EndsTheCreationOfMany)
{
    const finished_program finished =
        interrupted("processor create large --capacity 300000 then up then responder create --count 200000",
                    "responder 10 created", SIGINT);
    EXPECT_THAT(finished.errors, MatchesRegex("twampctl: interrupted after [0-9]+ of 200000 responders\n"));
    EXPECT_EQ(finished.status, 1);
}

TEST(Interrupt, SaysTheLineOfTheScript)
{
    const script_folder folder;
    folder.write("tour", "up\necho waiting\nwait 60\necho on\n");
    child_program program{TWAMPCTL, {"script", "tour", "--keep-going"}, folder.enter()};
    EXPECT_NE(program.wait_for_line("waiting"), "");
    EXPECT_TRUE(program.wait_until_asleep());
    const finished_program finished = end_by(SIGINT, program);
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.output, "module initialised\nwaiting\n");
    EXPECT_EQ(finished.errors, "twampctl: tour:3: interrupted while waiting\n"
                               "twampctl: tour:4: interrupted before this line\n");
}

TEST(Interrupt, EndsAScriptThatWaitsForItsInput)
{
    for (const char *line : {"script -", "shell"}) {
        conversation talk{line};
        talk.tell("up");
        EXPECT_NE(talk.program().wait_for_line("module initialised"), "");
        talk.program().send_signal(SIGINT);
        EXPECT_EQ(talk.program().wait(), 1) << line;
        EXPECT_EQ(talk.program().errors(), "twampctl: standard input:2: interrupted before this line\n")
            << line;
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
    const finished_program finished = run_program(TWAMPCTL, {"up"}, interrupt_at_once);
    EXPECT_EQ(finished.output, "");
    EXPECT_EQ(finished.errors, "twampctl: interrupted before 'up'\n");
    EXPECT_EQ(finished.status, 1);
}

TEST(Completion, OfTheSystemsShell)
{
    EXPECT_EQ(run_commands("--complete respo").output, "responder\n");
    EXPECT_EQ(run_program(TWAMPCTL, {"--complete", "responder", "st"}).output, "state\nstats\n");
    EXPECT_EQ(run_program(TWAMPCTL, {"--complete", "bind", ""}).output, "ipv4\nipv6\n");
    EXPECT_EQ(run_program(TWAMPCTL, {"--complete", "watch", "--c"}).output, "--count\n");
    EXPECT_EQ(run_program(TWAMPCTL, {"--complete", "fault", "set", "hyx_ptn_"}).output,
              "hyx_ptn_learn\nhyx_ptn_list_ptns\nhyx_ptn_symbol_get_id\nhyx_ptn_unlearn\n");
    EXPECT_EQ(run_program(TWAMPCTL, {"--complete", "tree", "default", "olv_twamp.twamp_r"}).output,
              "olv_twamp.twamp_responder_lookup\n");
    EXPECT_EQ(run_program(TWAMPCTL, {"--complete", "help", "responder", "d"}).output, "delete\n");
    EXPECT_EQ(run_program(TWAMPCTL, {"--complete", "nonsense", ""}).output, "");
    EXPECT_THAT(run_commands("--complete").output, HasSubstr("run\n"));
}

} // namespace
} // namespace e2e
