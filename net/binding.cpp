#include "net/binding.hpp"

#include <cerrno>
#include <system_error>
#include <utility>

#include <netinet/in.h>
#include <sys/resource.h>

namespace olv_net {
namespace {

constexpr std::uint16_t first_free_port = 1024; ///< Unless the system is told otherwise.

} // namespace

descriptor bound_socket(const socket_address &address, int type)
{
    descriptor opened{socket(address.family(), type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    const int on = 1;
    const bool bound = opened.is_open() &&
                       (type != SOCK_STREAM || setsockopt(opened.number(), SOL_SOCKET, SO_REUSEADDR, &on,
                                                          sizeof on) == 0) && // its last connections
                       (address.family() != AF_INET6 ||
                        setsockopt(opened.number(), IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on) == 0) &&
                       bind(opened.number(), address.generic(), address.length) == 0;
    return bound ? std::move(opened) : descriptor{};
}

std::string reason_against_socket(const socket_address &address, int error)
{
    if (error == EACCES && address.port() != 0 && address.port() < first_free_port) {
        return "Permission denied; ports below 1024 need the capability CAP_NET_BIND_SERVICE "
               "(setcap cap_net_bind_service=+ep PROGRAM), or sysctl net.ipv4.ip_unprivileged_port_start=" +
               std::to_string(address.port());
    }
    return reason_against_descriptor(error);
}

std::string reason_against_descriptor(int error)
{
    std::string reason = std::generic_category().message(error);
    rlimit limit{};
    if (error == EMFILE && getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        reason += "; this process may have " + std::to_string(limit.rlim_cur) + " descriptors (ulimit -n)";
    }
    return error == ENFILE ? reason + "; the system may have no more descriptors (sysctl fs.file-max)" : reason;
}

} // namespace olv_net
