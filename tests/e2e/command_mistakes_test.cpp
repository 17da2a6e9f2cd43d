// Commands that cannot be done: each says what is wrong and what to type instead.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "programs.hpp"

namespace e2e {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

constexpr int cannot = 1;
constexpr int misunderstood = 2;

struct mistake {
    const char *line;
    const char *error;
};

/** @param tail  Of each row's error. */
template <std::size_t Count>
void expect_errors(int status, const mistake (&rows)[Count], const std::string &tail = "")
{
    for (const mistake &row : rows) {
        SCOPED_TRACE(row.line);
        const finished_program finished = twampctl(row.line);
        EXPECT_EQ(finished.status, status);
        EXPECT_EQ(finished.errors, std::string("twampctl: ") + row.error + tail + "\n");
    }
}

TEST(Mistakes, InWordsAreExplained)
{
    expect_errors(misunderstood,
                  {{"statsu", "there is no command 'statsu'; did you mean 'stats'?"},
                   {"help resonder", "there is no command 'resonder'; did you mean 'responder'?"},
                   {"--nope up", "there is no option --nope before a command"},
                   {"then", "a command is missing beside 'then'"},
                   {"up then", "a command is missing beside 'then'"}},
                  "; try 'twampctl --help'");
    expect_errors(misunderstood,
                  {{"responder craete", "there is no command 'responder craete'; did you mean 'create'?; "
                                        "try 'twampctl responder --help'"},
                   {"metrics", "'metrics' is followed by one of at, off; try 'twampctl metrics --help'"},
                   {"responder create --sesions 4", "'responder create' has no option --sesions; did you mean "
                                                    "'--sessions'?; try 'twampctl responder create --help'"},
                   {"down now", "'down' does not take 'now'; try 'twampctl down --help'"},
                   {"up then run --listen 127.0.0.1:0",
                    "'run' stands alone: it brings up what it needs; try 'twampctl run --help'"}});
}

/** What does not suit one argument of a command. */
struct argument_row {
    const char *command;
    const char *arguments;
    const char *error; ///< Between the command's name and the way to its help.
};

TEST(Mistakes, InArgumentsNameThem)
{
    const argument_row rows[] = {
        {"responder stats", "", "NAME is required"},
        {"script", "", "FILE is required"},
        {"watch", "--count", "--count: 1 required UINT missing"},
        {"bind", "ipv5", "MODULE: 'ipv5' is none of ipv4, ipv6"},
        {"show", "--format xml", "--format: 'xml' is none of text, json, prometheus"},
        {"up", "--log-level 2", "--log-level: '2' is none of 0, 1, 3, 7, 15"},
        {"log level", "high", "Could not convert: LEVEL = high, a number that fits there is expected"},
        {"bind", "ipv4 --key 0x1000000", "--key: Value 0x1000000 not in range 0 to 16777215"},
        {"listen", "127.0.0.1:0 --id 16777216", "--id: Value 16777216 not in range 0 to 16777215"},
        {"listen", "127.0.0.1:0 --key -1", "--key: Value -1 not in range 0 to 16777215"},
        {"listen", "127.0.0.1:0 --id 1 --responder west", "--responder excludes --id"},
        {"responder create", "--count 0", "--count: Value 0 not in range 1 to 16777216"},
        {"responder create", "--param-a 65536",
         "Could not convert: --param-a = 65536, a number that fits there is expected"},
        {"wait", "nan", "SECONDS: Value nan not in range 0 to 1e+06"},
        {"clock timer", "-1", "TICKS: '-1' is negative"},
        {"responder create", "-- -west", "NAME: a name does not begin with '-'"},
        {"processor create", "#1", "NAME: a name does not begin with '#'"},
    };
    for (const auto &[command, arguments, error] : rows) {
        SCOPED_TRACE(std::string(command) + " " + arguments);
        const finished_program finished = twampctl(std::string(command) + " " + arguments);
        EXPECT_EQ(finished.status, misunderstood);
        EXPECT_EQ(finished.errors, std::string("twampctl: ") + command + ": " + error + "; try 'twampctl " +
                                       command + " --help'\n");
    }
}

TEST(Mistakes, InNamesOfCallsShowAllCalls)
{
    EXPECT_THAT(twampctl("fault set hyx_ptn_lern").errors,
                MatchesRegex("twampctl: fault set: CALL: 'hyx_ptn_lern' is none of olv_sys_sem_lock_wait, .*, "
                             "hyx_nvm_calloc, .*, entry_point_lookup; did you mean 'hyx_ptn_learn'\\?; "
                             "try 'twampctl fault set --help'\n"));
}

TEST(Mistakes, InNewNamesAreExplained)
{
    const auto expect_refusal = [](const std::string &name, const std::string &reason) {
        EXPECT_EQ(twampctl({"responder", "create", name}).errors,
                  "twampctl: responder create: NAME: a name has " + reason +
                      "; try 'twampctl responder create --help'\n");
    };
    expect_refusal("", "one character at least");
    expect_refusal(std::string(65, 'w'), "64 bytes at most, this one 65");
    for (const char *name : {"far west", "O'Hara", "a\\b", "\033[2J"}) {
        expect_refusal(name, "no blanks, quotes, backslashes or control characters");
    }
}

TEST(Mistakes, InWhatBelongsTogetherAreExplained)
{
    expect_errors(
        misunderstood,
        {{"responder create west --count 2", "a name is for one responder; leave it out with --count"},
         {"responder delete west --all", "responder delete: give the responders' names, or --all"},
         {"responder delete", "responder delete: give the responders' names, or --all"},
         {"unlisten", "unlisten: give the addresses, or --all"},
         {"fault set hyx_ptn_learn --code 0", "fault set: code 0 is success; give another one with --code"},
         {"processor create odd --rename twamp_responder",
          "processor create: --rename takes OLD=NEW, not 'twamp_responder'"}});
}

TEST(Mistakes, WithNamesSayWhichThereAre)
{
    expect_errors(
        cannot,
        {{"up then responder create west then responder create west",
          "there is a responder west already; give the new one another name"},
         {"up then responder delete west",
          "no responder 'west', nor any other; 'responder create west' creates it"},
         {"up then responder create east then responder create north then responder stats west",
          "no responder 'west'; there are: east, north"},
         {"up then responder create east then responder state west", "no responder 'west'; there are: east"},
         {"up then processor use small",
          "no processor 'small'; 'processor list' lists them, 'processor create small' makes it"},
         {"up then processor create main", "there is a processor main already; give the new one another name"},
         {"up then tree default olv_twamp.nowhere",
          "this processor has no classifier tree 'olv_twamp.nowhere'; 'tree list' lists them"},
         {"up then processor create odd --without twamp_responders",
          "the classifier program has no namespace or tree function 'twamp_responders'; 'tree list' lists "
          "them"}});
}

TEST(Mistakes, WithAddressesAndFilesSayWhatIsWrong)
{
    expect_errors(
        cannot,
        {{"up then responder create then listen 127.0.0.1",
          "address '127.0.0.1': there is no port; write it as 127.0.0.1:8620"},
         {"up then metrics at ::1", "address '::1': an IPv6 address is written in brackets, as in [::1]:862"},
         {"up then listen 127.0.0.1:0", "there is no responder to answer; 'responder create' creates one"},
         {"up then responder create a then responder create b then listen 127.0.0.1:0",
          "there are several responders; name one with --responder"},
         {"trace to /nonexistent/trace",
          "cannot write the trace to /nonexistent/trace: No such file or directory"},
         {"up then unlisten 127.0.0.1:8620", "nothing listens at 127.0.0.1:8620, nor at any other address"}});
    EXPECT_EQ(twampctl({"up", "then", "responder", "create", "then", "redirect", ""}).errors,
              "twampctl: nothing listens at , nor at any other address\n");
    EXPECT_THAT(
        twampctl("up then responder create then listen 127.0.0.1:0 then unlisten 127.0.0.1:1").errors,
        MatchesRegex("twampctl: nothing listens at 127\\.0\\.0\\.1:1; there are: 127\\.0\\.0\\.1:[0-9]+\n"));
}

/** The library's own lines go to standard output. */
TEST(Refusals, HaveTheStatusWithItsName)
{
    expect_errors(
        cannot,
        {{"up then log level 2",
          "cannot set log level 2: status 0xF OLV_STATUS_BAD_LOG_LEVEL: Invalid log level"},
         {"up then log map 4",
          "cannot map log level 4: status 0xF OLV_STATUS_BAD_LOG_LEVEL: Invalid log level"},
         {"up then dump --group 4",
          "cannot print the tables: status 0x30008 TWAMP_STATUS_INVALID_PARAM: TWAMP: invalid parameter"},
         {"up then bind ipv4 --type 3", "cannot bind to the IPv4 module: status 0x30008 "
                                        "TWAMP_STATUS_INVALID_PARAM: TWAMP: invalid parameter"},
         {"up then bind ipv4 --path 2", "cannot bind to the IPv4 module: status 0x30008 "
                                        "TWAMP_STATUS_INVALID_PARAM: TWAMP: invalid parameter"},
         {"up then imc ipv4 --destination-location 1",
          "cannot find the call to the IPv4 module: status 0x3000C TWAMP_STATUS_UNSUPPORTED_PATH: TWAMP: "
          "unsupported path"}});
}

TEST(Refusals, FollowFromFaults)
{
    expect_errors(
        cannot,
        {{"up then responder create w then fault set hyx_se_state_get then responder stats w",
          "cannot read the statistics of responder w: status 0x3002B TWAMP_STATUS_STATE_READ_FAILED: TWAMP: "
          "state could not be read"},
         {"up then fault set hyx_se_state_get then responder create west --sessions 5",
          "cannot create responder west: its maximum of sessions cannot be written: Injected fault"},
         {"up then fault set hyx_ptn_list_ptns then dump --entries", "cannot list the tree: Injected fault"},
         {"fault set hyx_ptn_learn then tree default olv_twamp.twamp_responder_lookup",
          "cannot set the entry without a key: Injected fault"},
         {"fault set hyx_ptn_unlearn then tree clear-default olv_twamp.twamp_responder_lookup",
          "cannot remove the entry without a key: Injected fault"},
         {"fault set olv_ptn_new then tree default olv_twamp.twamp_responder_lookup",
          "cannot set the entry without a key: status 0x201FF framework_injected: Framework: injected fault"},
         {"up then fault set olv_module_service_function_update --code 0x20003 then update",
          "cannot update the service functions: status 0x20003 framework_not_registered: Framework: service "
          "functions not registered"}});
}

TEST(Refusals, OfUpSayThatTheModuleIsNotUp)
{
    expect_errors(
        cannot,
        {{"processor create odd --without twamp_responder then up",
          "cannot initialise the module: status 0x30019 TWAMP_STATUS_NAMESPACE_NOT_FOUND: TWAMP: namespace not "
          "found"},
         {"processor create odd --rename olv_twamp.twamp_responder_lookup=other then up",
          "cannot initialise the module: status 0x3003F TWAMP_STATUS_TREE_ID_NOT_FOUND: TWAMP: tree function "
          "not found"},
         {"processor create odd --no-statistics then up",
          "cannot initialise the module: status 0x1002C TWAMP_STATUS_STATS_CLEAR_FAILED: Statistics could not "
          "be cleared"}},
        "; the module is not up, 'up' brings it up");
}

TEST(Refusals, BeforeUpSayHowToBringItUp)
{
    const mistake rows[] = {{"down", "shut the module down"},
                            {"update", "update the service functions"},
                            {"responder create west", "create responder west"},
                            {"stats", "read the module's statistics"},
                            {"log level 3", "set log level 3"},
                            {"bind ipv4 --direct", "bind to the IPv4 module"},
                            {"unbind ipv6 --direct", "unbind from the IPv6 module"},
                            {"imc ipv4 --direct", "find the call to the IPv4 module"},
                            {"dump", "print the tables"}};
    for (const auto &[line, what] : rows) {
        SCOPED_TRACE(line);
        const finished_program finished = twampctl(line);
        EXPECT_EQ(finished.status, 1);
        EXPECT_EQ(
            finished.errors,
            std::string("twampctl: cannot ") + what +
                ": status 0x1 OLV_STATUS_INVALID_HANDLE: Invalid handle; the module is not up, 'up' brings "
                "it up\ntwampctl: each twampctl begins with nothing up; try 'twampctl up then ...'\n");
        EXPECT_THAT(without_places(finished.output), HasSubstr(":LINE Invalid TWAMP module handle ADDRESS\n"));
    }
}

TEST(Down, TellsWhatIsLeftBehind)
{
    EXPECT_EQ(twampctl("up then responder create west then bind ipv4 then down"),
              ends(1,
                   "module initialised\nresponder west created: ID 0x1\n"
                   "bound to the IPv4 module: key 4\nmodule shut down\n",
                   "twampctl: main: left behind: 0 blocks, 1 responder IDs, 1 responder entries, "
                   "1 bind entries, 0 patterns, 0 violations\n"));
}

} // namespace
} // namespace e2e
