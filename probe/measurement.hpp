/**
 * @file measurement.hpp
 * What one session sent, what came back, and what that says.
 */
#ifndef OLV_PROBE_MEASUREMENT_HPP
#define OLV_PROBE_MEASUREMENT_HPP

#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <vector>

#include "probe/clock_quality.hpp"
#include "probe/statistics.hpp"
#include "probe/test_packet.hpp"

namespace olv_probe {

using steady_clock = std::chrono::steady_clock;

/** The three delays of a packet; see docs/probe.md. The one-way delays contain the difference of the clocks. */
enum class path : std::uint8_t {
    round_trip, ///< (T4 - T1) - (T3 - T2)
    forward,    ///< T2 - T1
    backward    ///< T4 - T3
};
inline constexpr std::size_t path_count = 3;

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
    std::uint64_t valid = 0;
    std::uint64_t answered = 0; ///< Requests with a reply, valid or not.
    std::uint64_t duplicates = 0;
    std::uint64_t reordered = 0; ///< Of the first replies to each request.
    std::uint64_t other_ttl = 0; ///< Valid replies whose request did not arrive with the TTL that it left with.
    ttl_range request_ttl;       ///< Of valid replies: as the reflector saw the request.
    ttl_range reply_ttl;         ///< Of valid replies: as they came here.
    std::uint64_t forgotten = 0; ///< Replies to requests that are kept no longer.
    /** Valid replies by the DSCP and ECN that they came with: the octet of the IP header. */
    std::array<std::uint64_t, 256> traffic_classes{};
    clock_quality reflector_clock; ///< Of valid replies.
    std::array<std::uint64_t, reply_fault_count> faults{};

    [[nodiscard]] std::uint64_t invalid() const { return received - valid - duplicates - forgotten; }
    [[nodiscard]] std::uint64_t lost() const { return sent - answered; }
    void add(const packet_counts &other);
};

/** What is kept of a packet: 40 octets. */
struct packet_record {
    std::uint64_t departure = 0;  ///< T1, in 2^-32 seconds of NTP time.
    std::int64_t sent_at = 0;     ///< Nanoseconds since the run began; by the best clock that tells.
    std::int64_t round_trip = 0;  ///< Nanoseconds, of a valid reply.
    std::int64_t forward = 0;     ///< Nanoseconds, of a valid reply; until then, its correction.
    std::uint16_t duplicates = 0; ///< Up to 65535.
    std::uint8_t request_ttl = 0;
    std::uint8_t reply_ttl = 0;
    reply_fault fault = reply_fault::none; ///< Of the reply, when it was answered.
    std::uint8_t reply_traffic_class = 0;
    bool answered : 1 = false;
    bool late : 1 = false;
    bool expired : 1 = false; ///< Left the window unanswered.

    [[nodiscard]] bool is_valid() const { return answered && fault == reply_fault::none; }
    [[nodiscard]] std::int64_t delay(path which) const;
};

/** A datagram and what the system says about it. */
struct received_reply {
    std::span<const std::uint8_t> octets;
    steady_clock::time_point instant;
    std::uint8_t ttl = 0; ///< 0: not known.
    std::uint8_t traffic_class = 0;
};

/** Requests by sequence number, and counts of replies. */
class measurement {
  public:
    /** @param ttl  What requests are sent with. */
    explicit measurement(const test_packet_format &format, std::uint8_t ttl = 255) : format_(format), ttl_(ttl)
    {}

    /** Times of records count from here. */
    void begin(steady_clock::time_point start) { start_ = start; }
    /** Keep so many requests, the last ones. */
    void keep(std::size_t requests) { to_keep_ = requests; }
    /** The next request, numbered by sent(), left at @p departure on the wall clock and @p instant. */
    void request_sent(olv_net::ntp_time departure, steady_clock::time_point instant);
    /** @return Nothing: the request is kept no longer. */
    [[nodiscard]] std::optional<steady_clock::time_point> departure_of(std::uint32_t sequence) const;
    /** A request that departure_of() knows left so much later than was said when it was sent. */
    void correct_departure(std::uint32_t sequence, std::chrono::nanoseconds later);
    /** @return The round trip, in nanoseconds, of a first and valid reply. */
    std::optional<std::int64_t> reply_received(const received_reply &reply);

    /** Requests sent at or before this instant no longer count as on their way, answered or not. */
    void expire(steady_clock::time_point instant);
    /** When the oldest request on its way was sent; call expire() before. Only with some on their way. */
    [[nodiscard]] steady_clock::time_point oldest_departure() const;
    /** How many requests, from the first one on, were answered or expired or are kept no longer. */
    [[nodiscard]] std::uint64_t settled() const { return oldest_; }
    /** Whether oldest_departure() has something to tell. */
    [[nodiscard]] bool has_unsettled() const { return oldest_ < counts_.sent; }
    /** Requests that were neither answered nor expired. */
    [[nodiscard]] std::uint64_t on_their_way() const { return counts_.lost() - expired_; }

    /** The next request's number, which begins anew after 2^32. */
    [[nodiscard]] std::uint32_t sent() const { return static_cast<std::uint32_t>(counts_.sent); }
    /** Of how many requests there is no record any more. */
    [[nodiscard]] std::uint64_t forgotten() const { return forgotten_; }
    [[nodiscard]] const packet_counts &counts() const { return counts_; }
    [[nodiscard]] const std::deque<packet_record> &records() const { return records_; }

    /** Append the delays of all valid replies, in the order of their requests. */
    void append_delays(path which, std::vector<std::int64_t> &samples) const;
    /** Append how much each delay is longer than that of the packet sent before, where both came back
     *  (RFC 3393; the IPDV form of RFC 5481). */
    void append_delay_variation(path which, std::vector<std::int64_t> &samples) const;
    /** Append by how much each delay is above the shortest (the PDV form of RFC 5481). */
    void append_delay_above_minimum(path which, std::vector<std::int64_t> &samples) const;

  private:
    [[nodiscard]] reply_fault judge(std::span<const std::uint8_t> reply, std::uint32_t sequence,
                                    const packet_record &record);
    [[nodiscard]] std::size_t place_of(std::uint32_t sequence) const
    {
        return static_cast<std::uint32_t>(sequence - static_cast<std::uint32_t>(forgotten_));
    }
    void forget_oldest();
    void measure(const received_reply &reply, packet_record &record);
    void count_fault(reply_fault fault) { ++counts_.faults[static_cast<std::size_t>(fault)]; }

    test_packet_format format_;
    std::uint8_t ttl_;
    steady_clock::time_point start_;
    /** By sequence number, after the forgotten ones. Never moved: it may be hundreds of megabytes. */
    std::deque<packet_record> records_;
    std::uint64_t forgotten_ = 0;
    std::size_t to_keep_ = SIZE_MAX;
    packet_counts counts_;
    arrival_order order_;
    number_memory reflector_numbers_;
    std::uint64_t oldest_ = 0;  ///< All requests before are answered or expired.
    std::uint64_t expired_ = 0; ///< Records that are expired and not answered.
};

} // namespace olv_probe

#endif
