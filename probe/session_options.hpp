/**
 * @file session_options.hpp
 * What session senders are told to do.
 */
#ifndef OLV_PROBE_SESSION_OPTIONS_HPP
#define OLV_PROBE_SESSION_OPTIONS_HPP

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "net/socket_address.hpp"
#include "net/twamp_wire.hpp"

namespace olv_probe {

inline constexpr std::uint32_t default_window = 64;
inline constexpr unsigned maximum_senders = 256;
/** Of all senders together: each packet takes 40 octets of memory until the figures are made. */
inline constexpr std::uint32_t maximum_packets = 10'000'000;
/** Of all senders together, the last ones, in a run without an end. */
inline constexpr std::uint32_t kept_packets = 1'000'000;

/** Who says when a packet leaves and comes: the program, the system, the network interface. */
enum class timestamp_source : std::uint8_t { user, kernel, hardware };

/** How long from a packet to the next: always the interval, or random times with the interval as their mean,
 *  exponentially distributed (RFC 2330 section 11.1.1). */
enum class packet_schedule : std::uint8_t { periodic, poisson };

struct session_options {
    olv_net::socket_address reflector;
    unsigned senders = 1;      ///< Each is a session of its own, with its own port; up to maximum_senders.
    std::uint32_t count = 100; ///< Packets of each sender; senders * count is up to maximum_packets.
    /** Send for so long instead of counting; ends earlier when maximum_packets were sent. */
    std::optional<std::chrono::nanoseconds> duration;
    bool forever = false; ///< Send until stopped; then the last kept_packets are kept, not all.
    std::chrono::nanoseconds interval = std::chrono::milliseconds(10); ///< Of each sender.
    packet_schedule schedule = packet_schedule::periodic;
    /** Do not wait for the interval, but while each sender has this many packets on their way. */
    std::optional<std::uint32_t> window;
    std::size_t size = olv_net::reflector_packet::header_length; ///< UDP payload.
    /** For replies after the last request; in a window, for each reply. */
    std::chrono::nanoseconds timeout = std::chrono::seconds(2);
    std::optional<olv_net::socket_address> source; ///< Port 0: any; several senders take the ports that follow.
    std::string interface;                         ///< Send and receive there alone; empty: wherever it goes.
    std::uint8_t dscp = 0;
    std::uint8_t ecn = 0;      ///< 0 to 3, as in the IP header.
    std::uint8_t ttl = 255;    ///< 1 to 255; the hop limit of IPv6.
    bool stamp = false;        ///< Send STAMP packets; needs zero_padding.
    bool zero_padding = false; ///< Zeros instead of random octets.
    bool ptp = false;          ///< Send PTP time stamps instead of NTP ones.
    bool strict = false;       ///< Replies that are odd are invalid, and not measured.
    bool dont_fragment = false;
    std::optional<timestamp_source> timestamps; ///< Nothing: the system's, or the program's if there are none.

    /** Packets of each sender, at most. */
    [[nodiscard]] std::uint64_t packet_limit() const
    {
        if (forever) {
            return UINT64_MAX;
        }
        return duration ? maximum_packets / senders : count;
    }
    /** Packets of each sender that are kept for the figures. */
    [[nodiscard]] std::size_t packets_to_keep() const
    {
        return forever ? std::max(kept_packets / senders, window.value_or(0)) : maximum_packets;
    }
};

} // namespace olv_probe

#endif
