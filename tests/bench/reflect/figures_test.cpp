// Percentiles, medians, the kernel's counters.

#include <sstream>

#include <gtest/gtest.h>

#include "percentiles.hpp"
#include "udp_socket.hpp"

namespace {

using namespace reflect_bench;

TEST(percentile, is_the_nearest_rank)
{
    std::vector<std::uint32_t> samples{50, 15, 40, 20, 35};
    EXPECT_EQ(percentile(samples, 5), 15u);
    EXPECT_EQ(percentile(samples, 30), 20u);
    EXPECT_EQ(percentile(samples, 40), 20u);
    EXPECT_EQ(percentile(samples, 50), 35u);
    EXPECT_EQ(percentile(samples, 100), 50u);
}

TEST(percentile, of_a_hundred_samples_is_their_place)
{
    std::vector<std::uint32_t> samples;
    for (std::uint32_t value = 100; value >= 1; --value)
        samples.push_back(value);
    EXPECT_EQ(percentile(samples, 50), 50u);
    EXPECT_EQ(percentile(samples, 99), 99u);
    EXPECT_EQ(percentile(samples, 0), 1u);
}

TEST(percentile, of_nothing_is_0)
{
    std::vector<std::uint32_t> none;
    EXPECT_EQ(percentile(none, 50), 0u);
}

TEST(median, is_the_middle_one_or_between_two)
{
    EXPECT_EQ(median({3, 1, 2}), 2.0);
    EXPECT_EQ(median({4, 1, 3, 2}), 2.5);
    EXPECT_EQ(median({7}), 7.0);
    EXPECT_EQ(median({}), 0.0);
}

constexpr const char *sockets =
    "   sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode ref "
    "pointer drops\n"
    "  271: 0100007F:21AC 00000000:0000 07 00000000:00000000 00:00000000 00000000     0        0 39311 2 "
    "0000000000000000 0\n"
    " 1234: 00000000:035E 00000000:0000 07 00000000:00001200 00:00000000 00000000     0        0 39312 2 "
    "0000000000000000 4711\n";

TEST(kernel_drops, are_the_last_word_of_the_ports_line)
{
    std::istringstream text{sockets};
    EXPECT_EQ(dropped_at(text, 862), 4711u);
    std::istringstream again{sockets};
    EXPECT_EQ(dropped_at(again, 8620), 0u);
}

TEST(kernel_drops, of_no_socket_are_not_known)
{
    std::istringstream text{sockets};
    EXPECT_EQ(dropped_at(text, 5000), std::nullopt);
    std::istringstream empty{""};
    EXPECT_EQ(dropped_at(empty, 862), std::nullopt);
}

TEST(kernel_drops, of_a_full_socket_are_counted)
{
    const udp_socket full{olv_net::parse_socket_address("127.0.0.1:0")};
    const int small = 2304;
    ASSERT_EQ(setsockopt(full.number(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small), 0);
    const udp_socket sender{olv_net::parse_socket_address("127.0.0.1:0")};
    const std::vector<char> datagram(1000);
    for (int number = 0; number < 100; ++number) {
        ASSERT_EQ(sendto(sender.number(), datagram.data(), datagram.size(), 0,
                         reinterpret_cast<const sockaddr *>(&full.local_address().address),
                         full.local_address().length),
                  1000);
    }
    const std::uint64_t dropped = dropped_at(full.local_address().port());
    EXPECT_GT(dropped, 80u);
    EXPECT_LT(dropped, 100u);
}

} // namespace
