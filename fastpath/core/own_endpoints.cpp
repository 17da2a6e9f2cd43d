#include "fastpath/core/own_endpoints.hpp"

#include <algorithm>
#include <cstring>

#include <ifaddrs.h>
#include <netinet/in.h>

namespace olv_fastpath {

namespace {

constexpr std::uint8_t loopback_network = 127; ///< 127.0.0.0/8.

/** As the unspecified address of either family does. */
bool ends_in_zeros(const olv_net::ip_address &address)
{
    std::uint32_t end = 0;
    std::memcpy(&end, &address[olv_net::mapped_prefix.size()], sizeof end);
    return end == 0;
}

bool is_loopback(const olv_net::ip_address &address)
{
    constexpr olv_net::ip_address ipv6_loopback{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    return olv_net::is_ipv4(address) ? address[olv_net::mapped_prefix_bits / 8] == loopback_network
                                     : address == ipv6_loopback;
}

/** Keeps what is there when the system does not tell. */
void read_interfaces(std::vector<olv_net::ip_address> &addresses)
{
    ifaddrs *found = nullptr;
    if (getifaddrs(&found) != 0) {
        return;
    }
    addresses.clear();
    for (const ifaddrs *each = found; each != nullptr; each = each->ifa_next) {
        if (each->ifa_addr == nullptr) {
            continue;
        }
        sockaddr_storage address{};
        if (each->ifa_addr->sa_family == AF_INET) {
            std::memcpy(&address, each->ifa_addr, sizeof(sockaddr_in));
        } else if (each->ifa_addr->sa_family == AF_INET6) {
            std::memcpy(&address, each->ifa_addr, sizeof(sockaddr_in6));
        } else {
            continue;
        }
        addresses.push_back(olv_net::endpoint_of(address).address);
    }
    freeifaddrs(found);
}

} // namespace

void own_endpoints::add(const olv_net::ip_endpoint &listening)
{
    listening_[listening.port].insert(listening.address);
    ports_.set(listening.port);
}

void own_endpoints::remove(const olv_net::ip_endpoint &listening)
{
    const auto at_port = listening_.find(listening.port);
    if (at_port == listening_.end()) {
        return;
    }
    addresses &left = at_port->second;
    if (const auto found = left.find(listening.address); found != left.end()) {
        left.erase(found);
    }
    if (left.empty()) {
        listening_.erase(at_port);
        ports_.reset(listening.port);
    }
}

bool own_endpoints::contains(const olv_net::ip_endpoint &endpoint, std::uint64_t now)
{
    // Nearly all packets are told by these two, without looking at the whole address.
    if (!ends_in_zeros(endpoint.address) && !ports_.test(endpoint.port)) {
        return false;
    }
    const olv_net::ip_address unspecified = olv_net::unspecified_like(endpoint.address);
    return endpoint.address == unspecified || listens_at(endpoint) ||
           (listens_at({unspecified, endpoint.port}) && is_local(endpoint.address, now));
}

bool own_endpoints::listens_at(const olv_net::ip_endpoint &endpoint) const
{
    const auto at_port = listening_.find(endpoint.port);
    return at_port != listening_.end() && at_port->second.count(endpoint.address) != 0;
}

bool own_endpoints::is_local(const olv_net::ip_address &address, std::uint64_t now)
{
    if (is_loopback(address)) {
        return true;
    }
    if (interfaces_read_ != now) {
        read_interfaces(interfaces_);
        interfaces_read_ = now;
    }
    return std::find(interfaces_.begin(), interfaces_.end(), address) != interfaces_.end();
}

} // namespace olv_fastpath
