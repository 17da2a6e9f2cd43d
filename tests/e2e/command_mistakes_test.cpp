// Commands that cannot be done: each says what is wrong and what to type instead.

#include <ostream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "command_run.hpp"
#include "control_program.hpp"

namespace e2e {
namespace {

using testing::HasSubstr;

struct mistake_row {
    const char *label;
    int status;
    std::vector<std::string> words;
    const char *error; ///< The last line, after "twampctl: ".
};

void PrintTo(const mistake_row &row, std::ostream *out)
{
    *out << row.label;
}

class Mistakes : public testing::TestWithParam<mistake_row> {};

TEST_P(Mistakes, AreExplained)
{
    const finished_program finished = run_program(TWAMPCTL, GetParam().words);
    EXPECT_EQ(finished.status, GetParam().status);
    EXPECT_EQ(finished.errors, std::string("twampctl: ") + GetParam().error + "\n");
}

constexpr int cannot = 1;
constexpr int misunderstood = 2;
constexpr const char *not_up = "; the module is not up, 'up' brings it up\n"
                               "twampctl: each twampctl begins with nothing up; try 'twampctl up then ...'";

INSTANTIATE_TEST_SUITE_P(
    Words, Mistakes,
    testing::Values(
        mistake_row{"Command",
                    misunderstood,
                    {"statsu"},
                    "there is no command 'statsu'; did you mean 'stats'?; try 'twampctl --help'"},
        mistake_row{
            "FarCommand", misunderstood, {"xyzzy"}, "there is no command 'xyzzy'; try 'twampctl --help'"},
        mistake_row{
            "SubCommand",
            misunderstood,
            {"responder", "craete"},
            "there is no command 'responder craete'; did you mean 'create'?; try 'twampctl responder --help'"},
        mistake_row{"NoSubCommand",
                    misunderstood,
                    {"metrics"},
                    "'metrics' is followed by one of at, off; try 'twampctl metrics --help'"},
        mistake_row{"OptionBeforeACommand",
                    misunderstood,
                    {"--nope", "up"},
                    "there is no option --nope before a command; try 'twampctl --help'"},
        mistake_row{"Option",
                    misunderstood,
                    {"responder", "create", "--sesions", "4"},
                    "'responder create' has no option --sesions; did you mean '--sessions'?; try 'twampctl "
                    "responder create --help'"},
        mistake_row{"Argument",
                    misunderstood,
                    {"down", "now"},
                    "'down' does not take 'now'; try 'twampctl down --help'"},
        mistake_row{"MissingArgument",
                    misunderstood,
                    {"responder", "stats"},
                    "responder stats: NAME is required; try 'twampctl responder stats --help'"},
        mistake_row{
            "MissingFile", misunderstood, {"script"}, "script: FILE is required; try 'twampctl script --help'"},
        mistake_row{"MissingValue",
                    misunderstood,
                    {"watch", "--count"},
                    "watch: --count: 1 required UINT missing; try 'twampctl watch --help'"},
        mistake_row{"Choice",
                    misunderstood,
                    {"bind", "ipv5"},
                    "bind: MODULE: 'ipv5' is none of ipv4, ipv6; try 'twampctl bind --help'"},
        mistake_row{"Format",
                    misunderstood,
                    {"show", "--format", "xml"},
                    "show: --format: 'xml' is none of text, json, prometheus; try 'twampctl show --help'"},
        mistake_row{
            "Nothing", misunderstood, {"then"}, "a command is missing beside 'then'; try 'twampctl --help'"},
        mistake_row{"NothingBehind",
                    misunderstood,
                    {"up", "then"},
                    "a command is missing beside 'then'; try 'twampctl --help'"},
        mistake_row{"RunInAChain",
                    misunderstood,
                    {"up", "then", "run", "--listen", "127.0.0.1:0"},
                    "'run' stands alone: it brings up what it needs; try 'twampctl run --help'"},
        mistake_row{"HelpOfNothing",
                    misunderstood,
                    {"help", "resonder"},
                    "there is no command 'resonder'; did you mean 'responder'?; try 'twampctl --help'"}),
    label_of);

INSTANTIATE_TEST_SUITE_P(
    Names, Mistakes,
    testing::Values(
        mistake_row{"Empty",
                    misunderstood,
                    {"responder", "create", ""},
                    "responder create: NAME: a name has one character at least; try 'twampctl responder create "
                    "--help'"},
        mistake_row{
            "Blank",
            misunderstood,
            {"responder", "create", "far west"},
            "responder create: NAME: a name has no blanks, quotes, backslashes or control characters; try "
            "'twampctl responder create --help'"},
        mistake_row{
            "Quote",
            misunderstood,
            {"responder", "create", "O'Hara"},
            "responder create: NAME: a name has no blanks, quotes, backslashes or control characters; try "
            "'twampctl responder create --help'"},
        mistake_row{
            "Backslash",
            misunderstood,
            {"responder", "create", "a\\b"},
            "responder create: NAME: a name has no blanks, quotes, backslashes or control characters; try "
            "'twampctl responder create --help'"},
        mistake_row{
            "Escape",
            misunderstood,
            {"processor", "create", "\033[2J"},
            "processor create: NAME: a name has no blanks, quotes, backslashes or control characters; try "
            "'twampctl processor create --help'"},
        mistake_row{
            "Option",
            misunderstood,
            {"responder", "create", "--", "-west"},
            "responder create: NAME: a name does not begin with '-'; try 'twampctl responder create --help'"},
        mistake_row{
            "Comment",
            misunderstood,
            {"processor", "create", "#1"},
            "processor create: NAME: a name does not begin with '#'; try 'twampctl processor create --help'"},
        mistake_row{
            "Long",
            misunderstood,
            {"responder", "create", std::string(65, 'w')},
            "responder create: NAME: a name has 64 bytes at most, this one 65; try 'twampctl responder create "
            "--help'"},
        mistake_row{"WithCount",
                    misunderstood,
                    {"responder", "create", "west", "--count", "2"},
                    "a name is for one responder; leave it out with --count"},
        mistake_row{"Duplicate", cannot, words_of("up then responder create west then responder create west"),
                    "there is a responder west already; give the new one another name"},
        mistake_row{"NoResponder", cannot, words_of("up then responder delete west"),
                    "no responder 'west', nor any other; 'responder create west' creates it"},
        mistake_row{
            "OtherResponders", cannot,
            words_of("up then responder create east then responder create north then responder stats west"),
            "no responder 'west'; there are: east, north"},
        mistake_row{"StateOfNone", cannot, words_of("up then responder create east then responder state west"),
                    "no responder 'west'; there are: east"},
        mistake_row{"NamesAndAll",
                    misunderstood,
                    {"responder", "delete", "west", "--all"},
                    "responder delete: give the responders' names, or --all"},
        mistake_row{"NeitherNamesNorAll",
                    misunderstood,
                    {"responder", "delete"},
                    "responder delete: give the responders' names, or --all"},
        mistake_row{"Processor", cannot, words_of("up then processor use small"),
                    "no processor 'small'; 'processor list' lists them, 'processor create small' makes it"},
        mistake_row{"ProcessorTwice", cannot, words_of("up then processor create main"),
                    "there is a processor main already; give the new one another name"},
        mistake_row{"Tree", cannot, words_of("up then tree default olv_twamp.nowhere"),
                    "this processor has no classifier tree 'olv_twamp.nowhere'; 'tree list' lists them"},
        mistake_row{
            "Without", cannot, words_of("up then processor create odd --without twamp_responders"),
            "the classifier program has no namespace or tree function 'twamp_responders'; 'tree list' lists "
            "them"},
        mistake_row{"Rename",
                    misunderstood,
                    {"processor", "create", "odd", "--rename", "twamp_responder"},
                    "processor create: --rename takes OLD=NEW, not 'twamp_responder'"},
        mistake_row{
            "Call",
            misunderstood,
            {"fault", "set", "hyx_ptn_lern"},
            "fault set: CALL: 'hyx_ptn_lern' is none of olv_sys_sem_lock_wait, "
            "olv_module_service_function_register, olv_module_service_function_update, olv_ptn_new, "
            "olv_ptn_extend, olv_ptn_parse, olv_lttng_fn_ptr_get, hyx_nvm_calloc, hyx_sem_post, "
            "hyx_timer_get_timestamp, hyx_rsrc_find, hyx_rsrc_allocate, hyx_rsrc_free, "
            "hyx_ptn_symbol_get_id, hyx_ptn_learn, hyx_ptn_unlearn, hyx_ptn_list_ptns, hyx_se_state_set, "
            "hyx_se_state_get, entry_point_lookup; did you mean 'hyx_ptn_learn'?; try 'twampctl fault set "
            "--help'"}),
    label_of);

INSTANTIATE_TEST_SUITE_P(
    Numbers, Mistakes,
    testing::Values(
        mistake_row{"KeyOf25Bits",
                    misunderstood,
                    {"bind", "ipv4", "--key", "0x1000000"},
                    "bind: --key: Value 0x1000000 not in range 0 to 16777215; try 'twampctl bind --help'"},
        mistake_row{"IdOf25Bits",
                    misunderstood,
                    {"listen", "127.0.0.1:0", "--id", "16777216"},
                    "listen: --id: Value 16777216 not in range 0 to 16777215; try 'twampctl listen --help'"},
        mistake_row{"NegativeKey",
                    misunderstood,
                    {"listen", "127.0.0.1:0", "--key", "-1"},
                    "listen: --key: Value -1 not in range 0 to 16777215; try 'twampctl listen --help'"},
        mistake_row{
            "Count",
            misunderstood,
            {"responder", "create", "--count", "0"},
            "responder create: --count: Value 0 not in range 1 to 16777216; try 'twampctl responder create "
            "--help'"},
        mistake_row{"Parameter",
                    misunderstood,
                    {"responder", "create", "--param-a", "65536"},
                    "responder create: Could not convert: --param-a = 65536, a number that fits there is "
                    "expected; try 'twampctl responder create --help'"},
        mistake_row{"Seconds",
                    misunderstood,
                    {"wait", "nan"},
                    "wait: SECONDS: Value nan not in range 0 to 1e+06; try 'twampctl wait --help'"},
        mistake_row{"NegativeTicks",
                    misunderstood,
                    {"clock", "timer", "-1"},
                    "clock timer: TICKS: '-1' is negative; try 'twampctl clock timer --help'"},
        mistake_row{
            "NoNumber",
            misunderstood,
            {"log", "level", "high"},
            "log level: Could not convert: LEVEL = high, a number that fits there is expected; try 'twampctl "
            "log level --help'"},
        mistake_row{"LogLevelOfUp",
                    misunderstood,
                    {"up", "--log-level", "2"},
                    "up: --log-level: '2' is none of 0, 1, 3, 7, 15; try 'twampctl up --help'"},
        mistake_row{"CodeOfSuccess",
                    misunderstood,
                    {"fault", "set", "hyx_ptn_learn", "--code", "0"},
                    "fault set: code 0 is success; give another one with --code"}),
    label_of);

INSTANTIATE_TEST_SUITE_P(
    Addresses, Mistakes,
    testing::Values(
        mistake_row{"NoPort", cannot, words_of("up then responder create then listen 127.0.0.1"),
                    "address '127.0.0.1': there is no port; write it as 127.0.0.1:8620"},
        mistake_row{"NoPortOfMetrics", cannot, words_of("up then metrics at ::1"),
                    "address '::1': an IPv6 address is written in brackets, as in [::1]:862"},
        mistake_row{"NoResponder", cannot, words_of("up then listen 127.0.0.1:0"),
                    "there is no responder to answer; 'responder create' creates one"},
        mistake_row{"WhichResponder", cannot,
                    words_of("up then responder create a then responder create b then listen 127.0.0.1:0"),
                    "there are several responders; name one with --responder"},
        mistake_row{"UnlistenNothing", cannot, words_of("up then unlisten 127.0.0.1:8620"),
                    "nothing listens at 127.0.0.1:8620, nor at any other address"},
        mistake_row{"UnlistenWhat", misunderstood, {"unlisten"}, "unlisten: give the addresses, or --all"},
        mistake_row{"RedirectNothing",
                    cannot,
                    {"up", "then", "responder", "create", "then", "redirect", ""},
                    "nothing listens at , nor at any other address"},
        mistake_row{"IdAndResponder",
                    misunderstood,
                    {"listen", "127.0.0.1:0", "--id", "1", "--responder", "west"},
                    "listen: --responder excludes --id; try 'twampctl listen --help'"}),
    label_of);

/** The library's own lines go to standard output. */
INSTANTIATE_TEST_SUITE_P(
    Refusals, Mistakes,
    testing::Values(
        mistake_row{"LogLevel", cannot, words_of("up then log level 2"),
                    "cannot set log level 2: status 0xF OLV_STATUS_BAD_LOG_LEVEL: Invalid log level"},
        mistake_row{"LogMap", cannot, words_of("up then log map 4"),
                    "cannot map log level 4: status 0xF OLV_STATUS_BAD_LOG_LEVEL: Invalid log level"},
        mistake_row{
            "TableGroup", cannot, words_of("up then dump --group 4"),
            "cannot print the tables: status 0x30008 TWAMP_STATUS_INVALID_PARAM: TWAMP: invalid parameter"},
        mistake_row{
            "BindTwice", cannot, words_of("up then bind ipv4 then bind ipv4"),
            "cannot bind to the IPv4 module: status 0x30040 TWAMP_STATUS_LEARN_FAILED: TWAMP: entry could "
            "not be learnt or removed"},
        mistake_row{"BindType", cannot, words_of("up then bind ipv4 --type 3"),
                    "cannot bind to the IPv4 module: status 0x30008 TWAMP_STATUS_INVALID_PARAM: TWAMP: invalid "
                    "parameter"},
        mistake_row{"BindPath", cannot, words_of("up then bind ipv4 --path 2"),
                    "cannot bind to the IPv4 module: status 0x30008 TWAMP_STATUS_INVALID_PARAM: TWAMP: invalid "
                    "parameter"},
        mistake_row{
            "UnbindNothing", cannot, words_of("up then unbind ipv4"),
            "cannot unbind from the IPv4 module: status 0x30041 TWAMP_STATUS_UNLEARN_FAILED: TWAMP: bind "
            "entry could not be removed"},
        mistake_row{
            "ImcOnTheCpu", cannot, words_of("up then imc ipv4 --destination-location 1"),
            "cannot find the call to the IPv4 module: status 0x3000C TWAMP_STATUS_UNSUPPORTED_PATH: TWAMP: "
            "unsupported path"},
        mistake_row{
            "Exhausted", cannot,
            words_of("processor create small --capacity 2 then up then responder create --count 3"),
            "cannot create responder 3: status 0x3001D TWAMP_STATUS_INDEX_ALLOC_FAILED: TWAMP: responder ID "
            "could not be allocated"},
        mistake_row{"NoNamespace", cannot, words_of("processor create odd --without twamp_responder then up"),
                    "cannot initialise the module: status 0x30019 TWAMP_STATUS_NAMESPACE_NOT_FOUND: TWAMP: "
                    "namespace not found; the module is not up, 'up' brings it up"},
        mistake_row{"NoTree", cannot,
                    words_of("processor create odd --rename olv_twamp.twamp_responder_lookup=other then up"),
                    "cannot initialise the module: status 0x3003F TWAMP_STATUS_TREE_ID_NOT_FOUND: TWAMP: tree "
                    "function not found; the module is not up, 'up' brings it up"},
        mistake_row{
            "NoStatistics", cannot, words_of("processor create odd --no-statistics then up"),
            "cannot initialise the module: status 0x1002C TWAMP_STATUS_STATS_CLEAR_FAILED: Statistics could "
            "not be cleared; the module is not up, 'up' brings it up"},
        mistake_row{
            "Fault", cannot, words_of("up then fault set hyx_ptn_learn then responder create west"),
            "cannot create responder west: status 0x30040 TWAMP_STATUS_LEARN_FAILED: TWAMP: entry could not "
            "be learnt or removed"},
        mistake_row{
            "FaultOfMemory", cannot, words_of("fault set hyx_nvm_calloc then up"),
            "cannot initialise the module: status 0x30012 TWAMP_STATUS_NO_MEMORY: TWAMP: out of memory; the "
            "module is not up, 'up' brings it up"},
        mistake_row{
            "FaultOfTheLock", cannot, words_of("up then fault set olv_sys_sem_lock_wait then stats"),
            "cannot read the module's statistics: status 0x300A5 TWAMP_STATUS_LOCK_FAILED: TWAMP: lock could "
            "not be taken or released"},
        mistake_row{
            "FaultOfTheState", cannot,
            words_of("up then responder create w then fault set hyx_se_state_get then responder stats w"),
            "cannot read the statistics of responder w: status 0x3002B TWAMP_STATUS_STATE_READ_FAILED: TWAMP: "
            "state could not be read"},
        mistake_row{"FaultOfTheList", cannot,
                    words_of("up then fault set hyx_ptn_list_ptns then dump --entries"),
                    "cannot list the tree: Injected fault"},
        mistake_row{
            "FaultOfTheFramework", cannot,
            words_of("up then fault set olv_module_service_function_update --code 0x20003 then update"),
            "cannot update the service functions: status 0x20003 framework_not_registered: Framework: service "
            "functions not registered"},
        mistake_row{"Trace",
                    cannot,
                    {"trace", "to", "/nonexistent/trace"},
                    "cannot write the trace to /nonexistent/trace: No such file or directory"},
        mistake_row{"Script",
                    cannot,
                    {"script", "/nonexistent"},
                    "cannot read /nonexistent: No such file or directory"}),
    label_of);

struct before_row {
    const char *label;
    const char *line;
    const char *what; ///< Could not be done.
};

void PrintTo(const before_row &row, std::ostream *out)
{
    *out << row.label;
}

class BeforeUp : public testing::TestWithParam<before_row> {};

TEST_P(BeforeUp, SaysHowToBringItUp)
{
    const finished_program finished = run_commands(GetParam().line);
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.errors, std::string("twampctl: cannot ") + GetParam().what +
                                   ": status 0x1 OLV_STATUS_INVALID_HANDLE: Invalid handle" + not_up + "\n");
    EXPECT_THAT(without_places(finished.output), HasSubstr(":LINE Invalid TWAMP module handle HANDLE\n"));
}

INSTANTIATE_TEST_SUITE_P(
    EachOperation, BeforeUp,
    testing::Values(before_row{"Down", "down", "shut the module down"},
                    before_row{"Update", "update", "update the service functions"},
                    before_row{"Create", "responder create west", "create responder west"},
                    before_row{"Statistics", "stats", "read the module's statistics"},
                    before_row{"LogLevel", "log level 3", "set log level 3"},
                    before_row{"Bind", "bind ipv4 --direct", "bind to the IPv4 module"},
                    before_row{"Unbind", "unbind ipv6 --direct", "unbind from the IPv6 module"},
                    before_row{"Imc", "imc ipv4 --direct", "find the call to the IPv4 module"},
                    before_row{"Dump", "dump", "print the tables"}),
    label_of);

TEST(Down, TellsWhatIsLeftBehind)
{
    const finished_program finished = run_commands("up then responder create west then bind ipv4 then down");
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.output, "module initialised\nresponder west created: ID 0x1\n"
                               "bound to the IPv4 module: key 4\nmodule shut down\n");
    EXPECT_EQ(finished.errors, "twampctl: main: left behind: 0 blocks, 1 responder IDs, 1 responder entries, "
                               "1 bind entries, 0 patterns, 0 violations\n");
}

TEST(Version, IsPrinted)
{
    const finished_program finished = run_commands("--version");
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.output, testing::MatchesRegex("twampctl [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

} // namespace
} // namespace e2e
