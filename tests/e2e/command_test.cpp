// Commands that do what they are told, with all that they print.

#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "programs.hpp"

namespace e2e {
namespace {

using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;

/** Give the commands of a transcript, which stand behind "> ", and expect that it is what they print. */
void expect_transcript(const std::string &transcript)
{
    std::istringstream lines{transcript};
    std::string commands;
    for (std::string line; std::getline(lines, line);) {
        commands += line.starts_with("> ") ? line.substr(2) + "\n" : "";
    }
    const finished_program finished = twampctl_reading(commands, "script - --echo");
    EXPECT_EQ(without_places(finished.output), transcript);
    EXPECT_EQ(finished.errors, "");
    EXPECT_EQ(finished.status, 0);
}

TEST(Commands, BringTheModuleUpAndDown)
{
    expect_transcript(R"(> status
processor: main, RTE handle 1
module: not initialised
service functions: not registered
log: level 0, bits none
responders: 0, listeners: 0
trace: off
> up
module initialised
> up
[olv_unknown_log: ERROR] twamp.c:LINE TWAMP Module handle ADDRESS is already initialized
module was initialised already: nothing changed
> update
service functions updated
> down
module shut down
> up --log-level 3
module initialised
log level 3
> responder create
responder 1 created: ID 0x1
> status
processor: main, RTE handle 1
module: initialised
service functions: registered
log: level 3, bits none
responders: 1, listeners: 0
trace: off
)");
}

TEST(Commands, CreateAndDeleteResponders)
{
    expect_transcript(R"(> up
module initialised
> responder list
No responders
> responder create --count 3
responder 1 created: ID 0x1
responder 2 created: ID 0x2
responder 3 created: ID 0x3
> responder delete 2
responder 2 deleted
> # the lowest free number
> responder create
responder 2 created: ID 0x4
> responder delete 1 2
responder 1 deleted
responder 2 deleted
> responder create west
responder west created: ID 0x5
> responder delete --all
responder west deleted
responder 3 deleted
)");
}

TEST(Commands, ListRespondersThatStayWhenTheModuleGoes)
{
    expect_transcript(R"(> up
module initialised
> responder create west
responder west created: ID 0x1
> responder list
ID         received transmitted length_check max_sessions sessions  RESPONDER
0x1               0           0            0            0        0  west
> down
module shut down
> responder list
ID         received transmitted length_check max_sessions sessions  RESPONDER
0x1               -           -            -            -        -  west
> up
module initialised
> responder delete west
responder west deleted
)");
}

TEST(Commands, BindAndUnbind)
{
    expect_transcript(R"(> up
module initialised
> bind ipv4
bound to the IPv4 module: key 4
> bind ipv6
bound to the IPv6 module: key 6
> bind ipv6 --key 0xFFFFFF
bound to the IPv6 module: key 16777215
> unbind ipv6 --key 16777215
unbound from the IPv6 module
> unbind ipv4 --direct
unbound from the IPv4 module
> bind ipv4 --direct
bound to the IPv4 module: key 4
> imc ipv4
call to the IPv4 module: tree function 0x101
> imc ipv6 --direct
call to the IPv6 module: tree function 0x101
> listeners
No listeners
> sessions
No sessions
)");
}

TEST(Commands, SetWhatIsLogged)
{
    expect_transcript(R"(> log map 7
log level 7 is level 7 of the module
> trace off
trace is off
> up
module initialised
> log level 3
log: level 3, bits none
> log show
log: level 3, bits none
> log bits pattern function state
log: level 3, bits function pattern state
)");
}

TEST(Commands, DumpTables)
{
    const std::string up = "up then responder create --count 2 then bind ipv4 then ";
    const std::string all_up = "module initialised\nresponder 1 created: ID 0x1\nresponder 2 created: ID 0x2\n"
                               "bound to the IPv4 module: key 4\n";
    const std::string responders = "\nolv_twamp.twamp_responder_lookup, RESPONDER-ID, DEFINED/NOT_DEFINED \n"
                                   "olv_twamp.twamp_responder_lookup, 0x1, DEFINED\n"
                                   "olv_twamp.twamp_responder_lookup, 0x2, DEFINED\n\n";
    EXPECT_EQ(twampctl(up + "dump responder"), prints(all_up + responders));
    EXPECT_EQ(twampctl(up + "dump --walk responder"), prints(all_up + responders));
    EXPECT_EQ(twampctl("up then dump --group 2"), prints("module initialised\n\n"));
    EXPECT_EQ(twampctl(up + "dump --entries"),
              prints(all_up + "RESPONDER-ID, DEFINED/NOT_DEFINED 0x1, DEFINED\n0x2, DEFINED\n"));
}

TEST(Commands, MakePlatformCallsFail)
{
    expect_transcript(R"(> fault list
no faults
> fault set hyx_ptn_learn --skip 2 --count 3
hyx_ptn_learn fails at calls 3 to 5 with 0x1FF
> fault list
hyx_ptn_learn fails at calls 3 to 5 with 0x1FF; fired: 0
> fault clear hyx_ptn_learn
hyx_ptn_learn fails no more
> fault set olv_ptn_new
olv_ptn_new fails at call 1 with 0x201FF
> fault set olv_ptn_new --forever --code 7
olv_ptn_new fails from call 1 on with 0x7
> fault clear
no faults
> fault set olv_sys_sem_lock_wait
olv_sys_sem_lock_wait fails at call 1 with 0x1FF
> fault set entry_point_lookup
entry_point_lookup fails at call 1 with 0x201FF
> fault set olv_lttng_fn_ptr_get
olv_lttng_fn_ptr_get fails at call 1 with no function
> fault clear
no faults
> fault set hyx_nvm_calloc
hyx_nvm_calloc fails at call 1 with NULL
> fault list
hyx_nvm_calloc fails at call 1 with NULL; fired: 0
> fault clear
no faults
> up
module initialised
> fault any --skip 90
any call fails at call 91 with its own code
> responder create
responder 1 created: ID 0x1
> fault list
any call: 9 counted, fired: 0
> fault clear
no faults
)");
}

TEST(Record, HasTheCallsOfOneOperationInOrder)
{
    EXPECT_THAT(
        twampctl("processor create a --unlocked then up then record start then stats then record show").output,
        EndsWith("   1 hyx_se_state_get(rte=1, namespace=0x7008c1, index=0, length=24) -> 0x0\n"
                 "   2 hyx_se_state_get(rte=1, namespace=0x7008c1, index=0, length=24) -> 0x0\n"));
    EXPECT_THAT(twampctl("record start then record show then record stop"),
                prints("recording platform calls\nno calls recorded\nno longer recording\n"));
}

TEST(Record, HasTheCallsOfTheEntryWithoutAKey)
{
    EXPECT_THAT(
        twampctl("record start then tree default olv_twamp.twamp_bind_to_next_module --action 1 2 3 then "
                 "tree clear-default olv_twamp.twamp_bind_to_next_module then record show"),
        prints(
            "recording platform calls\nentry without a key set\nentry without a key removed\n"
            "   1 olv_ptn_new(width=24) -> 0x0\n"
            "   2 hyx_ptn_learn(rte=1, tree=0x105, key=*/0, action=0x00000001 0x00000002 0x00000003) -> 0x0\n"
            "   3 olv_ptn_free(key=*/0) -> 0x0\n"
            "   4 olv_ptn_new(width=24) -> 0x0\n"
            "   5 hyx_ptn_unlearn(rte=1, tree=0x105, key=*/0, key_bits=0, "
            "action=0x00000000 0x00000000 0x00000000, count=1) -> 0x0\n"
            "   6 olv_ptn_free(key=*/0) -> 0x0\n"));
}

TEST(Record, HasByteOrderCallsWhenTold)
{
    const finished_program finished = twampctl(
        "up then responder create w then record start byte-order then responder stats w then record show");
    EXPECT_EQ(count_lines(finished.output, " hyx_ntohl(value=0x0) -> 0x0"), 10);
    EXPECT_THAT(finished.output, EndsWith("\n  10 hyx_ntohl(value=0x0) -> 0x0\n"));
}

TEST(Record, MarksCallsThatAFaultMet)
{
    const finished_program finished =
        twampctl_reading("up\nrecord start\nfault set hyx_rsrc_allocate --code 0x107\n"
                         "responder create west\nrecord show\n",
                         "script - --keep-going");
    EXPECT_THAT(finished.output, ContainsRegex("   2 hyx_nvm_calloc\\(.*\n"
                                               "   3 hyx_rsrc_allocate\\(.*\\) -> 0x107 \\(fault\\)\n"));
    EXPECT_EQ(finished.status, 1);
}

TEST(Commands, MakeAndUseProcessors)
{
    expect_transcript(R"(> processor list
* main: module down, 0 responders, 0 listeners
> processor create east --no-system
processor east created, RTE handle 2
> processor create west --capacity 2
processor west created, RTE handle 3
> processor use east
processor east in use
> up
module initialised
> responder create
responder 1 created: ID 0x1
> processor list
  main: module down, 0 responders, 0 listeners
* east: module up, 1 responders, 0 listeners
  west: module down, 0 responders, 0 listeners
> processor remove east
responder 1 deleted
module shut down
processor east removed
> processor list
* main: module down, 0 responders, 0 listeners
  west: module down, 0 responders, 0 listeners
)");
}

TEST(Commands, LookIntoTrees)
{
    expect_transcript(R"(> tree list
      olv_twamp.twamp_to_ip_direct_imc: code only, or not there
      olv_twamp.twamp_to_ipv6_indirect_imc: code only, or not there
      olv_twamp.twamp_lli_processing: code only, or not there
0x104 olv_twamp.twamp_responder_lookup: 0 entries
0x105 olv_twamp.twamp_bind_to_next_module: 0 entries
> tree clear-default olv_twamp.twamp_responder_lookup
entry without a key removed
> tree default olv_twamp.twamp_responder_lookup --action 4 1 0
entry without a key set
> tree default olv_twamp.twamp_responder_lookup --action 1 0 0
entry without a key set
> up
module initialised
> dump responder

olv_twamp.twamp_responder_lookup, RESPONDER-ID, DEFINED/NOT_DEFINED 
olv_twamp.twamp_responder_lookup, *, NOT_DEFINED

> tree clear-default olv_twamp.twamp_responder_lookup
entry without a key removed
> violations
0 violations
> violations --clear
0 violations
)");
    EXPECT_THAT(twampctl("up then tree default olv_twamp.twamp_responder_lookup --action 4 1 0 "
                         "then dump responder")
                    .output,
                HasSubstr("\nolv_twamp.twamp_responder_lookup, *, DEFINED\n"));
}

TEST(Commands, StopAndSetTheClocks)
{
    EXPECT_THAT(twampctl("clock timer 1000000 then clock wall 1700000000 then clock show").output,
                HasSubstr("wall clock: 1700000000.000000 s\ntimer 0: 1000000 ticks, "));
    const finished_program running = twampctl("clock timer 1000000 then clock run then clock show");
    EXPECT_EQ(count_lines(running.output, "timer 0: "), 3);
    EXPECT_EQ(count_lines(running.output, "timer 0: 1000000 ticks"), 1) << running.output;
}

TEST(Commands, ShowTheStateOfAResponder)
{
    const finished_program finished =
        twampctl("up then responder create w --param-a 0x1234 --param-b 2 --sessions 7 then responder state w");
    EXPECT_THAT(finished.output,
                MatchesRegex("module initialised\nresponder w created: ID 0x1\n"
                             "state entry 0x1 of responder w, 60 bytes:\n"
                             "1234[0-9A-F]{4} 80000002 [0-9A-F]{8} [0-9A-F]{8}\n"
                             "[0-9A-F]{8} [0-9A-F]{8} [0-9A-F]{8} [0-9A-F]{8}\n"
                             "00000000 00000000 00000000 00000000\n00000000 07000000 [0-9A-F]{8}\n"));
    EXPECT_EQ(finished.status, 0);
}

TEST(Commands, FollowEachOtherUntilQuit)
{
    EXPECT_EQ(twampctl("echo a then quit then echo b"), prints("a\n"));
    EXPECT_EQ(twampctl("echo a then exit then echo b"), prints("a\n"));
    EXPECT_EQ(twampctl("echo up down help then echo then wait 0.01"), prints("up down help\n\n"));
}

TEST(Help, OfACommandHasAnExample)
{
    EXPECT_EQ(twampctl("help echo"), prints("Print words\nUsage: twampctl echo [OPTIONS] [WORD...]\n\n"
                                            "Positionals:\n  WORD (optional)         What to print\n\n"
                                            "Options:\n  -h,--help               Print this help\n\n"
                                            "Examples:\n  echo two responders are up\n"));
    EXPECT_THAT(twampctl_reading("help script\n", "script -").output,
                HasSubstr("Usage: script [OPTIONS] FILE\n"));
}

TEST(Help, IsShownWithoutACommand)
{
    const finished_program finished = twampctl("");
    EXPECT_EQ(finished.status, 2);
    EXPECT_THAT(finished.output, HasSubstr("twampctl run --listen 127.0.0.1:8620\n"));
    EXPECT_THAT(twampctl("--version").output, MatchesRegex("twampctl [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST(Output, ThatCannotBeWrittenIsAFailure)
{
    EXPECT_EQ(in_shell("exec \"$@\" >/dev/full", {TWAMPCTL, "echo", "a"}),
              ends(1, "", "twampctl: standard output is not complete\n"));
}

TEST(Completion, OffersRunAtTheStartAlone)
{
    EXPECT_THAT(twampctl("--complete").output, HasSubstr("run\n"));
    EXPECT_EQ(twampctl("--complete up then ru"), prints(""));
}

} // namespace
} // namespace e2e
