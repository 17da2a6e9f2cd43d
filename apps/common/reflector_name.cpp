#include "apps/common/reflector_name.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>

#include "net/address_text.hpp"
#include "net/twamp_wire.hpp"

namespace olv_probe {
namespace {

using olv_net::reject;

struct text_parts {
    std::string_view host;
    std::string_view port;
};

/** @return With an empty port where none is written. */
text_parts split(std::string_view text)
{
    if (text.starts_with('[')) {
        const std::size_t end = text.find(']');
        if (end == std::string_view::npos) {
            reject("address", text, "the ']' after the IPv6 address is missing, as in [::1]");
        }
        const std::string_view rest = text.substr(end + 1);
        if (!rest.empty() && (rest.front() != ':' || rest.size() == 1)) {
            reject("address", text, "only ':' and a port can follow the ']'");
        }
        return {text.substr(1, end - 1), rest.empty() ? rest : rest.substr(1)};
    }
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos) {
        return {text, {}};
    }
    if (text.find(':', colon + 1) != std::string_view::npos) {
        return {text, {}}; // an IPv6 address without a port
    }
    if (colon + 1 == text.size()) {
        reject("address", text, "there is no port after the ':'");
    }
    return {text.substr(0, colon), text.substr(colon + 1)};
}

/** Of the text where it has one. */
std::uint16_t port_of(std::string_view text, std::string_view port, std::uint16_t otherwise)
{
    if (port.empty()) {
        return otherwise;
    }
    const std::optional<std::uint16_t> written = olv_net::parse_port(port);
    if (!written) {
        reject("address", text, "the port has to be a number from 1 to 65535");
    }
    return *written;
}

void check_host(std::string_view text, const std::string &host)
{
    if (host.empty()) {
        reject("address", text, text.empty() ? "it is empty" : "there is no address before the port");
    }
    in_addr ipv4{};
    const bool looks_like_ipv4 = host.find_first_not_of("0123456789.") == std::string::npos;
    if (looks_like_ipv4 && inet_pton(AF_INET, host.c_str(), &ipv4) != 1) {
        reject("address", text, "'" + host + "' is not an IPv4 address");
    }
    if (text.starts_with('[') && host.find(':') == std::string::npos) {
        reject("address", text, "'" + host + "' is not an IPv6 address; only those stand in brackets");
    }
    in6_addr ipv6{};
    const std::string without_zone = host.substr(0, host.find('%'));
    if (host.find(':') != std::string::npos && inet_pton(AF_INET6, without_zone.c_str(), &ipv6) != 1) {
        reject("address", text,
               "'" + host + "' is not an IPv6 address; before a port it stands in brackets, as in [::1]:862");
    }
}

const char *name_of(int family)
{
    switch (family) {
    case AF_INET:
        return "IPv4 address";
    case AF_INET6:
        return "IPv6 address";
    default:
        return "address";
    }
}

} // namespace

reflector_name parse_reflector_name(std::string_view text)
{
    olv_net::reject_zero_bytes("address", text);
    const text_parts parts = split(text);
    reflector_name name{.host = std::string(parts.host),
                        .port = port_of(text, parts.port, olv_net::default_port)};
    check_host(text, name.host);
    if (name.port == 0) {
        throw std::runtime_error(std::string(text) + ": port 0 cannot be sent to");
    }
    return name;
}

olv_net::socket_address parse_source(std::string_view text)
{
    olv_net::reject_zero_bytes("address", text);
    const text_parts parts = split(text);
    const std::string host{parts.host};
    const std::string port = std::to_string(port_of(text, parts.port, 0));
    check_host(text, host);
    const bool ipv6 = host.find(':') != std::string::npos;
    if (!ipv6 && host.find_first_not_of("0123456789.") != std::string::npos) {
        reject("address", text, "a source is an address, not a name");
    }
    return olv_net::parse_socket_address((ipv6 ? "[" + host + "]" : host) + ":" + port);
}

olv_net::socket_address resolve(const reflector_name &name, int family)
{
    addrinfo hints{};
    hints.ai_family = family;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo *found = nullptr;
    const int error = getaddrinfo(name.host.c_str(), std::to_string(name.port).c_str(), &hints, &found);
    if (error != 0) {
        const char *reason = error == EAI_SYSTEM ? std::strerror(errno) : gai_strerror(error);
        throw std::runtime_error(std::string("no ") + name_of(family) + " for '" + name.host + "': " + reason);
    }
    olv_net::socket_address address;
    address.length = std::min<socklen_t>(found->ai_addrlen, sizeof address.address);
    std::memcpy(&address.address, found->ai_addr, address.length);
    freeaddrinfo(found);
    return address;
}

} // namespace olv_probe
