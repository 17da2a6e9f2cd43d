#include "network.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <stdexcept>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "programs.hpp"

namespace e2e {
namespace {

bool becomes_readable(int descriptor, std::chrono::milliseconds limit)
{
    pollfd watched{.fd = descriptor, .events = POLLIN, .revents = 0};
    return poll(&watched, 1, static_cast<int>(limit.count())) > 0;
}

} // namespace

loopback_socket::loopback_socket(const std::string &host)
    : local_(olv_net::parse_socket_address(host + ":0")),
      socket_(socket(local_.family(), SOCK_DGRAM | SOCK_CLOEXEC, 0))
{
    if (bind(socket_, local_.generic(), local_.length) != 0 ||
        getsockname(socket_, local_.generic(), &local_.length) != 0) {
        (void)close(socket_); // nothing was sent
        throw std::runtime_error("no socket on " + host);
    }
}

loopback_socket::~loopback_socket()
{
    (void)close(socket_); // nothing is lost
}

octets loopback_socket::receive()
{
    std::optional<octets> datagram = receive_within(patience);
    if (!datagram) {
        throw std::runtime_error("nothing comes to " + address());
    }
    return *datagram;
}

std::optional<octets> loopback_socket::receive_within(std::chrono::milliseconds limit)
{
    if (!becomes_readable(socket_, limit)) {
        return std::nullopt;
    }
    octets datagram(65536);
    peer_.length = sizeof peer_.address;
    const ssize_t received =
        recvfrom(socket_, datagram.data(), datagram.size(), 0, peer_.generic(), &peer_.length);
    if (received < 0) {
        return std::nullopt;
    }
    datagram.resize(static_cast<std::size_t>(received));
    return datagram;
}

void loopback_socket::answer(const octets &datagram)
{
    (void)sendto(socket_, datagram.data(), datagram.size(), 0, peer_.generic(),
                 peer_.length); // the test sees what is missing
}

void loopback_socket::send_to(const std::string &address, const octets &datagram)
{
    peer_ = olv_net::parse_socket_address(address);
    answer(datagram);
}

std::string closed_address()
{
    return loopback_socket{}.address();
}

octets reply_to(const octets &request)
{
    octets reply(std::max<std::size_t>(request.size(), 41));
    std::copy_n(request.begin(), 4, reply.begin());          // sequence number
    std::copy_n(request.begin() + 4, 8, reply.begin() + 4);  // sent back
    reply[12] = 0x16;                                        // error estimate
    reply[13] = 1;                                           //
    std::copy_n(request.begin() + 4, 8, reply.begin() + 16); // received
    std::copy_n(request.begin(), 14, reply.begin() + 24);    // sender's header
    reply[40] = 255;
    std::copy_n(request.begin() + 14, reply.size() - 41, reply.begin() + 41);
    return reply;
}

bound_sockets sockets_at(const std::string &address)
{
    std::array<char, 16> local{};
    (void)std::snprintf(local.data(), local.size(), "0100007F:%04X",
                        static_cast<unsigned>(std::stoul(address.substr(address.rfind(':') + 1))));
    std::ifstream table{"/proc/net/udp"};
    bound_sockets found;
    for (std::string line; std::getline(table, line);) {
        const std::vector<std::string> columns = words_of(line);
        if (columns.size() > 4 && columns[1] == local.data()) {
            ++found.count;
            found.hold_packets |= !columns[4].ends_with(":00000000"); // octets to be taken
        }
    }
    return found;
}

bool wait_until_taken(const std::string &address)
{
    return holds_in_time([&] { return !sockets_at(address).hold_packets; });
}

std::string http_get(const std::string &host, const std::string &path)
{
    const olv_net::socket_address address = olv_net::parse_socket_address(host);
    const int client = socket(address.family(), SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::string answer;
    if (connect(client, address.generic(), address.length) == 0) {
        const std::string request = "GET " + path + " HTTP/1.1\r\nHost: test\r\nConnection: close\r\n\r\n";
        (void)send(client, request.data(), request.size(), MSG_NOSIGNAL); // the test sees what is missing
        std::array<char, 4096> part{};
        while (becomes_readable(client, patience)) {
            const ssize_t length = recv(client, part.data(), part.size(), 0);
            if (length <= 0) {
                break;
            }
            answer.append(part.data(), static_cast<std::size_t>(length));
        }
    }
    (void)close(client); // all was read
    return answer;
}

} // namespace e2e
