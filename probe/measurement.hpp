/**
 * @file measurement.hpp
 * What one session sent, what came back, and what that says.
 */
#ifndef OLV_PROBE_MEASUREMENT_HPP
#define OLV_PROBE_MEASUREMENT_HPP

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "probe/clock_watch.hpp"
#include "probe/packet_counts.hpp"
#include "probe/packet_record.hpp"
#include "probe/reflector_numbers.hpp"
#include "probe/reflector_times.hpp"
#include "probe/session_event.hpp"
#include "probe/statistics.hpp"
#include "probe/test_packet.hpp"

namespace olv_probe {

using steady_clock = std::chrono::steady_clock;

/** Packets of a session, by their places among those that are kept. */
struct packet_range {
    std::size_t begin = 0;
    std::size_t end = SIZE_MAX; ///< Not among them.
};

/** Records that follow each other. */
struct packet_records {
    using iterator = std::deque<packet_record>::const_iterator;

    iterator first;
    iterator last; ///< Behind them.

    [[nodiscard]] iterator begin() const { return first; }
    [[nodiscard]] iterator end() const { return last; }
};

/** A datagram and what the system says about it. */
struct received_reply {
    std::span<const std::uint8_t> octets;
    steady_clock::time_point instant;
    std::uint8_t ttl = 0; ///< 0: not known.
    std::uint8_t traffic_class = 0;
};

/** How replies are judged. */
enum class judging : std::uint8_t {
    lenient, ///< What can be measured is measured.
    strict   ///< What is odd is invalid.
};

/** Requests by sequence number, and counts of replies. */
class measurement {
  public:
    /** @param ttl  What requests are sent with. */
    explicit measurement(const test_packet_format &format, std::uint8_t ttl = 255,
                         judging judged = judging::lenient)
        : format_(format), ttl_(ttl), judged_(judged), times_(format.stamps())
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
    /** @return The round trip, in nanoseconds, of a first reply that has one. */
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
    [[nodiscard]] packet_records records(packet_range of) const;
    /** Nothing, if the request was not sent, or is kept no longer. */
    [[nodiscard]] const packet_record *find(std::uint32_t sequence) const
    {
        return request(number_of(sequence));
    }
    /** In the order in which they were noticed. */
    [[nodiscard]] const std::vector<session_event> &events() const { return events_; }
    [[nodiscard]] const reflector_numbers &numbers() const { return numbers_; }
    /** Of the latest reply that was measured. */
    [[nodiscard]] time_scale reflector_scale() const { return scale_; }
    /** What lies between events that set a clock, in order; one that has all, when there were none. */
    [[nodiscard]] std::vector<packet_range> periods() const;
    /** Requests that were overtaken on their way to the reflector. */
    [[nodiscard]] std::uint64_t overtaken_forward() const;

    /** Append the delays that were measured, in the order of their requests. */
    void append_delays(path which, packet_range of, std::vector<std::int64_t> &samples) const;
    /** Append how much each delay is longer than that of the packet sent before, where both came back
     *  (RFC 3393; the IPDV form of RFC 5481). */
    void append_delay_variation(path which, packet_range of, std::vector<std::int64_t> &samples) const;
    /** Append by how much each delay is above the shortest (the PDV form of RFC 5481). */
    void append_delay_above_minimum(path which, packet_range of, std::vector<std::int64_t> &samples) const;

  private:
    [[nodiscard]] packet_record *find(std::uint32_t sequence)
    {
        return const_cast<packet_record *>(std::as_const(*this).find(sequence));
    }
    /** How many requests were sent before the one that is kept with this sequence number of 32 bits. */
    [[nodiscard]] std::uint64_t number_of(std::uint32_t sequence) const
    {
        return forgotten_ + static_cast<std::uint32_t>(sequence - static_cast<std::uint32_t>(forgotten_));
    }
    [[nodiscard]] const packet_record *request(std::uint64_t number) const
    {
        const std::uint64_t place = number - forgotten_;
        return place < records_.size() ? &records_[place] : nullptr;
    }
    [[nodiscard]] packet_record *request(std::uint64_t number)
    {
        return const_cast<packet_record *>(std::as_const(*this).request(number));
    }
    void forget_oldest();
    void count_unknown(std::uint32_t sequence);
    [[nodiscard]] bool is_echo(std::span<const std::uint8_t> octets) const;
    [[nodiscard]] packet_record *match(std::span<const std::uint8_t> reply);
    void forget_replies();
    void count_duplicate(std::uint32_t number, packet_record &record);
    [[nodiscard]] fault_set note_number(reflector_numbers::pair given);
    void accept(const received_reply &reply, packet_record &record);
    void measure(const received_reply &reply, const reflector_times &times, packet_record &record);
    void watch_sender_clock(olv_net::ntp_time departure, std::chrono::nanoseconds sent_at);
    void watch_reflector_clock(const received_reply &reply, const reflector_times &times,
                               packet_record &record);
    void add_fault(std::uint64_t number, reply_fault fault);
    void note(session_event::kind what, std::uint64_t number, std::chrono::nanoseconds by);

    test_packet_format format_;
    std::uint8_t ttl_;
    judging judged_;
    steady_clock::time_point start_;
    /** By sequence number, after the forgotten ones. Never moved: it may be hundreds of megabytes. */
    std::deque<packet_record> records_;
    std::uint64_t forgotten_ = 0;
    std::size_t to_keep_ = SIZE_MAX;
    packet_counts counts_;
    std::optional<olv_net::ntp_time> first_departure_;
    arrival_order order_;
    reflector_numbers numbers_;
    reflector_clock_reader times_;
    time_scale scale_ = time_scale::none;
    clock_watch sender_clock_;
    clock_watch reflector_clock_;
    std::uint64_t watched_ = 0; ///< Above the highest request whose reply showed the reflector's clock.
    std::vector<session_event> events_;
    bool stamps_return_ = false;     ///< A reply had the very stamp of its request.
    bool matched_by_number_ = false; ///< A reply with a wrong stamp was taken for an answer.
    std::uint64_t oldest_ = 0;       ///< All requests before are answered or expired.
    std::uint64_t expired_ = 0;      ///< Requests that are expired and not answered.
};

} // namespace olv_probe

#endif
