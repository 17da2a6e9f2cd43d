// Commands that do what they are told: each on a command line, with all that it prints.

#include <ostream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "command_run.hpp"
#include "control_program.hpp"

namespace e2e {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

struct command_row {
    const char *label;
    const char *line;
    const char *output; ///< All of it.
};

void PrintTo(const command_row &row, std::ostream *out)
{
    *out << row.label;
}

class Commands : public testing::TestWithParam<command_row> {};

TEST_P(Commands, PrintAndSucceed)
{
    const finished_program finished = run_commands(GetParam().line);
    EXPECT_EQ(without_places(finished.output), GetParam().output);
    EXPECT_EQ(without_places(finished.errors), "");
    EXPECT_EQ(finished.status, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Module, Commands,
    testing::Values(
        command_row{"Up", "up", "module initialised\n"},
        command_row{
            "UpTwice", "up then up",
            "module initialised\n[olv_unknown_log: ERROR] twamp.c:LINE TWAMP Module handle HANDLE is already "
            "initialized\nmodule was initialised already: nothing changed\n"},
        command_row{"UpWithLogLevel", "up --log-level 3", "module initialised\nlog level 3\n"},
        command_row{"UpDownUp", "up then down then up",
                    "module initialised\nmodule shut down\nmodule initialised\n"},
        command_row{"Update", "up then update", "module initialised\nservice functions updated\n"},
        command_row{
            "StatusBefore", "status",
            "processor: main, RTE handle 1\nmodule: not initialised\nservice functions: not registered\n"
            "log: level 0, bits none\nresponders: 0, listeners: 0\ntrace: off\n"},
        command_row{"StatusAfter", "up then responder create then status",
                    "module initialised\nresponder 1 created: ID 0x1\n"
                    "processor: main, RTE handle 1\nmodule: initialised\nservice functions: registered\n"
                    "log: level 0, bits none\nresponders: 1, listeners: 0\ntrace: off\n"},
        command_row{"Statistics", "up then stats",
                    "module initialised\n\nTWAMP global statistics (Non-zero only)\n"},
        command_row{"StatisticsAsJson", "up then stats --format json",
                    "module initialised\n{\n  \"received_packets\": 0,\n  \"transmitted_packets\": 0,\n"
                    "  \"dropped_packets\": {\n    \"no_responder\": 0,\n    \"length_check\": 0,\n"
                    "    \"hash_error\": 0,\n    \"no_bind\": 0\n  }\n}\n"}),
    label_of);

INSTANTIATE_TEST_SUITE_P(
    Responders, Commands,
    testing::Values(
        command_row{"WithAName", "up then responder create west",
                    "module initialised\nresponder west created: ID 0x1\n"},
        command_row{"LowestFreeNumber",
                    "up then responder create --count 3 then responder delete 2 then responder create",
                    "module initialised\nresponder 1 created: ID 0x1\nresponder 2 created: ID 0x2\n"
                    "responder 3 created: ID 0x3\nresponder 2 deleted\nresponder 2 created: ID 0x4\n"},
        command_row{"DeleteSeveral",
                    "up then responder create a then responder create b then responder delete b a",
                    "module initialised\nresponder a created: ID 0x1\nresponder b created: ID 0x2\n"
                    "responder b deleted\nresponder a deleted\n"},
        command_row{"DeleteAll",
                    "up then responder create a then responder create b then responder delete --all",
                    "module initialised\nresponder a created: ID 0x1\nresponder b created: ID 0x2\n"
                    "responder b deleted\nresponder a deleted\n"},
        command_row{"ListOfNone", "up then responder list", "module initialised\nNo responders\n"},
        command_row{"List", "up then responder create west then responder list",
                    "module initialised\nresponder west created: ID 0x1\n"
                    "ID         received transmitted  too short no session   sessions  RESPONDER\n"
                    "0x1               0           0          0          0          0  west\n"},
        command_row{"ListAsJson", "up then responder create west then responder list --format json",
                    "module initialised\nresponder west created: ID 0x1\n"
                    "[\n  {\n    \"name\": \"west\",\n    \"id\": 1,\n    \"counters\": {\n"
                    "      \"received_packets\": 0,\n      \"transmitted_packets\": 0,\n"
                    "      \"dropped_packets\": {\n        \"length_check\": 0,\n        \"max_sessions\": 0\n"
                    "      },\n      \"active_sessions\": 0\n    }\n  }\n]\n"},
        command_row{"Statistics", "up then responder create west then responder stats west",
                    "module initialised\nresponder west created: ID 0x1\n"
                    "\nTWAMP responder statistics (Non-zero only)\n"},
        command_row{"StatisticsAsJson", "up then responder create west then responder stats west --format json",
                    "module initialised\nresponder west created: ID 0x1\n"
                    "{\n  \"name\": \"west\",\n  \"id\": 1,\n  \"counters\": {\n"
                    "    \"received_packets\": 0,\n    \"transmitted_packets\": 0,\n"
                    "    \"dropped_packets\": {\n      \"length_check\": 0,\n      \"max_sessions\": 0\n"
                    "    },\n    \"active_sessions\": 0\n  }\n}\n"},
        command_row{
            "StayWhenTheModuleGoes",
            "up then responder create west then down then responder list then up then responder delete west",
            "module initialised\nresponder west created: ID 0x1\nmodule shut down\n"
            "ID         received transmitted  too short no session   sessions  RESPONDER\n"
            "0x1               -           -          -          -          -  west\n"
            "module initialised\nresponder west deleted\n"}),
    label_of);

INSTANTIATE_TEST_SUITE_P(
    Paths, Commands,
    testing::Values(
        command_row{"Bind", "up then bind ipv4 then bind ipv6",
                    "module initialised\nbound to the IPv4 module: key 4\nbound to the IPv6 module: key 6\n"},
        command_row{
            "BindWithAKey", "up then bind ipv6 --key 0xFFFFFF then unbind ipv6 --key 16777215",
            "module initialised\nbound to the IPv6 module: key 16777215\nunbound from the IPv6 module\n"},
        command_row{"BindDirectly", "up then bind ipv4 --direct then unbind ipv4 --direct",
                    "module initialised\nbound to the IPv4 module: key 4\nunbound from the IPv4 module\n"},
        command_row{"Imc", "up then imc ipv4 then imc ipv6 --direct",
                    "module initialised\ncall to the IPv4 module: tree function 0x101\n"
                    "call to the IPv6 module: tree function 0x101\n"},
        command_row{"NoListeners", "up then listeners then sessions then listeners --format json",
                    "module initialised\nNo listeners\nNo sessions\n[]\n"}),
    label_of);

INSTANTIATE_TEST_SUITE_P(
    Log, Commands,
    testing::Values(
        command_row{"Level", "up then log level 3 then log show",
                    "module initialised\nlog: level 3, bits none\nlog: level 3, bits none\n"},
        command_row{"Bits", "up then log bits pattern function state then log bits",
                    "module initialised\nlog: level 0, bits function pattern state\nlog: level 0, bits none\n"},
        command_row{"Map", "log map 7", "log level 7 is level 7 of the module\n"},
        command_row{"TraceOff", "trace off", "trace is off\n"},
        command_row{"DumpBoth", "up then responder create then bind ipv4 then dump responder",
                    "module initialised\nresponder 1 created: ID 0x1\nbound to the IPv4 module: key 4\n"
                    "\nolv_twamp.twamp_responder_lookup, RESPONDER-ID, DEFINED/NOT_DEFINED \n"
                    "olv_twamp.twamp_responder_lookup, 0x1, DEFINED\n\n"},
        command_row{"DumpByWalk", "up then dump --walk responder",
                    "module initialised\n"
                    "\nolv_twamp.twamp_responder_lookup, RESPONDER-ID, DEFINED/NOT_DEFINED \n\n"},
        command_row{"DumpByNumber", "up then dump --group 2", "module initialised\n\n"},
        command_row{"DumpEntries", "up then responder create --count 2 then dump --entries",
                    "module initialised\nresponder 1 created: ID 0x1\nresponder 2 created: ID 0x2\n"
                    "RESPONDER-ID, DEFINED/NOT_DEFINED 0x1, DEFINED\n0x2, DEFINED\n"}),
    label_of);

INSTANTIATE_TEST_SUITE_P(
    Faults, Commands,
    testing::Values(
        command_row{"None", "fault list", "no faults\n"},
        command_row{
            "SetListClear",
            "fault set hyx_ptn_learn --skip 2 --count 3 then fault list then fault clear hyx_ptn_learn then "
            "fault list",
            "hyx_ptn_learn fails at calls 3 to 5 with 0x1FF\n"
            "hyx_ptn_learn fails at calls 3 to 5 with 0x1FF; fired: 0\n"
            "hyx_ptn_learn fails no more\nno faults\n"},
        command_row{"Forever", "fault set olv_ptn_new --forever --code 7 then fault clear",
                    "olv_ptn_new fails from call 1 on with 0x7\nno faults\n"},
        command_row{"Framework", "fault set olv_ptn_new", "olv_ptn_new fails at call 1 with 0x201FF\n"},
        command_row{"Any", "up then fault any --skip 90 then responder create then fault list then fault clear",
                    "module initialised\nany call fails at call 91 with its own code\n"
                    "responder 1 created: ID 0x1\nany call: 9 counted, fired: 0\nno faults\n"},
        command_row{"RecordNothing", "record start then record show then record stop",
                    "recording platform calls\nno calls recorded\nno longer recording\n"},
        command_row{
            "RecordByteOrder",
            "up then responder create w then record start byte-order then responder stats w then record show",
            "module initialised\nresponder w created: ID 0x1\nrecording platform calls\n"
            "\nTWAMP responder statistics (Non-zero only)\n"
            "   1 hyx_ntohl(value=0x0) -> 0x0\n   2 hyx_ntohl(value=0x0) -> 0x0\n"
            "   3 hyx_ntohl(value=0x0) -> 0x0\n   4 hyx_ntohl(value=0x0) -> 0x0\n"
            "   5 hyx_ntohl(value=0x0) -> 0x0\n   6 hyx_ntohl(value=0x0) -> 0x0\n"
            "   7 hyx_ntohl(value=0x0) -> 0x0\n   8 hyx_ntohl(value=0x0) -> 0x0\n"
            "   9 hyx_ntohl(value=0x0) -> 0x0\n  10 hyx_ntohl(value=0x0) -> 0x0\n"}),
    label_of);

INSTANTIATE_TEST_SUITE_P(
    Platform, Commands,
    testing::Values(
        command_row{"List", "processor list", "* main: module down, 0 responders, 0 listeners\n"},
        command_row{
            "Several",
            "processor create east then processor create west --capacity 2 then processor use east then "
            "processor list then processor remove east then processor list",
            "processor east created, RTE handle 1\nprocessor west created, RTE handle 2\n"
            "processor east in use\n"
            "* east: module down, 0 responders, 0 listeners\n"
            "  west: module down, 0 responders, 0 listeners\n"
            "processor east removed\n"
            "* west: module down, 0 responders, 0 listeners\n"},
        command_row{"RemoveTakesDown",
                    "processor create a then up then responder create then processor remove a",
                    "processor a created, RTE handle 1\nmodule initialised\nresponder 1 created: ID 0x1\n"
                    "responder 1 deleted\nmodule shut down\nprocessor a removed\n"},
        command_row{"Unlocked",
                    "processor create a --unlocked then up then record start then stats then record show",
                    "processor a created, RTE handle 1\nmodule initialised\nrecording platform calls\n"
                    "\nTWAMP global statistics (Non-zero only)\n"
                    "   1 hyx_se_state_get(rte=1, namespace=0x7008c1, index=0, length=24) -> 0x0\n"
                    "   2 hyx_se_state_get(rte=1, namespace=0x7008c1, index=0, length=24) -> 0x0\n"},
        command_row{"NoSystem", "processor create a --no-system then up",
                    "processor a created, RTE handle 1\nmodule initialised\n"},
        command_row{"Trees", "tree list",
                    "      olv_twamp.twamp_to_ip_direct_imc: code only, or not there\n"
                    "      olv_twamp.twamp_to_ipv6_indirect_imc: code only, or not there\n"
                    "      olv_twamp.twamp_lli_processing: code only, or not there\n"
                    "0x104 olv_twamp.twamp_responder_lookup: 0 entries\n"
                    "0x105 olv_twamp.twamp_bind_to_next_module: 0 entries\n"},
        command_row{
            "DefaultEntry",
            "up then tree default olv_twamp.twamp_responder_lookup --action 4 1 0 then dump responder then "
            "tree clear-default olv_twamp.twamp_responder_lookup",
            "module initialised\nentry without a key set\n"
            "\nolv_twamp.twamp_responder_lookup, RESPONDER-ID, DEFINED/NOT_DEFINED \n"
            "olv_twamp.twamp_responder_lookup, *, DEFINED\n\nentry without a key removed\n"},
        command_row{"Violations", "violations then violations --clear", "0 violations\n0 violations\n"},
        command_row{"Usage", "up then responder create then bind ipv6 then usage",
                    "module initialised\nresponder 1 created: ID 0x1\nbound to the IPv6 module: key 6\n"
                    "Platform\n  memory blocks                                       2\n"
                    "  responder IDs                                       1\n"
                    "  responder entries                                   1\n"
                    "  bind entries                                        1\n"
                    "  patterns                                            0\n"
                    "  violations                                          0\n"}),
    label_of);

INSTANTIATE_TEST_SUITE_P(
    Session, Commands,
    testing::Values(command_row{"Echo", "echo two responders are up", "two responders are up\n"},
                    command_row{"EchoOfCommandNames", "echo up down help", "up down help\n"},
                    command_row{"EchoNothing", "echo", "\n"}, command_row{"Wait", "wait 0.01", ""},
                    command_row{"Quit", "echo a then quit then echo b", "a\n"},
                    command_row{"Exit", "echo a then exit then echo b", "a\n"},
                    command_row{"Help", "help echo",
                                "Print words\nUsage: twampctl echo [OPTIONS] [WORD...]\n\n"
                                "Positionals:\n  WORD (optional)         What to print\n\n"
                                "Options:\n  -h,--help               Print this help\n\n"
                                "Examples:\n  echo two responders are up\n"}),
    label_of);

} // namespace
} // namespace e2e
