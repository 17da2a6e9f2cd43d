/**
 * @file udp_fixture.hpp
 * Senders for a server, what the system can do, and patience.
 */
#ifndef OLV_FASTPATH_TEST_UDP_FIXTURE_HPP
#define OLV_FASTPATH_TEST_UDP_FIXTURE_HPP

#include <array>
#include <chrono>
#include <cstring>
#include <deque>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <netinet/udp.h>
#include <sys/time.h>

#include "fastpath/fast_path.hpp"
#include "fastpath/udp/control_data.hpp"
#include "fixture.hpp"
#include "net/descriptor.hpp"

namespace olv_fastpath_test {

using namespace std::chrono_literals;

/** Longer than anything that a test waits for, however busy the machine is. */
inline constexpr std::chrono::seconds patience{30};

/** Wait, but not for ever. */
template <typename Condition> bool eventually(Condition condition)
{
    const auto end = std::chrono::steady_clock::now() + patience;
    while (std::chrono::steady_clock::now() < end) {
        if (condition())
            return true;
        std::this_thread::sleep_for(1ms);
    }
    return condition();
}

/** Let the clocks go on, where it is time itself that is looked at. */
inline void let_pass(std::chrono::nanoseconds duration)
{
    const auto end = std::chrono::steady_clock::now() + duration;
    while (std::chrono::steady_clock::now() < end)
        std::this_thread::yield();
}

/** A sender's socket, which waits for a reply. */
class client {
  public:
    explicit client(int family) : socket_(socket(family, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        const timeval longest{.tv_sec = patience.count(), .tv_usec = 0};
        EXPECT_EQ(setsockopt(number(), SOL_SOCKET, SO_RCVTIMEO, &longest, sizeof longest), 0);
        if (family == AF_INET)
            set_option(IPPROTO_IP, IP_RECVTOS, 1);
        else
            set_option(IPPROTO_IPV6, IPV6_RECVTCLASS, 1);
    }

    [[nodiscard]] int number() const { return socket_.number(); }

    void set_option(int level, int option, int value) const
    {
        EXPECT_EQ(setsockopt(number(), level, option, &value, sizeof value), 0);
    }

    [[nodiscard]] bool can_bind_to(const socket_address &address) const
    {
        return bind(number(), address.generic(), address.length) == 0;
    }
    void bind_to(const std::string &address) const
    {
        EXPECT_TRUE(can_bind_to(parse_socket_address(address))) << address;
    }

    [[nodiscard]] socket_address local_address() const { return local_address_of(number()).value(); }

    void send(const socket_address &to, const bytes &payload) const
    {
        EXPECT_EQ(sendto(number(), payload.data(), payload.size(), 0, to.generic(), to.length),
                  static_cast<ssize_t>(payload.size()));
    }

    struct reply {
        bytes payload;
        std::string from;
        int traffic_class = -1;
    };

    /** @return Whether nothing has come. */
    [[nodiscard]] bool is_empty() const
    {
        std::uint8_t byte = 0;
        return recv(number(), &byte, sizeof byte, MSG_DONTWAIT | MSG_PEEK) < 0;
    }

    /** @return An empty reply when none came. */
    [[nodiscard]] reply receive() const
    {
        // Not of the heap: sanitizers keep what was given back, until a 32-bit process has no room left.
        std::array<std::uint8_t, 65535> buffer;
        socket_address from;
        alignas(cmsghdr) std::array<std::uint8_t, 128> control{};
        iovec part{buffer.data(), buffer.size()};
        msghdr message{};
        message.msg_name = &from.address;
        message.msg_namelen = sizeof from.address;
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const ssize_t length = recvmsg(number(), &message, 0);
        if (length < 0)
            return {};
        from.length = message.msg_namelen;
        reply received{bytes(buffer.begin(), buffer.begin() + length), from.text(), -1};
        for_each_control_record(message, [&received](const control_record &record) {
            if (record.is(IPPROTO_IP, IP_TOS))
                received.traffic_class = record.value<std::uint8_t>();
            else if (record.is(IPPROTO_IPV6, IPV6_TCLASS))
                received.traffic_class = record.value<int>();
        });
        return received;
    }

  private:
    descriptor socket_;
};

/** Whether this system has addresses of IPv6. */
inline bool has_ipv6()
{
    return client{AF_INET6}.can_bind_to(parse_socket_address("[::1]:0"));
}

/** Whether the system takes a datagram apart that is sent with the length of its segments. */
inline bool sends_segments()
{
    const client probe{AF_INET};
    probe.bind_to("127.0.0.1:0");
    socket_address to = probe.local_address();
    std::array<std::uint8_t, 8> payload{};
    iovec part{.iov_base = payload.data(), .iov_len = payload.size()};
    const std::uint16_t segment = 4;
    alignas(cmsghdr) std::array<std::uint8_t, CMSG_SPACE(sizeof segment)> control{};
    msghdr message{};
    message.msg_name = &to.address;
    message.msg_namelen = to.length;
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    cmsghdr &header = *CMSG_FIRSTHDR(&message);
    header.cmsg_level = SOL_UDP;
    header.cmsg_type = UDP_SEGMENT;
    header.cmsg_len = CMSG_LEN(sizeof segment);
    std::memcpy(CMSG_DATA(&header), &segment, sizeof segment);
    return sendmsg(probe.number(), &message, 0) == 8 && probe.receive().payload.size() == segment;
}

/** Whether the system tells how many packets found no room in a socket. */
inline bool tells_drops()
{
    const client probe{AF_INET};
    std::array<std::uint32_t, SK_MEMINFO_VARS> figures{};
    socklen_t length = sizeof figures;
    return getsockopt(probe.number(), SOL_SOCKET, SO_MEMINFO, figures.data(), &length) == 0 &&
           length == sizeof figures;
}

/** Two families where the system has both. */
inline std::vector<std::string> loopback_hosts()
{
    return has_ipv6() ? std::vector<std::string>{"127.0.0.1", "[::1]"} : std::vector<std::string>{"127.0.0.1"};
}

/** Names a test by the family of its host. */
inline const auto family_of_host = [](const auto &row) {
    return std::string(row.param.starts_with('[') ? "ipv6" : "ipv4");
};

/** A fast path that a test gives options to. */
class traffic_test : public fastpath_test {
  protected:
    traffic_test() { define_usual_path({.maximum_sessions = 1000}); }

    /** Requests without the stamp of a clock are not limited. */
    void make(fast_path_options options = {})
    {
        options.unstamped_packets_per_second = 0;
        fast_path_.emplace(processor_, options);
    }

    std::size_t add(const std::string &address = "127.0.0.1:0", const packet_path &path = usual_path)
    {
        return fast_path_->add(parse_socket_address(address), path);
    }

    [[nodiscard]] socket_address at(std::size_t listener) const { return fast_path_->local_address(listener); }

    /** Make one that answers at an address. @return The address. */
    socket_address serve(const fast_path_options &options = {}, const std::string &address = "127.0.0.1:0")
    {
        make(options);
        served_ = add(address);
        fast_path_->start();
        return at(served_);
    }

    /** Why there is no listening at an address. */
    std::string message_of_add(const std::string &address)
    {
        try {
            (void)add(address);
        } catch (const std::runtime_error &error) {
            return error.what();
        }
        return "no error";
    }

    /** Send a request that is answered and take the answer, so that everything sent before is dealt with. */
    static void expect_answer(const client &sender, const socket_address &to, std::size_t length = 14)
    {
        sender.send(to, request_of(length));
        EXPECT_EQ(sender.receive().payload.size(), std::max<std::size_t>(length, 41));
    }

    /** Senders, each at a port of its own, and a request from each of them. */
    static std::deque<client> send_from(std::size_t count, const socket_address &to)
    {
        std::deque<client> senders;
        while (senders.size() < count)
            senders.emplace_back(to.family()).send(to, request_of(41));
        return senders;
    }

    [[nodiscard]] std::uint64_t received() const { return fast_path_->statistics().received_packets; }
    [[nodiscard]] std::uint64_t sent() const { return fast_path_->statistics().sent_replies; }
    [[nodiscard]] std::uint64_t dropped(drop_reason reason) const
    {
        return fast_path_->statistics().dropped_packets[reason];
    }
    /** Whether so many datagrams have been taken from the sockets, whatever became of them. */
    [[nodiscard]] bool have_taken(std::uint64_t datagrams) const
    {
        return eventually([&] {
            const listener_statistics all = fast_path_->statistics();
            return all.received_packets + all.dropped_packets.sum() -
                       all.dropped_packets[drop_reason::socket_full] ==
                   datagrams;
        });
    }

    std::optional<fast_path> fast_path_;
    std::size_t served_ = 0; ///< What serve() listens with.
};

} // namespace olv_fastpath_test

#endif
