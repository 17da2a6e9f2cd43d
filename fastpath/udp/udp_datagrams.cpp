#include "fastpath/udp/udp_datagrams.hpp"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <ctime>

#include <netinet/udp.h>
#include <poll.h>

#include "fastpath/udp/socket_options.hpp"

namespace olv_fastpath {

namespace {

/** A full socket is waited for as often, and as long each time, before the rest of a batch is given up: the
 *  other sockets wait meanwhile. */
constexpr int send_waits = 2;
constexpr int send_wait_milliseconds = 1;
/** Replies that leave as one datagram: each has to fit the path, all together a datagram. */
constexpr std::uint32_t most_segments = 64;
constexpr std::size_t longest_segment = 1452; ///< Of IPv6 over Ethernet.

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

/** Go through a message's control data. */
template <typename Visitor> void for_each_control(const msghdr &message, Visitor visit)
{
    const auto *place = static_cast<const std::uint8_t *>(message.msg_control);
    std::size_t left = message.msg_controllen;
    while (left >= sizeof(cmsghdr)) {
        const auto *header = reinterpret_cast<const cmsghdr *>(place);
        if (header->cmsg_len < sizeof(cmsghdr) || header->cmsg_len > left) {
            return;
        }
        visit(header);
        const std::size_t step = std::min<std::size_t>(CMSG_ALIGN(header->cmsg_len), left);
        place += step;
        left -= step;
    }
}

constexpr std::uint64_t nanoseconds_per_second = 1000000000;

/** Writes control data, one record after the other. */
class control_writer {
  public:
    explicit control_writer(std::span<std::uint8_t> buffer, std::size_t length = 0)
        : buffer_(buffer), length_(length)
    {}

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
    std::size_t length_;
};

/** Whether an attempt to send segments tells that no other will succeed. */
bool refuses_segments(int error)
{
    return error == EIO || error == EINVAL || error == EOPNOTSUPP || error == ENOPROTOOPT;
}

bool is_passing(int error)
{
    return error == EAGAIN || error == EWOULDBLOCK || error == ENOBUFS || error == EINTR;
}

} // namespace

datagram_batch::datagram_batch(std::size_t longest)
    : buffer_length_(std::max(longest, olv_net::stamp_length)),
      // A line in front, which a reply in place begins in. One line more than needed, as buffers at a distance
      // of a power of two would share few lines of the processor's caches.
      buffer_distance_((buffer_length_ + cache_line - 1) / cache_line + 2),
      request_bytes_(capacity * buffer_distance_)
{
    for (std::size_t index = 0; index < capacity; ++index) {
        request_parts_[index] = {request(index), buffer_length_};
        msghdr &message = requests_[index].msg_hdr;
        message.msg_name = &sender_names_[index];
        message.msg_iov = &request_parts_[index];
        message.msg_iovlen = 1;
        message.msg_control = request_control_[index].bytes.data();
    }
}

/** Where the request was sent to, or the interface's own address, if that was a group. */
datagram_batch::reply_source datagram_batch::reply_source_of(const in_pktinfo &destination)
{
    reply_source source;
    std::memcpy(source.address.data(), &destination.ipi_spec_dst, sizeof destination.ipi_spec_dst);
    return source;
}

/** The same, but where that was a group the system chooses. */
std::optional<datagram_batch::reply_source> datagram_batch::reply_source_of(const in6_pktinfo &destination)
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

std::uint8_t *datagram_batch::request(std::size_t index)
{
    return reinterpret_cast<std::uint8_t *>(request_bytes_.data()) +
           (index * buffer_distance_ + 1) * cache_line;
}

std::size_t datagram_batch::receive(int socket)
{
    for (std::size_t index = 0; index < used_requests_; ++index) {
        msghdr &message = requests_[index].msg_hdr;
        message.msg_namelen = sizeof sender_names_[index];
        message.msg_controllen = request_control_[index].bytes.size();
    }
    departure_count_ = 0;
    part_count_ = 0;
    reply_end_ = 0;
    const int received = recvmmsg(socket, requests_.data(), capacity, MSG_DONTWAIT, nullptr);
    used_requests_ = received < 0 ? 0 : static_cast<std::size_t>(received);
    for (std::size_t index = 0; index < used_requests_; ++index) {
        senders_[index] = olv_net::endpoint_of(sender_names_[index]);
    }
    return used_requests_;
}

bool datagram_batch::is_truncated(std::size_t index) const
{
    return (requests_[index].msg_hdr.msg_flags & MSG_TRUNC) != 0;
}

std::size_t datagram_batch::open(std::size_t index)
{
    const std::size_t length = requests_[index].msg_len;
    message_.index = index;
    message_.datagram_length = length;
    message_.ttl = 0;
    message_.traffic_class = 0;
    message_.stamp.reset();
    message_.source.reset();
    read_control();
    const std::size_t each = message_.datagram_length;
    return each == length ? 1 : (length + each - 1) / each;
}

void datagram_batch::read_control()
{
    for_each_control(requests_[message_.index].msg_hdr, [this](const cmsghdr *header) {
        if (is(header, IPPROTO_IP, IP_TTL) || is(header, IPPROTO_IPV6, IPV6_HOPLIMIT)) {
            message_.ttl = static_cast<std::uint8_t>(value_of<int>(header));
        } else if (is(header, IPPROTO_IP, IP_TOS)) {
            message_.traffic_class = value_of<std::uint8_t>(header);
        } else if (is(header, IPPROTO_IPV6, IPV6_TCLASS)) {
            message_.traffic_class = static_cast<std::uint8_t>(value_of<int>(header));
        } else if (is(header, SOL_SOCKET, SCM_TIMESTAMPNS)) {
            const auto time = value_of<std::timespec>(header);
            message_.stamp = static_cast<std::uint64_t>(time.tv_sec) * nanoseconds_per_second +
                             static_cast<std::uint64_t>(time.tv_nsec);
        } else if (is(header, IPPROTO_IP, IP_PKTINFO)) {
            message_.source = reply_source_of(value_of<in_pktinfo>(header));
        } else if (is(header, IPPROTO_IPV6, IPV6_PKTINFO)) {
            message_.source = reply_source_of(value_of<in6_pktinfo>(header));
        } else if (is(header, SOL_UDP, UDP_GRO)) {
            const int each = value_of<int>(header);
            if (each > 0) {
                message_.datagram_length = std::min(message_.datagram_length, static_cast<std::size_t>(each));
            }
        }
    });
}

std::span<std::uint8_t> datagram_batch::datagram(std::size_t number)
{
    const std::size_t begin = number * message_.datagram_length;
    const std::size_t length = requests_[message_.index].msg_len - begin;
    return {request(message_.index) + begin, std::min(length, message_.datagram_length)};
}

received_packet datagram_batch::packet(std::size_t datagram_number)
{
    const olv_net::ip_endpoint &sender = senders_[message_.index];
    received_packet packet;
    packet.payload = datagram(datagram_number);
    packet.ttl = message_.ttl;
    packet.traffic_class = message_.traffic_class;
    packet.sender_address = sender.address;
    packet.sender_port = sender.port;
    return packet;
}

bool datagram_batch::is_full() const
{
    return part_count_ == capacity || reply_end_ + longest_copied > reply_bytes_.size();
}

/** Short replies that are longer than their requests would cover those behind them. */
bool datagram_batch::is_copied(std::size_t length) const
{
    const bool alone = requests_[message_.index].msg_len == message_.datagram_length;
    return length < olv_net::reflector_packet::header_length || (alone && length <= longest_copied);
}

std::span<std::uint8_t> datagram_batch::reply_buffer(std::size_t datagram_number)
{
    const std::span<std::uint8_t> request = datagram(datagram_number);
    if (is_copied(request.size())) {
        return std::span{reply_bytes_}.subspan(reply_end_, longest_copied);
    }
    return {request.data() - olv_net::padding_cut, request.size()};
}

void datagram_batch::add_reply(std::size_t datagram_number, const verdict &made, bool may_segment)
{
    const std::span<std::uint8_t> reply = reply_buffer(datagram_number).first(made.reply_length);
    departure *last = departure_count_ == 0 ? nullptr : &departures_[departure_count_ - 1];
    if (may_segment && last != nullptr && may_join(*last, made)) {
        join(*last, reply);
    } else {
        begin_departure(made, reply);
    }
    reply_end_ += is_copied(datagram(datagram_number).size()) ? made.reply_length : 0;
}

bool datagram_batch::may_join(const departure &last, const verdict &made) const
{
    const msghdr &request = requests_[message_.index].msg_hdr;
    const msghdr &first = requests_[last.sender].msg_hdr;
    // A shorter one ends the segments.
    return last.last_length == last.length && made.reply_length <= last.length &&
           last.length <= longest_segment && last.replies < most_segments &&
           last.length * (last.replies + 1) <= olv_net::maximum_payload_ipv4 &&
           made.traffic_class == last.traffic_class &&
           (last.sender == message_.index ||
            (senders_[last.sender] == senders_[message_.index] && request.msg_namelen == first.msg_namelen &&
             std::memcmp(request.msg_name, first.msg_name, request.msg_namelen) == 0 &&
             message_.source == last.source));
}

void datagram_batch::join(departure &last, std::span<std::uint8_t> reply)
{
    const std::size_t place = departure_count_ - 1;
    msghdr &message = replies_[place].msg_hdr;
    if (last.replies == 1) {
        control_writer writer{reply_control_[place].bytes, last.plain_control};
        writer.add(SOL_UDP, UDP_SEGMENT, static_cast<std::uint16_t>(last.length));
        message.msg_control = reply_control_[place].bytes.data();
        message.msg_controllen = writer.length();
    }
    ++last.replies;
    last.last_length = reply.size();
    iovec &part = reply_parts_[part_count_ - 1];
    if (static_cast<std::uint8_t *>(part.iov_base) + part.iov_len == reply.data()) {
        part.iov_len += reply.size();
    } else {
        reply_parts_[part_count_++] = {reply.data(), reply.size()};
        ++message.msg_iovlen;
    }
}

/** Most replies need no control data at all, which the system takes in faster. */
std::size_t datagram_batch::write_control(int family, std::uint8_t traffic_class,
                                          std::span<std::uint8_t> buffer) const
{
    control_writer writer{buffer};
    if (const std::optional<reply_source> &from = message_.source) {
        if (family == AF_INET6) {
            in6_pktinfo source{};
            std::memcpy(&source.ipi6_addr, from->address.data(), sizeof source.ipi6_addr);
            source.ipi6_ifindex = from->interface;
            writer.add(IPPROTO_IPV6, IPV6_PKTINFO, source);
        } else {
            in_pktinfo source{};
            std::memcpy(&source.ipi_spec_dst, from->address.data(), sizeof source.ipi_spec_dst);
            writer.add(IPPROTO_IP, IP_PKTINFO, source);
        }
    }
    if (traffic_class != 0) { // as the socket has it otherwise
        if (family == AF_INET6) {
            writer.add(IPPROTO_IPV6, IPV6_TCLASS, int{traffic_class});
        } else {
            writer.add(IPPROTO_IP, IP_TOS, traffic_class);
        }
    }
    return writer.length();
}

void datagram_batch::begin_departure(const verdict &made, std::span<std::uint8_t> reply)
{
    const std::size_t index = message_.index;
    const std::size_t place = departure_count_++;
    const msghdr &request = requests_[index].msg_hdr;
    const std::size_t control =
        write_control(sender_names_[index].ss_family, made.traffic_class, reply_control_[place].bytes);
    departures_[place] = {.sender = index,
                          .first_part = part_count_,
                          .replies = 1,
                          .length = reply.size(),
                          .last_length = reply.size(),
                          .plain_control = control,
                          .traffic_class = made.traffic_class,
                          .source = message_.source};
    reply_parts_[part_count_] = {reply.data(), reply.size()};
    msghdr &message = replies_[place].msg_hdr;
    message = {};
    message.msg_name = &sender_names_[index];
    message.msg_namelen = request.msg_namelen;
    message.msg_iov = &reply_parts_[part_count_++];
    message.msg_iovlen = 1;
    message.msg_control = control == 0 ? nullptr : reply_control_[place].bytes.data();
    message.msg_controllen = control;
}

send_result datagram_batch::send(int socket)
{
    send_result result;
    std::size_t done = 0;
    int waits = 0;
    while (done < departure_count_) {
        const int taken = sendmmsg(socket, &replies_[done], static_cast<unsigned>(departure_count_ - done),
                                   MSG_DONTWAIT | MSG_NOSIGNAL);
        if (taken > 0) {
            for (int number = 0; number < taken; ++number) {
                result.sent += departures_[done++].replies;
            }
        } else if (is_passing(errno)) {
            if (++waits > send_waits) {
                break;
            }
            pollfd writable{.fd = socket, .events = POLLOUT, .revents = 0};
            (void)poll(&writable, 1, send_wait_milliseconds); // the next attempt finds out
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
    departure_count_ = 0;
    part_count_ = 0;
    reply_end_ = 0;
    return result;
}

void datagram_batch::send_in_fragments(int socket, std::size_t which, send_result &result)
{
    const bool ipv4 = sender_names_[departures_[which].sender].ss_family == AF_INET;
    // Both options are the system's since long; where they fail, so does sending.
    (void)(ipv4 && set_option(socket, IPPROTO_IP, IP_MTU_DISCOVER, IP_PMTUDISC_WANT));
    send_singly(socket, which, result);
    (void)(ipv4 && set_option(socket, IPPROTO_IP, IP_MTU_DISCOVER, IP_PMTUDISC_DO));
}

void datagram_batch::send_singly(int socket, std::size_t which, send_result &result)
{
    const departure &together = departures_[which];
    msghdr message = replies_[which].msg_hdr;
    message.msg_control = together.plain_control == 0 ? nullptr : message.msg_control;
    message.msg_controllen = together.plain_control;
    std::size_t place = together.first_part;
    std::size_t before = 0; // octets of this piece of memory that were sent
    for (std::uint32_t number = 0; number < together.replies; ++number) {
        const bool is_last = number + 1 == together.replies;
        const std::size_t length = is_last ? together.last_length : together.length;
        iovec part{static_cast<std::uint8_t *>(reply_parts_[place].iov_base) + before, length};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        const bool sent = sendmsg(socket, &message, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0;
        ++(sent ? result.sent : result.failed);
        before += length;
        if (before == reply_parts_[place].iov_len) {
            ++place;
            before = 0;
        }
    }
}

} // namespace olv_fastpath
