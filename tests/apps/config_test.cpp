// Configuration files: what they may say, and where and why they are refused.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/twampctl/run/config_options.hpp"
#include "apps/twampctl/run/run_options.hpp"

namespace apps_tests {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using twampctl::read_run_config;

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

TEST(Config, TakesTextsAsTheyAre)
{
    EXPECT_THAT(words_of(R"({"trace": "--tables"})"), ElementsAre("--trace", "--tables"));
    EXPECT_THAT(words_of(R"({"trace": "[a,b] \"c\" \u00e9"})"), ElementsAre("--trace", "[a,b] \"c\" \xc3\xa9"));
    EXPECT_THAT(words_of("\xef\xbb\xbf{\"allow\": []}"), IsEmpty());
}

TEST(Config, TakesNumbersInQuotesAndOneTextForAList)
{
    EXPECT_THAT(words_of(R"({"rate": "4", "listen": "127.0.0.1:1"})"),
                ElementsAre("--rate", "4", "--listen", "127.0.0.1:1"));
}

struct error_row {
    std::string text;
    std::string errors; ///< "LINE: reason" and a newline for each.
};

void expect_errors(const std::vector<error_row> &rows)
{
    for (const error_row &row : rows) {
        std::string errors;
        for (const twampctl::config_error &error : read_run_config(row.text).errors) {
            errors += std::to_string(error.line) + ": " + error.reason + "\n";
        }
        EXPECT_EQ(errors, row.errors) << row.text;
    }
}

TEST(ConfigErrors, OfWhatIsNoJson)
{
    expect_errors({
        {"",
         "1: syntax error while parsing value - unexpected end of input; expected '[', '{', or a literal\n"},
        {"{\"rate\": 4,\n\"sessions\": 3\n",
         "2: syntax error while parsing object - unexpected end of input; expected '}'\n"},
        {"{\n\"nope\"",
         "2: syntax error while parsing object separator - unexpected end of input; expected ':'\n"},
        {"{\"rate\": 4,\n}",
         "2: syntax error while parsing object key - unexpected '}'; expected string literal\n"},
        {"{\n\n// no\n\"rate\": 4}", "3: JSON has no comments\n"},
        {"{\"rate\": 4 /* no */}", "1: JSON has no comments\n"},
        {"# no\n{}", "1: JSON has no comments\n"},
        {"{\"rate\":\n1e999}", "2: number overflow parsing '1e999'\n"},
        {"[1]", "1: all of the file has to be an object: { ... }\n"},
        {"\n\"rate\"", "2: all of the file has to be an object: { ... }\n"},
        {"{}\n{}", "2: syntax error while parsing value - unexpected '{'; expected end of input\n"},
    });
}

TEST(ConfigErrors, OfKeys)
{
    const std::string longer_than_any(41, 'r');
    expect_errors({
        {R"({"colour": 4})", "1: colour: there is no such key\n"},
        {"{\n\"sesions\": 4}", "2: sesions: there is no such key; did you mean 'sessions'?\n"},
        {R"({"min_request": 41})", "1: min_request: there is no such key; did you mean 'min-request'?\n"},
        {R"({"--rate": 4})", "1: --rate: there is no such key; did you mean 'rate'?\n"},
        {R"({")" + longer_than_any + R"(": 4})", "1: " + longer_than_any + ": there is no such key\n"},
        {R"({"config": "a"})", "1: config: there is no such key; --config belongs on the command line\n"},
        {"{\"rate\": 4,\n\n\"rate\": 5}", "3: rate: this key is there already, in line 1\n"},
        {R"({"a\u001b\n": []})", "1: a??: there is no such key\n"},
    });
}

TEST(ConfigErrors, OfWhatNoCommandLineSays)
{
    expect_errors({
        {"{\"tables\":\n1}", "2: tables: true or false is wanted, not 1\n"},
        {R"({"duration": true})", "1: duration: a value is wanted, not true\n"},
        {R"({"trace": null})", "1: trace: a value is wanted, not null\n"},
        {R"({"trace": {"a": {"b": [1]}}, "rate": 0})",
         "1: trace: a value is wanted, not an object\n1: rate: Value 0 not in range 1 to 1000000000\n"},
        {"{\"listen\": [\nnull,\n[2, {}],\n{\"a\": 3}]}", "2: listen[0]: a value is wanted, not null\n"
                                                          "3: listen[1]: a value is wanted, not a list\n"
                                                          "4: listen[2]: a value is wanted, not an object\n"},
        {R"({"trace": "a\u0000b"})", "1: trace: a value is wanted, not a text with a zero byte\n"},
        {"{\n\"rate\": [4,\n5]}", "2: rate: At Most 1 required but received 2\n"},
    });
}

TEST(ConfigErrors, OfValuesThatTheOptionRefuses)
{
    expect_errors({
        {"{\"listen\": [\n\"127.0.0.1:1\",\n\"127.0.0.1\"]}",
         "3: listen[1]: address '127.0.0.1': there is no port; write it as 127.0.0.1:8620\n"},
        {R"({"metrics": "::1"})",
         "1: metrics: address '::1': an IPv6 address is written in brackets, as in [::1]:862\n"},
        {R"({"allow": ["192.0.2.1/24"]})",
         "1: allow[0]: prefix '192.0.2.1/24': bits behind the prefix are set; the prefix is 192.0.2.0/24\n"},
        {R"({"capacity": -1})", "1: capacity: Value -1 not in range 1 to 16777214\n"},
        {R"({"rate": 4.0})", "1: rate: Value 4.0 not in range 1 to 1000000000\n"},
        {R"({"refwait": 4294967296})", "1: refwait: Value 4294967296 not in range 1 to 1000000\n"},
        {R"({"duration": -0.5})", "1: duration: Value -0.5 not in range 0 to 1e+09\n"},
        {R"({"log-level": 2})", "1: log-level: '2' is none of 0, 1, 3, 7, 15\n"},
        {R"({"format": "xml"})", "1: format: 'xml' is none of json, prometheus, text\n"},
    });
}

TEST(ConfigErrors, AreAllTold)
{
    expect_errors({{"{\"rate\": 0,\n\"nope\": 1,\n\"rate\": 1, \"tables\": 2}",
                    "1: rate: Value 0 not in range 1 to 1000000000\n"
                    "2: nope: there is no such key\n"
                    "3: rate: this key is there already, in line 1\n"
                    "3: tables: true or false is wanted, not 2\n"}});
}

/** What a run's fast path is told. */
olv_fastpath::fast_path_options fast_path_of(const std::vector<std::string> &words)
{
    twampctl::run_options options;
    EXPECT_FALSE(twampctl::read_options(words, options));
    return options.fast_path;
}

TEST(RunOptions, RepliesLeaveTogetherUnlessToldNotTo)
{
    EXPECT_FALSE(fast_path_of({"--listen", "127.0.0.1:0"}).separate_replies);
    EXPECT_TRUE(fast_path_of({"--listen", "127.0.0.1:0", "--separate-replies"}).separate_replies);
}

TEST(RunOptions, EachWorkerHasRoomForAllSessions)
{
    const struct {
        std::vector<std::string> words;
        std::uint32_t room;
    } rows[] = {{{}, 65536},
                {{"--workers", "64"}, 65536},
                {{"--sessions", "100000"}, 100000},
                {{"--listen", "[::1]:0", "--sessions", "100000", "--workers", "4"}, 800000}};
    for (const auto &row : rows) {
        std::vector<std::string> words{"--listen", "127.0.0.1:0"};
        words.insert(words.end(), row.words.begin(), row.words.end());
        EXPECT_EQ(fast_path_of(words).session_capacity, row.room) << testing::PrintToString(words);
    }
}

} // namespace
} // namespace apps_tests
