// Measuring from inside a process: what other threads see, and how it ends.

#include "probe/probe.hpp"

#include <future>
#include <thread>
#include <utility>

#include <netinet/in.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace olv_probe {
namespace {

using std::chrono::milliseconds;
using testing::StartsWith;

/** Nothing takes as long, unless it never comes. */
constexpr std::chrono::seconds patience{20};

/** Bound, and never read. */
class silent_socket {
  public:
    silent_socket() : local_(olv_net::parse_socket_address("127.0.0.1:0"))
    {
        EXPECT_EQ(bind(socket_.number(), local_.generic(), local_.length), 0);
        local_ = olv_net::local_address_of(socket_.number()).value();
        const timeval limit{.tv_sec = patience.count(), .tv_usec = 0};
        EXPECT_EQ(setsockopt(socket_.number(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit), 0);
    }

    [[nodiscard]] const olv_net::socket_address &address() const { return local_; }
    /** A STAMP reflector without a clock or a number: all that it says is the request's. */
    void answer()
    {
        std::array<std::uint8_t, 44> packet{};
        olv_net::socket_address peer;
        peer.length = sizeof peer.address;
        ASSERT_EQ(recvfrom(socket_.number(), packet.data(), packet.size(), 0, peer.generic(), &peer.length),
                  44);
        std::copy_n(packet.begin(), 14, packet.begin() + 24);
        std::copy_n(packet.begin() + 4, 8, packet.begin() + 16);
        packet[40] = 255;
        ASSERT_EQ(sendto(socket_.number(), packet.data(), packet.size(), 0, peer.generic(), peer.length), 44);
    }

  private:
    olv_net::socket_address local_;
    olv_net::descriptor socket_{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
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

TEST(Probe, HasAnAddressForEachSession)
{
    const silent_socket reflector;
    session_options options = options_for(reflector);
    options.senders = 2;
    const probe sender{options};
    EXPECT_EQ(sender.session_count(), 2u);
    EXPECT_THAT(sender.local_address(0), StartsWith("127.0.0.1:"));
    EXPECT_NE(sender.local_address(0), sender.local_address(1));
    EXPECT_EQ(sender.latest_round_trip(), std::nullopt);
}

TEST(Probe, ShowsOtherThreadsHowFarItIsUntilItIsStopped)
{
    silent_socket reflector;
    probe sender{options_for(reflector)};
    std::promise<void> measured;
    sender.on_progress(milliseconds(1), [&, told = false](const probe_progress &progress) mutable {
        if (progress.round_trip && !std::exchange(told, true)) {
            measured.set_value();
        }
    });
    std::future<bool> complete = std::async(std::launch::async, [&] { return sender.run(); });
    reflector.answer();
    EXPECT_EQ(measured.get_future().wait_for(patience), std::future_status::ready);
    EXPECT_EQ(sender.progress().sent, 1u);
    EXPECT_EQ(sender.progress().received, 1u);
    EXPECT_EQ(sender.progress().valid, 1u);
    sender.stop();
    EXPECT_FALSE(complete.get());
    EXPECT_EQ(sender.figures().counts.valid, 1u);
    ASSERT_TRUE(sender.latest_round_trip());
    EXPECT_GT(*sender.latest_round_trip(), std::chrono::nanoseconds(0));
    EXPECT_EQ(sender.result().records()[0].round_trip, sender.latest_round_trip()->count());
    EXPECT_GT(sender.elapsed().count(), 0);
}

TEST(Probe, StoppedBeforeItsRunSendsAtMostAPacket)
{
    const silent_socket reflector;
    session_options options = options_for(reflector);
    options.interval = milliseconds(0);
    probe sender{options};
    sender.stop();
    EXPECT_FALSE(sender.run());
    EXPECT_LE(sender.figures().counts.sent, 1u);
}

TEST(Probe, EndsByADescriptor)
{
    const silent_socket reflector;
    probe sender{options_for(reflector)};
    const olv_net::descriptor event{eventfd(1, EFD_CLOEXEC)};
    EXPECT_FALSE(sender.run(event.number()));
}

TEST(Probe, ShowsProgressInItsOwnThread)
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

TEST(Probe, SendsForItsDurationAndWaitsForItsTimeout)
{
    const silent_socket reflector;
    for (const auto &[duration, timeout] : {std::pair{200, 10}, {10, 200}}) {
        session_options options = options_for(reflector); // the second packet would leave in an hour
        options.duration = milliseconds(duration);
        options.timeout = milliseconds(timeout);
        probe sender{options};
        EXPECT_TRUE(sender.run());
        EXPECT_GE(sender.elapsed(), milliseconds(200)) << duration;
        EXPECT_LT(sender.elapsed(), patience) << duration;
        EXPECT_EQ(sender.figures().counts.sent, 1u);
        EXPECT_EQ(sender.figures().counts.lost(), 1u);
    }
}

std::string refusal(const std::function<void()> &work)
{
    try {
        work();
        return "none";
    } catch (const std::runtime_error &error) {
        return error.what();
    }
}

TEST(Probe, SaysThatTheSystemRefusesAPacketOrItsWay)
{
    const silent_socket reflector;
    session_options options = options_for(reflector);
    options.size = 65508; // more than fits into an IPv4 datagram
    probe sender{options};
    EXPECT_EQ(refusal([&] { (void)sender.run(); }),
              "cannot send to " + reflector.address().text() + ": Message too long");
    EXPECT_EQ(sender.progress().sent, 0u);
    options.reflector = olv_net::parse_socket_address("255.255.255.255:862");
    EXPECT_THAT(refusal([&] { const probe nowhere{options}; }),
                StartsWith("cannot reach 255.255.255.255:862: "));
}

} // namespace
} // namespace olv_probe
