// What the programs say when they cannot do what they are told.

#include <ostream>

#include <sched.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "control_program.hpp"

namespace e2e {
namespace {

using testing::HasSubstr;

struct usage_row {
    const char *label;
    const char *program;
    std::vector<std::string> arguments;
    const char *message; ///< Part of the one line.
};

void PrintTo(const usage_row &row, std::ostream *out)
{
    *out << row.label;
}

class Usage : public testing::TestWithParam<usage_row> {};

TEST_P(Usage, IsOneLineAndStatus2)
{
    const finished_program finished = run_program(GetParam().program, GetParam().arguments);
    EXPECT_EQ(finished.status, 2);
    EXPECT_EQ(finished.output, "");
    EXPECT_THAT(finished.errors, HasSubstr(GetParam().message));
    EXPECT_EQ(count_lines(finished.errors, ""), 1) << finished.errors;
}

INSTANTIATE_TEST_SUITE_P(
    Twampctl, Usage,
    testing::Values(
        usage_row{
            "NoListen", TWAMPCTL, {"run"}, "twampctl: no address to listen on; give one such as --listen 127"},
        usage_row{
            "UnknownOption", TWAMPCTL, {"run", "--nope"}, "twampctl: The following argument was not expected"},
        usage_row{"UnknownCommand", TWAMPCTL, {"go"}, "twampctl: there is no command 'go'"},
        usage_row{"NoAddress", TWAMPCTL, {"run", "--listen", "localhost:1"}, "twampctl: address 'localhost:1'"},
        usage_row{"NoPort", TWAMPCTL, {"run", "--listen", "127.0.0.1"}, "twampctl: address '127.0.0.1'"},
        usage_row{"Port65536", TWAMPCTL, {"run", "--listen", "127.0.0.1:65536"}, "the port has to be a number"},
        usage_row{"BareIpv6", TWAMPCTL, {"run", "--listen", "::1:862"}, "twampctl: address '::1:862'"},
        usage_row{"LogLevel", TWAMPCTL, {"run", "--listen", "127.0.0.1:0", "--log-level", "2"}, "--log-level"},
        usage_row{
            "Step", TWAMPCTL, {"run", "--listen", "127.0.0.1:0", "--verbose-step", "x"}, "--verbose-step"},
        usage_row{
            "Responders", TWAMPCTL, {"run", "--listen", "127.0.0.1:0", "--responders", "0"}, "--responders"},
        usage_row{
            "HostBits",
            TWAMPCTL,
            {"run", "--listen", "127.0.0.1:0", "--allow", "192.0.2.1/24"},
            "twampctl: prefix '192.0.2.1/24': bits behind the prefix are set; the prefix is 192.0.2.0/24\n"},
        usage_row{"PrefixLength",
                  TWAMPCTL,
                  {"run", "--listen", "127.0.0.1:0", "--allow", "::1", "--allow", "192.0.2.0/33"},
                  "twampctl: prefix '192.0.2.0/33': the length has to be a number from 0 to 32\n"},
        usage_row{"NoPrefix",
                  TWAMPCTL,
                  {"run", "--listen", "127.0.0.1:0", "--allow", "localhost"},
                  "twampctl: prefix 'localhost': 'localhost' is not an IPv4 or IPv6 address\n"},
        usage_row{
            "MinRequest", TWAMPCTL, {"run", "--listen", "127.0.0.1:0", "--min-request", "13"}, "--min-request"},
        usage_row{"MinPort",
                  TWAMPCTL,
                  {"run", "--listen", "127.0.0.1:0", "--min-source-port", "65536"},
                  "--min-source-port"},
        usage_row{"Rate", TWAMPCTL, {"run", "--listen", "127.0.0.1:0", "--rate", "0"}, "--rate"},
        usage_row{"NoWorkers", TWAMPCTL, {"run", "--listen", "127.0.0.1:0", "--workers", "0"}, "--workers"},
        usage_row{"Workers", TWAMPCTL, {"run", "--listen", "127.0.0.1:0", "--workers", "65"}, "--workers"},
        usage_row{
            "BusyPoll", TWAMPCTL, {"run", "--listen", "127.0.0.1:0", "--busy-poll", "1000001"}, "--busy-poll"},
        usage_row{"Sessions", TWAMPCTL, {"run", "--listen", "127.0.0.1:0", "--sessions", "0"}, "--sessions"},
        usage_row{
            "AllSessions",
            TWAMPCTL,
            {"run", "--listen", "127.0.0.1:0", "--listen", "127.0.0.1:0", "--sessions", "16777216"},
            "twampctl: 2 responders have no room for 16777216 sessions each, but for 16777216 together\n"},
        usage_row{"MetricsNoPort",
                  TWAMPCTL,
                  {"run", "--listen", "127.0.0.1:0", "--metrics", "127.0.0.1"},
                  "twampctl: address '127.0.0.1': there is no port; write it as 127.0.0.1:8620\n"},
        usage_row{"MetricsName",
                  TWAMPCTL,
                  {"run", "--listen", "127.0.0.1:0", "--metrics", "localhost:1"},
                  "twampctl: address 'localhost:1': 'localhost' is not an IPv4 address\n"},
        usage_row{"Format", TWAMPCTL, {"run", "--listen", "127.0.0.1:0", "--format", "xml"}, "--format"},
        usage_row{"CheckOfNothing",
                  TWAMPCTL,
                  {"run", "--listen", "127.0.0.1:0", "--check"},
                  "twampctl: --check requires --config"},
        usage_row{
            "DurationNan", TWAMPCTL, {"run", "--listen", "127.0.0.1:0", "--duration", "nan"}, "--duration"},
        usage_row{"Duration", TWAMPCTL, {"run", "--listen", "127.0.0.1:0", "--duration", "-1"}, "--duration"}),
    [](const auto &row) { return std::string(row.param.label); });

INSTANTIATE_TEST_SUITE_P(
    TwampProbe, Usage,
    testing::Values(
        usage_row{"NoAddress", TWAMP_PROBE, {}, "twamp-probe: "},
        usage_row{"BadAddress", TWAMP_PROBE, {"127.0.0.300:1"}, "twamp-probe: address '127.0.0.300:1'"},
        usage_row{"Port0", TWAMP_PROBE, {"127.0.0.1:0"}, "twamp-probe: 127.0.0.1:0: port 0"},
        usage_row{"Count0", TWAMP_PROBE, {"127.0.0.1:1", "--count", "0"}, "--count"},
        usage_row{"Size13", TWAMP_PROBE, {"127.0.0.1:1", "--size", "13"}, "--size"},
        usage_row{"Size65508", TWAMP_PROBE, {"127.0.0.1:1", "--size", "65508"}, "--size"},
        usage_row{"StampSize43", TWAMP_PROBE, {"127.0.0.1:1", "--stamp", "--size", "43"}, "at least 44 octets"},
        usage_row{"Dscp64", TWAMP_PROBE, {"127.0.0.1:1", "--dscp", "64"}, "--dscp"},
        usage_row{"Interval", TWAMP_PROBE, {"127.0.0.1:1", "--interval", "-1"}, "--interval"},
        usage_row{"IntervalNan", TWAMP_PROBE, {"127.0.0.1:1", "--interval", "nan"}, "--interval"},
        usage_row{"TimeoutNan", TWAMP_PROBE, {"127.0.0.1:1", "--timeout", "nan"}, "--timeout"},
        usage_row{"Option", TWAMP_PROBE, {"127.0.0.1:1", "--nope"}, "twamp-probe: The following argument"}),
    [](const auto &row) { return std::string(row.param.label); });

TEST(Help, ShowsExamples)
{
    const finished_program control = run_program(TWAMPCTL, {"--help"});
    EXPECT_EQ(control.status, 0);
    EXPECT_THAT(control.output, HasSubstr("twampctl run --listen 127.0.0.1:8620\n"));
    const finished_program run = run_program(TWAMPCTL, {"run", "--help"});
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.output, HasSubstr("--verbose-step"));
    const finished_program probe = run_program(TWAMP_PROBE, {"--help"});
    EXPECT_EQ(probe.status, 0);
    EXPECT_THAT(probe.output, HasSubstr("twamp-probe 127.0.0.1:8620\n"));
    EXPECT_EQ(control.errors + run.errors + probe.errors, "");
}

TEST(Help, IsShownWithoutACommand)
{
    const finished_program finished = run_program(TWAMPCTL, {});
    EXPECT_EQ(finished.status, 2);
    EXPECT_THAT(finished.output, HasSubstr("twampctl run --listen 127.0.0.1:8620\n"));
}

/** It got as far as the sockets and left nothing behind. */
void expect_undone(const finished_program &finished)
{
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(count_lines(finished.errors, ""), 1) << finished.errors;
    EXPECT_THAT(finished.output, HasSubstr("unbound from the IPv4 module\n"
                                           "responder 1 deleted\n"
                                           "module shut down\n"
                                           "left behind: 0 blocks, 0 responder IDs, 0 responder entries, "
                                           "0 bind entries, 0 patterns, 0 violations\n"));
}

TEST(Sockets, BusyPort)
{
    const loopback_socket other;
    const finished_program finished = run_control({"--listen", other.address()});
    expect_undone(finished);
    EXPECT_EQ(finished.errors, "twampctl: cannot listen on " + other.address() + ": Address already in use\n");
}

TEST(Sockets, AddressOfAnotherHost)
{
    const finished_program finished = run_control({"--listen", "192.0.2.1:8620"});
    expect_undone(finished);
    EXPECT_EQ(finished.errors, "twampctl: cannot listen on 192.0.2.1:8620: Cannot assign requested address\n");
}

/** Ports below 1024 need a right that nobody has in a name space of its own after starting a program. */
bool give_rights_up()
{
    return unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0;
}

TEST(Sockets, MissingRight)
{
    const finished_program finished = run_control({"--listen", "0.0.0.0:862"}, give_rights_up);
    if (finished.status == 99) {
        GTEST_SKIP() << "NOT TESTED: this system makes no name spaces, so that no right can be taken away";
    }
    expect_undone(finished);
    EXPECT_EQ(finished.errors, "twampctl: cannot listen on 0.0.0.0:862: Permission denied\n");
}

TEST(Output, TraceFileThatCannotBeWritten)
{
    const finished_program finished =
        run_control({"--listen", "127.0.0.1:0", "--duration", "0", "--trace", "/nonexistent/trace"});
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.output, "");
    EXPECT_EQ(finished.errors,
              "twampctl: cannot write the trace to /nonexistent/trace: No such file or directory\n");
}

} // namespace
} // namespace e2e
