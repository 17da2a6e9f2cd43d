/**
 * @file sender_stamp.hpp
 * Whether a request's time stamp is one that a sender would write.
 */
#ifndef OLV_FASTPATH_SENDER_STAMP_HPP
#define OLV_FASTPATH_SENDER_STAMP_HPP

#include <cstdint>
#include <span>

#include "net/twamp_wire.hpp"

namespace olv_fastpath {

/** A request's time stamp, in the format that its error estimate tells. */
class sender_stamp {
  public:
    /** @param request  14 octets at least. */
    explicit sender_stamp(std::span<const std::uint8_t> request)
        : value_(olv_net::load<std::uint64_t>(&request[olv_net::sender_packet::timestamp])),
          is_ptp_(olv_net::has_ptp_format(&request[olv_net::sender_packet::error_estimate]))
    {}

    [[nodiscard]] std::uint64_t value() const { return value_; }

    /** Within a day of an instant, in units of ntp_time. In PTP format that may be TAI or UTC. */
    [[nodiscard]] bool is_near(std::uint64_t instant) const
    {
        const std::uint32_t ahead =
            static_cast<std::uint32_t>(value_ >> 32) - static_cast<std::uint32_t>(instant >> 32) + day;
        if (ahead <= 2 * day) [[likely]] {
            return true; // whatever format its error estimate tells
        }
        return is_ptp_ && ahead + olv_net::ntp_unix_offset <= 2 * day;
    }

    /** A clock without a date would show it, so many seconds, rounded down, after another stamp. */
    [[nodiscard]] bool follows(std::uint64_t earlier, std::uint64_t seconds) const
    {
        const std::uint64_t risen = value_ - earlier;
        return risen != 0 && risen >> 32 <= seconds + 1;
    }

  private:
    static constexpr std::uint32_t day = 86'400;

    std::uint64_t value_;
    bool is_ptp_;
};

} // namespace olv_fastpath

#endif
