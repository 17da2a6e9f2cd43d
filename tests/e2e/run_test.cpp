// "twampctl run": its course, its reports, its way down.

#include <csignal>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <ostream>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "control_program.hpp"

namespace e2e {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char *nothing_left = "left behind: 0 blocks, 0 responder IDs, 0 responder entries, "
                                     "0 bind entries, 0 patterns, 0 violations\n";

TEST(Run, PrintsEachStepUpAndDown)
{
    control_program control{{"--listen", "127.0.0.1:0", "--duration", "0.1"}};
    ASSERT_EQ(control.addresses().size(), 1u);
    const finished_program finished = control.wait();
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.errors, "");
    EXPECT_EQ(finished.output, "module initialised\n"
                               "responder 1 created: ID 0x1\n"
                               "bound to the IPv4 module: key 4\n"
                               "ready " +
                                   control.addresses()[0] +
                                   "\n"
                                   "end of the duration\n"
                                   "packets no longer answered\n"
                                   "\n"
                                   "Statistics of responder 1, ID 0x1:\n"
                                   "TWAMP responder statistics (Non-zero only)\n"
                                   "\n"
                                   "Statistics of the module:\n"
                                   "TWAMP global statistics (Non-zero only)\n"
                                   "\n"
                                   "unbound from the IPv4 module\n"
                                   "responder 1 deleted\n"
                                   "module shut down\n" +
                                   nothing_left);
}

class RunStopped : public testing::TestWithParam<int> {};

TEST_P(RunStopped, BySignal)
{
    control_program control{{"--listen", "127.0.0.1:0"}};
    ASSERT_EQ(control.addresses().size(), 1u);
    const finished_program finished = control.stop(GetParam());
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.errors, "");
    EXPECT_THAT(finished.output, HasSubstr("stopped by a signal\n"));
    EXPECT_THAT(finished.output, HasSubstr(nothing_left));
}

INSTANTIATE_TEST_SUITE_P(Signals, RunStopped, testing::Values(SIGINT, SIGTERM));

TEST(Run, CountsPacketsOfBothFamilies)
{
    control_program control{{"--listen", "127.0.0.1:0", "--listen", "[::1]:0"}};
    ASSERT_EQ(control.addresses().size(), 2u);
    EXPECT_EQ(run_probe({control.addresses()[0], "--count", "150", "--interval", "1"}).status, 0);
    EXPECT_EQ(run_probe({control.addresses()[1], "--count", "50", "--interval", "1"}).status, 0);
    const finished_program finished = control.stop(SIGINT);
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.output, HasSubstr("Statistics of responder 1, ID 0x1:\n"
                                           "TWAMP responder statistics (Non-zero only)\n"
                                           "received packets: 150\n"
                                           "transmitted packets: 150\n"
                                           "Number of active sessions: 1\n"
                                           "\n"
                                           "Statistics of responder 2, ID 0x2:\n"
                                           "TWAMP responder statistics (Non-zero only)\n"
                                           "received packets: 50\n"
                                           "transmitted packets: 50\n"
                                           "Number of active sessions: 1\n"
                                           "\n"
                                           "Statistics of the module:\n"
                                           "TWAMP global statistics (Non-zero only)\n"
                                           "Total received packets: 200\n"
                                           "Total transmitted packets: 200\n"
                                           "\n"));
    EXPECT_THAT(finished.output, HasSubstr("unbound from the IPv6 module\n"
                                           "unbound from the IPv4 module\n"
                                           "responder 2 deleted\n"
                                           "responder 1 deleted\n"
                                           "module shut down\n"));
}

TEST(Run, CountsPacketsThatAreTooShort)
{
    control_program control{{"--listen", "127.0.0.1:0"}};
    ASSERT_EQ(control.addresses().size(), 1u);
    loopback_socket sender;
    sender.send_to(control.addresses()[0], std::vector<std::uint8_t>(13));
    EXPECT_EQ(run_probe({control.addresses()[0], "--count", "1"}).status, 0); // the short one came before it
    const finished_program finished = control.stop(SIGINT);
    EXPECT_THAT(finished.output, HasSubstr("received packets: 2\n"
                                           "transmitted packets: 1\n"
                                           "Packets dropped due to length check failed: 1\n"
                                           "Number of active sessions: 1\n"));
    EXPECT_THAT(finished.output, HasSubstr("Total received packets: 2\n"
                                           "Total transmitted packets: 1\n"
                                           "Packets dropped due to length check failed: 1\n"));
}

TEST(Run, SharesAResponderBetweenAddresses)
{
    control_program control{{"--listen", "127.0.0.1:0", "--listen", "127.0.0.1:0", "--responders", "1"}};
    ASSERT_EQ(control.addresses().size(), 2u);
    EXPECT_EQ(run_probe({control.addresses()[0], "--count", "5"}).status, 0);
    EXPECT_EQ(run_probe({control.addresses()[1], "--count", "7"}).status, 0);
    const finished_program finished = control.stop(SIGINT);
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.output, HasSubstr("\nreceived packets: 12\n"));
    EXPECT_THAT(finished.output, Not(HasSubstr("responder 2")));
}

TEST(Run, CreatesMoreRespondersThanAddresses)
{
    const finished_program finished =
        run_control({"--listen", "[::1]:0", "--responders", "3", "--duration", "0", "--tables"});
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.output, HasSubstr("responder 3 created: ID 0x3\nbound to the IPv6 module: key 6\n"));
    EXPECT_EQ(count_lines(finished.output, "bound to"), 1);
    EXPECT_THAT(finished.output, HasSubstr("olv_twamp.twamp_responder_lookup, 0x3, DEFINED\n"));
    EXPECT_THAT(finished.output, HasSubstr(nothing_left));
}

TEST(Run, PrintsTablesAndCalls)
{
    const finished_program finished =
        run_control({"--listen", "127.0.0.1:0", "--listen", "[::1]:0", "--duration", "0", "--tables", "--imc"});
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.output,
                HasSubstr("\nTables:\n"
                          "olv_twamp.twamp_responder_lookup, RESPONDER-ID, DEFINED/NOT_DEFINED \n"
                          "olv_twamp.twamp_responder_lookup, 0x1, DEFINED\n"
                          "olv_twamp.twamp_responder_lookup, 0x2, DEFINED\n"
                          "olv_twamp.twamp_bind_to_next_module, "));
    EXPECT_EQ(count_lines(finished.output, "olv_twamp.twamp_bind_to_next_module, "), 2);
    EXPECT_THAT(finished.output, HasSubstr("call to the IPv4 module: tree function 0x101\n"
                                           "call to the IPv6 module: tree function 0x101\n"));
}

TEST(Run, UndoesWhatWasDoneWhenAStepFails)
{
    const finished_program finished =
        run_control({"--listen", "127.0.0.1:0", "--responders", "3", "--capacity", "2"});
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.errors,
              "twampctl: cannot create responder 3: status 0x3001D TWAMP_STATUS_INDEX_ALLOC_FAILED: "
              "TWAMP: responder ID could not be allocated\n");
    EXPECT_EQ(finished.output, std::string("module initialised\n"
                                           "responder 1 created: ID 0x1\n"
                                           "responder 2 created: ID 0x2\n"
                                           "responder 2 deleted\n"
                                           "responder 1 deleted\n"
                                           "module shut down\n") +
                                   nothing_left);
}

TEST(Run, EndsIdleSessions)
{
    control_program control{{"--listen", "127.0.0.1:0", "--refwait", "1"}};
    ASSERT_EQ(control.addresses().size(), 1u);
    EXPECT_EQ(run_probe({control.addresses()[0], "--count", "2"}).status, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(1300));
    EXPECT_EQ(run_probe({control.addresses()[0], "--count", "2"}).status, 0);
    EXPECT_THAT(control.stop(SIGINT).output, HasSubstr("Number of active sessions: 1\n"));
}

// ---------------------------------------------------------------------------------------------------------
// Logs and traces
// ---------------------------------------------------------------------------------------------------------

struct verbose_row {
    const char *step;
    const char *line; ///< Logged in this step, on its way between the lines of the program.
};

void PrintTo(const verbose_row &row, std::ostream *out)
{
    *out << row.step;
}

class RunVerbose : public testing::TestWithParam<verbose_row> {};

TEST_P(RunVerbose, LogsOneStep)
{
    const finished_program finished = run_control(
        {"--listen", "127.0.0.1:0", "--duration", "0", "--tables", "--imc", "--verbose-step", GetParam().step});
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(count_lines(finished.output, "log-level set to 0xf"), 1) << finished.output;
    EXPECT_THAT(finished.output, HasSubstr(GetParam().line));
    EXPECT_THAT(finished.output, HasSubstr(nothing_left));
}

INSTANTIATE_TEST_SUITE_P(
    Steps, RunVerbose,
    testing::Values(verbose_row{"bind", "Custom Bind Successfully done.\nbound to the IPv4 module: key 4\n"},
                    verbose_row{"create", "log-level set to 0xf\nresponder 1 created: ID 0x1\n"},
                    verbose_row{"statistics", "log-level set to 0xf\n\nStatistics of responder 1"},
                    verbose_row{"tables", "log-level set to 0xf\nTables:\n"},
                    verbose_row{"imc", "log-level set to 0xf\ncall to the IPv4 module"},
                    verbose_row{"unbind", "Custom Un Bind Successfully done.\nunbound from the IPv4 module\n"},
                    verbose_row{"delete", "log-level set to 0xf\nresponder 1 deleted\n"},
                    verbose_row{"shutdown", "log-level set to 0xf\n[twamp_log: info] "}),
    [](const auto &row) { return std::string(row.param.step); });

TEST(Run, LogsNothingUnlessAsked)
{
    const finished_program finished = run_control({"--listen", "127.0.0.1:0", "--duration", "0"});
    EXPECT_EQ(count_lines(finished.output, "twamp_log"), 0);
}

TEST(Run, KeepsTheLogLevelItIsGiven)
{
    const finished_program finished =
        run_control({"--listen", "127.0.0.1:0", "--duration", "0", "--log-level", "15"});
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.output, HasSubstr("\nlog level 15\n"));
    EXPECT_EQ(count_lines(finished.output, "Custom Bind Successfully done."), 1);
    EXPECT_EQ(count_lines(finished.output, "Custom Un Bind Successfully done."), 1);
}

TEST(Run, TracesToStandardError)
{
    const finished_program finished =
        run_control({"--listen", "127.0.0.1:0", "--duration", "0", "--trace", "-"});
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.errors, HasSubstr("olv_twamp_init"));
    EXPECT_THAT(finished.errors, HasSubstr("olv_twamp_responder_delete"));
}

TEST(Run, TracesToAFile)
{
    const std::string name = testing::TempDir() + "trace_" + std::to_string(getpid());
    const finished_program finished =
        run_control({"--listen", "127.0.0.1:0", "--duration", "0", "--trace", name});
    std::ifstream file{name};
    const std::string trace{std::istreambuf_iterator<char>{file}, std::istreambuf_iterator<char>{}};
    (void)std::remove(name.c_str()); // nothing else looks at it
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.errors, "");
    EXPECT_THAT(trace, HasSubstr("olv_twamp_responder_create"));
}

// ---------------------------------------------------------------------------------------------------------
// STAMP
// ---------------------------------------------------------------------------------------------------------

struct stamp_row {
    const char *mode;
    std::uint8_t sequence; ///< Of the reply to a first request that has number 7.
};

void PrintTo(const stamp_row &row, std::ostream *out)
{
    *out << row.mode;
}

class RunStamp : public testing::TestWithParam<stamp_row> {};

TEST_P(RunStamp, NumbersReplies)
{
    control_program control{{"--listen", "127.0.0.1:0", "--stamp-mode", GetParam().mode}};
    ASSERT_EQ(control.addresses().size(), 1u);
    std::vector<std::uint8_t> request(44);
    request[3] = 7;
    loopback_socket sender;
    sender.send_to(control.addresses()[0], request);
    const auto reply = sender.receive();
    ASSERT_TRUE(reply);
    ASSERT_EQ(reply->size(), 44u);
    EXPECT_EQ((*reply)[3], GetParam().sequence);
    EXPECT_EQ((*reply)[27], 7);
    EXPECT_EQ(control.stop(SIGINT).status, 0);
}

INSTANTIATE_TEST_SUITE_P(Modes, RunStamp, testing::Values(stamp_row{"stateless", 7}, stamp_row{"stateful", 0}),
                         [](const auto &row) { return std::string(row.param.mode); });

} // namespace
} // namespace e2e
