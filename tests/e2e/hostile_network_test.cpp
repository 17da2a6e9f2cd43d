// "twampctl run" in a network that means it no good. Floods are limited in number and in time.

#include <algorithm>
#include <atomic>
#include <csignal>
#include <memory>
#include <ostream>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "control_program.hpp"

namespace e2e {
namespace {

using std::chrono::steady_clock;
using testing::HasSubstr;
using testing::Not;
using datagram = std::vector<std::uint8_t>;

constexpr std::chrono::milliseconds moment{100};
constexpr std::chrono::milliseconds at_once{0};

// ---------------------------------------------------------------------------------------------------------
// Datagrams of any size
// ---------------------------------------------------------------------------------------------------------

struct family_row {
    const char *name;
    const char *host;
};

void PrintTo(const family_row &row, std::ostream *out)
{
    *out << row.name;
}

class AnySize : public testing::TestWithParam<family_row> {};

TEST_P(AnySize, IsAnsweredWith41OctetsOrItsOwn)
{
    control_program control{{"--listen", std::string(GetParam().host) + ":0"}};
    ASSERT_EQ(control.addresses().size(), 1u);
    const std::string &address = control.addresses()[0];
    loopback_socket sender{GetParam().host};
    std::vector<std::size_t> lengths(200);
    for (std::size_t length = 0; length < 200; ++length)
        lengths[length] = length;
    lengths.insert(lengths.end(), {1472, 1473, 9000, 65507});
    for (const std::size_t length : lengths) {
        // What stands in the buffers then must not come back.
        sender.send_to(address, datagram(1472, 0xA7));
        ASSERT_EQ(sender.receive().value_or(datagram{}).size(), 1472u);
        sender.send_to(address, datagram(length, 0));
        if (length >= 14) {
            datagram reply = sender.receive().value_or(datagram{});
            ASSERT_EQ(reply.size(), length < 41 ? 41 : length) << length;
            // Number and times may have any octets.
            std::fill(&reply[0], &reply[12], std::uint8_t{0});
            std::fill(&reply[16], &reply[24], std::uint8_t{0});
            EXPECT_EQ(std::count(reply.begin(), reply.end(), 0xA7), 0) << length;
        }
    }
    EXPECT_FALSE(sender.receive(moment));
    const finished_program finished = control.stop(SIGINT);
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.errors, "");
    EXPECT_THAT(finished.output, HasSubstr("Total received packets: 408\n"
                                           "Total transmitted packets: 394\n"
                                           "Packets dropped due to length check failed: 14\n"));
}

INSTANTIATE_TEST_SUITE_P(Families, AnySize,
                         testing::Values(family_row{"Ipv4", "127.0.0.1"}, family_row{"Ipv6", "[::1]"}),
                         [](const auto &row) { return std::string(row.param.name); });

TEST(Hostile, SendersThatAreGoneDoNotMatter)
{
    control_program control{{"--listen", "127.0.0.1:0", "--sessions", "1000"}};
    ASSERT_EQ(control.addresses().size(), 1u);
    loopback_socket known; // has its port before the others have theirs
    for (int number = 0; number < 200; ++number)
        loopback_socket{}.send_to(control.addresses()[0], datagram(100));
    known.send_to(control.addresses()[0], datagram(41));
    EXPECT_TRUE(
        known.receive()); // the others came before it: no late reply finds the probe at a port of theirs
    EXPECT_EQ(run_probe({control.addresses()[0], "--count", "20", "--interval", "1"}).status, 0);
    const finished_program finished = control.stop(SIGINT);
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.errors, "");
    EXPECT_THAT(finished.output, HasSubstr("Total received packets: 221\n"
                                           "Total transmitted packets: 221\n"));
}

TEST(Hostile, RequiredLengthLeavesNoReplyLongerThanItsRequest)
{
    control_program control{{"--listen", "127.0.0.1:0", "--min-request", "41"}};
    ASSERT_EQ(control.addresses().size(), 1u);
    loopback_socket sender;
    for (const std::size_t length : {0u, 14u, 40u})
        sender.send_to(control.addresses()[0], datagram(length));
    sender.send_to(control.addresses()[0], datagram(41));
    EXPECT_EQ(sender.receive().value_or(datagram{}).size(), 41u);
    EXPECT_FALSE(sender.receive(moment));
    EXPECT_THAT(control.stop(SIGINT).output, HasSubstr("received packets: 4\n"
                                                       "transmitted packets: 1\n"
                                                       "Packets dropped due to length check failed: 3\n"));
}

// ---------------------------------------------------------------------------------------------------------
// Sources
// ---------------------------------------------------------------------------------------------------------

TEST(Hostile, SourcesThatAreNotAllowedAreDroppedAndCounted)
{
    control_program control{{"--listen", "127.0.0.1:0", "--listen", "[::1]:0", "--allow", "127.0.0.2",
                             "--allow", "192.0.2.0/24", "--allow", "2001:db8::/32"}};
    ASSERT_EQ(control.addresses().size(), 2u);
    loopback_socket stranger;
    loopback_socket stranger_ipv6{"[::1]"};
    stranger_ipv6.send_to(control.addresses()[1], datagram(41));
    for (int number = 0; number < 3; ++number)
        stranger.send_to(control.addresses()[0], datagram(41));
    loopback_socket known{"127.0.0.2"}; // what it asks last is answered last
    known.send_to(control.addresses()[0], datagram(41));
    EXPECT_TRUE(known.receive());
    EXPECT_FALSE(stranger.receive(moment));
    EXPECT_FALSE(stranger_ipv6.receive(moment));
    const finished_program finished = control.stop(SIGINT);
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.output, HasSubstr("TWAMP global statistics (Non-zero only)\n"
                                           "Total received packets: 1\n"
                                           "Total transmitted packets: 1\n"
                                           "\n"
                                           "Statistics of listener " +
                                           control.addresses()[0] +
                                           " (Non-zero only):\n"
                                           "Packets dropped due to source not allowed: 3\n"
                                           "\n"
                                           "Statistics of listener " +
                                           control.addresses()[1] +
                                           " (Non-zero only):\n"
                                           "Packets dropped due to source not allowed: 1\n"
                                           "\n"
                                           "unbound from the IPv6 module\n"));
}

TEST(Hostile, LowSourcePortsAreDroppedAndCounted)
{
    control_program control{{"--listen", "127.0.0.1:0", "--min-source-port", "65535"}};
    ASSERT_EQ(control.addresses().size(), 1u);
    loopback_socket sender; // no system chooses port 65535
    sender.send_to(control.addresses()[0], datagram(41));
    EXPECT_TRUE(wait_until_taken(control.addresses()[0]));
    const finished_program finished = control.stop(SIGINT);
    EXPECT_FALSE(sender.receive(at_once));
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.output,
                HasSubstr(control.addresses()[0] + " (Non-zero only):\n"
                                                   "Packets dropped due to source port too low: 1\n"));
    EXPECT_THAT(finished.output, Not(HasSubstr("Total received packets")));
}

// ---------------------------------------------------------------------------------------------------------
// Limits
// ---------------------------------------------------------------------------------------------------------

/** The number behind a label that stands once in the text. */
std::uint64_t figure(const std::string &text, const std::string &label)
{
    const std::size_t found = text.find("\n" + label + ": ");
    return found == std::string::npos ? 0 : std::stoull(text.substr(found + label.size() + 3));
}

TEST(Hostile, PacketsAboveTheRateAreDroppedAndCounted)
{
    control_program control{{"--listen", "127.0.0.1:0", "--listen", "127.0.0.1:0", "--rate", "50"}};
    ASSERT_EQ(control.addresses().size(), 2u);
    loopback_socket sender;
    const auto start = steady_clock::now();
    for (int number = 0; number < 200; ++number)
        sender.send_to(control.addresses()[0], datagram(41));
    EXPECT_TRUE(wait_until_taken(control.addresses()[0]));
    EXPECT_EQ(run_probe({control.addresses()[1], "--count", "40", "--interval", "1"}).status, 0);
    const std::chrono::duration<double> taken = steady_clock::now() - start;
    const finished_program finished = control.stop(SIGINT);
    std::uint64_t replies = 0;
    while (sender.receive(at_once))
        ++replies;
    EXPECT_GE(replies, 50u);
    EXPECT_LE(static_cast<double>(replies), 50 + 50 * taken.count());
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(figure(finished.output, "Packets dropped due to packet rate"), 200 - replies);
    EXPECT_EQ(figure(finished.output, "Total received packets"), replies + 40);
    EXPECT_EQ(figure(finished.output, "Total transmitted packets"), replies + 40);
    EXPECT_EQ(count_lines(finished.output, "Statistics of listener"), 1);
}

TEST(Hostile, SessionsAreLimited)
{
    control_program control{{"--listen", "127.0.0.1:0", "--sessions", "2"}};
    ASSERT_EQ(control.addresses().size(), 1u);
    loopback_socket senders[3];
    for (loopback_socket &sender : senders)
        sender.send_to(control.addresses()[0], datagram(41));
    EXPECT_TRUE(senders[0].receive());
    EXPECT_TRUE(senders[1].receive());
    EXPECT_TRUE(wait_until_taken(control.addresses()[0]));
    const finished_program finished = control.stop(SIGINT);
    EXPECT_FALSE(senders[2].receive(at_once));
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.output, HasSubstr("received packets: 3\n"
                                           "transmitted packets: 2\n"
                                           "Number of active sessions: 2\n"
                                           "Packets dropped due to max number of sessions reached: 1\n"));
    EXPECT_THAT(finished.output, HasSubstr("Packets dropped due to hash errors: 1\n"));
}

TEST(Hostile, SessionsCanBeMoreThanUsual)
{
    control_program control{{"--listen", "127.0.0.1:0", "--sessions", "40"}};
    ASSERT_EQ(control.addresses().size(), 1u);
    std::vector<std::unique_ptr<loopback_socket>> senders;
    for (int number = 0; number < 41; ++number) {
        senders.push_back(std::make_unique<loopback_socket>());
        senders.back()->send_to(control.addresses()[0], datagram(41));
    }
    for (int number = 0; number < 40; ++number)
        EXPECT_TRUE(senders[static_cast<std::size_t>(number)]->receive()) << number;
    EXPECT_FALSE(senders[40]->receive(moment));
    EXPECT_THAT(control.stop(SIGINT).output, HasSubstr("Number of active sessions: 40\n"));
}

// ---------------------------------------------------------------------------------------------------------
// Floods
// ---------------------------------------------------------------------------------------------------------

/** Sends as fast as it can while it lives. */
class flood {
  public:
    explicit flood(const std::string &address) : thread_([this, address] { run(address); }) {}
    ~flood()
    {
        stopping_ = true;
        thread_.join();
    }
    flood(const flood &) = delete;
    flood &operator=(const flood &) = delete;

  private:
    static constexpr int most = 5'000'000;

    void run(const std::string &address)
    {
        loopback_socket sender;
        const datagram request(41);
        const auto end = steady_clock::now() + patience;
        for (int sent = 0; sent < most && !stopping_ && steady_clock::now() < end; ++sent)
            sender.send_to(address, request);
    }

    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

TEST(Hostile, FloodStopsNeitherAnotherResponderNorTheControlSide)
{
    control_program control{{"--listen", "127.0.0.1:0", "--listen", "127.0.0.1:0"}};
    ASSERT_EQ(control.addresses().size(), 2u);
    const flood flood{control.addresses()[0]};
    const finished_program probe =
        run_probe({control.addresses()[1], "--count", "300", "--interval", "2", "--timeout", "10"});
    EXPECT_EQ(probe.status, 0) << probe.output;
    EXPECT_THAT(probe.output, HasSubstr("lost: 0 (0.00 %)\n"));
    const auto start = steady_clock::now();
    const finished_program finished = control.stop(SIGINT);
    EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(10));
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.output, HasSubstr("Statistics of responder 2, ID 0x2:\n"
                                           "TWAMP responder statistics (Non-zero only)\n"
                                           "received packets: 300\n"
                                           "transmitted packets: 300\n"
                                           "Number of active sessions: 1\n"
                                           "\n"));
    EXPECT_GT(figure(finished.output, "Total received packets"), 1300u);
}

} // namespace
} // namespace e2e
