#include "probe/test_socket.hpp"

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include <arpa/inet.h>
#include <netinet/in.h>

namespace olv_probe {
namespace {

constexpr int wanted_receive_buffer = 4 << 20;
constexpr unsigned ecn_bits = 2;               ///< Below the DSCP.
constexpr std::size_t header_octets_ipv4 = 28; ///< Of IP and UDP.
constexpr std::size_t header_octets_ipv6 = 48;

std::runtime_error system_error(const std::string &what)
{
    return std::runtime_error(what + ": " + std::strerror(errno));
}

void set_option(int socket, int level, int option, int value, const char *name)
{
    if (setsockopt(socket, level, option, &value, sizeof value) != 0) {
        throw system_error(std::string("cannot set ") + name);
    }
}

void configure_ipv4(int socket, const session_options &options, int traffic_class)
{
    set_option(socket, IPPROTO_IP, IP_TTL, options.ttl, "the TTL");
    set_option(socket, IPPROTO_IP, IP_TOS, traffic_class, "the DSCP");
    set_option(socket, IPPROTO_IP, IP_RECVTTL, 1, "the reading of TTLs");
    set_option(socket, IPPROTO_IP, IP_RECVTOS, 1, "the reading of DSCPs");
    if (options.dont_fragment) {
        set_option(socket, IPPROTO_IP, IP_MTU_DISCOVER, IP_PMTUDISC_DO, "the prohibition of fragments");
    }
}

void configure_ipv6(int socket, const session_options &options, int traffic_class)
{
    set_option(socket, IPPROTO_IPV6, IPV6_UNICAST_HOPS, options.ttl, "the hop limit");
    set_option(socket, IPPROTO_IPV6, IPV6_TCLASS, traffic_class, "the DSCP");
    set_option(socket, IPPROTO_IPV6, IPV6_RECVHOPLIMIT, 1, "the reading of hop limits");
    set_option(socket, IPPROTO_IPV6, IPV6_RECVTCLASS, 1, "the reading of DSCPs");
    if (options.dont_fragment) {
        set_option(socket, IPPROTO_IPV6, IPV6_MTU_DISCOVER, IPV6_PMTUDISC_DO, "the prohibition of fragments");
        set_option(socket, IPPROTO_IPV6, IPV6_DONTFRAG, 1, "the prohibition of fragments");
    }
}

void bind_to_interface(int socket, const std::string &name)
{
    if (setsockopt(socket, SOL_SOCKET, SO_BINDTODEVICE, name.data(), static_cast<socklen_t>(name.size())) !=
        0) {
        throw errno == ENODEV ? std::runtime_error("there is no interface '" + name + "'")
                              : system_error("cannot use the interface '" + name + "'");
    }
}

void bind_to_source(int socket, const session_options &options, unsigned sender)
{
    olv_net::socket_address source = *options.source;
    if (source.family() != options.reflector.family()) {
        throw std::runtime_error("the source " + source.text() + " and the reflector " +
                                 options.reflector.text() + " are of different families");
    }
    if (const std::uint16_t first = source.port(); first != 0) {
        sockaddr_in any{}; // the port stands at the same place in both families
        std::memcpy(&any, &source.address, sizeof any);
        any.sin_port = htons(static_cast<std::uint16_t>(first + sender));
        std::memcpy(&source.address, &any, sizeof any);
    }
    if (bind(socket, source.generic(), source.length) != 0) {
        throw errno == EADDRNOTAVAIL ? std::runtime_error(source.text() + " is no address of this host")
                                     : system_error("cannot send from " + source.text());
    }
}

int path_mtu(int socket, int family)
{
    int mtu = 0;
    socklen_t length = sizeof mtu;
    const bool ipv6 = family == AF_INET6;
    const int known =
        getsockopt(socket, ipv6 ? IPPROTO_IPV6 : IPPROTO_IP, ipv6 ? IPV6_MTU : IP_MTU, &mtu, &length);
    return known == 0 ? mtu : 0;
}

} // namespace

olv_net::descriptor open_test_socket(const session_options &options, unsigned sender)
{
    const int family = options.reflector.family();
    olv_net::descriptor opened{socket(family, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)};
    if (!opened.is_open()) {
        throw system_error("cannot open a socket");
    }
    const int traffic_class = options.dscp << ecn_bits | options.ecn;
    if (family == AF_INET6) {
        configure_ipv6(opened.number(), options, traffic_class);
    } else {
        configure_ipv4(opened.number(), options, traffic_class);
    }
    set_option(opened.number(), SOL_SOCKET, SO_RCVBUF, wanted_receive_buffer, "the receive buffer");
    if (!options.interface.empty()) {
        bind_to_interface(opened.number(), options.interface);
    }
    if (options.source) {
        bind_to_source(opened.number(), options, sender);
    }
    if (connect(opened.number(), options.reflector.generic(), options.reflector.length) != 0) {
        throw system_error("cannot reach " + options.reflector.text());
    }
    return opened;
}

ip_header_fields header_fields_of(msghdr &message)
{
    ip_header_fields fields;
    for (cmsghdr *part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
        int value = 0;
        const bool ipv4 = part->cmsg_level == IPPROTO_IP;
        if (ipv4 && part->cmsg_type == IP_TOS) {
            fields.traffic_class = *CMSG_DATA(part); // the only one that is an octet
            continue;
        }
        if (!ipv4 && part->cmsg_level != IPPROTO_IPV6) {
            continue;
        }
        std::memcpy(&value, CMSG_DATA(part), sizeof value);
        if (part->cmsg_type == (ipv4 ? IP_TTL : IPV6_HOPLIMIT)) {
            fields.ttl = static_cast<std::uint8_t>(value);
        } else if (!ipv4 && part->cmsg_type == IPV6_TCLASS) {
            fields.traffic_class = static_cast<std::uint8_t>(value);
        }
    }
    return fields;
}

std::string refusal_text(const std::string &what, int socket, const session_options &options)
{
    const int error = errno;
    const int mtu =
        error == EMSGSIZE && options.dont_fragment ? path_mtu(socket, options.reflector.family()) : 0;
    const std::size_t headers =
        options.reflector.family() == AF_INET6 ? header_octets_ipv6 : header_octets_ipv4;
    if (static_cast<std::size_t>(mtu) <= headers) {
        return what + ": " + std::strerror(error);
    }
    return what + " without fragments: packets on the way have at most " + std::to_string(mtu) +
           " octets; use --size " + std::to_string(static_cast<std::size_t>(mtu) - headers) + " or less";
}

} // namespace olv_probe
