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

namespace olv_probe {

/** What is wrong with a reply; the first thing found counts. */
enum class reply_fault : std::uint8_t {
    none,
    length,
    must_be_zero,
    sender_sequence,
    sender_timestamp,
    sender_error_estimate,
    sender_ttl,
    reflector_sequence,
    timestamps,
    error_estimate,
    padding
};

inline constexpr std::size_t reply_fault_count = static_cast<std::size_t>(reply_fault::padding) + 1;

[[nodiscard]] const char *text_of(reply_fault fault);

/** Writes requests and recognises what reflectors make of them. Padding follows from a seed and the sequence
 *  number, so that none has to be kept. */
class test_packet_format {
  public:
    test_packet_format(std::size_t request_length, bool stamp, std::uint64_t seed)
        : request_length_(request_length), stamp_(stamp), seed_(seed)
    {}

    /** The sender's clock: not known to be synchronised, good to about a millisecond. */
    static constexpr std::uint16_t error_estimate = olv_net::error_estimate::make(22, 1);

    [[nodiscard]] std::size_t request_length() const { return request_length_; }
    /** A reply is never shorter than a reflector's header. */
    [[nodiscard]] std::size_t reply_length() const;

    /** @param request  Of request_length(). */
    void write_request(std::span<std::uint8_t> request, std::uint32_t sequence,
                       olv_net::ntp_time departure) const;

    /** What can be judged without knowing the request's time and the replies before. */
    [[nodiscard]] reply_fault check_form(std::span<const std::uint8_t> reply) const;

    /** The rest of the fields that the request alone decides. @p reply has passed check_form(). */
    [[nodiscard]] reply_fault check_echo(std::span<const std::uint8_t> reply, std::uint32_t sequence,
                                         olv_net::ntp_time departure) const;

  private:
    void write_padding(std::span<std::uint8_t> padding, std::uint32_t sequence) const;
    [[nodiscard]] bool is_padding(std::span<const std::uint8_t> padding, std::uint32_t sequence) const;

    std::size_t request_length_;
    bool stamp_;
    std::uint64_t seed_;
};

} // namespace olv_probe

#endif
