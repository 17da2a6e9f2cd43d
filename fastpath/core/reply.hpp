/**
 * @file reply.hpp
 * Writes replies: TWAMP-Test (RFC 5357 section 4.2.1) and STAMP (RFC 8762 section 4.3.1), unauthenticated.
 */
#ifndef OLV_FASTPATH_REPLY_HPP
#define OLV_FASTPATH_REPLY_HPP

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

#include "fastpath/core/clocks.hpp"
#include "fastpath/core/packet.hpp"
#include "fastpath/core/sent_stamps.hpp"
#include "net/twamp_wire.hpp"

namespace olv_fastpath {

/** Length of the reply to a request of this length. */
[[nodiscard]] constexpr std::size_t reply_length(std::size_t request_length)
{
    return std::max(request_length, olv_net::reflector_packet::header_length);
}

/** What stands in a reply besides the request's own fields. */
struct reply_fields {
    std::uint32_t sequence_number = 0;
    std::uint16_t error_estimate = 0; ///< In NTP format.
    std::uint64_t arrival = 0;        ///< In units of ntp_time.
    std::int32_t tai_ahead = 0;       ///< Seconds that PTP's time is ahead.
};

/** An instant in units of ntp_time, as a PTP time stamp stands in a packet. */
[[nodiscard]] inline std::uint64_t ptp_words(std::uint64_t instant, std::int32_t tai_ahead)
{
    return olv_net::ptp_time::from_ntp(olv_net::ntp_time::from_units(instant), tai_ahead).words();
}

/** Copy the request's fields, its TTL and what there is room for of its padding; zero the rest. */
inline void copy_request(const received_packet &packet, std::span<std::uint8_t> reply)
{
    using namespace olv_net;
    const std::span<const std::uint8_t> request = packet.payload;
    // In two parts, which overlap, by way of registers: the reply may begin where they are.
    constexpr std::size_t second_part = sender_packet::header_length - sizeof(std::uint64_t);
    std::uint64_t first = 0;
    std::uint64_t second = 0;
    std::memcpy(&first, request.data(), sizeof first);
    std::memcpy(&second, &request[second_part], sizeof second);
    std::memcpy(&reply[reflector_packet::sender_sequence_number], &first, sizeof first);
    std::memcpy(&reply[reflector_packet::sender_sequence_number + second_part], &second, sizeof second);
    store_16(&reply[reflector_packet::zero_14], 0);
    store_16(&reply[reflector_packet::zero_38], 0);
    reply[reflector_packet::sender_ttl] = packet.ttl;
    const std::span<std::uint8_t> rest = reply.subspan(reflector_packet::header_length);
    if (request.size() == stamp_length) {
        std::fill_n(rest.begin(), stamp_length - reflector_packet::header_length, std::uint8_t{0});
    } else if (!rest.empty() && rest.data() != &request[sender_packet::padding]) {
        std::memcpy(rest.data(), &request[sender_packet::padding], rest.size());
    }
}

/** Have a reply say its time of arrival in PTP's format. Not inlined: few requests ask for it. */
[[gnu::cold, gnu::noinline]] inline void write_ptp_arrival(std::uint64_t arrival, std::int32_t tai_ahead,
                                                           std::uint8_t *reply)
{
    using namespace olv_net;
    reply[reflector_packet::error_estimate] |= error_estimate::ptp_format >> 8;
    store(reply + reflector_packet::receive_timestamp, ptp_words(arrival, tai_ahead));
}

/**
 * Write every byte of a reply but its time of departure. Its time stamps have the format of the request's.
 * @param packet  A request of 14 bytes or more; 44 bytes are taken as STAMP.
 * @param reply   As long as reply_length() says. It must not overlap the payload, except that it may begin 27
 *                bytes before it: the padding is then where the reply has it.
 */
inline void write_reply(const received_packet &packet, const reply_fields &fields,
                        std::span<std::uint8_t> reply)
{
    using namespace olv_net;
    copy_request(packet, reply);
    store_32(&reply[reflector_packet::sequence_number], fields.sequence_number);
    store_16(&reply[reflector_packet::error_estimate], fields.error_estimate);
    store(&reply[reflector_packet::receive_timestamp], fields.arrival);
    if (has_ptp_format(&reply[reflector_packet::sender_error_estimate])) [[unlikely]] {
        write_ptp_arrival(fields.arrival, fields.tai_ahead, reply.data());
    }
}

/**
 * Replies that lack nothing but their time of departure. It is read once for all of them, when they leave: the
 * later it is read, the nearer to the truth it is. These are views: the memory of the replies has to stay until
 * then.
 */
class departing_replies {
  public:
    static constexpr std::size_t most = 4096;

    [[nodiscard]] bool is_full() const { return count_ == most; }
    /** Add a reply, while it is not full. */
    void add(const unstamped_reply &reply)
    {
        if (reply.clock != clock_) {
            begin_group(reply.clock);
        }
        replies_[count_++] = reply.bytes.data();
    }

    /** They leave now: write the time into each. There are none then.
     *  @param tai_ahead  As their times of arrival have it.
     *  @param sent       Where their times of departure are noted; NULL: nowhere. */
    void stamp(const processor_clock &clock, std::int32_t tai_ahead = 0, sent_stamps *sent = nullptr);

  private:
    /** Replies of a responder that others of another one came after. */
    struct earlier_group {
        reply_clock clock;
        std::size_t end; ///< Of its replies.
    };

    [[gnu::cold, gnu::noinline]] void begin_group(const reply_clock &clock);

    std::array<std::uint8_t *, most> replies_{};
    std::size_t count_ = 0;
    reply_clock clock_; ///< Of the last ones.
    std::vector<earlier_group> earlier_;
};

} // namespace olv_fastpath

#endif
