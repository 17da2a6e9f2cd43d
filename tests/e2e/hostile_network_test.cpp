// "twampctl run" in a network that means it no good.

#include <chrono>
#include <csignal>
#include <deque>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "network.hpp"
#include "programs.hpp"

namespace e2e {
namespace {

using std::chrono::steady_clock;
using testing::HasSubstr;
using testing::Not;

constexpr std::chrono::milliseconds at_once{0};

/** What the program prints of drops before the module saw the packet. */
std::string listener_section(const std::string &address, const std::string &line)
{
    return "\nStatistics of listener " + address + " (Non-zero only):\n" + line + "\n\n";
}

/** The number behind a label that stands once in the text. */
std::uint64_t figure(const std::string &text, const std::string &label)
{
    const std::size_t found = text.find("\n" + label + ": ");
    return found == std::string::npos ? 0 : std::stoull(text.substr(found + label.size() + 3));
}

TEST(Hostile, ShortPacketsAndSourcesThatAreNotAllowedAreDroppedAndCounted)
{
    control_program control{"--listen 127.0.0.1:0 --listen [::1]:0 --min-request 41 --allow 127.0.0.2 "
                            "--allow 192.0.2.0/24 --allow 2001:db8::/32"};
    loopback_socket strangers[] = {loopback_socket{"127.0.0.1"}, loopback_socket{"[::1]"}};
    for (const std::size_t listener : {0u, 1u}) {
        strangers[listener].send_to(control.address(listener), octets(41));
    }
    loopback_socket known{"127.0.0.2"}; // what it asks last is answered last
    for (const std::size_t length : {0u, 14u, 40u, 41u}) {
        known.send_to(control.address(0), octets(length));
    }
    EXPECT_EQ(known.receive().size(), 41u);
    const finished_program finished = control.stop(SIGINT);
    EXPECT_FALSE(known.receive_within(at_once));
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.output, HasSubstr("received packets: 4\n"
                                           "transmitted packets: 1\n"
                                           "Packets dropped due to length check failed: 3\n"));
    for (const std::size_t listener : {0u, 1u}) {
        EXPECT_FALSE(strangers[listener].receive_within(at_once));
        EXPECT_THAT(finished.output,
                    HasSubstr(listener_section(control.address(listener),
                                               "Packets dropped due to source not allowed: 1")));
    }
}

TEST(Hostile, LowSourcePortsAreDroppedAndCounted)
{
    control_program control{"--listen 127.0.0.1:0 --min-source-port 65535"};
    loopback_socket sender; // no system chooses port 65535
    sender.send_to(control.address(), octets(41));
    EXPECT_TRUE(wait_until_taken(control.address()));
    const finished_program finished = control.stop(SIGINT);
    EXPECT_FALSE(sender.receive_within(at_once));
    EXPECT_THAT(finished.output, HasSubstr(listener_section(control.address(),
                                                            "Packets dropped due to source port too low: 1")));
    EXPECT_THAT(finished.output, Not(HasSubstr("Total received packets")));
}

TEST(Hostile, PacketsAboveTheRateAreDroppedAndCounted)
{
    control_program control{"--listen 127.0.0.1:0 --rate 50"};
    loopback_socket sender;
    const auto start = steady_clock::now();
    for (int number = 0; number < 200; ++number) {
        sender.send_to(control.address(), octets(41));
    }
    EXPECT_TRUE(wait_until_taken(control.address()));
    const finished_program finished = control.stop(SIGINT); // has judged them all
    const std::chrono::duration<double> taken = steady_clock::now() - start;
    std::uint64_t replies = 0;
    while (sender.receive_within(at_once)) {
        ++replies;
    }
    EXPECT_GE(replies, 50u);
    // One is earned at each fiftieth of a second of the clock, so perhaps right after the first packet.
    EXPECT_LT(static_cast<double>(replies), 50 + 50 * taken.count() + 1);
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(figure(finished.output, "Packets dropped due to packet rate"), 200 - replies);
    EXPECT_EQ(figure(finished.output, "Total received packets"), replies);
    EXPECT_EQ(figure(finished.output, "Total transmitted packets"), replies);
}

/** More senders than there are sessions, none of which gives a second packet. */
TEST(Hostile, SendersOfOnePacketAreAllAnswered)
{
    control_program control{"--listen 127.0.0.1:0"};
    std::deque<loopback_socket> senders; // which stay, so that no two have the same port
    while (senders.size() < 40) {
        loopback_socket &sender = senders.emplace_back();
        sender.send_to(control.address(), octets(41));
        EXPECT_EQ(sender.receive().size(), 41u);
    }
    const finished_program finished = control.stop(SIGINT);
    EXPECT_THAT(finished.output, HasSubstr("\nSessions that gave way: 8\n"));
    EXPECT_THAT(finished.output, HasSubstr("Number of active sessions: 32\n"));
    EXPECT_THAT(finished.output, Not(HasSubstr("sessions refused")));
}

TEST(Hostile, RefusedSessionsAreToldOnce)
{
    control_program control{"--listen 127.0.0.1:0 --sessions 1 --session-grace 1000"};
    loopback_socket established;
    for (int number = 0; number < 2; ++number) {
        established.send_to(control.address(), octets(41));
        EXPECT_EQ(established.receive().size(), 41u);
    }
    loopback_socket refused;
    for (int number = 0; number < 3; ++number) {
        refused.send_to(control.address(), octets(41));
    }
    EXPECT_TRUE(wait_until_taken(control.address()));
    const std::string output = control.stop(SIGINT).output;
    const std::size_t told = output.find("sessions refused: ");
    ASSERT_NE(told, std::string::npos) << output;
    EXPECT_EQ(output.find("sessions refused: ", told + 1), std::string::npos);
    EXPECT_FALSE(refused.receive_within(at_once));
}

/** An echo of 20 octets would go on for ever: it is sent the first reply, cut, once. */
TEST(Hostile, EchoOfAReplyIsDroppedAndCounted)
{
    control_program control{"--listen 127.0.0.1:0"};
    loopback_socket echo;
    echo.send_to(control.address(), octets(41));
    auto reply = echo.receive();
    reply.resize(20);
    echo.send_to(control.address(), reply);
    EXPECT_TRUE(wait_until_taken(control.address()));
    EXPECT_THAT(control.stop(SIGINT).output,
                HasSubstr(listener_section(control.address(), "Packets dropped due to answer to a reply: 1")));
    EXPECT_FALSE(echo.receive_within(at_once));
}

} // namespace
} // namespace e2e
