/**
 * @file packet_counts.hpp
 * Counts of a session's requests and replies.
 */
#ifndef OLV_PROBE_PACKET_COUNTS_HPP
#define OLV_PROBE_PACKET_COUNTS_HPP

#include <array>
#include <cstdint>

#include "probe/clock_quality.hpp"
#include "probe/reply_fault.hpp"

namespace olv_probe {

/** The smallest and the largest TTL, if there was any. */
struct ttl_range {
    std::uint8_t minimum = 255;
    std::uint8_t maximum = 0;

    [[nodiscard]] bool is_empty() const { return minimum > maximum; }
    void add(std::uint8_t ttl);
    void add(const ttl_range &other);
};

struct packet_counts {
    std::uint64_t sent = 0;
    std::uint64_t received = 0; ///< Datagrams, whatever they contain.
    std::uint64_t valid = 0;    ///< First replies without a fault.
    std::uint64_t odd = 0;      ///< First replies with faults, unless they are to be invalid.
    std::uint64_t measured = 0; ///< Of both: those with a round trip.
    std::uint64_t answered = 0; ///< Requests with a reply, valid or not.
    std::uint64_t duplicates = 0;
    std::uint64_t reordered = 0; ///< Of the first replies to each request.
    std::uint64_t other_ttl = 0; ///< Replies whose request did not arrive with the TTL that it left with.
    std::uint64_t restarts = 0;  ///< Of the reflector's numbers.
    ttl_range request_ttl;       ///< Of valid and odd replies: as the reflector saw the request.
    ttl_range reply_ttl;         ///< Of valid and odd replies: as they came here.
    std::uint64_t forgotten = 0; ///< Replies to requests that are kept no longer.
    /** Valid and odd replies by the DSCP and ECN that they came with: the octet of the IP header. */
    std::array<std::uint64_t, 256> traffic_classes{};
    clock_quality reflector_clock; ///< Of replies that were measured.
    std::array<std::uint64_t, reply_fault_count> faults{};

    [[nodiscard]] std::uint64_t of(reply_fault fault) const { return faults[static_cast<std::size_t>(fault)]; }
    [[nodiscard]] std::uint64_t invalid() const { return received - valid - odd - duplicates - forgotten; }
    [[nodiscard]] std::uint64_t lost() const { return sent - answered; }
    void count(reply_fault fault) { ++faults[static_cast<std::size_t>(fault)]; }
    void count(fault_set some);
    void add(const packet_counts &other);
    /** As if no reply had been told from any other: what came stays counted, and its faults. */
    void forget_replies();
};

} // namespace olv_probe

#endif
