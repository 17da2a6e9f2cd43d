/**
 * @file senders.hpp
 * Session senders that keep a few packets on their way, of any size.
 */
#ifndef OLV_TWAMP_SOAK_SENDERS_HPP
#define OLV_TWAMP_SOAK_SENDERS_HPP

#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <random>
#include <thread>

#include <poll.h>
#include <sys/socket.h>

#include "net/descriptor.hpp"
#include "net/socket_address.hpp"
#include "net/twamp_wire.hpp"

namespace olv_soak {

/** One sender: a socket of its own, a thread of its own. */
class sender {
  public:
    /** @param taken  How many packets the receiver has taken from its socket: no more than it has room for are
     *  ever on their way. */
    sender(const olv_net::socket_address &to, std::uint32_t seed, std::function<std::uint64_t()> taken)
        : socket_(socket(to.family(), SOCK_DGRAM | SOCK_CLOEXEC, 0)),
          is_connected_(connect(socket_.number(), to.generic(), to.length) == 0),
          seed_(seed),
          taken_(std::move(taken)),
          thread_([this] { run(); })
    {}
    ~sender() { stop(); }
    sender(const sender &) = delete;
    sender &operator=(const sender &) = delete;

    void stop()
    {
        if (!stopping_.exchange(true)) {
            thread_.join();
        }
    }

    /** Whether all replies were as long as they have to be, and to requests of this sender's. */
    [[nodiscard]] bool is_good() const { return is_connected_ && bad_replies_ == 0 && replies_ <= sent_; }
    [[nodiscard]] std::uint64_t sent() const { return sent_; }
    [[nodiscard]] std::uint64_t replies() const { return replies_; }

  private:
    static constexpr std::size_t shortest_request = olv_net::sender_packet::header_length;
    static constexpr std::size_t longest_request = 1400;
    static constexpr std::uint32_t window = 16;

    void run()
    {
        std::array<std::uint8_t, longest_request> request{};
        std::minstd_rand random{seed_};
        std::uint32_t sequence = 0;
        while (!stopping_) {
            for (auto left = 1 + random() % window; left > 0; --left, ++sequence) {
                olv_net::store_32(request.data(), sequence);
                const std::size_t length = length_of(sequence);
                sent_ += send(socket_.number(), request.data(), length, 0) >= 0 ? 1 : 0;
            }
            do {
                receive(1);
            } while (!stopping_ && taken_() < sent_);
        }
        receive(100); // the last ones
    }

    /** Of the request of this sequence number: most are requests, some too short for that. */
    [[nodiscard]] std::size_t length_of(std::uint32_t sequence) const
    {
        std::minstd_rand random{seed_ ^ sequence * 2654435761u};
        random.discard(2);
        return random() % 16 == 0 ? random() % shortest_request
                                  : shortest_request + random() % (longest_request - shortest_request + 1);
    }

    /** Take replies that came, waiting this long for the first. */
    void receive(int milliseconds)
    {
        pollfd waiting{.fd = socket_.number(), .events = POLLIN, .revents = 0};
        if (poll(&waiting, 1, milliseconds) <= 0) {
            return;
        }
        std::array<std::uint8_t, 2048> reply{};
        for (ssize_t got = 0; (got = recv(socket_.number(), reply.data(), reply.size(), MSG_DONTWAIT)) >= 0;) {
            using namespace olv_net::reflector_packet;
            const std::size_t request = length_of(olv_net::load_32(&reply[sender_sequence_number]));
            const bool good = request >= shortest_request &&
                              static_cast<std::size_t>(got) == std::max(request, header_length);
            ++(good ? replies_ : bad_replies_);
        }
    }

    olv_net::descriptor socket_;
    bool is_connected_;
    std::uint32_t seed_;
    std::function<std::uint64_t()> taken_;
    std::atomic<bool> stopping_{false};
    std::atomic<std::uint64_t> sent_{0};
    std::atomic<std::uint64_t> replies_{0};
    std::atomic<std::uint64_t> bad_replies_{0};
    std::thread thread_;
};

} // namespace olv_soak

#endif
