/**
 * @file reply_fault.hpp
 * What can be odd about a reply.
 */
#ifndef OLV_PROBE_REPLY_FAULT_HPP
#define OLV_PROBE_REPLY_FAULT_HPP

#include <cstddef>
#include <cstdint>
#include <string>

namespace olv_probe {

/** A reply can have several. */
enum class reply_fault : std::uint8_t {
    length,                ///< Not the request's, and not the 41 octets that are the least.
    header,                ///< Shorter than a reflector's header.
    must_be_zero,          ///< Octets 14-15 or 38-39.
    ssid,                  ///< The request's octets 14-15 in one of these places.
    sender_timestamp,      ///< The request's comes back changed, or not at all.
    sender_error_estimate, ///< The same.
    sender_ttl,            ///< 0.
    reflector_sequence,    ///< The reflector used this number before.
    error_estimate,        ///< Its multiplier is 0.
    padding,               ///< The request's comes back changed.
    other_format,          ///< The time stamps are PTP's where NTP's were sent, or the other way round.
    format_mark,           ///< The time stamps are not in the format that the error estimate says.
    // Times that cannot be: there is no delay.
    zero_timestamp, ///< T2 or T3.
    far_timestamp,  ///< T2 or T3 is more than a day from the sender's clock.
    timestamps,     ///< T3 is before T2.
    reflector_time, ///< T3 - T2 is above T4 - T1.
    // The one-way delays alone are missing.
    clock_jump, ///< The reflector's clock was elsewhere for this reply alone.
    // No request is answered.
    too_short,      ///< The sender's sequence number is missing.
    echo,           ///< It is the request itself.
    sender_sequence ///< Never sent.
};

inline constexpr std::size_t reply_fault_count = static_cast<std::size_t>(reply_fault::sender_sequence) + 1;

/** As text for people: "padding not as sent". */
[[nodiscard]] const char *text_of(reply_fault fault);
/** As a name for programs: "padding". */
[[nodiscard]] const char *name_of(reply_fault fault);

class fault_set {
  public:
    constexpr fault_set() = default;
    constexpr explicit fault_set(std::uint32_t bits) : bits_(bits) {}

    constexpr void add(reply_fault fault) { bits_ |= bit(fault); }
    constexpr void add(fault_set others) { bits_ |= others.bits_; }
    [[nodiscard]] constexpr bool has(reply_fault fault) const { return (bits_ & bit(fault)) != 0; }
    [[nodiscard]] constexpr bool is_empty() const { return bits_ == 0; }
    /** No round trip can be taken from a reply with one of these. */
    [[nodiscard]] constexpr bool prevents_delays() const
    {
        return has(reply_fault::zero_timestamp) || has(reply_fault::far_timestamp) ||
               has(reply_fault::timestamps) || has(reply_fault::reflector_time);
    }
    [[nodiscard]] constexpr std::uint32_t bits() const { return bits_; }

    friend constexpr bool operator==(fault_set, fault_set) = default;

  private:
    static constexpr std::uint32_t bit(reply_fault fault) { return 1u << static_cast<unsigned>(fault); }

    std::uint32_t bits_ = 0;
};

/** "padding not as sent; sender TTL 0". */
[[nodiscard]] std::string text_of(fault_set faults);

} // namespace olv_probe

#endif
