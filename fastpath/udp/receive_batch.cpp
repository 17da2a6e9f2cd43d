#include "fastpath/udp/receive_batch.hpp"

#include <algorithm>
#include <cstring>

#include <netinet/in.h>
#include <netinet/udp.h>

#include "net/twamp_wire.hpp"
#include "net/wall_clock.hpp"

namespace olv_fastpath {

namespace {

/** Where the request was sent to, or the interface's own address, if that was a group. */
reply_source source_of(const in_pktinfo &destination)
{
    reply_source source;
    std::copy(olv_net::mapped_prefix.begin(), olv_net::mapped_prefix.end(), source.address.begin());
    std::memcpy(&source.address[olv_net::mapped_prefix.size()], &destination.ipi_spec_dst,
                sizeof destination.ipi_spec_dst);
    return source;
}

/** The same, but where that was a group the system chooses. */
std::optional<reply_source> source_of(const in6_pktinfo &destination)
{
    if (IN6_IS_ADDR_MULTICAST(&destination.ipi6_addr)) {
        return std::nullopt;
    }
    reply_source source;
    std::memcpy(source.address.data(), &destination.ipi6_addr, source.address.size());
    // Elsewhere routing may choose another interface than the request's.
    source.interface = IN6_IS_ADDR_LINKLOCAL(&destination.ipi6_addr) ? destination.ipi6_ifindex : 0;
    return source;
}

} // namespace

void received_message::take(const control_record &record)
{
    if (record.is(IPPROTO_IP, IP_TTL) || record.is(IPPROTO_IPV6, IPV6_HOPLIMIT)) {
        ttl_ = static_cast<std::uint8_t>(record.value<int>());
    } else if (record.is(IPPROTO_IP, IP_TOS)) {
        traffic_class_ = record.value<std::uint8_t>();
    } else if (record.is(IPPROTO_IPV6, IPV6_TCLASS)) {
        traffic_class_ = static_cast<std::uint8_t>(record.value<int>());
    } else if (record.is(SOL_SOCKET, SCM_TIMESTAMPNS)) {
        stamp_ = olv_net::nanoseconds_of(record.value<timespec>());
    } else if (record.is(IPPROTO_IP, IP_PKTINFO)) {
        const auto destination = record.value<in_pktinfo>();
        source_ = source_of(destination);
        // The system names its own address where routing has found the destination to be no host's alone.
        to_this_host_ = destination.ipi_addr.s_addr == destination.ipi_spec_dst.s_addr;
    } else if (record.is(IPPROTO_IPV6, IPV6_PKTINFO)) {
        const auto destination = record.value<in6_pktinfo>();
        source_ = source_of(destination);
        to_this_host_ = !IN6_IS_ADDR_MULTICAST(&destination.ipi6_addr);
    } else if (record.is(SOL_UDP, UDP_GRO)) {
        const int each = record.value<int>();
        each_ = each > 0 ? std::min(each_, static_cast<std::size_t>(each)) : each_;
    }
}

receive_batch::receive_batch(std::size_t longest)
    : longest_(std::max(longest, olv_net::stamp_length)),
      // A line in front, which a reply in place of the message begins in. One line more than needed, as
      // messages at a distance of a power of two would share few lines of the processor's caches.
      distance_((longest_ + cache_line - 1) / cache_line + 2),
      lines_(capacity * distance_)
{
    for (std::size_t index = 0; index < capacity; ++index) {
        parts_[index] = {octets_of(index), longest_};
        msghdr &message = messages_[index].msg_hdr;
        message.msg_name = &names_[index];
        message.msg_iov = &parts_[index];
        message.msg_iovlen = 1;
        message.msg_control = control_[index].bytes.data();
    }
}

std::uint8_t *receive_batch::octets_of(std::size_t index)
{
    return reinterpret_cast<std::uint8_t *>(lines_.data()) + (index * distance_ + 1) * cache_line;
}

std::size_t receive_batch::receive(int socket)
{
    for (std::size_t index = 0; index < received_; ++index) {
        msghdr &message = messages_[index].msg_hdr;
        message.msg_namelen = sizeof names_[index];
        message.msg_controllen = control_[index].bytes.size();
    }
    const int received = recvmmsg(socket, messages_.data(), capacity, MSG_DONTWAIT, nullptr);
    received_ = received < 0 ? 0 : static_cast<std::size_t>(received);
    for (std::size_t index = 0; index < received_; ++index) {
        senders_[index] = olv_net::endpoint_of(names_[index]);
    }
    return received_;
}

received_message receive_batch::message(std::size_t index)
{
    const msghdr &header = messages_[index].msg_hdr;
    received_message message;
    message.octets_ = {octets_of(index), messages_[index].msg_len};
    message.each_ = message.octets_.size();
    message.sender_ = &senders_[index];
    message.sender_name_ = {static_cast<const std::uint8_t *>(header.msg_name), header.msg_namelen};
    message.is_truncated_ = (header.msg_flags & MSG_TRUNC) != 0;
    for_each_control_record(header, [&message](const control_record &record) { message.take(record); });
    return message;
}

} // namespace olv_fastpath
