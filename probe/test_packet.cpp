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

/** A forger who does not see the requests cannot know T1 as well as this. */
constexpr std::int64_t near_nanoseconds = 1'000'000;

bool is_near(wire::ntp_time one, wire::ntp_time other)
{
    const std::int64_t apart = wire::nanoseconds_between(one, other);
    return apart < near_nanoseconds && apart > -near_nanoseconds;
}

} // namespace

std::size_t test_packet_format::reply_length() const
{
    return std::max(request_length_, reply_field::header_length);
}

void test_packet_format::write_request(std::span<std::uint8_t> request, std::uint32_t sequence,
                                       wire::ntp_time departure) const
{
    wire::store_32(&request[request_field::sequence_number], sequence);
    wire::store(&request[request_field::timestamp], wire_stamp(departure));
    wire::store_16(&request[request_field::error_estimate], error_estimate());
    write_padding(request.subspan(request_field::padding), sequence);
}

/** The reply of a reflector with the request's number and the same coarse clock begins like it, too; but it has
 * the request's header further on. */
bool test_packet_format::is_request(std::span<const std::uint8_t> octets, std::uint32_t sequence,
                                    wire::ntp_time departure) const
{
    return octets.size() >= request_field::padding &&
           wire::load_32(&octets[request_field::sequence_number]) == sequence &&
           wire::load<std::uint64_t>(&octets[request_field::timestamp]) == wire_stamp(departure) &&
           wire::load_16(&octets[request_field::error_estimate]) == error_estimate() &&
           echo_of(octets, departure) != stamp_echo::exact;
}

std::uint16_t test_packet_format::error_estimate() const
{
    return stamps_ == stamp_format::ptp ? own_error_estimate | wire::error_estimate::ptp_format
                                        : own_error_estimate;
}

std::uint64_t test_packet_format::wire_stamp(wire::ntp_time departure) const
{
    return stamps_ == stamp_format::ptp ? wire::ptp_time::from_ntp(departure, tai_ahead_).words()
                                        : departure.units();
}

stamp_echo test_packet_format::echo_of(std::span<const std::uint8_t> reply, wire::ntp_time departure) const
{
    if (reply.size() < reply_field::sender_error_estimate) {
        return stamp_echo::wrong;
    }
    const std::uint8_t *const stamp = &reply[reply_field::sender_timestamp];
    if (wire::load<std::uint64_t>(stamp) == wire_stamp(departure)) {
        return stamp_echo::exact;
    }
    const wire::ptp_time as_ptp = wire::load_ptp(stamp);
    const bool near = is_near(wire::load_ntp(stamp), departure) ||
                      (as_ptp.is_valid() && is_near(as_ptp.to_ntp(tai_ahead_), departure));
    return near ? stamp_echo::near : stamp_echo::wrong;
}

fault_set test_packet_format::check(std::span<const std::uint8_t> reply, std::uint32_t sequence,
                                    wire::ntp_time departure) const
{
    fault_set faults = check_zeros(reply, sequence);
    if (reply.size() < reply_field::header_length) {
        faults.add(reply_fault::header);
    } else if (reply.size() != reply_length()) {
        faults.add(reply_fault::length);
    }
    if (echo_of(reply, departure) != stamp_echo::exact) {
        faults.add(reply_fault::sender_timestamp);
    }
    if (reply.size() >= reply_field::zero_38 &&
        wire::load_16(&reply[reply_field::sender_error_estimate]) != error_estimate()) {
        faults.add(reply_fault::sender_error_estimate);
    }
    if (reply.size() >= reply_field::header_length && reply[reply_field::sender_ttl] == 0) {
        faults.add(reply_fault::sender_ttl);
    }
    if (reply.size() >= reply_field::zero_14 &&
        (wire::load_16(&reply[reply_field::error_estimate]) & 0xFFu) == 0) {
        faults.add(reply_fault::error_estimate);
    }
    if (!is_padding(reply, sequence)) {
        faults.add(reply_fault::padding);
    }
    return faults;
}

/** A reflector that knows the extensions of STAMP (RFC 8972) returns the request's octets 14-15, where an SSID
 *  stands, and some have it in octets 38-39, too. */
fault_set test_packet_format::check_zeros(std::span<const std::uint8_t> reply, std::uint32_t sequence) const
{
    std::array<std::uint8_t, 2> padding{};
    if (request_length_ >= request_field::padding + padding.size()) {
        write_padding(padding, sequence);
    }
    const std::uint16_t ssid = wire::load_16(padding.data());
    fault_set faults;
    for (const std::size_t place : {reply_field::zero_14, reply_field::zero_38}) {
        if (reply.size() < place + sizeof ssid) {
            break;
        }
        if (const std::uint16_t found = wire::load_16(&reply[place]); found != 0) {
            faults.add(found == ssid ? reply_fault::ssid : reply_fault::must_be_zero);
        }
    }
    return faults;
}

void test_packet_format::write_padding(std::span<std::uint8_t> padding, std::uint32_t sequence) const
{
    if (zero_padding_) {
        std::fill(padding.begin(), padding.end(), std::uint8_t{0});
        return;
    }
    octet_stream octets{seed_, sequence};
    std::generate(padding.begin(), padding.end(), [&octets] { return octets.next(); });
}

/** What there is of the request's padding in the reply. */
bool test_packet_format::is_padding(std::span<const std::uint8_t> reply, std::uint32_t sequence) const
{
    if (reply.size() <= reply_field::padding) {
        return true;
    }
    const std::span<const std::uint8_t> padding = reply.subspan(reply_field::padding);
    const std::size_t sent = request_length_ - request_field::padding;
    const auto compared = padding.first(std::min(padding.size(), sent));
    const auto is_zero = [](std::uint8_t octet) { return octet == 0; };
    // By the length alone, a reflector may take the request for a STAMP packet.
    if (zero_padding_ ||
        (reply.size() == wire::stamp_length && std::all_of(padding.begin(), padding.end(), is_zero))) {
        return std::all_of(compared.begin(), compared.end(), is_zero);
    }
    octet_stream octets{seed_, sequence};
    return std::all_of(compared.begin(), compared.end(),
                       [&octets](std::uint8_t octet) { return octet == octets.next(); });
}

} // namespace olv_probe
