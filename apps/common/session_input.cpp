#include "apps/common/session_input.hpp"

#include <stdexcept>

namespace olv_probe {
namespace {

void add_packet_options(olv_apps::command to, session_input &input)
{
    to.add_option("--size", input.size, "Octets of UDP payload, 14 to 65507 (41, with --stamp 44)")
        .whole_number_between(olv_net::sender_packet::header_length, olv_net::maximum_payload_ipv4);
    to.add_option("--padding", input.padding, "What fills a packet: random or zero (random, with --stamp zero)")
        .one_of({"random", "zero"});
    to.add_option("--dscp", input.dscp, "DSCP of the packets, 0 to 63 (0)").whole_number_between(0, 63);
    to.add_option("--ttl", input.ttl, "TTL or hop limit of the packets, 1 to 255 (255)")
        .whole_number_between(1, 255);
    to.add_flag("--stamp", input.stamp, "Send STAMP packets");
    to.add_flag("--ptp", input.ptp, "Send PTP time stamps instead of NTP ones");
    to.add_flag("--strict", input.strict, "Take replies that are odd for invalid, and do not measure them");
}

void add_time_options(olv_apps::command to, session_input &input)
{
    const olv_apps::option count =
        to.add_option("--count", input.count, "Packets to send from each sender (100)")
            .whole_number_between(1, maximum_packets);
    to.add_option("--duration", input.duration_seconds, "Seconds to send for, instead of a count")
        .number_between(0.001, 31'536'000)
        .excludes(count);
    const olv_apps::option interval = to.add_option("--interval", input.interval_milliseconds,
                                                    "Milliseconds between two packets of a sender (10)")
                                          .number_between(0, 3'600'000);
    const olv_apps::option flood =
        to.add_flag("--flood", input.flood, "Send as soon as the window has room, not in intervals")
            .excludes(interval);
    to.add_option("--window", input.window, "Packets of each sender on their way in a flood, 1 to 65536 (64)")
        .whole_number_between(1, 65536)
        .needs(flood);
    to.add_option("--timeout", input.timeout_seconds,
                  "Seconds to wait for the last replies; in a flood, for each reply (2)")
        .number_between(0, 3600);
}

std::chrono::nanoseconds nanoseconds_of(double value, double nanoseconds_each)
{
    return std::chrono::nanoseconds(static_cast<std::int64_t>(value * nanoseconds_each));
}

} // namespace

void add_session_options(olv_apps::command to, session_input &input)
{
    to.add_option("--senders", input.senders, "Sessions at once, each with a port of its own, 1 to 256 (1)")
        .whole_number_between(1, maximum_senders);
    add_time_options(to, input);
    add_packet_options(to, input);
}

session_options session_input::options() const
{
    session_options session;
    session.stamp = stamp;
    session.ptp = ptp;
    session.strict = strict;
    session.zero_padding = padding.empty() ? stamp : padding == "zero";
    session.size = size;
    if (session.size == 0) {
        session.size = stamp ? olv_net::stamp_length : olv_net::reflector_packet::header_length;
    }
    if (stamp && session.size < olv_net::stamp_length) {
        throw std::runtime_error("a STAMP packet has at least 44 octets, not " + std::to_string(session.size));
    }
    if (stamp && !session.zero_padding) {
        throw std::runtime_error("a STAMP packet is filled with zeros; leave --padding or --stamp out");
    }
    if (!duration_seconds && std::uint64_t{count} * senders > maximum_packets) {
        throw std::runtime_error(std::to_string(senders) + " senders of " + std::to_string(count) +
                                 " packets are more than 10000000 packets together");
    }
    session.senders = senders;
    session.count = count;
    if (duration_seconds) {
        session.duration = nanoseconds_of(*duration_seconds, 1e9);
    }
    session.interval = nanoseconds_of(interval_milliseconds, 1e6);
    if (flood) {
        session.window = window;
    }
    session.timeout = nanoseconds_of(timeout_seconds, 1e9);
    session.dscp = static_cast<std::uint8_t>(dscp);
    session.ttl = static_cast<std::uint8_t>(ttl);
    return session;
}

} // namespace olv_probe
