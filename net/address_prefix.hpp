/**
 * @file address_prefix.hpp
 * Sets of addresses: prefixes of IPv4 and IPv6, and lists of them.
 */
#ifndef OLV_NET_ADDRESS_PREFIX_HPP
#define OLV_NET_ADDRESS_PREFIX_HPP

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "net/ip_address.hpp"

namespace olv_net {

/** All addresses of a family whose first bits are the same. */
struct address_prefix {
    ip_address address{}; ///< Bits behind the prefix are 0.
    unsigned length = 0;  ///< In bits of an IPv6 address: an IPv4 prefix of 24 bits has 96 + 24.

    /** An IPv6 prefix that is shorter than the mapped form's does not contain IPv4's addresses. */
    [[nodiscard]] bool holds_ipv4() const { return length >= mapped_prefix_bits && is_ipv4(address); }
    /** "192.0.2.0/24", "2001:db8::/32". */
    [[nodiscard]] std::string text() const;
};

/**
 * Parse "192.0.2.0/24", "2001:db8::/32", or an address, which stands for itself alone. A prefix of IPv4
 * addresses in their mapped form, "::ffff:192.0.2.0/120", is the same as the IPv4 prefix.
 * @throw std::runtime_error  One line that says what is wrong with the text.
 */
[[nodiscard]] address_prefix parse_address_prefix(std::string_view text);

/** Prefixes to look addresses up in; a short list is meant, it is gone through from the beginning. */
class prefix_list {
  public:
    void add(const address_prefix &prefix);
    [[nodiscard]] bool empty() const { return entries_.empty(); }
    [[nodiscard]] bool contains(const ip_address &address) const;

  private:
    /** An address as it stands in memory. */
    using words = std::array<std::uint64_t, 2>;
    struct entry {
        words value;
        words mask;
        bool holds_ipv4;
    };

    std::vector<entry> entries_;
};

} // namespace olv_net

#endif
