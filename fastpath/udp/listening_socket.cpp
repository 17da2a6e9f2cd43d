#include "fastpath/udp/listening_socket.hpp"

#include <cerrno>
#include <optional>
#include <stdexcept>
#include <string>

#include "net/binding.hpp"

namespace olv_fastpath {

namespace {

[[noreturn]] void fail(const olv_net::socket_address &address, int error)
{
    throw std::runtime_error("cannot listen on " + address.text() + ": " +
                             olv_net::reason_against_socket(address, error));
}

} // namespace

listening_socket::listening_socket(const olv_net::socket_address &address)
    : listening_socket(address, place::alone)
{}

listening_socket::listening_socket(const olv_net::socket_address &address, place among)
    : socket_(socket(address.family(), SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)),
      local_(address),
      place_(among)
{
    std::optional<socket_abilities> abilities;
    if (socket_.is_open()) {
        abilities = prepare_socket(number(), address.address);
    }
    if (!abilities || !prepare_for_place() || bind(number(), address.generic(), address.length) != 0) {
        fail(address, errno);
    }
    abilities_ = *abilities;
    const std::optional<olv_net::socket_address> local = olv_net::local_address_of(number());
    if (!local) {
        fail(address, errno);
    }
    local_ = *local;
}

bool listening_socket::prepare_for_place() const
{
    switch (place_) {
    case place::alone:
        break;
    case place::first:
        return let_in_packets(number(), false);
    case place::later:
        leave_groups_to_others(number(), local_.family());
        return let_in_packets(number(), false) && share_address(number());
    }
    return true;
}

std::vector<listening_socket> listening_socket::open_together(const olv_net::socket_address &address,
                                                              std::size_t count)
{
    std::vector<listening_socket> sockets;
    sockets.reserve(count);
    if (count == 1) {
        sockets.emplace_back(address);
        return sockets;
    }
    sockets.push_back(listening_socket{address, place::first});
    // Not before it was bound: it would have joined others that share the address.
    if (!share_address(sockets.front().number())) {
        fail(address, errno);
    }
    while (sockets.size() < count) {
        sockets.push_back(listening_socket{sockets.front().local(), place::later});
    }
    return sockets;
}

void listening_socket::let_in()
{
    if (place_ != place::alone && !let_in_packets(number(), true)) {
        fail(local_, errno);
    }
    dropped_before_ = dropped_packets(number());
}

std::uint32_t listening_socket::dropped() const
{
    return dropped_packets(number()) - dropped_before_;
}

} // namespace olv_fastpath
