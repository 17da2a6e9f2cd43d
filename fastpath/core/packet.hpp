/**
 * @file packet.hpp
 * What a fast path knows of a packet, and what becomes of it.
 */
#ifndef OLV_FASTPATH_PACKET_HPP
#define OLV_FASTPATH_PACKET_HPP

#include <cstdint>
#include <optional>
#include <span>

#include "fastpath/core/clocks.hpp"
#include "fastpath/core/drop_reasons.hpp"
#include "net/ip_address.hpp"

namespace olv_fastpath {

/** How a packet reaches the fast path. The low 24 bits of each are significant. */
struct packet_path {
    std::uint32_t responder_id = 0;
    std::uint32_t bind_key = 0;
};

struct received_packet {
    std::span<const std::uint8_t> payload; ///< Of UDP.
    std::uint64_t arrival_ticks = 0;       ///< Timer 0.
    std::uint8_t ttl = 0;                  ///< TTL or hop limit.
    std::uint8_t traffic_class = 0;        ///< DSCP in the upper six bits, ECN in the lower two.
    olv_net::ip_endpoint sender;
};

/** A reply that lacks nothing but its time of departure, which departing_replies write into it. */
struct unstamped_reply {
    std::span<std::uint8_t> bytes;  ///< A view of the room that was given for it.
    reply_clock clock;              ///< That its times follow from.
    std::uint8_t traffic_class = 0; ///< The request's DSCP, ECN bits 0.
};

/** What became of a packet. */
struct verdict {
    std::optional<drop_reason> dropped; ///< Nothing: there is a reply.
    unstamped_reply reply;              ///< Empty where there is none.
};

} // namespace olv_fastpath

#endif
