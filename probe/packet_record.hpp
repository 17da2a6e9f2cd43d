/**
 * @file packet_record.hpp
 * What is kept of a packet until the figures are made.
 */
#ifndef OLV_PROBE_PACKET_RECORD_HPP
#define OLV_PROBE_PACKET_RECORD_HPP

#include <cstddef>
#include <cstdint>

#include "probe/reply_fault.hpp"

namespace olv_probe {

/** The three delays of a packet; see docs/probe.md. The one-way delays contain the difference of the clocks. */
enum class path : std::uint8_t {
    round_trip, ///< (T4 - T1) - (T3 - T2)
    forward,    ///< T2 - T1
    backward    ///< T4 - T3
};
inline constexpr std::size_t path_count = 3;

/** Nanoseconds, up to 39 hours, in six octets. */
class short_delay {
  public:
    constexpr short_delay() = default;
    constexpr short_delay(std::int64_t nanoseconds)
        : low_(static_cast<std::uint16_t>(nanoseconds)),
          middle_(static_cast<std::uint16_t>(nanoseconds >> 16)),
          high_(static_cast<std::int16_t>(nanoseconds >> 32))
    {}
    constexpr short_delay &operator+=(std::int64_t more) { return *this = *this + more; }
    constexpr operator std::int64_t() const
    {
        return std::int64_t{high_} * (std::int64_t{1} << 32) + (std::int64_t{middle_} << 16 | low_);
    }

  private:
    std::uint16_t low_ = 0;
    std::uint16_t middle_ = 0;
    std::int16_t high_ = 0;
};

/** 40 octets. What is said of the reply is that of the first one. */
struct packet_record {
    std::uint64_t departure = 0; ///< T1, in 2^-32 seconds of NTP time.
    std::int64_t sent_at = 0;    ///< Nanoseconds since the run began.
    short_delay round_trip;
    short_delay forward;
    std::uint16_t duplicates = 0;       ///< Up to 65535.
    std::uint8_t request_ttl = 0;       ///< 0: not known.
    std::uint8_t reply_ttl = 0;         ///< 0: not known.
    std::uint32_t reflector_number = 0; ///< The reply's own sequence number.
    std::uint32_t fault_bits : 18 = 0;
    std::uint32_t reply_traffic_class : 8 = 0;
    std::uint32_t began_anew : 1 = 0; ///< The reflector's numbers, with this reply.
    std::uint32_t answered : 1 = 0;
    std::uint32_t late : 1 = 0;
    std::uint32_t expired : 1 = 0;          ///< Left the window unanswered.
    std::uint32_t measured : 1 = 0;         ///< There is a round trip.
    std::uint32_t one_way_measured : 1 = 0; ///< There are one-way delays.

    [[nodiscard]] fault_set faults() const { return fault_set{fault_bits}; }
    void set_faults(fault_set faults) { fault_bits = faults.bits() & 0x3FFFFu; }
    [[nodiscard]] bool is_valid() const { return answered && faults().is_empty(); }
    [[nodiscard]] bool has(path which) const { return which == path::round_trip ? measured : one_way_measured; }
    /** Only of what it has. */
    [[nodiscard]] std::int64_t delay(path which) const
    {
        switch (which) {
        case path::forward:
            return forward;
        case path::backward:
            return round_trip - forward;
        default:
            return round_trip;
        }
    }
};

// What answers no request has no record: its faults need no bits.
static_assert(sizeof(packet_record) == 40 && static_cast<unsigned>(reply_fault::too_short) <= 18);

} // namespace olv_probe

#endif
