#include "clock_error.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <thread>

#include <poll.h>
#include <sys/socket.h>

#include "net/twamp_wire.hpp"
#include "net/wall_clock.hpp"
#include "percentiles.hpp"
#include "reflector_server.hpp"
#include "udp_socket.hpp"

namespace olv_bench {
namespace {

namespace wire = olv_net::reflector_packet;
using clock = std::chrono::steady_clock;

constexpr int patience_milliseconds = 30'000;
constexpr double microsecond = 1e3; ///< In nanoseconds.

/** Nanoseconds that an instant is outside the time from @p begin to @p end; 0 inside. */
std::int64_t outside(std::int64_t instant, std::int64_t begin, std::int64_t end)
{
    return std::max({begin - instant, instant - end, std::int64_t{0}});
}

std::int64_t wall_clock()
{
    return static_cast<std::int64_t>(olv_net::nanoseconds_of(olv_net::wall_time()));
}

/** A time stamp in nanoseconds since 1970, until 2038. */
std::int64_t instant_of(const std::uint8_t *stamp)
{
    return olv_net::nanoseconds_between(olv_net::ntp_time::from_unix(0, 0), olv_net::load_ntp(stamp));
}

/** Send a request and wait for the reply. */
stamped_reply exchange(const udp_socket &socket, const olv_net::socket_address &server)
{
    std::uint8_t request[olv_net::stamp_length] = {};
    olv_net::store_ntp(&request[olv_net::sender_packet::timestamp], olv_net::ntp_time_of(olv_net::wall_time()));
    std::uint8_t reply[olv_net::stamp_length];
    stamped_reply result;
    result.before_send = wall_clock();
    const ssize_t sent = sendto(socket.number(), request, sizeof request, 0, server.generic(), server.length);
    result.after_send = wall_clock();
    pollfd readable{.fd = socket.number(), .events = POLLIN, .revents = 0};
    if (sent != sizeof request || poll(&readable, 1, patience_milliseconds) != 1 ||
        recv(socket.number(), reply, sizeof reply, 0) != sizeof reply) {
        throw std::runtime_error("a request was not answered");
    }
    result.arrival = wall_clock();
    result.received = instant_of(&reply[wire::receive_timestamp]);
    result.replied = instant_of(&reply[wire::timestamp]);
    return result;
}

} // namespace

run clock_figures(const std::vector<stamped_reply> &replies)
{
    std::vector<double> offsets;
    std::vector<double> sendings;
    std::int64_t farthest = 0;
    std::size_t reversed = 0;
    for (const stamped_reply &each : replies) {
        const auto sending = static_cast<double>(each.after_send - each.before_send);
        offsets.push_back(static_cast<double>(each.received - each.before_send) - sending / 2);
        sendings.push_back(sending);
        farthest = std::max({farthest, outside(each.received, each.before_send, each.after_send),
                             outside(each.replied, each.before_send, each.arrival)});
        reversed += each.replied < each.received ? 1 : 0;
    }
    const double offset = percentile(offsets, 50) / microsecond;
    const double uncertainty = percentile(sendings, 50) / 2 / microsecond;
    const double farthest_us = static_cast<double>(farthest) / microsecond;
    return {.name = "clock/reflector",
            .figures = {{"offset_us", offset},
                        {"uncertainty_us", uncertainty},
                        {"outside_us", farthest_us},
                        {"error_us", std::max(std::abs(offset) + uncertainty, farthest_us)},
                        {"replies", static_cast<double>(replies.size())},
                        {"reversed", static_cast<double>(reversed)}}};
}

std::vector<run> measure_clock(const clock_options &options)
{
    reflector_server server{1};
    server.start();
    const udp_socket socket;
    std::vector<run> rows;
    const clock::time_point start = clock::now();
    for (unsigned number = 0; number < options.intervals; ++number) {
        const clock::time_point begin = clock::now();
        std::vector<stamped_reply> replies;
        do {
            replies.push_back(exchange(socket, server.address()));
            std::this_thread::sleep_for(options.pause);
        } while (clock::now() < begin + options.interval);
        rows.push_back(clock_figures(replies));
        rows.back().figures["begin_seconds"] = std::chrono::duration<double>(begin - start).count();
    }
    server.stop();
    return rows;
}

} // namespace olv_bench
