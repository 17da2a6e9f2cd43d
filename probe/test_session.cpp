#include "probe/test_session.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <random>
#include <stdexcept>

#include <poll.h>
#include <sys/socket.h>
#include <sys/timex.h>

#include "probe/test_socket.hpp"

namespace olv_probe {
namespace {

/** Room for whatever comes, so that a reply that is too long shows. */
constexpr std::size_t reply_room = 65536;
/** For the time stamp of a datagram, its TTL and its DSCP. */
constexpr std::size_t reply_control_room = 256;
/** Replies taken between two looks at the clock. */
constexpr int replies_at_once = 64;
/** Packets of a flood sent between two looks for replies. */
constexpr int packets_at_once = 16;
/** Between two attempts to send, while the system refuses and poll() does not say when it will not. */
constexpr std::chrono::milliseconds stall_pause{1};

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

} // namespace

test_session::test_session(const session_options &options, unsigned sender)
    : options_(options),
      format_(options.size, options.stamp || options.zero_padding, random_seed(),
              options.ptp ? stamp_format::ptp : stamp_format::ntp, seconds_of_tai_ahead()),
      measurement_(format_, options.ttl, options.strict ? judging::strict : judging::lenient),
      request_(options.size),
      reply_(reply_room),
      socket_(open_test_socket(options, sender)),
      times_(options.schedule, options.interval, random_seed())
{
    const std::optional<olv_net::socket_address> local = olv_net::local_address_of(descriptor());
    if (!local) {
        throw std::runtime_error(std::string("cannot find the address of a socket: ") + std::strerror(errno));
    }
    local_address_ = local->text();
    stamps_.enable(descriptor(), options);
    measurement_.keep(options.packets_to_keep());
}

void test_session::begin(steady_clock::time_point start, std::chrono::nanoseconds shift)
{
    measurement_.begin(start);
    start_ = start + shift;
    next_departure_ = start_;
    last_departure_ = start_;
    stamps_.begin();
}

// ---------------------------------------------------------------------------------------------------------
// Sending
// ---------------------------------------------------------------------------------------------------------

bool test_session::is_sending_over(steady_clock::time_point now) const
{
    return given_up_ || sending_ended_ || measurement_.counts().sent >= options_.packet_limit() ||
           (options_.duration && now >= start_ + *options_.duration);
}

bool test_session::is_finished(steady_clock::time_point now) const
{
    if (!is_sending_over(now)) {
        return false;
    }
    // With nobody at the port there is nothing to wait for.
    return measurement_.on_their_way() == 0 || (refusal_ != 0 && measurement_.counts().received == 0) ||
           now >= last_departure_ + options_.timeout;
}

bool test_session::is_window_full() const
{
    return options_.window && measurement_.on_their_way() >= *options_.window;
}

bool test_session::is_due(steady_clock::time_point now) const
{
    return !is_sending_over(now) && now >= next_departure_ && !is_window_full();
}

steady_clock::time_point test_session::next_settling() const
{
    return measurement_.has_unsettled() ? measurement_.oldest_departure() + options_.timeout
                                        : steady_clock::time_point::max();
}

void test_session::send_due(steady_clock::time_point now)
{
    if (options_.window) {
        settle(now);
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
        const olv_net::clock_reading now = read_clocks();
        const olv_net::ntp_time departure = olv_net::ntp_time_of(now.wall_nanoseconds);
        const steady_clock::time_point instant = instant_of(now);
        format_.write_request(request_, measurement_.sent(), departure);
        if (send(descriptor(), request_.data(), request_.size(), 0) == length) {
            socket_full_ = false;
            last_departure_ = instant;
            measurement_.request_sent(departure, instant);
            next_departure_ += options_.window ? std::chrono::nanoseconds(0) : times_.next();
            return true;
        }
        stamps_.note_refused();
        if (errno == EAGAIN || errno == ENOBUFS || errno == EINTR) {
            socket_full_ = errno == EAGAIN;
            return false;
        }
        if (!is_report_of_the_network(errno)) {
            throw refused("send to");
        }
        refusal_ = errno;
    }
    return false;
}

std::runtime_error test_session::refused(const char *what) const
{
    const std::string attempt = std::string("cannot ") + what + " " + options_.reflector.text();
    return std::runtime_error(refusal_text(attempt, descriptor(), options_));
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
    // First: the departures of those that are answered.
    stamps_.take_departures(descriptor(), measurement_);
    std::optional<std::int64_t> latest;
    alignas(cmsghdr) std::array<char, reply_control_room> control{};
    for (int turn = 0; turn < replies_at_once; ++turn) {
        iovec part{.iov_base = reply_.data(), .iov_len = reply_.size()};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const ssize_t length = recvmsg(descriptor(), &message, 0);
        if (length >= 0) {
            const steady_clock::time_point instant = stamps_.arrival_of(message);
            const ip_header_fields header = header_fields_of(message);
            const auto round_trip = measurement_.reply_received(
                {{reply_.data(), static_cast<std::size_t>(length)}, instant, header.ttl, header.traffic_class});
            latest = round_trip ? round_trip : latest;
        } else if (is_report_of_the_network(errno)) {
            refusal_ = errno;
        } else if (errno == EAGAIN) {
            break;
        } else if (errno != EINTR) {
            throw refused("receive from");
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
    steady_clock::time_point next = next_departure_;
    if (stalled_since_) {
        next = socket_full_ ? *stalled_since_ + options_.timeout : now + stall_pause;
    } else if (is_window_full()) {
        next = next_settling();
    }
    return options_.duration ? std::min(next, start_ + *options_.duration) : next;
}

} // namespace olv_probe
