/**
 * @file own_endpoints.hpp
 * Where the server itself listens, to tell packets that pretend to come from there.
 */
#ifndef OLV_FASTPATH_OWN_ENDPOINTS_HPP
#define OLV_FASTPATH_OWN_ENDPOINTS_HPP

#include <bitset>
#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "net/ip_address.hpp"

namespace olv_fastpath {

/** The addresses and ports of a server's sockets. Belongs to one thread at a time. */
class own_endpoints {
  public:
    /** A socket listens there from now on. The unspecified address of a family stands for all addresses that
     *  this system's interfaces have. */
    void add(const olv_net::ip_endpoint &listening);
    /** A socket that listened there is gone. */
    void remove(const olv_net::ip_endpoint &listening);

    /**
     * Whether what is sent to an endpoint reaches a socket of the server, or may: one listens there, or the
     * address is the unspecified one, which stands for this system.
     * @param now  Seconds of a clock: the interfaces' addresses are read again from time to time.
     */
    [[nodiscard]] bool contains(const olv_net::ip_endpoint &endpoint, std::uint64_t now);

  private:
    [[nodiscard]] bool listens_at(const olv_net::ip_endpoint &endpoint) const;
    [[nodiscard]] bool is_local(const olv_net::ip_address &address, std::uint64_t now);

    /** Several sockets can have the same one: link-local addresses are told apart by their interfaces. */
    using addresses = std::multiset<olv_net::ip_address>;

    std::bitset<65536> ports_;                     ///< Of the sockets: few packets come from one of them.
    std::map<std::uint16_t, addresses> listening_; ///< By port.
    std::vector<olv_net::ip_address> interfaces_;
    std::uint64_t interfaces_read_ = UINT64_MAX; ///< When, in seconds; UINT64_MAX: never.
};

} // namespace olv_fastpath

#endif
