// twamp-probe against the module, and against nobody.

#include <chrono>
#include <csignal>
#include <ostream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "control_program.hpp"

namespace e2e {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::StartsWith;

struct size_row {
    const char *label;
    const char *listen;
    std::vector<std::string> arguments;
    const char *first_line; ///< Without the address.
};

void PrintTo(const size_row &row, std::ostream *out)
{
    *out << row.label;
}

class ProbeSizes : public testing::TestWithParam<size_row> {};

TEST_P(ProbeSizes, AllRepliesAreValid)
{
    control_program control{{"--listen", GetParam().listen}};
    ASSERT_EQ(control.addresses().size(), 1u);
    std::vector<std::string> arguments{control.addresses()[0], "--count", "30", "--interval", "2"};
    arguments.insert(arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());
    const finished_program probe = run_probe(arguments);
    EXPECT_EQ(probe.status, 0);
    EXPECT_EQ(probe.errors, "");
    EXPECT_THAT(probe.output, StartsWith(GetParam().first_line));
    EXPECT_THAT(probe.output, HasSubstr("\nsent: 30\n"
                                        "received: 30\n"
                                        "valid: 30\n"
                                        "invalid: 0\n"
                                        "lost: 0 (0.00 %)\n"
                                        "duplicates: 0\n"
                                        "round trip in microseconds: min "));
    EXPECT_THAT(probe.output, ContainsRegex("min -?[0-9.]+, median [0-9.]+, p99 [0-9.]+, max [0-9.]+\n"));
    EXPECT_EQ(control.stop(SIGINT).status, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Ipv4, ProbeSizes,
    testing::Values(size_row{"Default", "127.0.0.1:0", {}, "30 packets of 41 octets to 127.0.0.1:"},
                    size_row{"Size14", "127.0.0.1:0", {"--size", "14"}, "30 packets of 14 "},
                    size_row{"Size41", "127.0.0.1:0", {"--size", "41"}, "30 packets of 41 "},
                    size_row{"Size44", "127.0.0.1:0", {"--size", "44"}, "30 packets of 44 "},
                    size_row{"Size1400", "127.0.0.1:0", {"--size", "1400"}, "30 packets of 1400 "},
                    size_row{"Size65507", "127.0.0.1:0", {"--size", "65507"}, "30 packets of 65507 "},
                    size_row{"Dscp46", "127.0.0.1:0", {"--dscp", "46"}, "30 packets of 41 "},
                    size_row{"Stamp", "127.0.0.1:0", {"--stamp"}, "30 packets of 44 "},
                    size_row{"Stamp1400", "127.0.0.1:0", {"--stamp", "--size", "1400"}, "30 packets of 1400 "}),
    [](const auto &row) { return std::string(row.param.label); });

INSTANTIATE_TEST_SUITE_P(
    Ipv6, ProbeSizes,
    testing::Values(size_row{"Default", "[::1]:0", {}, "30 packets of 41 octets to [::1]:"},
                    size_row{"Size14", "[::1]:0", {"--size", "14"}, "30 packets of 14 "},
                    size_row{"Size41", "[::1]:0", {"--size", "41"}, "30 packets of 41 "},
                    size_row{"Size1400", "[::1]:0", {"--size", "1400"}, "30 packets of 1400 "},
                    size_row{"Size65507", "[::1]:0", {"--size", "65507"}, "30 packets of 65507 "},
                    size_row{"Dscp46", "[::1]:0", {"--dscp", "46"}, "30 packets of 41 "},
                    size_row{"Stamp", "[::1]:0", {"--stamp"}, "30 packets of 44 "}),
    [](const auto &row) { return std::string(row.param.label); });

TEST(Probe, AcceptsStatelessReplies)
{
    control_program control{{"--listen", "127.0.0.1:0", "--stamp-mode", "stateless"}};
    ASSERT_EQ(control.addresses().size(), 1u);
    EXPECT_EQ(run_probe({control.addresses()[0], "--stamp", "--count", "20", "--interval", "0.5"}).status, 0);
    EXPECT_EQ(control.stop(SIGINT).status, 0);
}

TEST(Probe, CountsAClosedPortAsLoss)
{
    std::string address;
    {
        const loopback_socket closed;
        address = closed.address();
    }
    const finished_program probe = run_probe({address, "--count", "10", "--interval", "1", "--timeout", "20"});
    EXPECT_EQ(probe.status, 1);
    EXPECT_EQ(probe.errors, "twamp-probe: " + address + ": connection refused\n");
    EXPECT_THAT(probe.output, HasSubstr("sent: 10\n"
                                        "received: 0\n"
                                        "valid: 0\n"
                                        "invalid: 0\n"
                                        "lost: 10 (100.00 %)\n"
                                        "duplicates: 0\n"
                                        "round trip: not measured\n"));
}

TEST(Probe, EndsWhenNobodyAnswers)
{
    const loopback_socket silent;
    const auto start = std::chrono::steady_clock::now();
    const finished_program probe =
        run_probe({silent.address(), "--count", "5", "--interval", "20", "--timeout", "0.4"});
    const auto taken = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(probe.status, 1);
    EXPECT_EQ(probe.errors, "");
    EXPECT_THAT(probe.output, HasSubstr("lost: 5 (100.00 %)\n"));
    EXPECT_GE(taken, std::chrono::milliseconds(400));
    EXPECT_LT(taken, patience);
}

class ProbeStopped : public testing::TestWithParam<int> {};

TEST_P(ProbeStopped, PrintsWhatItHas)
{
    loopback_socket silent;
    child_program probe{TWAMP_PROBE, {silent.address(), "--count", "1000", "--interval", "1000"}};
    ASSERT_TRUE(silent.receive());
    probe.send_signal(GetParam());
    EXPECT_EQ(probe.wait(), 1);
    EXPECT_THAT(probe.output(), HasSubstr("\nsent: 1\nreceived: 0\n"));
    EXPECT_EQ(probe.errors(), "twamp-probe: interrupted\n");
}

INSTANTIATE_TEST_SUITE_P(Signals, ProbeStopped, testing::Values(SIGINT, SIGTERM));

} // namespace
} // namespace e2e
