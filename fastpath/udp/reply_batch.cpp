#include "fastpath/udp/reply_batch.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <netinet/in.h>
#include <netinet/udp.h>
#include <poll.h>

#include "fastpath/udp/socket_options.hpp"
#include "net/twamp_wire.hpp"

namespace olv_fastpath {

namespace {

/** A full socket is waited for as often, and as long each time, before the rest of a batch is given up: the
 *  other sockets wait meanwhile. */
constexpr int send_waits = 2;
constexpr int send_wait_milliseconds = 1;
/** Replies that leave as one datagram: each has to fit the path, all together a datagram. */
constexpr std::uint32_t most_segments = 64;
constexpr std::size_t longest_segment = 1452; ///< Of IPv6 over Ethernet.

/** Whether an attempt to send segments tells that no other will succeed. */
bool refuses_segments(int error)
{
    return error == EIO || error == EINVAL || error == EOPNOTSUPP || error == ENOPROTOOPT;
}

bool is_passing(int error)
{
    return error == EAGAIN || error == EWOULDBLOCK || error == ENOBUFS || error == EINTR;
}

void wait_for_room(int socket)
{
    pollfd writable{.fd = socket, .events = POLLOUT, .revents = 0};
    (void)poll(&writable, 1, send_wait_milliseconds); // the next attempt finds out
}

void add_source(control_writer &writer, int family, const reply_source &source)
{
    if (family == AF_INET6) {
        in6_pktinfo from{};
        std::memcpy(&from.ipi6_addr, source.address.data(), sizeof from.ipi6_addr);
        from.ipi6_ifindex = source.interface;
        writer.add(IPPROTO_IPV6, IPV6_PKTINFO, from);
    } else {
        in_pktinfo from{};
        std::memcpy(&from.ipi_spec_dst, &source.address[olv_net::mapped_prefix.size()],
                    sizeof from.ipi_spec_dst);
        writer.add(IPPROTO_IP, IP_PKTINFO, from);
    }
}

void add_traffic_class(control_writer &writer, int family, std::uint8_t traffic_class)
{
    if (family == AF_INET6) {
        writer.add(IPPROTO_IPV6, IPV6_TCLASS, int{traffic_class});
    } else {
        writer.add(IPPROTO_IP, IP_TOS, traffic_class);
    }
}

} // namespace

std::span<std::uint8_t> reply_batch::room_for(const received_message &to, std::size_t datagram)
{
    const std::span<std::uint8_t> request = to.datagram(datagram);
    // In place, a reply that is longer than its request would cover the datagrams behind it.
    const bool is_copied = request.size() < olv_net::reflector_packet::header_length ||
                           (to.datagrams() == 1 && request.size() <= longest_copied);
    if (is_copied) {
        return std::span{memory_}.subspan(written_, longest_copied);
    }
    return {request.data() - olv_net::padding_cut, request.size()};
}

void reply_batch::add(const received_message &to, const unstamped_reply &reply, bool may_segment)
{
    departing_.add(reply);
    departure *last = departure_count_ == 0 ? nullptr : &departures_[departure_count_ - 1];
    if (may_segment && last != nullptr && may_join(*last, to, reply)) {
        join(*last, reply.bytes);
    } else {
        begin_departure(to, reply);
    }
    if (reply.bytes.data() == &memory_[written_]) {
        written_ += reply.bytes.size();
    }
}

bool reply_batch::may_join(const departure &last, const received_message &to,
                           const unstamped_reply &reply) const
{
    const std::span<const std::uint8_t> name = to.sender_name();
    // A shorter one ends the segments.
    return last.last_length == last.length && reply.bytes.size() <= last.length &&
           last.length <= longest_segment && last.replies < most_segments &&
           last.length * (last.replies + 1) <= olv_net::maximum_payload_ipv4 &&
           reply.traffic_class == last.traffic_class && name.size() == last.name_length &&
           std::memcmp(name.data(), &last.name, name.size()) == 0 && to.source() == last.source;
}

void reply_batch::join(departure &last, std::span<std::uint8_t> reply)
{
    const std::size_t place = departure_count_ - 1;
    msghdr &message = messages_[place].msg_hdr;
    if (last.replies == 1) {
        control_writer writer{control_[place], last.plain_control};
        writer.add(SOL_UDP, UDP_SEGMENT, static_cast<std::uint16_t>(last.length));
        message.msg_control = control_[place].bytes.data();
        message.msg_controllen = writer.length();
    }
    ++last.replies;
    last.last_length = reply.size();
    iovec &part = parts_[part_count_ - 1];
    if (static_cast<std::uint8_t *>(part.iov_base) + part.iov_len == reply.data()) {
        part.iov_len += reply.size();
    } else {
        parts_[part_count_++] = {reply.data(), reply.size()};
        ++message.msg_iovlen;
    }
}

void reply_batch::begin_departure(const received_message &to, const unstamped_reply &reply)
{
    const std::size_t place = departure_count_++;
    departure &begun = departures_[place];
    const std::span<const std::uint8_t> name = to.sender_name();
    std::memcpy(&begun.name, name.data(), name.size());
    begun.name_length = static_cast<socklen_t>(name.size());
    begun.source = to.source();
    begun.traffic_class = reply.traffic_class;
    begun.first_part = part_count_;
    begun.replies = 1;
    begun.length = begun.last_length = reply.bytes.size();
    // Most replies need no control data at all, which the system takes in faster.
    control_writer writer{control_[place]};
    if (begun.source) {
        add_source(writer, begun.name.ss_family, *begun.source);
    }
    if (begun.traffic_class != 0) { // as the socket has it otherwise
        add_traffic_class(writer, begun.name.ss_family, begun.traffic_class);
    }
    begun.plain_control = writer.length();
    parts_[part_count_] = {reply.bytes.data(), reply.bytes.size()};
    msghdr &message = messages_[place].msg_hdr;
    message = {};
    message.msg_name = &begun.name;
    message.msg_namelen = begun.name_length;
    message.msg_iov = &parts_[part_count_++];
    message.msg_iovlen = 1;
    message.msg_control = begun.plain_control == 0 ? nullptr : control_[place].bytes.data();
    message.msg_controllen = begun.plain_control;
}

send_result reply_batch::send(int socket, const processor_clock &clock, std::int32_t tai_ahead,
                              sent_stamps *sent)
{
    departing_.stamp(clock, tai_ahead, sent);
    send_result result;
    std::size_t done = 0;
    int waits = 0;
    while (done < departure_count_) {
        const int taken = sendmmsg(socket, &messages_[done], static_cast<unsigned>(departure_count_ - done),
                                   MSG_DONTWAIT | MSG_NOSIGNAL);
        if (taken > 0) {
            for (int number = 0; number < taken; ++number) {
                result.sent += departures_[done++].replies;
            }
        } else if (is_passing(errno)) {
            if (++waits > send_waits) {
                break;
            }
            wait_for_room(socket);
        } else if (errno == EMSGSIZE) {
            send_in_fragments(socket, done++, result);
        } else if (departures_[done].replies > 1) {
            result.segments_refused = result.segments_refused || refuses_segments(errno);
            send_in_fragments(socket, done++, result); // where it has to be
        } else {
            ++done; // only this one cannot be sent
            ++result.failed;
        }
    }
    for (; done < departure_count_; ++done) {
        result.failed += departures_[done].replies;
    }
    clear();
    return result;
}

void reply_batch::clear()
{
    departure_count_ = 0;
    part_count_ = 0;
    written_ = 0;
}

void reply_batch::send_in_fragments(int socket, std::size_t which, send_result &result)
{
    const bool ipv4 = departures_[which].name.ss_family == AF_INET;
    // Both options are the system's since long; where they fail, so does sending.
    (void)(ipv4 && set_option(socket, IPPROTO_IP, IP_MTU_DISCOVER, IP_PMTUDISC_WANT));
    send_singly(socket, which, result);
    (void)(ipv4 && set_option(socket, IPPROTO_IP, IP_MTU_DISCOVER, IP_PMTUDISC_DO));
}

void reply_batch::send_singly(int socket, std::size_t which, send_result &result)
{
    const departure &together = departures_[which];
    msghdr message = messages_[which].msg_hdr;
    message.msg_control = together.plain_control == 0 ? nullptr : message.msg_control;
    message.msg_controllen = together.plain_control;
    std::size_t place = together.first_part;
    std::size_t before = 0; // octets of this piece of memory that were sent
    for (std::uint32_t number = 0; number < together.replies; ++number) {
        const bool is_last = number + 1 == together.replies;
        const std::size_t length = is_last ? together.last_length : together.length;
        iovec part{static_cast<std::uint8_t *>(parts_[place].iov_base) + before, length};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        const bool sent = sendmsg(socket, &message, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0;
        ++(sent ? result.sent : result.failed);
        before += length;
        if (before == parts_[place].iov_len) {
            ++place;
            before = 0;
        }
    }
}

} // namespace olv_fastpath
