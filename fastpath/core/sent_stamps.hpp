/**
 * @file sent_stamps.hpp
 * The times of departure that replies carried lately, to know what comes back as a request.
 */
#ifndef OLV_FASTPATH_SENT_STAMPS_HPP
#define OLV_FASTPATH_SENT_STAMPS_HPP

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "net/twamp_wire.hpp"

namespace olv_fastpath {

/** Whose time stamp a request carries. */
enum class stamp_origin : std::uint8_t {
    sender, ///< Its sender's own.
    reply,  ///< That of one of our replies: it is the answer to it.
    either  ///< In PTP format, the nanosecond of a reply, which its sender's clock may have shown as well.
};

/**
 * Two machines that answer whatever comes would go on answering each other for ever after one forged datagram.
 * A request that carries a stamp of one of our replies is the answer to it, wherever it comes from and whatever
 * its form.
 *
 * Senders' clocks count whole nanoseconds or less finely, and may run with ours. So that no sender's stamp is
 * ever taken for one of ours, ours stand between whole nanoseconds: see marked(). In PTP format there is
 * nothing between them: where no more of a reply stands beside the stamp, it may be chance.
 *
 * Of 65536 stamps, one for each batch of replies, most are remembered; a new one takes the place of an older
 * one. Any number of threads may share these. There is no lock in it, and its words have 32 bits, which every
 * processor writes whole; a stamp that is read half written is none.
 */
class sent_stamps {
  public:
    sent_stamps() : entries_(capacity) {}

    /** The first instant, from this one on, that no clock of whole nanoseconds shows, whichever way it rounds
     *  to the units of ntp_time; at most 4 units later. */
    [[nodiscard]] static constexpr std::uint64_t marked(std::uint64_t instant)
    {
        while (!is_marked(instant)) {
            ++instant;
        }
        return instant;
    }
    [[nodiscard]] static constexpr bool is_marked(std::uint64_t instant)
    {
        // What is left over of a whole nanosecond, in billions: below one for those rounded up, above three and
        // a quarter for those rounded down.
        const auto rest = static_cast<std::uint32_t>(instant) * nanoseconds;
        return rest - nanoseconds - 1 < nanoseconds;
    }

    /** Replies left with this in their field of the time of departure, as a number. */
    void note(std::uint64_t stamp)
    {
        entry &taken = entries_[place_of(stamp)];
        taken.high.store(static_cast<std::uint32_t>(stamp >> 32), std::memory_order_relaxed);
        taken.low.store(static_cast<std::uint32_t>(stamp), std::memory_order_relaxed);
    }

    /** Whether a request carries a stamp where a sender's is: an echo, the beginning of one, or an answer in a
     *  reflector's form. */
    [[nodiscard]] stamp_origin look_at(std::span<const std::uint8_t> request) const
    {
        using namespace olv_net;
        const bool is_ptp = says_ptp(request);
        const bool is_long = request.size() >= reflector_packet::sender_error_estimate;
        // Nearly all others are found out here, without looking anything up.
        const bool may_be = is_ptp || has_mark(request, sender_packet::timestamp) ||
                            (is_long && has_mark(request, reflector_packet::sender_timestamp));
        return may_be ? look_up(request, is_ptp, is_long) : stamp_origin::sender;
    }

    /** The same anywhere in the first octets of it. */
    [[nodiscard]] stamp_origin look_through(std::span<const std::uint8_t> request) const
    {
        const std::size_t end = std::min(request.size(), searched);
        const bool is_ptp = says_ptp(request);
        stamp_origin own = stamp_origin::sender;
        for (std::size_t position = 0; position + sizeof(std::uint64_t) <= end; ++position) {
            if ((is_ptp || has_mark(request, position)) && is_one(request, position)) {
                if (position != olv_net::sender_packet::timestamp) {
                    return stamp_origin::reply;
                }
                own = origin_of_own(request, is_ptp);
            }
        }
        return own;
    }

  private:
    static constexpr std::uint32_t nanoseconds = 1'000'000'000;
    static constexpr std::size_t capacity = 65536;
    /** Octets of a request. Where it is protected, a reflector's copy of the sender's stamp ends at 72. */
    static constexpr std::size_t searched = 128;

    struct entry {
        std::atomic<std::uint32_t> high{0};
        std::atomic<std::uint32_t> low{0};
    };

    [[nodiscard]] static std::size_t place_of(std::uint64_t stamp)
    {
        return static_cast<std::size_t>(stamp * 0x9E3779B97F4A7C15u >> 48);
    }

    /** Replies to such requests have PTP time stamps, which have no mark. A peer that answers one in NTP format
     *  gets a reply with a mark, and is known by that one. */
    [[nodiscard]] static bool says_ptp(std::span<const std::uint8_t> request)
    {
        return olv_net::has_ptp_format(&request[olv_net::sender_packet::error_estimate]);
    }

    [[gnu::cold, gnu::noinline]] stamp_origin look_up(std::span<const std::uint8_t> request, bool is_ptp,
                                                      bool is_long) const
    {
        using namespace olv_net;
        const auto is_at = [&](std::size_t position) {
            return (is_ptp || has_mark(request, position)) && is_one(request, position);
        };
        if (is_long && is_at(reflector_packet::sender_timestamp)) {
            return stamp_origin::reply;
        }
        return is_at(sender_packet::timestamp) ? origin_of_own(request, is_ptp) : stamp_origin::sender;
    }

    /** Of one of our stamps that stands where each request has its sender's. */
    [[nodiscard]] static stamp_origin origin_of_own(std::span<const std::uint8_t> request, bool is_ptp)
    {
        return !is_ptp || has_arrival(request) ? stamp_origin::reply : stamp_origin::either;
    }

    /** Whether the seconds of an arrival stand behind the stamp, as in a reply, which leaves soon after. */
    [[nodiscard]] static bool has_arrival(std::span<const std::uint8_t> request)
    {
        using namespace olv_net;
        constexpr std::uint32_t longest_stay = 60;
        return request.size() >= reflector_packet::receive_timestamp + sizeof(std::uint32_t) &&
               load_32(&request[sender_packet::timestamp]) -
                       load_32(&request[reflector_packet::receive_timestamp]) <=
                   longest_stay;
    }

    /** Of what may be a stamp in NTP format, at a position of a request. */
    [[nodiscard]] static bool has_mark(std::span<const std::uint8_t> request, std::size_t position)
    {
        return is_marked(olv_net::load_32(&request[position + sizeof(std::uint32_t)]));
    }

    [[gnu::cold, gnu::noinline]] bool is_one(std::span<const std::uint8_t> request, std::size_t position) const
    {
        const auto stamp = olv_net::load<std::uint64_t>(&request[position]);
        const entry &found = entries_[place_of(stamp)];
        return stamp != 0 && found.high.load(std::memory_order_relaxed) == stamp >> 32 &&
               found.low.load(std::memory_order_relaxed) == static_cast<std::uint32_t>(stamp);
    }

    std::vector<entry> entries_;
};

} // namespace olv_fastpath

#endif
