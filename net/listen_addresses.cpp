#include "net/listen_addresses.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <string>
#include <tuple>

#include <netdb.h>
#include <netinet/in.h>

#include "net/address_text.hpp"
#include "net/binding.hpp"
#include "net/ip_address.hpp"

namespace olv_net {
namespace {

bool knows_ipv6()
{
    return descriptor{socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0)}.is_open();
}

/** What stands in front of the port, where that is neither an address nor in brackets; nothing: it is. */
std::optional<std::string> name_in(std::string_view text)
{
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos || text.starts_with('[') ||
        text.find(':', colon + 1) != std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view host = text.substr(0, colon);
    const bool is_address = !host.empty() && host.find_first_not_of("0123456789.") == std::string_view::npos;
    return is_address ? std::nullopt : std::optional{std::string(host)};
}

bool is_of_this_host(const socket_address &address)
{
    socket_address any_port = address;
    sockaddr_in port{}; // which stands at the same place in both families
    std::memcpy(&port, &any_port.address, sizeof port);
    port.sin_port = 0;
    std::memcpy(&any_port.address, &port, sizeof port);
    return bound_socket(any_port, SOCK_DGRAM).is_open() || errno != EADDRNOTAVAIL;
}

std::vector<socket_address> resolve(std::string_view text, const std::string &name, const std::string &port)
{
    addrinfo hints{};
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo *found = nullptr;
    if (const int error = getaddrinfo(name.c_str(), port.c_str(), &hints, &found); error != 0) {
        reject("address", text,
               "no address for '" + name +
                   "': " + (error == EAI_SYSTEM ? std::strerror(errno) : gai_strerror(error)));
    }
    std::vector<socket_address> addresses;
    for (const addrinfo *each = found; each != nullptr; each = each->ai_next) {
        socket_address address;
        address.length = std::min<socklen_t>(each->ai_addrlen, sizeof address.address);
        std::memcpy(&address.address, each->ai_addr, address.length);
        const auto is_it = [&address](const socket_address &other) { return other.text() == address.text(); };
        if (std::none_of(addresses.begin(), addresses.end(), is_it)) {
            addresses.push_back(address);
        }
    }
    freeaddrinfo(found);
    return addresses;
}

/** What tells an address from others, so that all addresses of a family and port stand before single ones. */
struct sort_key {
    explicit sort_key(const socket_address &address)
        : family(address.family()), port(address.port()), host(endpoint_of(address.address).address)
    {
        if (address.family() == AF_INET6) {
            sockaddr_in6 whole{};
            std::memcpy(&whole, &address.address, sizeof whole);
            scope = whole.sin6_scope_id;
        }
    }
    [[nodiscard]] bool is_of_same_port(const sort_key &other) const
    {
        return family == other.family && port == other.port;
    }
    [[nodiscard]] auto all() const { return std::tie(family, port, host, scope); }
    friend bool operator==(const sort_key &left, const sort_key &right) { return left.all() == right.all(); }
    friend bool operator<(const sort_key &left, const sort_key &right) { return left.all() < right.all(); }

    int family;
    std::uint16_t port;
    ip_address host; ///< All of a family are its lowest one.
    std::uint32_t scope = 0;
};

} // namespace

std::vector<socket_address> listen_addresses(std::string_view text)
{
    reject_zero_bytes("address", text);
    const std::optional<std::string> name = name_in(text);
    if (!name) {
        return {parse_socket_address(text)};
    }
    const std::string port = std::to_string(required_port(text, text.substr(name->size() + 1)));
    if (name->empty() || *name == "*") {
        std::vector<socket_address> all{parse_socket_address("0.0.0.0:" + port)};
        if (knows_ipv6()) {
            all.push_back(parse_socket_address("[::]:" + port));
        }
        return all;
    }
    std::vector<socket_address> addresses = resolve(text, *name, port);
    std::stable_partition(addresses.begin(), addresses.end(),
                          [](const socket_address &each) { return each.family() == AF_INET; });
    std::vector<socket_address> own;
    std::copy_if(addresses.begin(), addresses.end(), std::back_inserter(own), is_of_this_host);
    return own.empty() ? addresses : own;
}

std::optional<std::pair<socket_address, socket_address>>
overlapping(const std::vector<socket_address> &addresses)
{
    std::vector<std::pair<sort_key, const socket_address *>> sorted;
    sorted.reserve(addresses.size());
    for (const socket_address &each : addresses) {
        sorted.emplace_back(sort_key{each}, &each);
    }
    std::sort(sorted.begin(), sorted.end());
    const auto found = std::adjacent_find(sorted.begin(), sorted.end(), [](const auto &one, const auto &next) {
        return one.first.port != 0 && one.first.is_of_same_port(next.first) &&
               (one.first == next.first || one.first.host == unspecified_like(one.first.host));
    });
    return found == sorted.end() ? std::nullopt
                                 : std::optional{std::pair{*found->second, *std::next(found)->second}};
}

} // namespace olv_net
