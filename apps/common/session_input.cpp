#include "apps/common/session_input.hpp"

#include <cstdlib>
#include <stdexcept>

#include "apps/common/reflector_name.hpp"
#include "net/traffic_class.hpp"

namespace olv_probe {
namespace {

/** Nothing means that nothing was chosen. */
std::optional<timestamp_source> timestamps_of(const std::string &name)
{
    if (name.empty()) {
        return std::nullopt;
    }
    if (name == "kernel") {
        return timestamp_source::kernel;
    }
    return name == "user" ? timestamp_source::user : timestamp_source::hardware;
}

std::string reason_against_interval(const std::string &value)
{
    constexpr double longest = 3'600'000;
    char *end = nullptr;
    const double milliseconds = std::strtod(value.c_str(), &end);
    if (milliseconds == 0 && end != value.c_str()) {
        return "packets without an interval between them are a flood; use --flood";
    }
    const bool is_good = *end == 0 && milliseconds >= 0.001 && milliseconds <= longest;
    return is_good ? "" : "Value " + value + " not in range 0.001 to 3600000";
}

void check_source_ports(const olv_net::socket_address &source, unsigned senders)
{
    if (source.port() != 0 && source.port() + senders - 1 > UINT16_MAX) {
        throw std::runtime_error("there are no " + std::to_string(senders) + " ports from " +
                                 std::to_string(source.port()) + " on; use a lower one");
    }
}

void add_packet_options(olv_apps::command to, session_input &input)
{
    to.add_option("--size", input.size, "Octets of UDP payload, 14 to 65507 (41, with --stamp 44)")
        .whole_number_between(olv_net::sender_packet::header_length, olv_net::maximum_payload_ipv4);
    to.add_option("--padding", input.padding, "What fills a packet: random or zero (random, with --stamp zero)")
        .one_of({"random", "zero"});
    to.add_option("--dscp", input.dscp, "DSCP of the packets, 0 to 63 or a name such as EF, AF41, CS6 (0)")
        .called("DSCP")
        .check([](const std::string &value) {
            return olv_net::dscp_of(value) ? "" : olv_net::unknown_dscp(value);
        });
    to.add_option("--ecn", input.ecn, "ECN of the packets, also as 0 to 3 (not-ect)")
        .called("not-ect|ect1|ect0|ce")
        .check(
            [](const std::string &value) { return olv_net::ecn_of(value) ? "" : olv_net::unknown_ecn(value); });
    to.add_option("--ttl", input.ttl, "TTL or hop limit of the packets, 1 to 255 (255)")
        .whole_number_between(1, 255);
    to.add_flag("--dont-fragment", input.dont_fragment,
                "Never fragment packets; one that is too long for the way is an error");
    to.add_flag("--stamp", input.stamp, "Send STAMP packets");
    to.add_flag("--ptp", input.ptp, "Send PTP time stamps instead of NTP ones");
    to.add_flag("--strict", input.strict, "Take replies that are odd for invalid, and do not measure them");
}

void add_time_options(olv_apps::command to, session_input &input)
{
    const olv_apps::option count =
        to.add_option("--count", input.count, "Packets to send from each sender (100)")
            .whole_number_between(1, maximum_packets);
    const olv_apps::option duration =
        to.add_option("--duration", input.duration_seconds, "Seconds to send for, instead of a count")
            .number_between(0.001, 31'536'000)
            .excludes(count);
    to.add_flag("--forever", input.forever,
                "Send until stopped, instead of a count; keep the last 1000000 packets")
        .excludes(count)
        .excludes(duration);
    const olv_apps::option interval = to.add_option("--interval", input.interval_milliseconds,
                                                    "Milliseconds between two packets of a sender (10)")
                                          .check(reason_against_interval);
    const olv_apps::option schedule =
        to.add_option("--schedule", input.schedule,
                      "Packets in equal intervals, or in random ones with that mean (periodic)")
            .one_of({"periodic", "poisson"});
    const olv_apps::option flood =
        to.add_flag("--flood", input.flood, "Send as soon as the window has room, not in intervals")
            .excludes(interval)
            .excludes(schedule);
    to.add_option("--window", input.window, "Packets of each sender on their way in a flood, 1 to 65536 (64)")
        .whole_number_between(1, 65536)
        .needs(flood);
    to.add_option("--timeout", input.timeout_seconds,
                  "Seconds to wait for the last replies; in a flood, for each reply (2)")
        .number_between(0, 3600);
}

void add_socket_options(olv_apps::command to, session_input &input)
{
    to.add_option("--source", input.source,
                  "Address to send from, and its port; several senders take the ports that follow")
        .called("ADDRESS");
    to.add_option("--interface", input.interface, "Send and receive at this network interface alone")
        .called("NAME");
    to.add_option("--timestamps", input.timestamps,
                  "Who takes the times: the program, the system, the network interface (kernel)")
        .one_of({"user", "kernel", "hardware"});
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
    add_socket_options(to, input);
}

int session_input::family() const
{
    return source.empty() ? AF_UNSPEC : parse_source(source).family();
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
    if (!duration_seconds && !forever && std::uint64_t{count} * senders > maximum_packets) {
        throw std::runtime_error(std::to_string(senders) + " senders of " + std::to_string(count) +
                                 " packets are more than 10000000 packets together");
    }
    session.senders = senders;
    session.count = count;
    if (duration_seconds) {
        session.duration = nanoseconds_of(*duration_seconds, 1e9);
    }
    session.forever = forever;
    session.interval = nanoseconds_of(interval_milliseconds, 1e6);
    if (flood) {
        session.window = window;
    }
    session.timeout = nanoseconds_of(timeout_seconds, 1e9);
    session.schedule = schedule == "poisson" ? packet_schedule::poisson : packet_schedule::periodic;
    if (!source.empty()) {
        session.source = parse_source(source);
        check_source_ports(*session.source, senders);
    }
    session.interface = interface;
    session.dscp = olv_net::dscp_of(dscp).value();
    session.ecn = olv_net::ecn_of(ecn).value();
    session.dont_fragment = dont_fragment;
    session.timestamps = timestamps_of(timestamps);
    session.ttl = static_cast<std::uint8_t>(ttl);
    return session;
}

} // namespace olv_probe
