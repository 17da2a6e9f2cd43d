// "twampctl run --config": the file, the command line above it, --check.

#include <csignal>
#include <cstdio>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "control_program.hpp"

namespace e2e {
namespace {

using testing::HasSubstr;
using testing::Not;

/** A configuration that is gone after the test. */
class config_file {
  public:
    explicit config_file(const std::string &text)
        : name_(testing::TempDir() + "config_" + std::to_string(getpid()) + ".json")
    {
        std::ofstream{name_} << text;
    }
    ~config_file() { (void)std::remove(name_.c_str()); } // nothing else looks at it
    config_file(const config_file &) = delete;
    config_file &operator=(const config_file &) = delete;
    [[nodiscard]] const std::string &name() const { return name_; }

  private:
    std::string name_;
};

TEST(Config, IsRunWith)
{
    const config_file file{R"({
  "listen": ["127.0.0.1:0", "[::1]:0"],
  "responders": 1,
  "tables": true,
  "imc": true,
  "log-level": 7,
  "duration": 0
})"};
    control_program control{{"--config", file.name()}};
    ASSERT_EQ(control.addresses().size(), 2u);
    const finished_program finished = control.wait();
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.errors, "");
    EXPECT_THAT(finished.output, HasSubstr("\nlog level 7\nresponder 1 created: ID 0x1\nbound to the IPv4"));
    EXPECT_THAT(finished.output, Not(HasSubstr("responder 2")));
    EXPECT_THAT(finished.output, HasSubstr("\nTables:\n"));
    EXPECT_THAT(finished.output, HasSubstr("call to the IPv6 module: tree function 0x101\n"));
}

TEST(Config, GivesWayToTheCommandLine)
{
    const config_file file{
        R"({"listen": ["127.0.0.1:0", "[::1]:0"], "responders": 3, "tables": true, "duration": 1000})"};
    control_program control{{"--duration", "0", "--config", file.name(), "--listen", "127.0.0.1:0",
                             "--responders", "2", "--tables=false"}};
    ASSERT_EQ(control.addresses().size(), 1u);
    EXPECT_THAT(control.addresses()[0], testing::StartsWith("127.0.0.1:"));
    const finished_program finished = control.wait();
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.output, HasSubstr("responder 2 created: ID 0x2\n"));
    EXPECT_THAT(finished.output, Not(HasSubstr("responder 3")));
    EXPECT_THAT(finished.output, Not(HasSubstr("Tables")));
}

TEST(Config, IsOnlyCheckedWhereThatIsAsked)
{
    const config_file file{R"({"listen": ["127.0.0.1:0"]})"};
    const finished_program finished = run_control({"--config", file.name(), "--check"});
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.output, file.name() + ": good\n");
    EXPECT_EQ(finished.errors, "");
}

TEST(Config, ExampleIsGood)
{
    const std::string example = std::string(SOURCE_FOLDER) + "/docs/examples/twampctl.json";
    const finished_program finished = run_control({"--config", example, "--check"});
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.output, example + ": good\n");
}

TEST(Config, ErrorsAreShownTogetherWithTheirLines)
{
    const config_file file{
        "{\n  \"listen\": [\"127.0.0.1:0\", \"127.0.0.1\"],\n  \"sesions\": 4,\n  \"rate\": 0\n}\n"};
    for (const auto &arguments :
         {std::vector<std::string>{"--config", file.name(), "--check"},
          std::vector<std::string>{"--config", file.name(), "--listen", "127.0.0.1:0"}}) {
        const finished_program finished = run_control(arguments);
        EXPECT_EQ(finished.status, 2);
        EXPECT_EQ(finished.output, "");
        const std::string start = "twampctl: " + file.name();
        EXPECT_EQ(finished.errors,
                  start + ":2: listen[1]: address '127.0.0.1': there is no port; write it as 127.0.0.1:8620\n" +
                      start + ":3: sesions: there is no such key; did you mean 'sessions'?\n" + start +
                      ":4: rate: Value 0 not in range 1 to 1000000000\n");
    }
}

TEST(Config, IsCheckedTogetherWithTheCommandLine)
{
    const config_file file{R"({"sessions": 16777216})"};
    EXPECT_EQ(run_control({"--config", file.name(), "--check"}).errors,
              "twampctl: no address to listen on; give one such as --listen 127.0.0.1:8620\n");
    EXPECT_EQ(run_control({"--config", file.name(), "--check", "--listen", "127.0.0.1:0"}).status, 0);
    const finished_program finished =
        run_control({"--config", file.name(), "--check", "--listen", "127.0.0.1:0", "--listen", "127.0.0.1:0"});
    EXPECT_EQ(finished.status, 2);
    EXPECT_EQ(finished.errors,
              "twampctl: 2 responders have no room for 16777216 sessions each, but for 16777216 together\n");
}

TEST(Config, ThatCannotBeReadIsAnError)
{
    const finished_program missing = run_control({"--config", "/nonexistent/config"});
    EXPECT_EQ(missing.status, 2);
    EXPECT_EQ(missing.errors, "twampctl: cannot read the configuration /nonexistent/config: "
                              "No such file or directory\n");
    EXPECT_EQ(run_control({"--config", "/"}).errors,
              "twampctl: cannot read the configuration /: Is a directory\n");
    EXPECT_EQ(run_control({"--config", "/dev/zero"}).errors,
              "twampctl: cannot read the configuration /dev/zero: it is longer than 1 MiB\n");
}

} // namespace
} // namespace e2e
