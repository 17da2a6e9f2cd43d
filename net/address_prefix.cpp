#include "net/address_prefix.hpp"

#include <algorithm>
#include <bit>
#include <cstring>

#include <arpa/inet.h>
#include <netinet/in.h>

#include "net/address_text.hpp"

namespace olv_net {

namespace {

constexpr unsigned address_bits = 128;

/** An address whose first @p length bits are set. */
ip_address mask_of(unsigned length)
{
    ip_address mask{};
    for (unsigned bit = 0; bit < length; ++bit) {
        mask[bit / 8] = static_cast<std::uint8_t>(mask[bit / 8] | 0x80u >> bit % 8);
    }
    return mask;
}

ip_address masked(ip_address address, unsigned length)
{
    const ip_address mask = mask_of(length);
    std::transform(address.begin(), address.end(), mask.begin(), address.begin(),
                   [](std::uint8_t byte, std::uint8_t kept) { return static_cast<std::uint8_t>(byte & kept); });
    return address;
}

/** @return Whether the text is an address of this family. */
bool parse_address(int family, const std::string &text, ip_address &address)
{
    if (family == AF_INET6) {
        return inet_pton(AF_INET6, text.c_str(), address.data()) == 1;
    }
    sockaddr_in ipv4{};
    ipv4.sin_family = AF_INET;
    if (inet_pton(AF_INET, text.c_str(), &ipv4.sin_addr) != 1) {
        return false;
    }
    sockaddr_storage storage{};
    std::memcpy(&storage, &ipv4, sizeof ipv4);
    address = endpoint_of(storage).address;
    return true;
}

unsigned parse_length(std::string_view text, std::string_view length, unsigned maximum)
{
    const std::optional<unsigned> value = parse_decimal(length, maximum);
    if (!value) {
        reject("prefix", text, "the length has to be a number from 0 to " + std::to_string(maximum));
    }
    return *value;
}

} // namespace

std::string address_prefix::text() const
{
    return text_of(address) + "/" + std::to_string(holds_ipv4() ? length - mapped_prefix_bits : length);
}

address_prefix parse_address_prefix(std::string_view text)
{
    reject_zero_bytes("prefix", text);
    const std::size_t slash = text.find('/');
    const std::string host{text.substr(0, slash)};
    address_prefix parsed;
    unsigned bits_before = 0;
    if (parse_address(AF_INET, host, parsed.address)) {
        bits_before = mapped_prefix_bits;
    } else if (!parse_address(AF_INET6, host, parsed.address)) {
        reject("prefix", text, "'" + host + "' is not an IPv4 or IPv6 address");
    }
    const unsigned maximum = address_bits - bits_before;
    parsed.length =
        bits_before +
        (slash == std::string_view::npos ? maximum : parse_length(text, text.substr(slash + 1), maximum));
    const address_prefix meant{masked(parsed.address, parsed.length), parsed.length};
    if (meant.address != parsed.address) {
        reject("prefix", text, "bits behind the prefix are set; the prefix is " + meant.text());
    }
    return parsed;
}

void prefix_list::add(const address_prefix &prefix)
{
    entries_.push_back({.value = std::bit_cast<words>(prefix.address),
                        .mask = std::bit_cast<words>(mask_of(prefix.length)),
                        .holds_ipv4 = prefix.holds_ipv4()});
}

bool prefix_list::contains(const ip_address &address) const
{
    const auto value = std::bit_cast<words>(address);
    const bool ipv4 = is_ipv4(address);
    return std::any_of(entries_.begin(), entries_.end(), [&](const entry &each) {
        return each.holds_ipv4 == ipv4 && (value[0] & each.mask[0]) == each.value[0] &&
               (value[1] & each.mask[1]) == each.value[1];
    });
}

} // namespace olv_net
