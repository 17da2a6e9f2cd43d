#include "probe/test_session.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <random>
#include <stdexcept>

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/timex.h>

#include "net/wall_clock.hpp"

namespace olv_probe {
namespace {

constexpr int dscp_shift = 2; ///< Above the two ECN bits.
constexpr int wanted_receive_buffer = 4 << 20;
/** Room for whatever comes, so that a reply that is too long shows. */
constexpr std::size_t reply_room = 65536;
/** Replies taken between two looks at the clock. */
constexpr int replies_at_once = 64;
/** Packets of a flood sent between two looks for replies. */
constexpr int packets_at_once = 16;
/** Between two attempts to send, while the system refuses and poll() does not say when it will not. */
constexpr std::chrono::milliseconds stall_pause{1};

std::runtime_error system_error(const std::string &what)
{
    return std::runtime_error(what + ": " + std::strerror(errno));
}

void set_option(int socket, int level, int option, int value, const char *name)
{
    if (setsockopt(socket, level, option, &value, sizeof value) != 0) {
        throw system_error(std::string("cannot set ") + name);
    }
}

std::uint64_t random_seed()
{
    std::random_device device;
    return std::uint64_t{device()} << 32 | device();
}

/** As far as the system was told; otherwise 0. */
std::int32_t seconds_of_tai_ahead()
{
    timex clock{};
    return adjtimex(&clock) < 0 ? 0 : clock.tai;
}

/** Hosts on the way report these about packets sent before; the network may recover. */
bool is_report_of_the_network(int error)
{
    static constexpr std::array reports{ECONNREFUSED, EHOSTUNREACH, ENETUNREACH, EHOSTDOWN,
                                        ENETDOWN,     EACCES,       EPROTO,      ENOPROTOOPT};
    return std::find(reports.begin(), reports.end(), error) != reports.end();
}

/** @return 0 when the system does not say. */
std::uint8_t ttl_of(msghdr &message)
{
    for (cmsghdr *part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
        const bool ipv4 = part->cmsg_level == IPPROTO_IP && part->cmsg_type == IP_TTL;
        const bool ipv6 = part->cmsg_level == IPPROTO_IPV6 && part->cmsg_type == IPV6_HOPLIMIT;
        if (ipv4 || ipv6) {
            int ttl = 0;
            std::memcpy(&ttl, CMSG_DATA(part), sizeof ttl);
            return static_cast<std::uint8_t>(ttl);
        }
    }
    return 0;
}

} // namespace

test_session::test_session(const session_options &options)
    : options_(options),
      format_(options.size, options.stamp || options.zero_padding, random_seed(),
              options.ptp ? stamp_format::ptp : stamp_format::ntp, seconds_of_tai_ahead()),
      measurement_(format_, options.ttl, options.strict ? judging::strict : judging::lenient),
      request_(options.size),
      reply_(reply_room),
      socket_(socket(options.reflector.family(), SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0))
{
    if (!socket_.is_open()) {
        throw system_error("cannot open a socket");
    }
    configure_socket();
    connect_socket();
}

void test_session::configure_socket() const
{
    const int traffic_class = options_.dscp << dscp_shift;
    if (options_.reflector.family() == AF_INET6) {
        set_option(descriptor(), IPPROTO_IPV6, IPV6_UNICAST_HOPS, options_.ttl, "the hop limit");
        set_option(descriptor(), IPPROTO_IPV6, IPV6_TCLASS, traffic_class, "the DSCP");
        set_option(descriptor(), IPPROTO_IPV6, IPV6_RECVHOPLIMIT, 1, "the reading of hop limits");
    } else {
        set_option(descriptor(), IPPROTO_IP, IP_TTL, options_.ttl, "the TTL");
        set_option(descriptor(), IPPROTO_IP, IP_TOS, traffic_class, "the DSCP");
        set_option(descriptor(), IPPROTO_IP, IP_RECVTTL, 1, "the reading of TTLs");
    }
    set_option(descriptor(), SOL_SOCKET, SO_RCVBUF, wanted_receive_buffer, "the receive buffer");
}

void test_session::connect_socket()
{
    if (connect(descriptor(), options_.reflector.generic(), options_.reflector.length) != 0) {
        throw system_error("cannot reach " + options_.reflector.text());
    }
    const std::optional<olv_net::socket_address> local = olv_net::local_address_of(descriptor());
    if (!local) {
        throw system_error("cannot find the address of a socket");
    }
    local_address_ = local->text();
}

void test_session::begin(steady_clock::time_point start, std::chrono::nanoseconds shift)
{
    measurement_.begin(start);
    start_ = start + shift;
    last_departure_ = start_;
}

// ---------------------------------------------------------------------------------------------------------
// Sending
// ---------------------------------------------------------------------------------------------------------

bool test_session::is_sending_over(steady_clock::time_point now) const
{
    return given_up_ || measurement_.sent() == options_.packet_limit() ||
           (options_.duration && now >= start_ + *options_.duration);
}

bool test_session::is_finished(steady_clock::time_point now) const
{
    if (!is_sending_over(now)) {
        return false;
    }
    // With nobody at the port there is nothing to wait for.
    return measurement_.counts().lost() == 0 || (refusal_ != 0 && measurement_.counts().received == 0) ||
           now >= last_departure_ + options_.timeout;
}

steady_clock::time_point test_session::next_departure() const
{
    return options_.window ? start_ : start_ + measurement_.sent() * options_.interval;
}

bool test_session::is_window_full() const
{
    return options_.window && measurement_.on_their_way() >= *options_.window;
}

bool test_session::is_due(steady_clock::time_point now) const
{
    return !is_sending_over(now) && now >= next_departure() && !is_window_full();
}

void test_session::send_due(steady_clock::time_point now)
{
    if (options_.window) {
        measurement_.expire(now - options_.timeout);
    }
    const int most = options_.window ? packets_at_once : 1;
    for (int turn = 0; turn < most && is_due(now); ++turn) {
        if (!try_to_send()) {
            note_stall(now);
            return;
        }
        stalled_since_.reset();
    }
}

bool test_session::try_to_send()
{
    const auto length = static_cast<ssize_t>(request_.size());
    // The first attempt may fail with a report about an earlier packet; then the second one sends.
    for (int attempt = 0; attempt < 2; ++attempt) {
        const olv_net::ntp_time departure = olv_net::ntp_time_of(olv_net::wall_time());
        const steady_clock::time_point instant = steady_clock::now();
        format_.write_request(request_, measurement_.sent(), departure);
        if (send(descriptor(), request_.data(), request_.size(), 0) == length) {
            socket_full_ = false;
            last_departure_ = instant;
            measurement_.request_sent(departure, instant);
            return true;
        }
        if (errno == EAGAIN || errno == ENOBUFS || errno == EINTR) {
            socket_full_ = errno == EAGAIN;
            return false;
        }
        if (!is_report_of_the_network(errno)) {
            throw system_error("cannot send to " + options_.reflector.text());
        }
        refusal_ = errno;
    }
    return false;
}

void test_session::note_stall(steady_clock::time_point now)
{
    stalled_since_ = stalled_since_.value_or(now);
    given_up_ = now - *stalled_since_ >= options_.timeout;
}

// ---------------------------------------------------------------------------------------------------------
// Receiving and waiting
// ---------------------------------------------------------------------------------------------------------

std::optional<std::int64_t> test_session::receive()
{
    std::optional<std::int64_t> latest;
    alignas(cmsghdr) std::array<char, 64> control{};
    for (int turn = 0; turn < replies_at_once; ++turn) {
        iovec part{.iov_base = reply_.data(), .iov_len = reply_.size()};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const ssize_t length = recvmsg(descriptor(), &message, 0);
        const steady_clock::time_point instant = steady_clock::now();
        if (length >= 0) {
            const auto round_trip = measurement_.reply_received(
                {{reply_.data(), static_cast<std::size_t>(length)}, instant, ttl_of(message)});
            latest = round_trip ? round_trip : latest;
        } else if (is_report_of_the_network(errno)) {
            refusal_ = errno;
        } else if (errno == EAGAIN) {
            break;
        } else if (errno != EINTR) {
            throw system_error("cannot receive from " + options_.reflector.text());
        }
    }
    return latest;
}

short test_session::awaited_events(steady_clock::time_point now) const
{
    return socket_full_ && !is_sending_over(now) ? POLLIN | POLLOUT : POLLIN;
}

steady_clock::time_point test_session::next_action(steady_clock::time_point now) const
{
    if (is_finished(now)) {
        return steady_clock::time_point::max();
    }
    if (is_sending_over(now)) {
        return last_departure_ + options_.timeout;
    }
    steady_clock::time_point next = next_departure();
    if (stalled_since_) {
        next = socket_full_ ? *stalled_since_ + options_.timeout : now + stall_pause;
    } else if (is_window_full()) {
        next = measurement_.oldest_departure() + options_.timeout;
    }
    return options_.duration ? std::min(next, start_ + *options_.duration) : next;
}

} // namespace olv_probe
