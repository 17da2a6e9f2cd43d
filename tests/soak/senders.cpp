#include "senders.hpp"

#include <algorithm>
#include <array>
#include <poll.h>
#include <random>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

#include "net/twamp_wire.hpp"

namespace olv_soak {

namespace {

constexpr std::size_t shortest_request = olv_net::sender_packet::header_length;

} // namespace

sender::sender(const olv_net::socket_address &to, std::uint64_t seed, std::function<std::uint64_t()> taken)
    : socket_(socket(to.family(), SOCK_DGRAM | SOCK_CLOEXEC, 0)), seed_(seed), taken_(std::move(taken))
{
    if (socket_ < 0 || connect(socket_, reinterpret_cast<const sockaddr *>(&to.address), to.length) != 0) {
        throw std::runtime_error("no socket to " + to.text());
    }
    thread_ = std::thread{[this] { run(); }};
}

sender::~sender()
{
    stop();
    close(socket_);
}

void sender::stop()
{
    stopping_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
}

std::size_t sender::length_of(std::uint32_t sequence) const
{
    std::minstd_rand random{static_cast<std::uint32_t>(seed_ ^ sequence * 2654435761u)};
    random.discard(2);
    return random() % 16 == 0 ? random() % shortest_request : shortest_request + random() % 1387;
}

void sender::run()
{
    std::array<std::uint8_t, 1400> request{};
    std::minstd_rand random{static_cast<std::uint32_t>(seed_)};
    std::uint32_t sequence = 0;
    while (!stopping_) {
        const std::uint32_t burst = 1 + static_cast<std::uint32_t>(random() % window);
        for (std::uint32_t index = 0; index < burst; ++index, ++sequence) {
            olv_net::store_32(request.data(), sequence);
            const std::size_t length = length_of(sequence);
            if (send(socket_, request.data(), length, 0) == static_cast<ssize_t>(length)) {
                ++sent_;
            }
        }
        do {
            receive(1);
        } while (!stopping_ && taken_() < sent_);
    }
    receive(100);
}

void sender::receive(int milliseconds)
{
    namespace reflector_packet = olv_net::reflector_packet;
    pollfd waiting{.fd = socket_, .events = POLLIN, .revents = 0};
    if (poll(&waiting, 1, milliseconds) <= 0) {
        return;
    }
    std::array<std::uint8_t, 2048> reply{};
    for (ssize_t got = 0; (got = recv(socket_, reply.data(), reply.size(), MSG_DONTWAIT)) >= 0;) {
        ++replies_;
        const auto length = static_cast<std::size_t>(got);
        const std::size_t request =
            length_of(olv_net::load_32(&reply[reflector_packet::sender_sequence_number]));
        const bool good =
            request >= shortest_request && length == std::max(request, reflector_packet::header_length);
        bad_replies_ += good ? 0 : 1;
    }
}

} // namespace olv_soak
