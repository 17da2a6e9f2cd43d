/**
 * @file udp_fixture.hpp
 * Senders for a server, and patience.
 */
#ifndef OLV_FASTPATH_TEST_UDP_FIXTURE_HPP
#define OLV_FASTPATH_TEST_UDP_FIXTURE_HPP

#include <array>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>

#include <netinet/in.h>
#include <sys/time.h>
#include <unistd.h>

#include "fastpath/udp/udp_server.hpp"
#include "fixture.hpp"

namespace olv_fastpath_test {

using namespace std::chrono_literals;

/** Longer than anything that a test waits for, however busy the machine is. */
inline constexpr std::chrono::seconds patience{30};

/** A sender's socket, which waits for a reply. */
class client {
  public:
    explicit client(int family) : socket_(socket(family, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        const timeval longest{.tv_sec = patience.count(), .tv_usec = 0};
        EXPECT_EQ(setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &longest, sizeof longest), 0);
        const int on = 1;
        if (family == AF_INET) {
            EXPECT_EQ(setsockopt(socket_, IPPROTO_IP, IP_RECVTOS, &on, sizeof on), 0);
        } else {
            EXPECT_EQ(setsockopt(socket_, IPPROTO_IPV6, IPV6_RECVTCLASS, &on, sizeof on), 0);
        }
    }
    ~client() { close(socket_); }
    client(const client &) = delete;
    client &operator=(const client &) = delete;

    void set_option(int level, int option, int value) const
    {
        EXPECT_EQ(setsockopt(socket_, level, option, &value, sizeof value), 0);
    }

    [[nodiscard]] int number() const { return socket_; }

    /** Join a group at an interface, and send to it from there. @return Whether there is one. */
    [[nodiscard]] bool join(const ip_mreqn &group) const
    {
        return setsockopt(socket_, IPPROTO_IP, IP_ADD_MEMBERSHIP, &group, sizeof group) == 0 &&
               setsockopt(socket_, IPPROTO_IP, IP_MULTICAST_IF, &group, sizeof group) == 0;
    }

    /** @throw std::runtime_error  It cannot. */
    void bind_to(const socket_address &address) const
    {
        if (bind(socket_, reinterpret_cast<const sockaddr *>(&address.address), address.length) != 0) {
            throw std::runtime_error("cannot bind to " + address.text());
        }
    }

    [[nodiscard]] socket_address local_address() const
    {
        socket_address address;
        address.length = sizeof address.address;
        EXPECT_EQ(getsockname(socket_, reinterpret_cast<sockaddr *>(&address.address), &address.length), 0);
        return address;
    }

    void send(const socket_address &to, const bytes &payload) const
    {
        EXPECT_EQ(sendto(socket_, payload.data(), payload.size(), 0,
                         reinterpret_cast<const sockaddr *>(&to.address), to.length),
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
        return recv(socket_, &byte, sizeof byte, MSG_DONTWAIT | MSG_PEEK) < 0;
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
        const ssize_t length = recvmsg(socket_, &message, 0);
        if (length < 0)
            return {};
        from.length = message.msg_namelen;
        const cmsghdr *header = CMSG_FIRSTHDR(&message);
        return {bytes(buffer.begin(), buffer.begin() + length), from.text(),
                header == nullptr ? -1 : traffic_class_of(*header)};
    }

  private:
    /** A byte from IPv4, an int from IPv6. */
    static int traffic_class_of(const cmsghdr &header)
    {
        if (header.cmsg_level == IPPROTO_IP)
            return *CMSG_DATA(&header);
        int value = 0;
        std::memcpy(&value, CMSG_DATA(&header), sizeof value);
        return value;
    }

    int socket_;
};

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

} // namespace olv_fastpath_test

#endif
