/**
 * @file session_options.hpp
 * What session senders are told to do.
 */
#ifndef OLV_PROBE_SESSION_OPTIONS_HPP
#define OLV_PROBE_SESSION_OPTIONS_HPP

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "net/socket_address.hpp"
#include "net/twamp_wire.hpp"

namespace olv_probe {

inline constexpr std::uint32_t default_window = 64;
inline constexpr unsigned maximum_senders = 256;
/** Of all senders together: each packet takes 40 octets of memory until the figures are made. */
inline constexpr std::uint32_t maximum_packets = 10'000'000;

struct session_options {
    olv_net::socket_address reflector;
    unsigned senders = 1;      ///< Each is a session of its own, with its own port; up to maximum_senders.
    std::uint32_t count = 100; ///< Packets of each sender; senders * count is up to maximum_packets.
    /** Send for so long instead of counting; ends earlier when maximum_packets were sent. */
    std::optional<std::chrono::nanoseconds> duration;
    std::chrono::nanoseconds interval = std::chrono::milliseconds(10); ///< Of each sender.
    /** Do not wait for the interval, but while each sender has this many packets on their way. */
    std::optional<std::uint32_t> window;
    std::size_t size = olv_net::reflector_packet::header_length; ///< UDP payload.
    /** For replies after the last request; in a window, for each reply. */
    std::chrono::nanoseconds timeout = std::chrono::seconds(2);
    std::uint8_t dscp = 0;
    std::uint8_t ttl = 255;    ///< 1 to 255; the hop limit of IPv6.
    bool stamp = false;        ///< Send STAMP packets; needs zero_padding.
    bool zero_padding = false; ///< Zeros instead of random octets.
    bool ptp = false;          ///< Send PTP time stamps instead of NTP ones.
    bool strict = false;       ///< Replies that are odd are invalid, and not measured.

    /** Packets of each sender, at most. */
    [[nodiscard]] std::uint32_t packet_limit() const { return duration ? maximum_packets / senders : count; }
};

} // namespace olv_probe

#endif
