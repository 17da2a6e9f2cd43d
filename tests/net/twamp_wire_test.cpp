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

TEST(twamp_wire, makes_the_smallest_error_estimate_that_covers_an_error)
{
    struct row {
        std::uint64_t units;
        std::uint16_t expected;
    };
    for (const row &each :
         {row{0, 0x0001}, row{1, 0x0001}, row{255, 0x00FF}, row{256, 0x0180}, row{257, 0x0181},
          row{510, 0x01FF}, row{511, 0x0280}, row{4294967296, 0x1980}, row{UINT64_MAX, 0x3980}})
        EXPECT_EQ(error_estimate::covering(each.units), each.expected) << each.units;
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

TEST(twamp_wire, converts_ptp_time_to_ntp_time_and_back)
{
    struct row {
        const char *label;
        ptp_time ptp;
        std::int32_t tai_ahead;
        ntp_time ntp;
    };
    const row rows[] = {
        {"UTC", {1700000000, 500000000}, 0, {0xE8FE6F80, 0x80000000}},
        {"TAI", {1700000037, 500000000}, 37, {0xE8FE6F80, 0x80000000}},
        {"rounded up to 2^-32 s", {0, 1}, 0, {0x83AA7E80, 4}},
        {"rounded down to 2^-32 s", {0, 4}, 0, {0x83AA7E80, 17}},
        {"the last nanosecond of a second", {0, 999999999}, 0, {0x83AA7E80, 0xFFFFFFFC}},
        {"NTP's seconds wrap in 2036", {2085978496, 0}, 0, {0, 0}},
        {"PTP's seconds wrap in 2106", {0xFFFFFFFF, 0}, 0, {0x83AA7E7F, 0}},
    };
    for (const row &each : rows) {
        EXPECT_EQ(each.ptp.to_ntp(each.tai_ahead), each.ntp) << each.label;
        EXPECT_EQ(ptp_time::from_ntp(each.ntp, each.tai_ahead), each.ptp) << each.label;
    }
    EXPECT_EQ(ptp_time::from_ntp({0x83AA7E80, 0xFFFFFFFF}, 0), (ptp_time{1, 0})) << "nearer to the next second";
    EXPECT_EQ(ptp_time::from_ntp({0x83AA7E80, 0xFFFFFFFB}, 0), (ptp_time{0, 999999999}))
        << "as from_unix() rounds";
}

TEST(twamp_wire, reads_and_writes_ptp_time)
{
    std::uint8_t bytes[8] = {};
    store_ptp(bytes, {0x6553F100, 500000000});
    const std::uint8_t expected[8] = {0x65, 0x53, 0xF1, 0x00, 0x1D, 0xCD, 0x65, 0x00};
    for (int index = 0; index < 8; ++index)
        EXPECT_EQ(bytes[index], expected[index]) << index;
    EXPECT_EQ(load_ptp(bytes), (ptp_time{0x6553F100, 500000000}));
    EXPECT_EQ(ptp_time::from_1970(1700000000500000000), (ptp_time{1700000000, 500000000}));
    EXPECT_EQ((ptp_time{1700000000, 500000000}.since_1970()), 1700000000500000000u);
    EXPECT_TRUE((ptp_time{1, 999999999}.is_valid()));
    EXPECT_FALSE((ptp_time{1, 1000000000}.is_valid()));
}

} // namespace
