/**
 * @file test_packet.hpp
 * Making requests and judging replies.
 */
#ifndef OLV_PROBE_TEST_PACKET_HPP
#define OLV_PROBE_TEST_PACKET_HPP

#include <cstddef>
#include <cstdint>
#include <span>

#include "net/twamp_wire.hpp"
#include "probe/reply_fault.hpp"

namespace olv_probe {

/** The format of a request's time stamp. */
enum class stamp_format : std::uint8_t { ntp, ptp };

/** How a reply returns the time stamp of its request. */
enum class stamp_echo : std::uint8_t {
    exact, ///< Octet by octet. Only who saw the request can do that.
    near,  ///< Less than a millisecond off, or in the other format: it went through a conversion.
    wrong  ///< Anything else, or not at all.
};

/** Writes requests and recognises what reflectors make of them. Padding follows from a seed and the sequence
 *  number, so that none has to be kept. */
class test_packet_format {
  public:
    /** @param tai_ahead  Seconds that TAI is ahead of UTC, for PTP time stamps. */
    test_packet_format(std::size_t request_length, bool zero_padding, std::uint64_t seed,
                       stamp_format stamps = stamp_format::ntp, std::int32_t tai_ahead = 0)
        : request_length_(request_length),
          zero_padding_(zero_padding),
          stamps_(stamps),
          tai_ahead_(tai_ahead),
          seed_(seed)
    {}

    /** The sender's clock: not known to be synchronised, good to about a millisecond. */
    static constexpr std::uint16_t own_error_estimate = olv_net::error_estimate::make(22, 1);

    [[nodiscard]] std::size_t request_length() const { return request_length_; }
    /** A reply is never shorter than a reflector's header. */
    [[nodiscard]] std::size_t reply_length() const;
    [[nodiscard]] stamp_format stamps() const { return stamps_; }
    /** As it stands in a request. */
    [[nodiscard]] std::uint16_t error_estimate() const;

    /** @param request  Of request_length(). */
    void write_request(std::span<std::uint8_t> request, std::uint32_t sequence,
                       olv_net::ntp_time departure) const;

    /** Whether this begins like the request itself, which a reply does not by chance.
     *  @param octets  Of any number. */
    [[nodiscard]] bool is_request(std::span<const std::uint8_t> octets, std::uint32_t sequence,
                                  olv_net::ntp_time departure) const;

    /** @param reply  Of any length. */
    [[nodiscard]] stamp_echo echo_of(std::span<const std::uint8_t> reply, olv_net::ntp_time departure) const;

    /** What is odd about a reply, as far as the request alone decides it; the reflector's times are not looked
     * at.
     *  @param reply  Of any length. */
    [[nodiscard]] fault_set check(std::span<const std::uint8_t> reply, std::uint32_t sequence,
                                  olv_net::ntp_time departure) const;

  private:
    [[nodiscard]] std::uint64_t wire_stamp(olv_net::ntp_time departure) const;
    [[nodiscard]] fault_set check_zeros(std::span<const std::uint8_t> reply, std::uint32_t sequence) const;
    void write_padding(std::span<std::uint8_t> padding, std::uint32_t sequence) const;
    [[nodiscard]] bool is_padding(std::span<const std::uint8_t> reply, std::uint32_t sequence) const;

    std::size_t request_length_;
    bool zero_padding_;
    stamp_format stamps_;
    std::int32_t tai_ahead_;
    std::uint64_t seed_;
};

} // namespace olv_probe

#endif
