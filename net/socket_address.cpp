#include "net/socket_address.hpp"

#include <cstring>

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>

#include "net/address_text.hpp"

namespace olv_net {

namespace {

/** @param is_address  All of the text is an address. */
[[noreturn]] void reject_form(std::string_view text, bool is_address)
{
    if (is_address) {
        reject("address", text, "there is no port; write it as " + std::string(text) + ":8620");
    }
    reject("address", text, "expected ADDRESS:PORT or [IPV6-ADDRESS]:PORT");
}

struct host_and_port {
    std::string host;
    std::string_view port;
    bool bracketed;
};

host_and_port split(std::string_view text)
{
    reject_zero_bytes("address", text);
    if (text.starts_with('[')) {
        const std::size_t end = text.find("]:");
        if (end == std::string_view::npos) {
            reject_form(text, text.size() > 2 && text.ends_with(']'));
        }
        return {std::string(text.substr(1, end - 1)), text.substr(end + 2), true};
    }
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos) {
        in_addr any{};
        reject_form(text, inet_pton(AF_INET, std::string(text).c_str(), &any) == 1);
    }
    if (text.find(':', colon + 1) != std::string_view::npos) {
        reject("address", text, "an IPv6 address is written in brackets, as in [::1]:862");
    }
    return {std::string(text.substr(0, colon)), text.substr(colon + 1), false};
}

} // namespace

std::uint16_t socket_address::port() const
{
    // The port stands at the same place in both families.
    sockaddr_in any{};
    std::memcpy(&any, &address, sizeof any);
    return ntohs(any.sin_port);
}

std::string socket_address::text() const
{
    char host[NI_MAXHOST];
    if (getnameinfo(generic(), length, host, sizeof host, nullptr, 0, NI_NUMERICHOST) != 0) {
        return "(no address)";
    }
    const std::string name = family() == AF_INET6 ? "[" + std::string(host) + "]" : std::string(host);
    return name + ":" + std::to_string(port());
}

std::optional<socket_address> local_address_of(int socket)
{
    socket_address local;
    local.length = sizeof local.address;
    if (getsockname(socket, local.generic(), &local.length) != 0) {
        return std::nullopt;
    }
    return local;
}

socket_address parse_socket_address(std::string_view text)
{
    const host_and_port parts = split(text);
    const std::uint16_t port = required_port(text, parts.port);
    socket_address parsed;
    if (!parts.bracketed) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        if (inet_pton(AF_INET, parts.host.c_str(), &address.sin_addr) != 1) {
            reject("address", text, "'" + parts.host + "' is not an IPv4 address");
        }
        std::memcpy(&parsed.address, &address, sizeof address);
        parsed.length = sizeof address;
        return parsed;
    }
    addrinfo hints{};
    hints.ai_family = AF_INET6;
    hints.ai_socktype = SOCK_DGRAM;
    hints.ai_flags = AI_NUMERICHOST;
    addrinfo *found = nullptr;
    if (getaddrinfo(parts.host.c_str(), nullptr, &hints, &found) != 0) {
        reject("address", text, "'" + parts.host + "' is not an IPv6 address of this system");
    }
    sockaddr_in6 address{};
    std::memcpy(&address, found->ai_addr, sizeof address);
    freeaddrinfo(found);
    address.sin6_port = htons(port);
    std::memcpy(&parsed.address, &address, sizeof address);
    parsed.length = sizeof address;
    return parsed;
}

} // namespace olv_net
