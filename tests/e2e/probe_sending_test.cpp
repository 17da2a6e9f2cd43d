// How twamp-probe sends: several senders, floods, durations, names, TTLs; and how it ends.

#include <algorithm>
#include <chrono>
#include <csignal>
#include <ostream>
#include <set>

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "control_program.hpp"

namespace e2e {
namespace {

using nlohmann::json;
using std::chrono::milliseconds;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::StartsWith;
using octets = std::vector<std::uint8_t>;

/** A good reply to a request of 44 octets without padding. @param number  Of the reflector. */
octets reply_to(const octets &request, std::uint8_t number)
{
    octets reply(44);
    reply[3] = number;
    std::copy_n(request.begin() + 4, 10, reply.begin() + 4); // sent back when the request was sent
    std::copy_n(request.begin() + 4, 8, reply.begin() + 16); // and received then
    std::copy_n(request.begin(), 14, reply.begin() + 24);
    reply[40] = 255;
    return reply;
}

TEST(ProbeSenders, AreSessionsOfTheirOwn)
{
    control_program control{{"--listen", "127.0.0.1:0"}};
    ASSERT_EQ(control.addresses().size(), 1u);
    const finished_program probe =
        run_probe({control.addresses()[0], "--senders", "4", "--count", "25", "--interval", "2"});
    EXPECT_EQ(probe.status, 0);
    EXPECT_EQ(probe.errors, "");
    EXPECT_THAT(probe.output, StartsWith("25 packets of 41 octets to 127.0.0.1:"));
    EXPECT_THAT(probe.output, HasSubstr(" from each of 4 senders\nsent: 100\nreceived: 100\nvalid: 100\n"));
    EXPECT_EQ(count_lines(probe.output, "  sent 25, valid 25, invalid 0, lost 0, duplicates 0, reordered 0"),
              4);
    EXPECT_THAT(control.stop(SIGINT).output, HasSubstr("Number of active sessions: 4\n"));
}

TEST(ProbeSenders, TakeTurnsInsideTheInterval)
{
    const loopback_socket silent;
    const finished_program probe = run_probe({silent.address(), "--senders", "2", "--count", "1", "--interval",
                                              "300", "--timeout", "0", "--format", "csv"});
    EXPECT_EQ(probe.status, 1);
    const std::size_t second = probe.output.find(",0,", probe.output.rfind("127.0.0.1:")) + 3;
    EXPECT_GE(std::stod(probe.output.substr(second)), 150'000);
}

TEST(ProbeFlood, SendsAsMuchAsComesBack)
{
    control_program control{{"--listen", "127.0.0.1:0"}};
    ASSERT_EQ(control.addresses().size(), 1u);
    const finished_program probe =
        run_probe({control.addresses()[0], "--flood", "--window", "8", "--count", "2000", "--senders", "2"});
    EXPECT_EQ(probe.status, 0);
    EXPECT_EQ(probe.errors, "");
    EXPECT_THAT(probe.output, HasSubstr("\nsent: 4000\nreceived: 4000\nvalid: 4000\n"));
}

TEST(ProbeFlood, HasNoMoreThanTheWindowOnTheirWay)
{
    loopback_socket reflector;
    child_program probe{
        TWAMP_PROBE,
        {reflector.address(), "--stamp", "--flood", "--window", "3", "--count", "4", "--timeout", "60"}};
    std::vector<octets> requests;
    for (int packet = 0; packet < 3; ++packet) {
        requests.push_back(reflector.receive().value_or(octets(44)));
    }
    EXPECT_FALSE(reflector.receive(milliseconds(50)));
    reflector.answer(reply_to(requests[1], 0));
    requests.push_back(reflector.receive().value_or(octets(44)));
    EXPECT_EQ(requests[3][3], 3);
    reflector.answer(reply_to(requests[0], 1));
    reflector.answer(reply_to(requests[2], 2));
    reflector.answer(reply_to(requests[3], 3));
    EXPECT_EQ(probe.wait(), 0);
    EXPECT_THAT(probe.output(), HasSubstr("\nreordered: 1 (25.00 %)\n"));
}

TEST(ProbeFlood, LostPacketsLeaveTheWindow)
{
    loopback_socket silent;
    const finished_program probe = run_probe(
        {silent.address(), "--flood", "--window", "2", "--count", "6", "--timeout", "0.05", "--format", "csv"});
    EXPECT_EQ(probe.status, 1);
    EXPECT_EQ(count_lines(probe.output, ",lost,"), 6);
}

TEST(ProbeDuration, EndsWhenItsTimeIsOver)
{
    control_program control{{"--listen", "127.0.0.1:0"}};
    ASSERT_EQ(control.addresses().size(), 1u);
    const auto start = std::chrono::steady_clock::now();
    const finished_program probe =
        run_probe({control.addresses()[0], "--duration", "0.3", "--interval", "10", "--format", "json"});
    EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(300));
    EXPECT_EQ(probe.status, 0);
    const json document = json::parse(probe.output);
    EXPECT_EQ(document["options"]["duration_s"], 0.3);
    EXPECT_GE(document["total"]["sent"], 1);
    EXPECT_LE(document["total"]["sent"], 30);
    EXPECT_EQ(document["total"]["sent"], document["total"]["valid"]);
    EXPECT_GE(document["elapsed_s"], 0.3);
}

TEST(ProbeDuration, OfAFloodEndsToo)
{
    control_program control{{"--listen", "[::1]:0"}};
    ASSERT_EQ(control.addresses().size(), 1u);
    const finished_program probe =
        run_probe({control.addresses()[0], "--duration", "0.2", "--flood", "--window", "4"});
    EXPECT_EQ(probe.status, 0) << probe.output;
    EXPECT_THAT(probe.output, StartsWith("packets of 41 octets to [::1]:"));
    EXPECT_THAT(probe.output, HasSubstr(" for 0.2 s\nsent: "));
}

// ---------------------------------------------------------------------------------------------------------
// Names
// ---------------------------------------------------------------------------------------------------------

TEST(ProbeName, IsResolved)
{
    control_program control{{"--listen", "127.0.0.1:0"}};
    ASSERT_EQ(control.addresses().size(), 1u);
    const std::string port = control.addresses()[0].substr(control.addresses()[0].find(':'));
    const finished_program probe = run_probe({"localhost" + port, "-4", "--count", "2", "--interval", "1"});
    EXPECT_EQ(probe.status, 0);
    EXPECT_THAT(probe.output, StartsWith("2 packets of 41 octets to 127.0.0.1" + port + "\n"));
}

struct name_row {
    const char *label;
    std::vector<std::string> arguments;
    const char *error;
};

void PrintTo(const name_row &row, std::ostream *out)
{
    *out << row.label;
}

class ProbeMistake : public testing::TestWithParam<name_row> {};

TEST_P(ProbeMistake, IsSaidInOneLine)
{
    const finished_program probe = run_probe(GetParam().arguments);
    EXPECT_EQ(probe.status, 2);
    EXPECT_EQ(probe.output, "");
    EXPECT_EQ(probe.errors, std::string("twamp-probe: ") + GetParam().error + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    Mistakes, ProbeMistake,
    testing::Values(
        name_row{"NoPort", {"192.0.2.1"}, "address '192.0.2.1': no port; type 192.0.2.1:862"},
        name_row{"OtherFamily",
                 {"127.0.0.1:862", "-6"},
                 "no IPv6 address for '127.0.0.1': Address family for hostname not supported"},
        name_row{"BothFamilies", {"127.0.0.1:862", "-4", "-6"}, "-4 excludes -6; try twamp-probe --help"},
        name_row{"CountAndDuration",
                 {"127.0.0.1:862", "--count", "1", "--duration", "1"},
                 "--count excludes --duration; try twamp-probe --help"},
        name_row{"FloodAndInterval",
                 {"127.0.0.1:862", "--flood", "--interval", "1"},
                 "--interval excludes --flood; try twamp-probe --help"},
        name_row{"WindowAlone",
                 {"127.0.0.1:862", "--window", "1"},
                 "--window requires --flood; try twamp-probe --help"},
        name_row{"TooManyPackets",
                 {"127.0.0.1:862", "--senders", "2", "--count", "5000001"},
                 "2 senders of 5000001 packets are more than 10000000 packets together"},
        name_row{"StampPadding",
                 {"127.0.0.1:862", "--stamp", "--padding", "random"},
                 "a STAMP packet is filled with zeros; leave --padding or --stamp out"},
        name_row{"HistogramInJson",
                 {"127.0.0.1:862", "--histogram", "--format", "json"},
                 "--histogram goes with --format text alone, not with json"},
        name_row{"PlotExtension",
                 {"127.0.0.1:862", "--plot", "delay.jpg"},
                 "cannot draw 'delay.jpg': the name has to end in .svg or .png"},
        name_row{"PlotWithoutAName",
                 {"127.0.0.1:862", "--plot", ".svg"},
                 "cannot draw '.svg': the name has to end in .svg or .png"},
        name_row{"Broadcast", {"127.255.255.255:862"}, "cannot reach 127.255.255.255:862: Permission denied"}),
    [](const auto &row) { return std::string(row.param.label); });

struct range_row {
    const char *option;
    const char *value;
};

class ProbeRange : public testing::TestWithParam<range_row> {};

TEST_P(ProbeRange, IsKept)
{
    const finished_program probe = run_probe({"127.0.0.1:862", GetParam().option, GetParam().value, "--flood"});
    EXPECT_EQ(probe.status, 2);
    EXPECT_THAT(probe.errors, StartsWith(std::string("twamp-probe: ") + GetParam().option + ": "));
    EXPECT_EQ(count_lines(probe.errors, ""), 1);
}

INSTANTIATE_TEST_SUITE_P(Options, ProbeRange,
                         testing::Values(range_row{"--senders", "0"}, range_row{"--senders", "257"},
                                         range_row{"--count", "10000001"}, range_row{"--duration", "0"},
                                         range_row{"--duration", "nan"}, range_row{"--window", "0"},
                                         range_row{"--window", "65537"}, range_row{"--ttl", "0"},
                                         range_row{"--ttl", "256"}, range_row{"--padding", "ones"},
                                         range_row{"--format", "xml"}));

// ---------------------------------------------------------------------------------------------------------
// Packets
// ---------------------------------------------------------------------------------------------------------

struct ttl_row {
    const char *host;
    const char *label;
};

class ProbeTtl : public testing::TestWithParam<ttl_row> {};

TEST_P(ProbeTtl, OfTheRequestComesBack)
{
    control_program control{{"--listen", std::string(GetParam().host) + ":0"}};
    ASSERT_EQ(control.addresses().size(), 1u);
    const finished_program probe =
        run_probe({control.addresses()[0], "--ttl", "17", "--count", "3", "--interval", "1"});
    EXPECT_EQ(probe.status, 0);
    EXPECT_THAT(probe.output, HasSubstr("\nhops forward: min 0, max 0 (TTL 17 to 17, sent with 17)\n"));
    EXPECT_THAT(probe.output, ContainsRegex("\nhops backward: min 0, max 0 \\(TTL ([0-9]+) to [0-9]+, "));
}

INSTANTIATE_TEST_SUITE_P(Families, ProbeTtl,
                         testing::Values(ttl_row{"127.0.0.1", "Ipv4"}, ttl_row{"[::1]", "Ipv6"}),
                         [](const auto &row) { return std::string(row.param.label); });

octets padding_of_a_packet(const std::vector<std::string> &arguments)
{
    loopback_socket silent;
    std::vector<std::string> all{silent.address(), "--count", "1", "--timeout", "0"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    EXPECT_EQ(run_probe(all).status, 1);
    octets request = silent.receive().value_or(octets(14));
    request.erase(request.begin(), request.begin() + 14);
    return request;
}

TEST(ProbePadding, IsZeroOrRandom)
{
    EXPECT_EQ(padding_of_a_packet({"--padding", "zero", "--size", "100"}), octets(86));
    EXPECT_EQ(padding_of_a_packet({"--stamp", "--size", "100"}), octets(86));
    const octets random = padding_of_a_packet({"--padding", "random", "--size", "100"});
    EXPECT_EQ(random.size(), 86u);
    EXPECT_GT(std::set<std::uint8_t>(random.begin(), random.end()).size(), 10u);
    EXPECT_NE(random, padding_of_a_packet({"--size", "100"}));
}

TEST(ProbePadding, OfZerosIsChecked)
{
    loopback_socket reflector;
    child_program probe{TWAMP_PROBE,
                        {reflector.address(), "--padding", "zero", "--size", "44", "--count", "1"}};
    octets reply = reply_to(reflector.receive().value_or(octets(44)), 0);
    reply[43] = 1;
    reflector.answer(reply);
    EXPECT_EQ(probe.wait(), 1);
    EXPECT_THAT(probe.output(), HasSubstr("invalid: 1\n  padding not as sent: 1\n"));
}

// ---------------------------------------------------------------------------------------------------------
// Ends
// ---------------------------------------------------------------------------------------------------------

TEST(ProbeReordering, IsCountedAndForgiven)
{
    loopback_socket reflector;
    child_program probe{
        TWAMP_PROBE, {reflector.address(), "--stamp", "--count", "3", "--interval", "1", "--format", "json"}};
    std::vector<octets> requests;
    for (int packet = 0; packet < 3; ++packet) {
        requests.push_back(reflector.receive().value_or(octets(44)));
    }
    reflector.answer(reply_to(requests[2], 2)); // the replies overtook each other
    reflector.answer(reply_to(requests[0], 0));
    reflector.answer(reply_to(requests[1], 1));
    EXPECT_EQ(probe.wait(), 0);
    const json total = json::parse(probe.output())["total"];
    EXPECT_EQ(total["valid"], 3);
    EXPECT_EQ(total["reordered"], 2);
}

TEST(ProbeStoppedEarly, PrintsJsonOfWhatWasSent)
{
    loopback_socket reflector;
    child_program probe{
        TWAMP_PROBE,
        {reflector.address(), "--stamp", "--count", "1000", "--interval", "1000", "--format", "json"}};
    reflector.answer(reply_to(reflector.receive().value_or(octets(44)), 0));
    probe.send_signal(SIGINT);
    EXPECT_EQ(probe.wait(), 1);
    EXPECT_EQ(probe.errors(), "twamp-probe: interrupted\n");
    const json document = json::parse(probe.output());
    EXPECT_EQ(document["interrupted"], true);
    EXPECT_EQ(document["total"]["sent"], 1);
    EXPECT_EQ(document["total"]["valid"], 1);
}

TEST(ProbeRefused, IsSaidInJsonToo)
{
    std::string address;
    {
        const loopback_socket closed;
        address = closed.address();
    }
    const finished_program probe = run_probe({address, "--count", "3", "--interval", "1", "--format", "json"});
    EXPECT_EQ(probe.status, 1);
    EXPECT_EQ(probe.errors, "twamp-probe: " + address + ": connection refused\n");
    EXPECT_EQ(json::parse(probe.output)["refused"], true);
}

} // namespace
} // namespace e2e
