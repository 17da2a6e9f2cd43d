#include "fastpath/udp_datagrams.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <poll.h>

namespace olv_fastpath {

namespace {

constexpr int hop_limit = 255; ///< What receivers of replies count the hops from.
constexpr int receive_buffer_bytes = 8 << 20;
/** A full socket is waited for as often, and as long each time, before the rest of a batch is given up: the
 *  other sockets wait meanwhile. */
constexpr int send_waits = 2;
constexpr int send_wait_milliseconds = 1;

template <typename Value> Value value_of(const cmsghdr *header)
{
    Value value{};
    std::memcpy(&value, CMSG_DATA(header), sizeof value);
    return value;
}

bool is(const cmsghdr *header, int level, int type)
{
    return header->cmsg_level == level && header->cmsg_type == type;
}

/** Go through a message's control data; the C library's macro takes no constant message. */
template <typename Visitor> void for_each_control(const msghdr &message, Visitor visit)
{
    msghdr copy = message;
    for (cmsghdr *header = CMSG_FIRSTHDR(&copy); header != nullptr; header = CMSG_NXTHDR(&copy, header)) {
        visit(header);
    }
}

void read_control(const msghdr &message, received_packet &packet)
{
    for_each_control(message, [&packet](const cmsghdr *header) {
        if (is(header, IPPROTO_IP, IP_TTL) || is(header, IPPROTO_IPV6, IPV6_HOPLIMIT)) {
            packet.ttl = static_cast<std::uint8_t>(value_of<int>(header));
        } else if (is(header, IPPROTO_IP, IP_TOS)) {
            packet.traffic_class = value_of<std::uint8_t>(header);
        } else if (is(header, IPPROTO_IPV6, IPV6_TCLASS)) {
            packet.traffic_class = static_cast<std::uint8_t>(value_of<int>(header));
        }
    });
}

/** Writes control data, one record after the other, into a zeroed buffer. */
class control_writer {
  public:
    explicit control_writer(std::span<std::uint8_t> buffer) : buffer_(buffer) {}

    template <typename Value> void add(int level, int type, const Value &value)
    {
        cmsghdr header{};
        header.cmsg_level = level;
        header.cmsg_type = type;
        header.cmsg_len = CMSG_LEN(sizeof value);
        std::memcpy(&buffer_[length_], &header, sizeof header);
        std::memcpy(&buffer_[length_ + CMSG_LEN(0)], &value, sizeof value);
        length_ += CMSG_SPACE(sizeof value);
    }

    [[nodiscard]] std::size_t length() const { return length_; }

  private:
    std::span<std::uint8_t> buffer_;
    std::size_t length_ = 0;
};

/** The request's destination becomes the reply's source, unless it is a group's. */
std::size_t write_control(const msghdr &request, int family, std::uint8_t traffic_class,
                          std::span<std::uint8_t> buffer)
{
    control_writer writer{buffer};
    for_each_control(request, [&writer](const cmsghdr *header) {
        if (is(header, IPPROTO_IP, IP_PKTINFO)) {
            in_pktinfo source{};
            source.ipi_spec_dst = value_of<in_pktinfo>(header).ipi_spec_dst;
            writer.add(IPPROTO_IP, IP_PKTINFO, source);
        } else if (is(header, IPPROTO_IPV6, IPV6_PKTINFO)) {
            in6_pktinfo source = value_of<in6_pktinfo>(header);
            if (IN6_IS_ADDR_MULTICAST(&source.ipi6_addr)) {
                return;
            }
            if (!IN6_IS_ADDR_LINKLOCAL(&source.ipi6_addr)) {
                source.ipi6_ifindex = 0; // routing may choose another interface than the request's
            }
            writer.add(IPPROTO_IPV6, IPV6_PKTINFO, source);
        }
    });
    if (family == AF_INET6) {
        writer.add(IPPROTO_IPV6, IPV6_TCLASS, int{traffic_class});
    } else {
        writer.add(IPPROTO_IP, IP_TOS, traffic_class);
    }
    return writer.length();
}

bool set_option(int socket, int level, int option, int value)
{
    return setsockopt(socket, level, option, &value, sizeof value) == 0;
}

} // namespace

bool prepare_socket(int socket, int family)
{
    // Beyond the system's limit where the process may, up to it otherwise. Smaller is no error.
    if (!set_option(socket, SOL_SOCKET, SO_RCVBUFFORCE, receive_buffer_bytes)) {
        (void)set_option(socket, SOL_SOCKET, SO_RCVBUF, receive_buffer_bytes);
    }
    if (family == AF_INET6) {
        return set_option(socket, IPPROTO_IPV6, IPV6_V6ONLY, 1) &&
               set_option(socket, IPPROTO_IPV6, IPV6_RECVPKTINFO, 1) &&
               set_option(socket, IPPROTO_IPV6, IPV6_RECVHOPLIMIT, 1) &&
               set_option(socket, IPPROTO_IPV6, IPV6_RECVTCLASS, 1) &&
               set_option(socket, IPPROTO_IPV6, IPV6_UNICAST_HOPS, hop_limit);
    }
    return set_option(socket, IPPROTO_IP, IP_PKTINFO, 1) && set_option(socket, IPPROTO_IP, IP_RECVTTL, 1) &&
           set_option(socket, IPPROTO_IP, IP_RECVTOS, 1) && set_option(socket, IPPROTO_IP, IP_TTL, hop_limit);
}

datagram_batch::datagram_batch(std::size_t longest)
    : buffer_length_(std::max(longest, stamp_length)),
      request_bytes_(capacity * buffer_length_),
      reply_bytes_(capacity * buffer_length_)
{
    for (std::size_t index = 0; index < capacity; ++index) {
        request_parts_[index] = {&request_bytes_[index * buffer_length_], buffer_length_};
        reply_parts_[index] = {&reply_bytes_[index * buffer_length_], 0};
    }
}

std::size_t datagram_batch::receive(int socket)
{
    for (std::size_t index = 0; index < capacity; ++index) {
        msghdr &message = requests_[index].msg_hdr;
        message = {};
        message.msg_name = &senders_[index];
        message.msg_namelen = sizeof senders_[index];
        message.msg_iov = &request_parts_[index];
        message.msg_iovlen = 1;
        message.msg_control = request_control_[index].bytes.data();
        message.msg_controllen = request_control_[index].bytes.size();
    }
    reply_count_ = 0;
    const int received = recvmmsg(socket, requests_.data(), capacity, MSG_DONTWAIT, nullptr);
    return received < 0 ? 0 : static_cast<std::size_t>(received);
}

received_packet datagram_batch::packet(std::size_t index, const ip_endpoint &sender) const
{
    received_packet packet;
    packet.sender_address = sender.address;
    packet.sender_port = sender.port;
    packet.payload = {&request_bytes_[index * buffer_length_], requests_[index].msg_len};
    read_control(requests_[index].msg_hdr, packet);
    return packet;
}

bool datagram_batch::is_truncated(std::size_t index) const
{
    return (requests_[index].msg_hdr.msg_flags & MSG_TRUNC) != 0;
}

std::span<std::uint8_t> datagram_batch::reply_buffer()
{
    return {&reply_bytes_[reply_count_ * buffer_length_], buffer_length_};
}

void datagram_batch::add_reply(std::size_t index, const verdict &made)
{
    std::span<std::uint8_t> control = reply_control_[reply_count_].bytes;
    std::fill(control.begin(), control.end(), std::uint8_t{0});
    reply_parts_[reply_count_].iov_len = made.reply_length;
    const msghdr &request = requests_[index].msg_hdr;
    msghdr &message = replies_[reply_count_].msg_hdr;
    message = {};
    message.msg_name = &senders_[index];
    message.msg_namelen = request.msg_namelen;
    message.msg_iov = &reply_parts_[reply_count_];
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = write_control(request, senders_[index].ss_family, made.traffic_class, control);
    ++reply_count_;
}

send_result datagram_batch::send(int socket)
{
    send_result result;
    std::size_t done = 0;
    int waits = 0;
    while (done < reply_count_) {
        const int taken = sendmmsg(socket, &replies_[done], static_cast<unsigned>(reply_count_ - done),
                                   MSG_DONTWAIT | MSG_NOSIGNAL);
        if (taken > 0) {
            done += static_cast<std::size_t>(taken);
            result.sent += static_cast<std::uint32_t>(taken);
        } else if (errno == EAGAIN || errno == EWOULDBLOCK || errno == ENOBUFS || errno == EINTR) {
            if (++waits > send_waits) {
                break;
            }
            pollfd writable{.fd = socket, .events = POLLOUT, .revents = 0};
            (void)poll(&writable, 1, send_wait_milliseconds); // the next attempt finds out
        } else {
            ++done; // only this one cannot be sent
            ++result.failed;
        }
    }
    result.failed += static_cast<std::uint32_t>(reply_count_ - done);
    reply_count_ = 0;
    return result;
}

} // namespace olv_fastpath
