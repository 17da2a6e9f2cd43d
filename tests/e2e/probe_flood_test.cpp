// twamp-probe: several senders, floods and durations.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "network.hpp"
#include "programs.hpp"

namespace e2e {
namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;
using testing::StartsWith;

TEST(ProbeSenders, TakeTurnsInsideTheInterval)
{
    const loopback_socket silent;
    const finished_program probe =
        twamp_probe(silent.address() + " --senders 2 --count 1 --interval 60 --timeout 0 --format csv");
    EXPECT_EQ(probe.status, 1);
    const std::size_t second = probe.output.find(",0,", probe.output.rfind("127.0.0.1:")) + 3;
    EXPECT_GE(std::stod(probe.output.substr(second)), 30'000);
}

TEST(ProbeFlood, SendsAsMuchAsComesBack)
{
    control_program control{"--listen 127.0.0.1:0"};
    const finished_program probe = measure(control.address() + " --flood --window 8 --count 2000 --senders 2");
    EXPECT_EQ(probe.status, 0);
    EXPECT_EQ(probe.errors, "");
    EXPECT_THAT(probe.output, HasSubstr("\nsent 4000, received 4000, valid 4000\n"));
}

TEST(ProbeFlood, HasNoMoreThanTheWindowOnTheirWay)
{
    loopback_socket reflector;
    child_program probe{TWAMP_PROBE,
                        words_of(reflector.address() + " --stamp --flood --window 3 --count 4 --timeout 60")};
    std::vector<octets> requests;
    for (int packet = 0; packet < 3; ++packet) {
        requests.push_back(reflector.receive());
    }
    EXPECT_FALSE(reflector.receive_within(milliseconds(50)));
    const auto answer = [&](std::size_t packet, std::uint8_t number) {
        octets reply = reply_to(requests[packet]);
        reply[3] = number;
        reflector.answer(reply);
    };
    answer(1, 0);
    requests.push_back(reflector.receive());
    EXPECT_EQ(requests[3][3], 3);
    answer(0, 1);
    answer(2, 2);
    answer(3, 3);
    const finished_program finished = probe.wait();
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.output, HasSubstr("\nreordered 1 (25.00 %)"));
}

TEST(ProbeFlood, LostPacketsLeaveTheWindow)
{
    const loopback_socket silent;
    const finished_program probe =
        twamp_probe(silent.address() + " --flood --window 2 --count 6 --timeout 0.02 --format csv");
    EXPECT_EQ(probe.status, 1);
    EXPECT_EQ(count_lines(probe.output, ",lost,"), 6);
}

TEST(ProbeDuration, EndsWhenItsTimeIsOver)
{
    control_program control{"--listen 127.0.0.1:0 --listen [::1]:0"};
    const auto start = std::chrono::steady_clock::now();
    const finished_program probe = measure(control.address(0) + " --duration 0.1 --interval 10");
    EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(100));
    EXPECT_EQ(probe.status, 0);
    EXPECT_THAT(probe.output, StartsWith("packets of 41 octets to " + control.address(0) + " for 0.1 s\n"));
    const int sent = std::stoi(probe.output.substr(probe.output.find("\nsent ") + 6));
    EXPECT_GE(sent, 1);
    EXPECT_LE(sent, 10);
    EXPECT_EQ(measure(control.address(1) + " --duration 0.1 --flood --window 4").status, 0);
}

} // namespace
} // namespace e2e
