#include "net/twamp_wire.hpp"

#include <cstdint>

#include <gtest/gtest.h>

namespace {

using namespace olv_net;

TEST(twamp_wire, stores_and_loads_big_endian)
{
    std::uint8_t bytes[8] = {};
    store_ntp(bytes, {0x01020304, 0xA5B6C7D8});
    const std::uint8_t expected[8] = {0x01, 0x02, 0x03, 0x04, 0xA5, 0xB6, 0xC7, 0xD8};
    for (int index = 0; index < 8; ++index)
        EXPECT_EQ(bytes[index], expected[index]) << index;
    EXPECT_EQ(load_ntp(bytes), (ntp_time{0x01020304, 0xA5B6C7D8}));
    EXPECT_EQ(load_16(bytes + 4), 0xA5B6);
}

TEST(twamp_wire, makes_an_error_estimate_of_scale_and_multiplier)
{
    EXPECT_EQ(error_estimate::make(22, 1), 0x1601);
    EXPECT_EQ(error_estimate::make(63, 255), 0x3FFF);
}

TEST(twamp_wire, converts_unix_time_to_ntp_time)
{
    EXPECT_EQ(ntp_time::from_unix(0, 0), (ntp_time{0x83AA7E80, 0}));
    EXPECT_EQ(ntp_time::from_unix(1, 500000000), (ntp_time{0x83AA7E81, 0x80000000}));
    EXPECT_EQ(ntp_time::from_unix(2085978496, 0), (ntp_time{0, 0})); // the seconds wrap in 2036
    EXPECT_EQ(ntp_time::from_unix(0, 999999999), (ntp_time{0x83AA7E80, 0xFFFFFFFB}));
}

TEST(twamp_wire, measures_nanoseconds_in_both_directions_and_across_the_wrap)
{
    EXPECT_EQ(nanoseconds_between({1, 0}, {2, 0x80000000}), 1500000000);
    EXPECT_EQ(nanoseconds_between({2, 0x80000000}, {1, 0}), -1500000000);
    EXPECT_EQ(nanoseconds_between({0xFFFFFFFF, 0}, {1, 0}), 2000000000);
    EXPECT_EQ(nanoseconds_between({1, 0}, {0xFFFFFFFF, 0}), -2000000000);
    EXPECT_EQ(nanoseconds_between({5, 5}, {5, 5}), 0);
    EXPECT_EQ(nanoseconds_between({0, 0}, {0x7FFFFFFF, 0}), 2147483647000000000);
}

} // namespace
