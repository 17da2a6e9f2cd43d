#include "many_senders.hpp"

#include <array>

#include <sys/socket.h>

#include "net/twamp_wire.hpp"
#include "net/wall_clock.hpp"

namespace olv_bench {

many_senders::many_senders(std::size_t senders)
{
    while (senders_.size() < senders) {
        senders_.emplace_back();
    }
}

std::uint64_t many_senders::send(std::span<const olv_net::socket_address> servers,
                                 std::uint32_t requests_each) const
{
    std::array<unsigned char, olv_net::stamp_length> request{};
    olv_net::store_ntp(&request[olv_net::sender_packet::timestamp], olv_net::ntp_time_of(olv_net::wall_time()));
    std::uint64_t sent = 0;
    for (std::uint32_t round = 0; round < requests_each; ++round) {
        for (std::size_t number = 0; number < senders_.size(); ++number) {
            const olv_net::socket_address &server = servers[number % servers.size()];
            const ssize_t taken = sendto(senders_[number].number(), request.data(), request.size(),
                                         MSG_DONTWAIT, server.generic(), server.length);
            sent += taken > 0 ? 1 : 0;
        }
    }
    return sent;
}

std::uint64_t many_senders::take_replies() const
{
    std::uint64_t taken = 0;
    unsigned char octet = 0;
    for (const udp_socket &each : senders_) {
        while (recv(each.number(), &octet, sizeof octet, MSG_DONTWAIT) >= 0) {
            ++taken;
        }
    }
    return taken;
}

} // namespace olv_bench
