#include "net/ip_address.hpp"

#include <algorithm>

#include <arpa/inet.h>
#include <netinet/in.h>

namespace olv_net {

std::string text_of(const ip_address &address)
{
    char text[INET6_ADDRSTRLEN] = {};
    if (is_ipv4(address)) {
        (void)inet_ntop(AF_INET, &address[mapped_prefix.size()], text, sizeof text); // there is room
    } else {
        (void)inet_ntop(AF_INET6, address.data(), text, sizeof text);
    }
    return text;
}

std::string text_of(const ip_endpoint &endpoint)
{
    const std::string host = text_of(endpoint.address);
    return (is_ipv4(endpoint.address) ? host : "[" + host + "]") + ":" + std::to_string(endpoint.port);
}

ip_endpoint endpoint_of(const sockaddr_storage &address)
{
    ip_endpoint endpoint;
    if (address.ss_family == AF_INET6) {
        sockaddr_in6 ipv6{};
        std::memcpy(&ipv6, &address, sizeof ipv6);
        std::memcpy(endpoint.address.data(), &ipv6.sin6_addr, endpoint.address.size());
        endpoint.port = ntohs(ipv6.sin6_port);
        return endpoint;
    }
    sockaddr_in ipv4{};
    std::memcpy(&ipv4, &address, sizeof ipv4);
    std::copy(mapped_prefix.begin(), mapped_prefix.end(), endpoint.address.begin());
    std::memcpy(&endpoint.address[mapped_prefix.size()], &ipv4.sin_addr, sizeof ipv4.sin_addr);
    endpoint.port = ntohs(ipv4.sin_port);
    return endpoint;
}

} // namespace olv_net
