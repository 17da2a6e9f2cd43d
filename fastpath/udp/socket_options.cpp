#include "fastpath/udp/socket_options.hpp"

#include <array>
#include <bit>
#include <cerrno>
#include <cstdint>

#include <linux/filter.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <netinet/udp.h>

#include "net/descriptor.hpp"
#include "net/ip_address.hpp"

namespace olv_fastpath {

namespace {

constexpr int hop_limit = 255; ///< What receivers of replies count the hops from.
constexpr int receive_buffer_bytes = 8 << 20;

/** Whether it stands for all hosts of a network, as only the system's routes tell: it lets no socket that did
 * not ask for it send there. */
bool is_broadcast(const sockaddr_storage &address)
{
    const olv_net::descriptor asking{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    return connect(asking.number(), reinterpret_cast<const sockaddr *>(&address), sizeof(sockaddr_in)) != 0 &&
           errno == EACCES;
}

/** Whether what the socket receives may have been sent to another address than one of this host. */
bool has_several_addresses(const sockaddr_storage &address)
{
    const olv_net::ip_endpoint endpoint = olv_net::endpoint_of(address);
    if (olv_net::is_ipv4(endpoint.address)) {
        const std::uint8_t first = endpoint.address[olv_net::mapped_prefix.size()];
        return first == 0 || first >= 224 || is_broadcast(address); // the first are unspecified, or a group's
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

void leave_groups_to_others(int socket, int family)
{
    constexpr int ipv6_multicast_all = 29; // not every header has it
    if (family == AF_INET6) {
        (void)set_option(socket, IPPROTO_IPV6, ipv6_multicast_all, 0);
    } else {
        (void)set_option(socket, IPPROTO_IP, IP_MULTICAST_ALL, 0);
    }
}

bool let_in_packets(int socket, bool on)
{
    constexpr std::uint32_t whole_packet = UINT32_MAX; // octets that are kept
    sock_filter keep{.code = BPF_RET | BPF_K, .jt = 0, .jf = 0, .k = on ? whole_packet : 0};
    const sock_fprog program{.len = 1, .filter = &keep};
    return setsockopt(socket, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) == 0;
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
