// "twampctl run --config": the file, the command line above it, --check.

#include <csignal>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "programs.hpp"

namespace e2e {
namespace {

using testing::HasSubstr;
using testing::Not;

/** A folder with a configuration. */
struct config_file {
    explicit config_file(const std::string &text) { folder.write("config.json", text); }
    /** Run "twampctl run --config config.json OPTIONS". */
    [[nodiscard]] finished_program run(const std::string &options) const
    {
        return twampctl("run --config config.json " + options, folder.enter());
    }

    test_folder folder;
};

TEST(Config, IsRunWith)
{
    const config_file file{R"({"listen": ["127.0.0.1:0", "[::1]:0"], "responders": 1, "tables": true,
                               "imc": true, "log-level": 7, "duration": 0})"};
    const finished_program finished = file.run("");
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.errors, "");
    EXPECT_THAT(finished.output, HasSubstr("\nlog level 7\nresponder 1 created: ID 0x1\nbound to the IPv4"));
    EXPECT_THAT(finished.output, testing::ContainsRegex("\nready 127\\.0\\.0\\.1:[0-9]+ \\[::1\\]:[0-9]+\n"));
    EXPECT_THAT(finished.output, Not(HasSubstr("responder 2")));
    EXPECT_THAT(finished.output, HasSubstr("\nTables:\n"));
    EXPECT_THAT(finished.output, HasSubstr("call to the IPv6 module: tree function 0x101\n"));
}

TEST(Config, GivesWayToTheCommandLine)
{
    const config_file file{
        R"({"listen": ["127.0.0.1:0", "[::1]:0"], "responders": 3, "tables": true, "duration": 1000})"};
    const finished_program finished =
        file.run("--duration 0 --listen 127.0.0.1:0 --responders 2 --tables=false");
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.output, testing::ContainsRegex("\nready 127\\.0\\.0\\.1:[0-9]+\n"));
    EXPECT_THAT(finished.output, HasSubstr("responder 2 created: ID 0x2\n"));
    EXPECT_THAT(finished.output, Not(HasSubstr("responder 3")));
    EXPECT_THAT(finished.output, Not(HasSubstr("Tables")));
}

TEST(Config, ErrorsAreShownTogetherWithTheirLines)
{
    const config_file file{
        "{\n  \"listen\": [\"127.0.0.1:0\", \"127.0.0.1\"],\n  \"sesions\": 4,\n  \"rate\": 0\n}\n"};
    for (const char *options : {"--check", "--listen 127.0.0.1:0"}) {
        EXPECT_EQ(file.run(options),
                  ends(2, "",
                       "twampctl: config.json:2: listen[1]: address '127.0.0.1': there is no port; "
                       "write it as 127.0.0.1:8620\n"
                       "twampctl: config.json:3: sesions: there is no such key; did you mean "
                       "'sessions'?\n"
                       "twampctl: config.json:4: rate: Value 0 not in range 1 to 1000000000\n"));
    }
}

TEST(Config, IsCheckedTogetherWithTheCommandLine)
{
    const config_file file{R"({"sessions": 16777216})"};
    EXPECT_EQ(file.run("--check").errors,
              "twampctl: no address to listen on; give one such as --listen 127.0.0.1:8620\n");
    EXPECT_EQ(file.run("--check --listen 127.0.0.1:0"), prints("config.json: good\n"));
    EXPECT_EQ(file.run("--check --listen 127.0.0.1:0 --listen 127.0.0.1:0"),
              ends(2, "",
                   "twampctl: 2 responders have no room for 16777216 sessions each, but "
                   "for 16777216 together\n"));
}

TEST(Config, IsBadWhereARunWouldNotBegin)
{
    const config_file file{R"({"responders": 1})"};
    const std::pair<std::string, std::string> rows[] = {
        {"--listen 127.0.0.1:0 --responders 2 --capacity 1",
         "2 responders do not fit a capacity of 1 responder IDs"},
        {"--listen [::1]:8620 --listen *:8620", "[::]:8620 is all addresses, [::1]:8620 is one of them"},
        {"--listen 192.0.2.1:8620", "cannot listen on 192.0.2.1:8620: Cannot assign requested address"},
        {"--listen 127.0.0.1:0 --metrics 192.0.2.1:9862",
         "cannot serve metrics at 192.0.2.1:9862: Cannot assign requested address"},
        {"--listen 127.0.0.1:0 --trace /nonexistent/trace",
         "cannot write the trace to /nonexistent/trace: No such file or directory"},
        {"--listen 127.0.0.1:0 --trace .", "cannot write the trace to .: Is a directory"}};
    for (const auto &[options, reason] : rows) {
        EXPECT_EQ(file.run("--check " + options), ends(2, "", "twampctl: " + reason + "\n"));
        const finished_program run = file.run("--duration 0 " + options);
        EXPECT_NE(run.status, 0) << options;
        EXPECT_EQ(run.errors, "twampctl: " + reason + "\n");
    }
}

TEST(Config, IsGoodWhileARunThatItReplacesGoesOn)
{
    const config_file file{"{}"};
    control_program control{"--listen 127.0.0.1:0 --trace " + file.folder.path("trace")};
    EXPECT_EQ(file.run("--check --trace trace --listen " + control.address()), prints("config.json: good\n"));
    EXPECT_EQ(control.stop(SIGINT).status, 0);
    EXPECT_THAT(file.folder.read("trace"), HasSubstr("olv_twamp_responder_create"));
}

TEST(Config, ThatCannotBeReadIsAnError)
{
    const std::pair<const char *, const char *> rows[] = {{"/nonexistent/config", "No such file or directory"},
                                                          {"/", "Is a directory"},
                                                          {"/dev/zero", "it is longer than 1 MiB"}};
    for (const auto &[name, reason] : rows) {
        const finished_program finished = twampctl(std::string("run --config ") + name);
        EXPECT_EQ(finished.status, 2);
        EXPECT_EQ(finished.errors,
                  std::string("twampctl: cannot read the configuration ") + name + ": " + reason + "\n");
    }
}

} // namespace
} // namespace e2e
