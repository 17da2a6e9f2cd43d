// How the session table's hash spreads the keys that networks have.

#include "fastpath/core/session_hash.hpp"

#include <algorithm>
#include <array>
#include <functional>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace olv_fastpath;

constexpr std::uint32_t keys = 65536;

/** Keys that differ in two octets of the sender's address, or elsewhere. */
struct key_row {
    const char *label;
    bool ipv4;
    std::size_t high, low; ///< 16: beyond the address.
};

session_key key_of(const key_row &row, std::uint32_t number)
{
    session_key key{.responder_id = 1, .sender = {{}, 862}};
    if (row.ipv4)
        key.sender.address = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 10, 0, 0, 0};
    if (row.high < 16) {
        key.sender.address[row.high] = static_cast<std::uint8_t>(number >> 8);
        key.sender.address[row.low] = static_cast<std::uint8_t>(number);
    } else if (row.low == 16) {
        key.sender.port = static_cast<std::uint16_t>(number);
    } else {
        key.responder_id = number;
    }
    return key;
}

TEST(session_hash, spreads_keys_like_lots)
{
    for (const key_row &row : {key_row{"IPv4 hosts", true, 14, 15}, key_row{"IPv4 networks", true, 12, 13},
                               key_row{"IPv6 hosts", false, 14, 15}, key_row{"IPv6 networks", false, 4, 5},
                               key_row{"ports", true, 16, 16}, key_row{"responders", true, 16, 0}}) {
        for (std::uint64_t seed = 1; seed <= 20; ++seed) {
            std::mt19937_64 generator{seed};
            std::array<std::uint64_t, session_hash::random_numbers> random{};
            std::generate(random.begin(), random.end(), std::ref(generator));
            const session_hash hash{random};
            std::vector<std::uint32_t> in_bucket(keys);
            for (std::uint32_t number = 0; number < keys; ++number)
                ++in_bucket[hash(key_of(row, number)) % keys];
            EXPECT_LE(*std::max_element(in_bucket.begin(), in_bucket.end()), 16u) << row.label << seed;
            // Of lots, 37 % of the buckets stay empty.
            EXPECT_LT(std::count(in_bucket.begin(), in_bucket.end(), 0u), keys / 2) << row.label << seed;
        }
    }
}

TEST(session_hash, follows_from_its_random_numbers_alone)
{
    const session_key key{.responder_id = 7, .sender = {{1, 2, 3}, 5000}};
    const std::array<std::uint64_t, session_hash::random_numbers> random{1, 2, 3, 4, 5, 6, 7};
    EXPECT_EQ(session_hash{random}(key), session_hash{random}(key));
    for (std::size_t index = 0; index < random.size(); ++index) {
        std::array<std::uint64_t, session_hash::random_numbers> other = random;
        other[index] = 0x123456789ABCDEF1u;
        // The words of the key that are 0 take no part.
        EXPECT_EQ(session_hash{other}(key) != session_hash{random}(key), index <= 3) << index;
    }
}

} // namespace
