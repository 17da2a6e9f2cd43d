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
using namespace olv_net;

constexpr std::uint32_t keys = 65536;

/** The key of a number: as many as 65,536 differ where its name says. */
struct key_row {
    const char *name;
    session_key (*key)(std::uint32_t number);
};

void PrintTo(const key_row &row, std::ostream *out)
{
    *out << row.name;
}

session_key key_with(std::uint32_t number, std::size_t high, std::size_t low, bool ipv4)
{
    session_key key{.responder_id = 1, .sender_address = {}, .sender_port = 862};
    if (ipv4) {
        key.sender_address = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 10, 0, 0, 0};
    }
    key.sender_address[high] = static_cast<std::uint8_t>(number >> 8);
    key.sender_address[low] = static_cast<std::uint8_t>(number);
    return key;
}

const key_row rows[] = {
    {"ipv4_hosts", [](std::uint32_t number) { return key_with(number, 14, 15, true); }},
    {"ipv4_networks", [](std::uint32_t number) { return key_with(number, 12, 13, true); }},
    {"ipv6_hosts", [](std::uint32_t number) { return key_with(number, 14, 15, false); }},
    {"ipv6_networks", [](std::uint32_t number) { return key_with(number, 4, 5, false); }},
    {"ports",
     [](std::uint32_t number) {
         session_key key = key_with(1, 14, 15, true);
         key.sender_port = static_cast<std::uint16_t>(number);
         return key;
     }},
    {"responders",
     [](std::uint32_t number) {
         session_key key = key_with(1, 14, 15, true);
         key.responder_id = number;
         return key;
     }},
};

class session_hash_test : public testing::TestWithParam<key_row> {};

TEST_P(session_hash_test, spreads_them_like_lots)
{
    for (std::uint64_t seed = 1; seed <= 20; ++seed) {
        std::mt19937_64 generator{seed};
        std::array<std::uint64_t, session_hash::random_numbers> random{};
        std::generate(random.begin(), random.end(), std::ref(generator));
        const session_hash hash{random};
        std::vector<std::uint32_t> in_bucket(keys);
        for (std::uint32_t number = 0; number < keys; ++number) {
            ++in_bucket[hash(GetParam().key(number)) % keys];
        }
        EXPECT_LE(*std::max_element(in_bucket.begin(), in_bucket.end()), 16u) << seed;
        // Of lots, 37 % of the buckets stay empty.
        EXPECT_LT(std::count(in_bucket.begin(), in_bucket.end(), 0u), keys / 2) << seed;
    }
}

INSTANTIATE_TEST_SUITE_P(keys, session_hash_test, testing::ValuesIn(rows),
                         [](const auto &row) { return std::string(row.param.name); });

TEST(session_hash, follows_from_its_random_numbers_alone)
{
    const session_key key{.responder_id = 7, .sender_address = {1, 2, 3}, .sender_port = 5000};
    const std::array<std::uint64_t, session_hash::random_numbers> random{1, 2, 3, 4, 5, 6, 7};
    EXPECT_EQ(session_hash{random}(key), session_hash{random}(key));
    for (std::size_t index = 0; index < random.size(); ++index) {
        std::array<std::uint64_t, session_hash::random_numbers> other = random;
        other[index] = 0x123456789ABCDEF1u;
        // The words of the key that are 0 take no part.
        const bool counts = index <= 3;
        EXPECT_EQ(session_hash{other}(key) != session_hash{random}(key), counts) << index;
    }
}

} // namespace
