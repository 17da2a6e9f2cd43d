#include "fastpath/udp/socket_options.hpp"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

#include <linux/filter.h>
#include <linux/if_packet.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <netinet/udp.h>

#include "net/ip_address.hpp"

namespace olv_fastpath {

namespace {

constexpr int hop_limit = 255; ///< What receivers of replies count the hops from.
constexpr int receive_buffer_bytes = 8 << 20;

/** Whether the socket receives what is sent to several addresses. */
bool has_several_addresses(const sockaddr_storage &address)
{
    const olv_net::ip_endpoint endpoint = olv_net::endpoint_of(address);
    if (olv_net::is_ipv4(endpoint.address)) {
        const std::uint8_t first = endpoint.address[olv_net::mapped_prefix.size()];
        return first == 0 || first >= 224; // unspecified, or a group's
    }
    return endpoint.address == olv_net::ip_address{} || endpoint.address[0] == 0xFF;
}

bool ask_for_ip_header(int socket, const sockaddr_storage &address)
{
    const bool several = has_several_addresses(address);
    if (address.ss_family == AF_INET6) {
        return set_option(socket, IPPROTO_IPV6, IPV6_V6ONLY, 1) &&
               (!several || set_option(socket, IPPROTO_IPV6, IPV6_RECVPKTINFO, 1)) &&
               set_option(socket, IPPROTO_IPV6, IPV6_RECVHOPLIMIT, 1) &&
               set_option(socket, IPPROTO_IPV6, IPV6_RECVTCLASS, 1) &&
               set_option(socket, IPPROTO_IPV6, IPV6_UNICAST_HOPS, hop_limit);
    }
    return (!several || set_option(socket, IPPROTO_IP, IP_PKTINFO, 1)) &&
           set_option(socket, IPPROTO_IP, IP_RECVTTL, 1) && set_option(socket, IPPROTO_IP, IP_RECVTOS, 1) &&
           set_option(socket, IPPROTO_IP, IP_TTL, hop_limit) &&
           // Datagrams that the system is never to split need no identification, whose numbers all processors
           // share; what is too long for its path is sent again.
           set_option(socket, IPPROTO_IP, IP_MTU_DISCOVER, IP_PMTUDISC_DO);
}

/** Systems that do not know segments ignore the request for them in the control data. Emulators of big-endian
 *  processors hand it on unconverted. */
bool knows_segments(int socket)
{
    return std::endian::native == std::endian::little && set_option(socket, SOL_UDP, UDP_SEGMENT, 0);
}

constexpr std::uint32_t whole_packet = UINT32_MAX; ///< Octets.

constexpr sock_filter keep(std::uint32_t octets)
{
    return {.code = BPF_RET | BPF_K, .jt = 0, .jf = 0, .k = octets};
}

constexpr sock_filter load_octet(int place)
{
    return {.code = BPF_LD | BPF_B | BPF_ABS, .jt = 0, .jf = 0, .k = static_cast<std::uint32_t>(place)};
}

/** @param destination  Where the IP header has it. @param first_group  First octet of a group's address. */
constexpr std::array<sock_filter, 6> to_this_host(int destination, std::uint32_t first_group)
{
    return {load_octet(SKF_AD_OFF + SKF_AD_PKTTYPE),
            sock_filter{.code = BPF_JMP | BPF_JEQ | BPF_K, .jt = 0, .jf = 3, .k = PACKET_HOST},
            load_octet(SKF_NET_OFF + destination),
            sock_filter{.code = BPF_JMP | BPF_JGE | BPF_K, .jt = 1, .jf = 0, .k = first_group},
            keep(whole_packet),
            keep(0)};
}

template <std::size_t Length> bool attach(int socket, std::array<sock_filter, Length> program)
{
    const sock_fprog attached{.len = Length, .filter = program.data()};
    return setsockopt(socket, SOL_SOCKET, SO_ATTACH_FILTER, &attached, sizeof attached) == 0;
}

} // namespace

bool set_option(int socket, int level, int option, int value)
{
    return setsockopt(socket, level, option, &value, sizeof value) == 0;
}

std::optional<socket_abilities> prepare_socket(int socket, const sockaddr_storage &address)
{
    // Beyond the system's limit where the process may, up to it otherwise. Smaller is no error.
    if (!set_option(socket, SOL_SOCKET, SO_RCVBUFFORCE, receive_buffer_bytes)) {
        (void)set_option(socket, SOL_SOCKET, SO_RCVBUF, receive_buffer_bytes);
    }
    (void)set_option(socket, SOL_SOCKET, SO_TIMESTAMPNS, 1); // the batch's time serves where there is none
    if (!ask_for_ip_header(socket, address)) {
        return std::nullopt;
    }
    return socket_abilities{.segments = knows_segments(socket)};
}

bool share_address(int socket)
{
    return set_option(socket, SOL_SOCKET, SO_REUSEPORT, 1);
}

bool keep_packets(int socket, int family, kept_packets which)
{
    switch (which) {
    case kept_packets::none:
        return attach(socket, std::array{keep(0)});
    case kept_packets::to_this_host:
        return attach(socket, family == AF_INET6 ? to_this_host(24, 0xFF) : to_this_host(16, 224));
    case kept_packets::all:
        break;
    }
    return attach(socket, std::array{keep(whole_packet)});
}

void receive_together(int socket)
{
    // The length of each is told in the host's order, which emulators of other processors do not know of.
    if (std::endian::native == std::endian::little) {
        (void)set_option(socket, SOL_UDP, UDP_GRO, 1); // where it fails, datagrams come one by one
    }
}

std::uint32_t dropped_packets(int socket)
{
    std::array<std::uint32_t, SK_MEMINFO_VARS> figures{};
    socklen_t length = sizeof figures;
    // Where it fails nothing is written.
    (void)getsockopt(socket, SOL_SOCKET, SO_MEMINFO, figures.data(), &length);
    return figures[SK_MEMINFO_DROPS];
}

} // namespace olv_fastpath
