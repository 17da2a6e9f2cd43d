#include "session_sender.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <random>
#include <stdexcept>
#include <string>

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace olv_probe {
namespace {

constexpr int ttl = 255;
constexpr int dscp_shift = 2; ///< Above the two ECN bits.
constexpr int wanted_receive_buffer = 4 << 20;
/** Room for whatever comes, so that a reply that is too long shows. */
constexpr std::size_t reply_room = 65536;
/** Replies taken between two looks at the clock. */
constexpr int replies_at_once = 64;

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

olv_fastpath::ntp_time wall_clock()
{
    timespec now{};
    (void)clock_gettime(CLOCK_REALTIME, &now); // cannot fail for this clock
    return olv_fastpath::ntp_time::from_unix(static_cast<std::uint64_t>(now.tv_sec),
                                             static_cast<std::uint32_t>(now.tv_nsec));
}

timespec to_timespec(std::chrono::nanoseconds duration)
{
    const auto left = std::max(duration, std::chrono::nanoseconds::zero());
    const auto seconds = std::chrono::floor<std::chrono::seconds>(left);
    return {.tv_sec = static_cast<time_t>(seconds.count()),
            .tv_nsec = static_cast<decltype(timespec::tv_nsec)>((left - seconds).count())};
}

} // namespace

session_sender::session_sender(const probe_options &options)
    : options_(options),
      format_(options.size, options.stamp, random_seed()),
      measurement_(format_),
      request_(options.size),
      reply_(reply_room),
      socket_(socket(options.reflector.family(), SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0))
{
    if (socket_ < 0) {
        throw system_error("cannot open a socket");
    }
    try {
        configure_socket();
    } catch (...) {
        (void)close(socket_); // nothing was sent
        throw;
    }
}

session_sender::~session_sender()
{
    (void)close(socket_); // a failure loses nothing
}

void session_sender::configure_socket() const
{
    const int traffic_class = options_.dscp << dscp_shift;
    if (options_.reflector.family() == AF_INET6) {
        set_option(socket_, IPPROTO_IPV6, IPV6_UNICAST_HOPS, ttl, "the hop limit");
        set_option(socket_, IPPROTO_IPV6, IPV6_TCLASS, traffic_class, "the DSCP");
    } else {
        set_option(socket_, IPPROTO_IP, IP_TTL, ttl, "the TTL");
        set_option(socket_, IPPROTO_IP, IP_TOS, traffic_class, "the DSCP");
    }
    set_option(socket_, SOL_SOCKET, SO_RCVBUF, wanted_receive_buffer, "the receive buffer");
    const auto *address = reinterpret_cast<const sockaddr *>(&options_.reflector.address);
    if (connect(socket_, address, options_.reflector.length) != 0) {
        throw system_error("cannot reach " + options_.reflector.text());
    }
}

bool session_sender::run(const olv_apps::signal_watch &signals)
{
    start_ = steady_clock::now();
    end_ = start_ + options_.count * options_.interval + options_.timeout;
    for (;;) {
        receive_all();
        const steady_clock::time_point now = steady_clock::now();
        if (is_finished(now)) {
            return true;
        }
        send_if_due(now);
        if (wait(signals)) {
            receive_all();
            return false;
        }
    }
}

bool session_sender::is_finished(steady_clock::time_point now) const
{
    if (now >= end_) {
        return true;
    }
    if (measurement_.sent() < options_.count) {
        return false;
    }
    // With nobody at the port there is nothing to wait for.
    return measurement_.outstanding() == 0 || (refused_ && measurement_.received() == 0);
}

steady_clock::time_point session_sender::next_departure() const
{
    return start_ + measurement_.sent() * options_.interval;
}

void session_sender::send_if_due(steady_clock::time_point now)
{
    if (measurement_.sent() == options_.count || now < next_departure()) {
        return;
    }
    const auto length = static_cast<ssize_t>(request_.size());
    for (int attempt = 0; attempt < 2; ++attempt) {
        const olv_fastpath::ntp_time departure = wall_clock();
        const steady_clock::time_point instant = steady_clock::now();
        format_.write_request(request_, measurement_.sent(), departure);
        if (send(socket_, request_.data(), request_.size(), 0) == length) {
            socket_full_ = false;
            measurement_.request_sent(departure, instant);
            return;
        }
        if (errno == EAGAIN || errno == ENOBUFS || errno == EINTR) {
            socket_full_ = errno == EAGAIN;
            return;
        }
        // An earlier packet's refusal is reported here instead of sending; the second attempt sends.
        if (errno != ECONNREFUSED) {
            throw system_error("cannot send to " + options_.reflector.text());
        }
        refused_ = true;
    }
}

void session_sender::receive_all()
{
    for (int turn = 0; turn < replies_at_once; ++turn) {
        const ssize_t length = recv(socket_, reply_.data(), reply_.size(), 0);
        const steady_clock::time_point instant = steady_clock::now();
        if (length >= 0) {
            measurement_.reply_received({reply_.data(), static_cast<std::size_t>(length)}, instant);
        } else if (errno == ECONNREFUSED) {
            refused_ = true;
        } else if (errno == EAGAIN) {
            return;
        } else if (errno != EINTR) {
            throw system_error("cannot receive from " + options_.reflector.text());
        }
    }
}

bool session_sender::wait(const olv_apps::signal_watch &signals) const
{
    steady_clock::time_point until = end_;
    short events = POLLIN;
    if (measurement_.sent() < options_.count) {
        if (socket_full_) {
            events |= POLLOUT;
        } else {
            until = std::min(end_, next_departure());
        }
    }
    std::array<pollfd, 2> watched{{{.fd = socket_, .events = events, .revents = 0},
                                   {.fd = signals.descriptor(), .events = POLLIN, .revents = 0}}};
    const timespec limit = to_timespec(until - steady_clock::now());
    if (ppoll(watched.data(), watched.size(), &limit, nullptr) < 0 && errno != EINTR) {
        throw system_error("cannot wait for replies");
    }
    return (watched[1].revents & POLLIN) != 0;
}

} // namespace olv_probe
