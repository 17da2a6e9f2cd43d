#include "udp_socket.hpp"

#include <array>
#include <cerrno>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>

#include <linux/sock_diag.h>
#include <sys/socket.h>

namespace olv_bench {
namespace {

constexpr int buffer_bytes = 8 << 20;

/** As many bytes as the process may have: beyond the system's limit, or else up to it. */
void size_buffer(int socket, int forced, int limited)
{
    if (setsockopt(socket, SOL_SOCKET, forced, &buffer_bytes, sizeof buffer_bytes) != 0) {
        // A smaller buffer is no error.
        (void)setsockopt(socket, SOL_SOCKET, limited, &buffer_bytes, sizeof buffer_bytes);
    }
}

} // namespace

udp_socket::udp_socket(const char *text)
{
    const olv_net::socket_address wanted = olv_net::parse_socket_address(text);
    socket_ = olv_net::descriptor{socket(wanted.family(), SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    std::optional<olv_net::socket_address> local;
    if (socket_.is_open() && bind(number(), wanted.generic(), wanted.length) == 0) {
        local = olv_net::local_address_of(number());
    }
    if (!local) {
        throw std::runtime_error(std::string{"cannot bind to "} + text + ": " +
                                 std::generic_category().message(errno));
    }
    local_ = *local;
    size_buffer(number(), SO_RCVBUFFORCE, SO_RCVBUF);
    size_buffer(number(), SO_SNDBUFFORCE, SO_SNDBUF);
}

std::uint64_t udp_socket::dropped() const
{
    std::array<std::uint32_t, SK_MEMINFO_VARS> figures{};
    socklen_t length = sizeof figures;
    (void)getsockopt(number(), SOL_SOCKET, SO_MEMINFO, figures.data(), &length); // since Linux 4.12
    return figures[SK_MEMINFO_DROPS];
}

} // namespace olv_bench
