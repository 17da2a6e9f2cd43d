// twamp-probe: what the network sees of its options, and whose clock the times are of.

#include <csignal>
#include <cstring>
#include <thread>

#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "net/descriptor.hpp"
#include "net/twamp_wire.hpp"
#include "net/wall_clock.hpp"
#include "network.hpp"
#include "programs.hpp"

namespace e2e {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;

/** A reflector that sees DSCP and ECN, and marks its replies. */
class marking_reflector {
  public:
    explicit marking_reflector(int family) : local_(olv_net::parse_socket_address(host(family) + ":0"))
    {
        const int on = 1;
        const int marks = 0xBA; // EF, ECT(0)
        const bool ipv6 = family == AF_INET6;
        const int level = ipv6 ? IPPROTO_IPV6 : IPPROTO_IP;
        const int seen = ipv6 ? IPV6_RECVTCLASS : IP_RECVTOS;
        const timeval limit{.tv_sec = patience.count(), .tv_usec = 0};
        EXPECT_EQ(bind(socket_.number(), local_.generic(), local_.length), 0);
        EXPECT_EQ(setsockopt(socket_.number(), level, seen, &on, sizeof on), 0);
        EXPECT_EQ(setsockopt(socket_.number(), level, ipv6 ? IPV6_TCLASS : IP_TOS, &marks, sizeof marks), 0);
        EXPECT_EQ(setsockopt(socket_.number(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit), 0);
        local_ = olv_net::local_address_of(socket_.number()).value();
    }

    [[nodiscard]] std::string address() const { return local_.text(); }

    /** Answer the next request. @return The traffic class that it came with; -1: none came. */
    int answer()
    {
        octets request(65536);
        olv_net::socket_address peer;
        std::array<char, 256> control{};
        iovec part{.iov_base = request.data(), .iov_len = request.size()};
        msghdr message{};
        message.msg_name = &peer.address;
        message.msg_namelen = sizeof peer.address;
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const ssize_t length = recvmsg(socket_.number(), &message, 0);
        if (length < 0) {
            return -1;
        }
        request.resize(static_cast<std::size_t>(length));
        const octets reply = reply_to(request);
        EXPECT_EQ(sendto(socket_.number(), reply.data(), reply.size(), 0, peer.generic(), message.msg_namelen),
                  static_cast<ssize_t>(reply.size()));
        const cmsghdr *told = CMSG_FIRSTHDR(&message);
        return told == nullptr ? -1 : *CMSG_DATA(told); // an octet, or an int that is one on this machine
    }

  private:
    static std::string host(int family) { return family == AF_INET6 ? "[::1]" : "127.0.0.1"; }

    olv_net::socket_address local_;
    olv_net::descriptor socket_{socket(local_.family(), SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

TEST(ProbeSending, MarksPacketsAndTellsTheMarksOfReplies)
{
    const std::pair<const char *, int> rows[] = {{"", 0x00},
                                                 {"--dscp EF", 0xB8},
                                                 {"--dscp af41 --ecn ect0", 0x8A},
                                                 {"--dscp 46 --ecn 3", 0xBB},
                                                 {"--dscp LE --ecn ect1", 0x05},
                                                 {"--dscp VOICE-ADMIT --ecn ce", 0xB3},
                                                 {"--dscp cs7", 0xE0}};
    for (const int family : {AF_INET, AF_INET6}) {
        marking_reflector reflector{family};
        for (const auto &[options, marks] : rows) {
            SCOPED_TRACE(options);
            child_program probe{
                TWAMP_PROBE, words_of(reflector.address() + " --count 1 --timeout 60 --format csv " + options)};
            EXPECT_EQ(reflector.answer(), marks);
            EXPECT_THAT(probe.wait().output, HasSubstr(",46,ect0,20"));
        }
    }
}

TEST(ProbeSending, LeavesFromItsSource)
{
    loopback_socket reflector;
    const std::string port = reflector.address().substr(reflector.address().find(':'));
    child_program probe{TWAMP_PROBE,
                        words_of(reflector.address() + " --source 127.0.0.2" + port +
                                 " --senders 2 --count 1 --timeout 60 --interface lo --format json")};
    reflector.answer(reply_to(reflector.receive()));
    reflector.answer(reply_to(reflector.receive()));
    const finished_program finished = probe.wait();
    EXPECT_EQ(finished.errors, "");
    EXPECT_EQ(finished.status, 0);
    const std::string next = std::to_string(std::stoi(port.substr(1)) + 1);
    EXPECT_THAT(finished.output, HasSubstr("\n      \"address\": \"127.0.0.2" + port + "\",\n"));
    EXPECT_THAT(finished.output, HasSubstr("\n      \"address\": \"127.0.0.2:" + next + "\",\n"));
    EXPECT_THAT(finished.output, HasSubstr("\n    \"interface\": \"lo\",\n"));
}

TEST(ProbeSending, GoesToPort862)
{
    EXPECT_THAT(twamp_probe("127.0.0.1 --count 1 --timeout 0").output, HasSubstr(" to 127.0.0.1:862\n"));
    EXPECT_THAT(twamp_probe("::1 --count 1 --timeout 0").output, HasSubstr(" to [::1]:862\n"));
}

/** Loopback with short packets as long as it lives, where the system allows it: in a network of the test's own.
 */
class small_loopback {
  public:
    small_loopback() : before_(mtu()) { set(1500); }
    ~small_loopback() { set(before_); }
    small_loopback(const small_loopback &) = delete;
    small_loopback &operator=(const small_loopback &) = delete;

    [[nodiscard]] int mtu() { return ask(SIOCGIFMTU); }

  private:
    int ask(unsigned long what)
    {
        std::strcpy(request_.ifr_name, "lo");
        EXPECT_TRUE(ioctl(control_.number(), what, &request_) == 0 || errno == EPERM);
        return request_.ifr_mtu;
    }
    void set(int wanted)
    {
        request_.ifr_mtu = wanted;
        (void)ask(SIOCSIFMTU); // mtu() tells
    }

    olv_net::descriptor control_{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    ifreq request_{};
    int before_;
};

TEST(ProbeSending, NeverFragmentsWhenToldSo)
{
    constexpr int longest = 65507;
    small_loopback loopback;
    const int mtu = loopback.mtu();
    control_program control{"--listen 127.0.0.1:0 --listen [::1]:0"};
    for (const std::size_t listener : {0u, 1u}) {
        const std::string &address = control.address(listener);
        const int fits = mtu - (listener == 0 ? 20 : 40) - 8; // the headers of IP and UDP
        const std::string one = address + " --count 1 --size ";
        EXPECT_EQ(measure(one + std::to_string(std::min(fits, longest)) + " --dont-fragment").status, 0);
        if (fits < longest) {
            const std::string is_too_long = one + std::to_string(fits + 1);
            EXPECT_EQ(measure(is_too_long).status, 0);
            EXPECT_EQ(measure(is_too_long + " --dont-fragment"),
                      ends(2, "1 packets of " + std::to_string(fits + 1) + " octets to " + address + "\n",
                           "twamp-probe: cannot send to " + address +
                               " without fragments: packets on the way have "
                               "at most " +
                               std::to_string(mtu) + " octets; use --size " + std::to_string(fits) +
                               " or less\n"));
        }
    }
}

// Time stamps

/** A packet whose reply came while the program did not run; in microseconds. */
struct stopped_run {
    double backward = 0;
    double answered = 0; ///< How long the reply took to leave.
    double stood = 0;    ///< How long the program stood after that.
};

stopped_run with_a_stopped_probe(const std::string &timestamps)
{
    using clock = std::chrono::steady_clock;
    using microseconds = std::chrono::duration<double, std::micro>;
    loopback_socket reflector;
    // The system begins to stamp what comes a little after it was told to: the first packet is not the one.
    child_program probe{TWAMP_PROBE, words_of(reflector.address() +
                                              " --count 2 --interval 300 --timeout 60"
                                              " --format csv --timestamps " +
                                              timestamps)};
    reflector.answer(reply_to(reflector.receive()));
    octets reply = reply_to(reflector.receive());
    EXPECT_TRUE(probe.wait_until_asleep());
    probe.send_signal(SIGSTOP);
    const clock::time_point begun = clock::now();
    for (const std::size_t place : {16u, 4u}) { // in this order
        olv_net::store_ntp(&reply[place], olv_net::ntp_time_of(olv_net::wall_time()));
    }
    reflector.answer(reply);
    const clock::time_point sent = clock::now();
    std::this_thread::sleep_until(sent + std::chrono::milliseconds(100)); // so long it stands
    const clock::time_point before_it_goes_on = clock::now();
    probe.send_signal(SIGCONT);
    const finished_program finished = probe.wait();
    EXPECT_EQ(finished.status, 0) << finished.errors;
    const std::string line = finished.output.substr(finished.output.find(",1,"));
    std::size_t place = 0;
    for (int column = 0; column < 6; ++column) { // sequence, sent, result, round trip, forward, backward
        place = line.find(',', place) + 1;
    }
    return {.backward = std::stod(line.substr(place)),
            .answered = microseconds(sent - begun).count(),
            .stood = microseconds(before_it_goes_on - sent).count()};
}

TEST(ProbeTimestamps, OfTheKernelDoNotDependOnWhenTheProgramRuns)
{
    constexpr double inaccuracy = 50; // microseconds
    const stopped_run kernel = with_a_stopped_probe("kernel");
    EXPECT_LE(kernel.backward, kernel.answered + inaccuracy);
    const stopped_run user = with_a_stopped_probe("user");
    EXPECT_GE(user.backward, user.stood - inaccuracy);
}

TEST(ProbeTimestamps, AreTheKernelsUnlessOthersAreChosen)
{
    control_program control{"--listen 127.0.0.1:0 --listen [::1]:0"};
    const std::pair<const char *, const char *> rows[] = {
        {"", "\"source\": \"kernel\",\n    \"requests\": 30,\n    \"replies\": [0-9]+\n"},
        {"--timestamps kernel --flood",
         "\"source\": \"kernel\",\n    \"requests\": 30,\n    \"replies\": [0-9]+\n"},
        {"--timestamps user", "\"source\": \"user\",\n    \"requests\": 0,\n    \"replies\": 0\n"}};
    for (const std::size_t listener : {0u, 1u}) {
        for (const auto &[options, stamps] : rows) {
            const finished_program finished =
                measure(control.address(listener) + " --count 30 --format json " + options);
            EXPECT_EQ(finished.status, 0);
            EXPECT_THAT(finished.output, ContainsRegex(stamps)) << options;
        }
    }
}

} // namespace
} // namespace e2e
