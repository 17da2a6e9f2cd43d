// Measuring from inside a process: what other threads see, and how it ends.

#include "probe/probe.hpp"

#include <thread>

#include <netinet/in.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace olv_probe {
namespace {

using std::chrono::milliseconds;
using testing::MatchesRegex;

/** Bound, and never read. */
class silent_socket {
  public:
    silent_socket() : local_(olv_net::parse_socket_address("127.0.0.1:0"))
    {
        socket_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        auto *address = reinterpret_cast<sockaddr *>(&local_.address);
        EXPECT_EQ(bind(socket_, address, local_.length), 0);
        EXPECT_EQ(getsockname(socket_, address, &local_.length), 0);
    }
    ~silent_socket() { (void)close(socket_); }
    silent_socket(const silent_socket &) = delete;
    silent_socket &operator=(const silent_socket &) = delete;

    [[nodiscard]] const olv_net::socket_address &address() const { return local_; }
    /** A STAMP reflector without a clock or a number: half of what it says is the request. */
    void answer()
    {
        std::array<std::uint8_t, 44> packet{};
        sockaddr_storage peer{};
        socklen_t length = sizeof peer;
        ASSERT_EQ(
            recvfrom(socket_, packet.data(), packet.size(), 0, reinterpret_cast<sockaddr *>(&peer), &length),
            44);
        std::copy_n(packet.begin(), 14, packet.begin() + 24);
        std::copy_n(packet.begin() + 4, 8, packet.begin() + 16);
        packet[40] = 255;
        ASSERT_EQ(sendto(socket_, packet.data(), packet.size(), 0, reinterpret_cast<sockaddr *>(&peer), length),
                  44);
    }

  private:
    olv_net::socket_address local_;
    int socket_ = -1;
};

session_options options_for(const silent_socket &reflector)
{
    session_options options;
    options.reflector = reflector.address();
    options.stamp = true;
    options.zero_padding = true;
    options.size = 44;
    options.interval = std::chrono::hours(1);
    return options;
}

TEST(SessionSender, HasAnAddressForEachSession)
{
    const silent_socket reflector;
    session_options options = options_for(reflector);
    options.senders = 2;
    const probe sender{options};
    EXPECT_EQ(sender.session_count(), 2u);
    EXPECT_THAT(sender.local_address(0), MatchesRegex("127\\.0\\.0\\.1:[0-9]+"));
    EXPECT_NE(sender.local_address(0), sender.local_address(1));
    EXPECT_EQ(sender.latest_round_trip(), std::nullopt);
}

TEST(SessionSender, ShowsOtherThreadsHowFarItIsUntilItIsStopped)
{
    silent_socket reflector;
    probe sender{options_for(reflector)};
    bool complete = true;
    std::thread runner{[&] { complete = sender.run(); }};
    reflector.answer();
    while (!sender.latest_round_trip()) {
        std::this_thread::sleep_for(milliseconds(1));
    }
    EXPECT_EQ(sender.progress().sent, 1u);
    EXPECT_EQ(sender.progress().received, 1u);
    EXPECT_EQ(sender.progress().valid, 1u);
    EXPECT_GT(*sender.latest_round_trip(), std::chrono::nanoseconds(0));
    sender.stop();
    runner.join();
    EXPECT_FALSE(complete);
    EXPECT_EQ(sender.figures().counts.valid, 1u);
    EXPECT_EQ(sender.result().records()[0].round_trip, sender.latest_round_trip()->count());
    EXPECT_GT(sender.elapsed().count(), 0);
}

TEST(SessionSender, StoppedBeforeItsRunSendsAtMostAPacket)
{
    const silent_socket reflector;
    probe sender{options_for(reflector)};
    sender.stop();
    EXPECT_FALSE(sender.run());
    EXPECT_LE(sender.figures().counts.sent, 1u);
}

TEST(SessionSender, EndsByADescriptor)
{
    const silent_socket reflector;
    probe sender{options_for(reflector)};
    const int event = eventfd(1, EFD_CLOEXEC);
    EXPECT_FALSE(sender.run(event));
    (void)close(event);
}

TEST(SessionSender, ShowsProgressInItsOwnThread)
{
    const silent_socket reflector;
    probe sender{options_for(reflector)};
    const std::thread::id own = std::this_thread::get_id();
    int shown = 0;
    sender.on_progress(milliseconds(5), [&](const probe_progress &progress) {
        EXPECT_EQ(std::this_thread::get_id(), own);
        EXPECT_LE(progress.sent, 1u);
        if (++shown == 2) {
            sender.stop();
        }
    });
    EXPECT_FALSE(sender.run());
    EXPECT_EQ(shown, 2);
}

TEST(SessionSender, EndsAtItsDurationAndTimeout)
{
    const silent_socket reflector;
    session_options options = options_for(reflector);
    options.duration = milliseconds(300);
    options.interval = milliseconds(100);
    options.timeout = milliseconds(20);
    probe sender{options};
    EXPECT_TRUE(sender.run());
    EXPECT_GE(sender.figures().counts.sent, 1u);
    EXPECT_LE(sender.figures().counts.sent, 3u);
    EXPECT_EQ(sender.figures().counts.lost(), sender.figures().counts.sent);
}

TEST(SessionSender, SaysThatTheSystemRefusesAPacket)
{
    const silent_socket reflector;
    session_options options = options_for(reflector);
    options.size = 65508; // more than fits into an IPv4 datagram
    probe sender{options};
    try {
        sender.run();
        FAIL() << "sent";
    } catch (const std::runtime_error &error) {
        EXPECT_EQ(error.what(), "cannot send to " + reflector.address().text() + ": Message too long");
    }
    EXPECT_EQ(sender.progress().sent, 0u);
}

TEST(SessionSender, RefusesWhatHasNoWay)
{
    session_options options;
    options.reflector = olv_net::parse_socket_address("255.255.255.255:862");
    try {
        const probe sender{options};
        FAIL() << "made";
    } catch (const std::runtime_error &error) {
        EXPECT_THAT(error.what(), MatchesRegex("cannot reach 255\\.255\\.255\\.255:862: .+"));
    }
}

} // namespace
} // namespace olv_probe
