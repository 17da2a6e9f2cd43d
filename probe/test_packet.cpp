#include "probe/test_packet.hpp"

#include <algorithm>
#include <array>

namespace olv_probe {
namespace {

namespace wire = olv_net;
namespace request_field = olv_net::sender_packet;
namespace reply_field = olv_net::reflector_packet;

/** Octets that look random: a counter through a 64-bit mixer, eight octets at a time. */
class octet_stream {
  public:
    octet_stream(std::uint64_t seed, std::uint32_t sequence)
        : state_(seed ^ (std::uint64_t{sequence} + 1) * 0xD1342543DE82EF95u)
    {}

    std::uint8_t next()
    {
        if (left_ == 0) {
            state_ += 0x9E3779B97F4A7C15u;
            std::uint64_t mixed = state_;
            mixed = (mixed ^ mixed >> 30) * 0xBF58476D1CE4E5B9u;
            mixed = (mixed ^ mixed >> 27) * 0x94D049BB133111EBu;
            word_ = mixed ^ mixed >> 31;
            left_ = 8;
        }
        const auto octet = static_cast<std::uint8_t>(word_);
        word_ >>= 8;
        --left_;
        return octet;
    }

  private:
    std::uint64_t state_;
    std::uint64_t word_ = 0;
    unsigned left_ = 0;
};

bool has_multiplier(std::uint16_t estimate)
{
    return (estimate & 0xFFu) != 0;
}

} // namespace

const char *text_of(reply_fault fault)
{
    static constexpr std::array<const char *, reply_fault_count> texts = {
        "none",
        "wrong length",
        "a field that must be zero is not",
        "sender sequence number never sent",
        "sender timestamp not as sent",
        "sender error estimate not as sent",
        "sender TTL 0",
        "reflector sequence number not above the one before",
        "received after it was sent back",
        "error estimate with multiplier 0",
        "padding not as sent",
    };
    return texts[static_cast<std::size_t>(fault)];
}

std::size_t test_packet_format::reply_length() const
{
    return std::max(request_length_, reply_field::header_length);
}

void test_packet_format::write_request(std::span<std::uint8_t> request, std::uint32_t sequence,
                                       wire::ntp_time departure) const
{
    wire::store_32(&request[request_field::sequence_number], sequence);
    wire::store_ntp(&request[request_field::timestamp], departure);
    wire::store_16(&request[request_field::error_estimate], error_estimate);
    write_padding(request.subspan(request_field::padding), sequence);
}

reply_fault test_packet_format::check_form(std::span<const std::uint8_t> reply) const
{
    if (reply.size() != reply_length()) {
        return reply_fault::length;
    }
    if (wire::load_16(&reply[reply_field::zero_14]) != 0 || wire::load_16(&reply[reply_field::zero_38]) != 0) {
        return reply_fault::must_be_zero;
    }
    return reply_fault::none;
}

reply_fault test_packet_format::check_echo(std::span<const std::uint8_t> reply, std::uint32_t sequence,
                                           wire::ntp_time departure) const
{
    if (wire::load_ntp(&reply[reply_field::sender_timestamp]) != departure) {
        return reply_fault::sender_timestamp;
    }
    if (wire::load_16(&reply[reply_field::sender_error_estimate]) != error_estimate) {
        return reply_fault::sender_error_estimate;
    }
    if (reply[reply_field::sender_ttl] == 0) {
        return reply_fault::sender_ttl;
    }
    const std::uint64_t arrival = wire::load_ntp(&reply[reply_field::receive_timestamp]).units();
    const std::uint64_t sent_back = wire::load_ntp(&reply[reply_field::timestamp]).units();
    if (static_cast<std::int64_t>(sent_back - arrival) < 0) { // right across the wrap of seconds
        return reply_fault::timestamps;
    }
    if (!has_multiplier(wire::load_16(&reply[reply_field::error_estimate]))) {
        return reply_fault::error_estimate;
    }
    return is_padding(reply.subspan(reply_field::padding), sequence) ? reply_fault::none : reply_fault::padding;
}

void test_packet_format::write_padding(std::span<std::uint8_t> padding, std::uint32_t sequence) const
{
    if (stamp_) {
        std::fill(padding.begin(), padding.end(), std::uint8_t{0});
        return;
    }
    octet_stream octets{seed_, sequence};
    std::generate(padding.begin(), padding.end(), [&octets] { return octets.next(); });
}

bool test_packet_format::is_padding(std::span<const std::uint8_t> padding, std::uint32_t sequence) const
{
    const bool zeros =
        std::all_of(padding.begin(), padding.end(), [](std::uint8_t octet) { return octet == 0; });
    // By its length alone, a reflector may take the request for a STAMP packet.
    if (stamp_ || (zeros && request_length_ == wire::stamp_length)) {
        return zeros;
    }
    octet_stream octets{seed_, sequence};
    return std::all_of(padding.begin(), padding.end(),
                       [&octets](std::uint8_t octet) { return octet == octets.next(); });
}

} // namespace olv_probe
