// Configuration files: what they may say, and where and why they are refused.

#include <ostream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/twampctl/run/config_options.hpp"
#include "apps/twampctl/run/run_options.hpp"

namespace apps_tests {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using twampctl::read_run_config;

/** "LINE: reason" for each error. */
std::vector<std::string> errors_in(const std::string &text)
{
    std::vector<std::string> lines;
    for (const twampctl::config_error &error : read_run_config(text).errors) {
        lines.push_back(std::to_string(error.line) + ": " + error.reason);
    }
    return lines;
}

/** All options of a file on a command line. */
std::vector<std::string> words_of(const std::string &text)
{
    const twampctl::config_options file = read_run_config(text);
    EXPECT_THAT(file.errors, IsEmpty());
    std::vector<std::string> words;
    for (const twampctl::config_option &option : file.options) {
        words.insert(words.end(), option.words.begin(), option.words.end());
    }
    return words;
}

TEST(Config, SaysWhatTheCommandLineSays)
{
    EXPECT_THAT(words_of("{}"), IsEmpty());
    EXPECT_THAT(words_of(R"({"listen": ["127.0.0.1:8620", "[::1]:0"], "tables": true, "imc": false,
                             "duration": 1.5, "sessions": 7, "trace": "", "log-level": 15})"),
                ElementsAre("--listen", "127.0.0.1:8620", "--listen", "[::1]:0", "--tables", "--duration",
                            "1.5", "--sessions", "7", "--trace", "", "--log-level", "15"));
}

TEST(Config, SaysHowManyWorkersThereAre)
{
    EXPECT_THAT(words_of(R"({"workers": 64, "busy-poll": 0})"),
                ElementsAre("--workers", "64", "--busy-poll", "0"));
}

TEST(Config, SaysWhetherRepliesLeaveTogether)
{
    EXPECT_THAT(words_of(R"({"separate-replies": true})"), ElementsAre("--separate-replies"));
    EXPECT_THAT(words_of(R"({"separate-replies": false})"), ElementsAre());
}

TEST(Config, TakesTextsAsTheyAre)
{
    EXPECT_THAT(words_of(R"({"trace": "--tables"})"), ElementsAre("--trace", "--tables"));
    EXPECT_THAT(words_of(R"({"trace": "[a,b] \"c\" \u00e9"})"), ElementsAre("--trace", "[a,b] \"c\" \xc3\xa9"));
    EXPECT_THAT(words_of("\xef\xbb\xbf{\"allow\": []}"), IsEmpty());
    EXPECT_THAT(words_of(R"({"rate": "4", "listen": "127.0.0.1:1"})"),
                ElementsAre("--rate", "4", "--listen", "127.0.0.1:1"));
}

struct error_row {
    const char *label;
    std::string text;
    std::vector<std::string> errors;
};

void PrintTo(const error_row &row, std::ostream *out)
{
    *out << row.label;
}

class ConfigError : public testing::TestWithParam<error_row> {};

TEST_P(ConfigError, HasItsLineAndReason)
{
    EXPECT_EQ(errors_in(GetParam().text), GetParam().errors);
}

INSTANTIATE_TEST_SUITE_P(
    NoJson, ConfigError,
    testing::Values(
        error_row{
            "Empty",
            "",
            {"1: syntax error while parsing value - unexpected end of input; expected '[', '{', or a literal"}},
        error_row{"Unfinished",
                  "{\"rate\": 4,\n\"sessions\": 3\n",
                  {"2: syntax error while parsing object - unexpected end of input; expected '}'"}},
        error_row{"UnfinishedKey",
                  "{\n\"nope\"",
                  {"2: syntax error while parsing object separator - unexpected end of input; expected ':'"}},
        error_row{"CommaAtTheEnd",
                  "{\"rate\": 4,\n}",
                  {"2: syntax error while parsing object key - unexpected '}'; expected string literal"}},
        error_row{"Comment", "{\n\n// no\n\"rate\": 4}", {"3: JSON has no comments"}},
        error_row{"CommentOfLines", "{\"rate\": 4 /* no */}", {"1: JSON has no comments"}},
        error_row{"Hash", "# no\n{}", {"1: JSON has no comments"}},
        error_row{"Number", "{\"rate\":\n1e999}", {"2: number overflow parsing '1e999'"}},
        error_row{"List", "[1]", {"1: all of the file has to be an object: { ... }"}},
        error_row{"Word", "\n\"rate\"", {"2: all of the file has to be an object: { ... }"}},
        error_row{"Behind",
                  "{}\n{}",
                  {"2: syntax error while parsing value - unexpected '{'; expected end of input"}}),
    [](const auto &row) { return std::string(row.param.label); });

INSTANTIATE_TEST_SUITE_P(
    Keys, ConfigError,
    testing::Values(
        error_row{"Unknown", "{\"colour\": 4}", {"1: colour: there is no such key"}},
        error_row{
            "Misspelt", "{\n\"sesions\": 4}", {"2: sesions: there is no such key; did you mean 'sessions'?"}},
        error_row{"Underscore",
                  "{\"min_request\": 41}",
                  {"1: min_request: there is no such key; did you mean 'min-request'?"}},
        error_row{"Dashes", "{\"--rate\": 4}", {"1: --rate: there is no such key; did you mean 'rate'?"}},
        error_row{"Long",
                  "{\"" + std::string(41, 'r') + "\": 4}",
                  {"1: " + std::string(41, 'r') + ": there is no such key"}},
        error_row{"CommandLineAlone",
                  "{\"config\": \"a\"}",
                  {"1: config: there is no such key; --config belongs on the command line"}},
        error_row{"Twice", "{\"rate\": 4,\n\n\"rate\": 5}", {"3: rate: this key is there already, in line 1"}},
        error_row{"Control", "{\"a\\u001b\\n\": 4}", {"1: a??: there is no such key"}}),
    [](const auto &row) { return std::string(row.param.label); });

INSTANTIATE_TEST_SUITE_P(
    NoValues, ConfigError,
    testing::Values(
        error_row{"FlagAsNumber", "{\"tables\":\n1}", {"2: tables: true or false is wanted, not 1"}},
        error_row{"DurationAsFlag", "{\"duration\": true}", {"1: duration: a value is wanted, not true"}},
        error_row{"Null", "{\"trace\": null}", {"1: trace: a value is wanted, not null"}},
        error_row{
            "Object",
            "{\"trace\": {\"a\": {\"b\": [1]}}, \"rate\": 0}",
            {"1: trace: a value is wanted, not an object", "1: rate: Value 0 not in range 1 to 1000000000"}},
        error_row{"Elements",
                  "{\"listen\": [\nnull,\n[2, {}],\n{\"a\": 3}]}",
                  {"2: listen[0]: a value is wanted, not null", "3: listen[1]: a value is wanted, not a list",
                   "4: listen[2]: a value is wanted, not an object"}},
        error_row{"ZeroByte",
                  "{\"trace\": \"a\\u0000b\"}",
                  {"1: trace: a value is wanted, not a text with a zero byte"}},
        error_row{"Two", "{\n\"rate\": [4,\n5]}", {"2: rate: At Most 1 required but received 2"}}),
    [](const auto &row) { return std::string(row.param.label); });

INSTANTIATE_TEST_SUITE_P(
    Values, ConfigError,
    testing::Values(
        error_row{"NoPort",
                  "{\"listen\": [\n\"127.0.0.1:1\",\n\"127.0.0.1\"]}",
                  {"3: listen[1]: address '127.0.0.1': there is no port; write it as 127.0.0.1:8620"}},
        error_row{"Metrics",
                  "{\"metrics\": \"::1\"}",
                  {"1: metrics: address '::1': an IPv6 address is written in brackets, as in [::1]:862"}},
        error_row{
            "Prefix",
            "{\"allow\": [\"192.0.2.1/24\"]}",
            {"1: allow[0]: prefix '192.0.2.1/24': bits behind the prefix are set; the prefix is 192.0.2.0/24"}},
        error_row{"Fraction", "{\"rate\": 4.0}", {"1: rate: Value 4.0 not in range 1 to 1000000000"}},
        error_row{"Word", "{\"rate\": \"fast\"}", {"1: rate: Value fast not in range 1 to 1000000000"}},
        error_row{"BelowRange", "{\"sessions\": 0}", {"1: sessions: Value 0 not in range 1 to 16777216"}},
        error_row{"Negative", "{\"capacity\": -1}", {"1: capacity: Value -1 not in range 1 to 16777214"}},
        error_row{"AboveRange",
                  "{\"refwait\": 4294967296}",
                  {"1: refwait: Value 4294967296 not in range 1 to 1000000"}},
        error_row{"PortRange",
                  "{\"min-source-port\": 65536}",
                  {"1: min-source-port: Value 65536 not in range 1 to 65535"}},
        error_row{"Workers", "{\"workers\": 65}", {"1: workers: Value 65 not in range 1 to 64"}},
        error_row{
            "BusyPoll", "{\"busy-poll\": 1000001}", {"1: busy-poll: Value 1000001 not in range 0 to 1000000"}},
        error_row{"Duration", "{\"duration\": -0.5}", {"1: duration: Value -0.5 not in range 0 to 1e+09"}},
        error_row{"LogLevel", "{\"log-level\": 2}", {"1: log-level: '2' is none of 0, 1, 3, 7, 15"}},
        error_row{"Format", "{\"format\": \"xml\"}", {"1: format: 'xml' is none of json, prometheus, text"}},
        error_row{"Several",
                  "{\"rate\": 0,\n\"nope\": 1,\n\"rate\": 1, \"tables\": 2}",
                  {"1: rate: Value 0 not in range 1 to 1000000000", "2: nope: there is no such key",
                   "3: rate: this key is there already, in line 1",
                   "3: tables: true or false is wanted, not 2"}}),
    [](const auto &row) { return std::string(row.param.label); });

/** What a run is told about its workers. */
olv_fastpath::udp_workers_options workers_of(const std::vector<std::string> &words)
{
    twampctl::run_options options;
    EXPECT_FALSE(twampctl::read_options(words, options));
    return options.workers;
}

/** Room that a run with these options has for sessions. */
std::uint32_t session_capacity(const std::vector<std::string> &words)
{
    return workers_of(words).reflector.session_capacity;
}

TEST(RunOptions, RepliesLeaveTogetherUnlessToldNotTo)
{
    EXPECT_TRUE(workers_of({"--listen", "127.0.0.1:0"}).server.segments);
    EXPECT_FALSE(workers_of({"--listen", "127.0.0.1:0", "--separate-replies"}).server.segments);
}

TEST(RunOptions, EachWorkerHasRoomForAllSessions)
{
    EXPECT_EQ(session_capacity({"--listen", "127.0.0.1:0"}), 65536u);
    EXPECT_EQ(session_capacity({"--listen", "127.0.0.1:0", "--workers", "64"}), 65536u);
    EXPECT_EQ(session_capacity({"--listen", "127.0.0.1:0", "--sessions", "100000"}), 100000u);
    EXPECT_EQ(session_capacity({"--listen", "127.0.0.1:0", "--listen", "127.0.0.1:0", "--sessions", "100000",
                                "--workers", "4"}),
              800000u);
}

} // namespace
} // namespace apps_tests
