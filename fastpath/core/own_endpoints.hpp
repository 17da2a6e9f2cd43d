/**
 * @file own_endpoints.hpp
 * Where the server itself listens, to tell packets that pretend to come from there.
 */
#ifndef OLV_FASTPATH_OWN_ENDPOINTS_HPP
#define OLV_FASTPATH_OWN_ENDPOINTS_HPP

#include <bitset>
#include <cstdint>
#include <span>
#include <vector>

#include "net/ip_address.hpp"

namespace olv_fastpath {

/** The addresses and ports of a server's sockets. Belongs to one thread at a time. */
class own_endpoints {
  public:
    /** Where the sockets listen from now on. The unspecified address of a family stands for all addresses
     *  that this system's interfaces have. */
    void set(std::span<const olv_net::ip_endpoint> listening);

    /**
     * Whether what is sent to an endpoint reaches a socket of the server, or may: one listens there, or the
     * address is the unspecified one, which stands for this system.
     * @param now  Seconds of a clock: the interfaces' addresses are read again from time to time.
     */
    [[nodiscard]] bool contains(const olv_net::ip_endpoint &endpoint, std::uint64_t now);

  private:
    [[nodiscard]] bool listens_at(const olv_net::ip_endpoint &endpoint) const;
    [[nodiscard]] bool is_local(const olv_net::ip_address &address, std::uint64_t now);

    std::bitset<65536> ports_;                    ///< Of the sockets: few packets come from one of them.
    std::vector<olv_net::ip_endpoint> listening_; ///< Sorted.
    std::vector<olv_net::ip_address> interfaces_;
    std::uint64_t interfaces_read_ = UINT64_MAX; ///< When, in seconds; UINT64_MAX: never.
};

} // namespace olv_fastpath

#endif
