/**
 * @file session_hash.hpp
 * The hash of the session table.
 */
#ifndef OLV_FASTPATH_SESSION_HASH_HPP
#define OLV_FASTPATH_SESSION_HASH_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "net/ip_address.hpp"

namespace olv_fastpath {

/** What tells one session from another. */
struct session_key {
    std::uint32_t responder_id = 0;
    olv_net::ip_endpoint sender;

    friend bool operator==(const session_key &left, const session_key &right)
    {
        return left.sender == right.sender && left.responder_id == right.responder_id;
    }
};

/**
 * A sum of the key's words, each times a random number, then mixed. Whatever two keys are, few of the random
 * numbers give them the same sum, so that a sender who does not know these cannot choose colliding keys; mixing
 * spreads those that follow each other, as the addresses of a network do.
 */
class session_hash {
  public:
    static constexpr std::size_t random_numbers = 7;

    explicit session_hash(const std::array<std::uint64_t, random_numbers> &random) : random_(random) {}

    [[nodiscard]] std::uint32_t operator()(const session_key &key) const
    {
        std::array<std::uint32_t, 4> address;
        std::memcpy(address.data(), key.sender.address.data(), sizeof address);
        std::uint64_t sum = random_[0] + random_[1] * key.responder_id + random_[2] * key.sender.port +
                            random_[3] * address[0] + random_[4] * address[1] + random_[5] * address[2] +
                            random_[6] * address[3];
        sum = (sum ^ sum >> 32) * 0x9E3779B97F4A7C15u;
        return static_cast<std::uint32_t>(sum >> 32);
    }

  private:
    std::array<std::uint64_t, random_numbers> random_;
};

} // namespace olv_fastpath

#endif
