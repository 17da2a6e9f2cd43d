// "twampctl run --workers": several threads that answer as one.

#include <csignal>
#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "control_program.hpp"

namespace e2e {
namespace {

using testing::HasSubstr;
using datagram = std::vector<std::uint8_t>;

class RunWorkers : public testing::TestWithParam<int> {};

TEST_P(RunWorkers, CountAsOne)
{
    control_program control{{"--listen", "127.0.0.1:0", "--workers", std::to_string(GetParam())}};
    ASSERT_EQ(control.addresses().size(), 1u);
    EXPECT_EQ(sockets_at(control.addresses()[0]).count, GetParam());
    EXPECT_EQ(run_probe({control.addresses()[0], "--senders", "20", "--count", "50", "--interval", "1"}).status,
              0);
    const finished_program finished = control.stop(SIGINT);
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.errors, "");
    EXPECT_THAT(finished.output, HasSubstr("received packets: 1000\n"
                                           "transmitted packets: 1000\n"
                                           "Number of active sessions: 20\n"));
    EXPECT_THAT(finished.output, HasSubstr("Total received packets: 1000\n"
                                           "Total transmitted packets: 1000\n"));
    EXPECT_THAT(finished.output, HasSubstr("left behind: 0 blocks, 0 responder IDs, 0 responder entries, "
                                           "0 bind entries, 0 patterns, 0 violations\n"));
}

INSTANTIATE_TEST_SUITE_P(Numbers, RunWorkers, testing::Values(1, 2, 5));

TEST(Workers, ShareTheSessionsOfAResponder)
{
    control_program control{{"--listen", "127.0.0.1:0", "--workers", "2", "--sessions", "10"}};
    ASSERT_EQ(control.addresses().size(), 1u);
    std::vector<std::unique_ptr<loopback_socket>> senders;
    for (int number = 0; number < 50; ++number) {
        senders.push_back(std::make_unique<loopback_socket>());
        senders.back()->send_to(control.addresses()[0], datagram(41));
    }
    EXPECT_TRUE(wait_until_taken(control.addresses()[0]));
    const finished_program finished = control.stop(SIGINT);
    int answered = 0;
    for (const auto &each : senders)
        answered += each->receive(std::chrono::milliseconds{0}) ? 1 : 0;
    EXPECT_EQ(answered, 10);
    EXPECT_THAT(finished.output, HasSubstr("received packets: 50\n"
                                           "transmitted packets: 10\n"
                                           "Number of active sessions: 10\n"
                                           "Packets dropped due to max number of sessions reached: 40\n"));
}

TEST(Workers, CanBeMany)
{
    control_program control{{"--listen", "127.0.0.1:0", "--workers", "64", "--sessions", "100"}};
    ASSERT_EQ(control.addresses().size(), 1u);
    EXPECT_EQ(run_probe({control.addresses()[0], "--senders", "100", "--count", "1"}).status, 0);
    EXPECT_THAT(control.stop(SIGINT).output, HasSubstr("Number of active sessions: 100\n"));
}

TEST(Workers, OfTwoProgramsDoNotShareAnAddress)
{
    control_program control{{"--listen", "127.0.0.1:0", "--workers", "2"}};
    ASSERT_EQ(control.addresses().size(), 1u);
    const std::string taken = control.addresses()[0];
    const finished_program second = run_control({"--listen", taken, "--workers", "2"});
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(second.errors, "twampctl: cannot listen on " + taken + ": Address already in use\n");
    EXPECT_EQ(control.stop(SIGINT).status, 0);
}

TEST(Workers, SleepAtOnceWithoutBusyPolling)
{
    control_program control{{"--listen", "127.0.0.1:0", "--workers", "2", "--busy-poll", "0"}};
    ASSERT_EQ(control.addresses().size(), 1u);
    EXPECT_EQ(run_probe({control.addresses()[0], "--senders", "4", "--count", "100", "--flood"}).status, 0);
    EXPECT_THAT(control.stop(SIGINT).output, HasSubstr("transmitted packets: 400\n"));
}

} // namespace
} // namespace e2e
