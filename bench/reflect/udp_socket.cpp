#include "udp_socket.hpp"

#include <cerrno>
#include <charconv>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>

#include <sys/socket.h>
#include <unistd.h>

namespace reflect_bench {
namespace {

constexpr int buffer_bytes = 8 << 20;

/** As much as the process may have: beyond the system's limit, or up to it. */
void size_buffer(int socket, int forced, int limited)
{
    if (setsockopt(socket, SOL_SOCKET, forced, &buffer_bytes, sizeof buffer_bytes) != 0) {
        (void)setsockopt(socket, SOL_SOCKET, limited, &buffer_bytes,
                         sizeof buffer_bytes); // smaller is no error
    }
}

} // namespace

udp_socket::udp_socket(const olv_net::socket_address &address)
    : number_(socket(address.family(), SOCK_DGRAM | SOCK_CLOEXEC, 0))
{
    local_.length = sizeof local_.address;
    if (number_ < 0 ||
        bind(number_, reinterpret_cast<const sockaddr *>(&address.address), address.length) != 0 ||
        getsockname(number_, reinterpret_cast<sockaddr *>(&local_.address), &local_.length) != 0) {
        const std::string reason = std::generic_category().message(errno);
        if (number_ >= 0) {
            close(number_);
        }
        throw std::runtime_error("cannot bind to " + address.text() + ": " + reason);
    }
    size_buffer(number_, SO_RCVBUFFORCE, SO_RCVBUF);
    size_buffer(number_, SO_SNDBUFFORCE, SO_SNDBUF);
}

udp_socket::~udp_socket()
{
    close(number_);
}

std::optional<std::uint64_t> dropped_at(std::istream &sockets, std::uint16_t port)
{
    std::string line;
    (void)std::getline(sockets, line); // titles
    while (std::getline(sockets, line)) {
        // "sl: address:port" at the beginning, with the port in hexadecimal; the drops are the last word.
        std::istringstream words{line};
        std::string number;
        std::string local;
        words >> number >> local;
        const std::size_t colon = local.find(':');
        unsigned found = 0;
        if (colon == std::string::npos ||
            std::from_chars(local.data() + colon + 1, local.data() + local.size(), found, 16).ec !=
                std::errc{} ||
            found != port) {
            continue;
        }
        std::string last;
        while (words >> last) {
        }
        std::uint64_t drops = 0;
        (void)std::from_chars(last.data(), last.data() + last.size(), drops); // 0 where it is no number
        return drops;
    }
    return std::nullopt;
}

std::uint64_t dropped_at(std::uint16_t port)
{
    std::ifstream sockets{"/proc/net/udp"};
    return dropped_at(sockets, port).value_or(0);
}

} // namespace reflect_bench
