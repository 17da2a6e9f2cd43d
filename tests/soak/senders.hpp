/**
 * @file senders.hpp
 * Session senders that keep a few packets on their way, of any size.
 */
#ifndef OLV_TWAMP_SOAK_SENDERS_HPP
#define OLV_TWAMP_SOAK_SENDERS_HPP

#include <atomic>
#include <cstdint>
#include <functional>
#include <thread>

#include "net/socket_address.hpp"

namespace olv_soak {

/** One sender: a socket of its own, a thread of its own. */
class sender {
  public:
    /** @param taken  How many packets the receiver has taken from its socket: no more than it has room for are
     *  ever on their way. */
    sender(const olv_net::socket_address &to, std::uint64_t seed, std::function<std::uint64_t()> taken);
    ~sender();
    sender(const sender &) = delete;
    sender &operator=(const sender &) = delete;

    void stop();
    [[nodiscard]] std::uint64_t sent() const { return sent_; }
    [[nodiscard]] std::uint64_t replies() const { return replies_; }
    /** Replies that are not as long as they have to be, or to no request of this sender's. */
    [[nodiscard]] std::uint64_t bad_replies() const { return bad_replies_; }

  private:
    void run();
    /** Of the request of this sequence number: most are requests, some too short for that. */
    [[nodiscard]] std::size_t length_of(std::uint32_t sequence) const;
    /** Take replies that came, waiting this long for the first. */
    void receive(int milliseconds);

    static constexpr std::uint32_t window = 16;

    int socket_;
    std::uint64_t seed_;
    std::function<std::uint64_t()> taken_;
    std::atomic<bool> stopping_{false};
    std::atomic<std::uint64_t> sent_{0};
    std::atomic<std::uint64_t> replies_{0};
    std::atomic<std::uint64_t> bad_replies_{0};
    std::thread thread_;
};

} // namespace olv_soak

#endif
