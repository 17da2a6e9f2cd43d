// Scripts: from files and from standard input.

#include <csignal>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "command_run.hpp"
#include "control_program.hpp"

namespace e2e {
namespace {

using testing::HasSubstr;

constexpr const char *tour = "up\n"
                             "\n"
                             "   # don't mind the quote\n"
                             "responder create west   # \"another\n"
                             "echo 'two  words' \"# no comment\" a#b \\# it\\'s\n"
                             "responder list\n"
                             "quit\n"
                             "nonsense\n";

constexpr const char *tour_output =
    "module initialised\n"
    "responder west created: ID 0x1\n"
    "two  words # no comment a#b # it's\n"
    "ID         received transmitted  too short no session   sessions  RESPONDER\n"
    "0x1               0           0          0          0          0  west\n";

TEST(Script, OfAFile)
{
    const script_folder folder;
    folder.write("tour", tour);
    const finished_program finished = folder.run("script tour");
    EXPECT_EQ(finished.output, tour_output);
    EXPECT_EQ(finished.errors, "");
    EXPECT_EQ(finished.status, 0);
}

TEST(Script, OfStandardInput)
{
    for (const char *line : {"script -", "shell"}) {
        const finished_program finished = run_commands(line, tour);
        EXPECT_THAT(finished.output, testing::StartsWith(tour_output)) << line;
        EXPECT_EQ(finished.errors, "") << line;
        EXPECT_EQ(finished.status, 0) << line;
    }
}

TEST(Script, WithoutANewlineAtItsEnd)
{
    const finished_program finished = run_commands("script -", "echo a\necho b");
    EXPECT_EQ(finished.output, "a\nb\n");
    EXPECT_EQ(finished.status, 0);
}

TEST(Script, WithLineEndsOfAnotherSystem)
{
    const finished_program finished = run_commands("script -", "echo a\r\n\r\n# comment\r\necho b\r\n");
    EXPECT_EQ(finished.output, "a\nb\n");
    EXPECT_EQ(finished.errors, "");
    EXPECT_EQ(finished.status, 0);
}

TEST(Script, StopsAtTheFirstFailure)
{
    const script_folder folder;
    folder.write("three", "echo a\n\nresponder stats west\necho b\n");
    const finished_program finished = folder.run("script three");
    EXPECT_EQ(finished.output, "a\n");
    EXPECT_EQ(finished.errors,
              "twampctl: three:3: no responder 'west', nor any other; 'responder create west' creates it\n");
    EXPECT_EQ(finished.status, 1);
}

TEST(Script, GivesAdviceThatFitsThere)
{
    const finished_program finished = run_commands("script -", "echo a\nresponder craete\n");
    EXPECT_EQ(finished.errors,
              "twampctl: standard input:2: there is no command 'responder craete'; did you mean "
              "'create'?; try 'help responder'\n");
    EXPECT_EQ(finished.status, 1);
}

TEST(Script, GoesOnWhenTold)
{
    const script_folder folder;
    folder.write("four", "nonsense\necho a\nbind ipv5\necho b\n");
    const finished_program finished = folder.run("script four --keep-going");
    EXPECT_EQ(finished.output, "a\nb\n");
    EXPECT_EQ(finished.errors, "twampctl: four:1: there is no command 'nonsense'; try 'help'\n"
                               "twampctl: four:3: bind: MODULE: 'ipv5' is none of ipv4, ipv6; try 'help bind'\n"
                               "twampctl: four: 2 commands failed\n");
    EXPECT_EQ(finished.status, 1);
}

TEST(Script, Echoes)
{
    const finished_program finished = run_commands("script - --echo", "echo a\n\n# comment\n");
    EXPECT_EQ(finished.output, "> echo a\na\n\n> # comment\n");
    EXPECT_EQ(finished.status, 0);
}

TEST(Script, SaysThatAQuoteIsOpen)
{
    for (const char *line : {"echo 'a\n", "echo \"a # b\n", "echo a\\\n"}) {
        const finished_program finished = run_commands("script -", line);
        EXPECT_EQ(finished.errors,
                  "twampctl: standard input:1: a quote is not closed, or the line ends in a backslash\n")
            << line;
        EXPECT_EQ(finished.status, 1) << line;
    }
}

TEST(Script, RunsOthers)
{
    const script_folder folder;
    folder.write("outer", "echo outer\nscript inner\necho never\n");
    folder.write("inner", "echo inner\ndown\n");
    const finished_program finished = folder.run("script outer");
    EXPECT_THAT(finished.output, HasSubstr("outer\ninner\n"));
    EXPECT_EQ(finished.errors,
              "twampctl: outer:2: inner:2: cannot shut the module down: status 0x1 "
              "OLV_STATUS_INVALID_HANDLE: Invalid handle; the module is not up, 'up' brings it up\n");
    EXPECT_EQ(finished.status, 1);
}

TEST(Script, ThatRunsItselfEnds)
{
    const script_folder folder;
    folder.write("loop", "script loop\n");
    const finished_program finished = folder.run("script loop");
    EXPECT_THAT(finished.errors, HasSubstr("loop:1: loop:1: loop: scripts run each other more than 16 deep\n"));
    EXPECT_EQ(count_lines(finished.errors, ""), 1);
    EXPECT_EQ(finished.status, 1);
}

TEST(Script, ThatIsAFolder)
{
    const script_folder folder;
    const finished_program finished = folder.run("script .");
    EXPECT_EQ(finished.errors, "twampctl: cannot read . to its end\n");
    EXPECT_EQ(finished.status, 1);
}

TEST(Script, QuitInsideEndsTheChain)
{
    const script_folder folder;
    folder.write("end", "echo a\nquit\n");
    const finished_program finished = folder.run("script end then echo b");
    EXPECT_EQ(finished.output, "a\n");
    EXPECT_EQ(finished.status, 0);
}

TEST(Script, HelpOfItIsThatOfACommandLine)
{
    EXPECT_THAT(run_commands("script --help").output, HasSubstr("Usage: twampctl script [OPTIONS] FILE\n"));
    EXPECT_THAT(run_commands("shell --help").output, HasSubstr("Usage: twampctl shell [OPTIONS]\n"));
    EXPECT_THAT(run_commands("script -", "help script\n").output, HasSubstr("Usage: script [OPTIONS] FILE\n"));
}

TEST(Trace, GoesToAFileUntilItIsOff)
{
    const script_folder folder;
    const finished_program finished =
        folder.run("trace to run.trace then up then status then trace off then responder create");
    EXPECT_EQ(finished.status, 0) << finished.errors;
    EXPECT_THAT(finished.output, HasSubstr("trace goes to run.trace\nmodule initialised\n"));
    EXPECT_THAT(finished.output, HasSubstr("trace: run.trace\ntrace is off\nresponder 1 created: ID 0x1\n"));
    const std::string trace = folder.read("run.trace");
    EXPECT_THAT(trace, HasSubstr("olv_twamp_init"));
    EXPECT_THAT(trace, testing::Not(HasSubstr("olv_twamp_responder_create")));
}

TEST(Trace, GoesToStandardError)
{
    const finished_program finished = run_commands("trace to - then up");
    EXPECT_THAT(finished.errors, HasSubstr("olv_twamp_init"));
    EXPECT_EQ(finished.status, 0);
}

TEST(Log, ShowsTheLinesOfItsBits)
{
    const finished_program finished =
        run_commands("up then log bits function pattern then bind ipv4 then responder create w");
    const std::string output = without_places(finished.output);
    EXPECT_THAT(output, HasSubstr("[twamp_log: function] twamp_bind.c:LINE ["));
    EXPECT_THAT(output, HasSubstr("] Entering olv_twamp_custom_bind\n"));
    EXPECT_THAT(output, HasSubstr("] Exiting olv_twamp_responder_create\n"));
    EXPECT_THAT(output, HasSubstr("[twamp_log: ptn_learn] twamp_responder.c:LINE "));
    EXPECT_EQ(finished.status, 0);
}

TEST(Log, Level15ShowsItself)
{
    const finished_program finished = run_commands("up then log level 15");
    EXPECT_THAT(without_places(finished.output),
                testing::MatchesRegex("module initialised\n\\[twamp_log: info\\] twamp\\.c:LINE TWAMP module "
                                      "0x[0-9a-f]+ log-level set to 0xf\nlog: level 15, bits none\n"));
    EXPECT_EQ(finished.status, 0);
}

TEST(Record, ShowsCallsInOrderWithTheirFault)
{
    const finished_program finished =
        run_commands("script - --keep-going", "up\nrecord start\nfault set hyx_rsrc_allocate --code 0x107\n"
                                              "responder create west\nrecord show\n");
    EXPECT_THAT(finished.output, HasSubstr("   2 hyx_nvm_calloc(")) << finished.output;
    EXPECT_THAT(finished.output,
                testing::ContainsRegex("   3 hyx_rsrc_allocate\\(.*\\) -> 0x107 \\(fault\\)\n"));
    EXPECT_THAT(finished.errors,
                HasSubstr("standard input:4: cannot create responder west: status 0x3001D "
                          "TWAMP_STATUS_INDEX_ALLOC_FAILED: TWAMP: responder ID could not be allocated\n"));
}

} // namespace
} // namespace e2e
