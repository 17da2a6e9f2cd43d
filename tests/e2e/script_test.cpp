// Scripts: from files and from standard input.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "programs.hpp"

namespace e2e {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char *tour = "up\n"
                             "\n"
                             "   # don't mind the quote\n"
                             "responder create west   # \"another\n"
                             "echo 'two  words' \"# no comment\" a#b \\# it\\'s\n"
                             "quit\n"
                             "nonsense\n";

constexpr const char *tour_output = "module initialised\n"
                                    "responder west created: ID 0x1\n"
                                    "two  words # no comment a#b # it's\n";

TEST(Script, OfAFile)
{
    const test_folder folder;
    folder.write("tour", tour);
    EXPECT_EQ(twampctl("script tour", folder.enter()), prints(tour_output));
}

TEST(Script, OfStandardInput)
{
    EXPECT_EQ(twampctl_reading(tour, "script -"), prints(tour_output));
    const finished_program shell = twampctl_reading(tour, "shell"); // takes down what is up
    EXPECT_THAT(shell.output, testing::StartsWith(tour_output));
    EXPECT_EQ(shell.errors, "");
    EXPECT_EQ(shell.status, 0);
}

TEST(Script, MayEndItsLinesAsElsewhereOrNotAtAll)
{
    EXPECT_EQ(twampctl_reading("echo a\r\n\r\n# comment\r\necho b", "script -"), prints("a\nb\n"));
}

TEST(Script, IsEchoedWithItsComments)
{
    EXPECT_EQ(twampctl_reading("echo a\n\n# comment\n", "script - --echo"),
              prints("> echo a\na\n\n> # comment\n"));
}

TEST(Script, StopsAtTheFirstFailure)
{
    const test_folder folder;
    folder.write("three", "echo a\n\nresponder stats west\necho b\n");
    EXPECT_EQ(twampctl("script three", folder.enter()),
              ends(1, "a\n",
                   "twampctl: three:3: no responder 'west', nor any other; "
                   "'responder create west' creates it\n"));
}

TEST(Script, GoesOnWhenTold)
{
    const test_folder folder;
    folder.write("four", "nonsense\necho a\nresponder craete\necho b\n");
    EXPECT_EQ(twampctl("script four --keep-going", folder.enter()),
              ends(1, "a\nb\n",
                   "twampctl: four:1: there is no command 'nonsense'; try 'help'\n"
                   "twampctl: four:3: there is no command 'responder craete'; did you mean 'create'?; "
                   "try 'help responder'\n"
                   "twampctl: four: 2 commands failed\n"));
}

TEST(Script, SaysThatAQuoteIsOpen)
{
    for (const char *line : {"echo 'a\n", "echo \"a # b\n", "echo a\\\n"}) {
        EXPECT_EQ(twampctl_reading(line, "script -"),
                  ends(1, "",
                       "twampctl: standard input:1: a quote is not closed, or the line "
                       "ends in a backslash\n"));
    }
}

TEST(Script, RunsOthers)
{
    const test_folder folder;
    folder.write("outer", "echo outer\nscript inner\necho never\n");
    folder.write("inner", "echo inner\ndown\n");
    const finished_program finished = twampctl("script outer", folder.enter());
    EXPECT_THAT(finished.output, HasSubstr("outer\ninner\n"));
    EXPECT_EQ(finished.errors,
              "twampctl: outer:2: inner:2: cannot shut the module down: status 0x1 "
              "OLV_STATUS_INVALID_HANDLE: Invalid handle; the module is not up, 'up' brings it up\n");
    EXPECT_EQ(finished.status, 1);
}

TEST(Script, ThatRunsItselfEnds)
{
    const test_folder folder;
    folder.write("loop", "script loop\n");
    const finished_program finished = twampctl("script loop", folder.enter());
    EXPECT_THAT(finished.errors, HasSubstr("loop:1: loop:1: loop: scripts run each other more than 16 deep\n"));
    EXPECT_EQ(count_lines(finished.errors, ""), 1);
    EXPECT_EQ(finished.status, 1);
}

TEST(Script, ThatCannotBeRead)
{
    EXPECT_EQ(twampctl("script /nonexistent"),
              ends(1, "", "twampctl: cannot read /nonexistent: No such file or directory\n"));
    EXPECT_EQ(twampctl("script /"), ends(1, "", "twampctl: cannot read / to its end\n"));
}

TEST(Script, QuitInsideEndsTheChain)
{
    const test_folder folder;
    folder.write("end", "echo a\nquit\n");
    EXPECT_EQ(twampctl("script end then echo b", folder.enter()), prints("a\n"));
}

TEST(Log, OfAFaultOfTheLockHasATextOfItsOwn)
{
    const finished_program finished = twampctl_reading(
        "up --log-level 3\nfault set olv_sys_sem_lock_wait\nresponder create west\n", "script - --keep-going");
    EXPECT_THAT(
        without_places(finished.output),
        HasSubstr("[twamp_log: ERROR] twamp_responder.c:LINE  Failed to acquire lock, RTE error code: 511. "
                  "Injected fault\n"));
}

TEST(Trace, GoesToStandardErrorUntilItIsOff)
{
    const finished_program finished =
        twampctl("trace to - then status then up then trace off then responder create");
    EXPECT_THAT(finished.output, HasSubstr("\ntrace: -\nmodule initialised\ntrace is off\n"));
    EXPECT_THAT(finished.errors, HasSubstr("olv_twamp_init"));
    EXPECT_THAT(finished.errors, Not(HasSubstr("olv_twamp_responder_create")));
}

} // namespace
} // namespace e2e
