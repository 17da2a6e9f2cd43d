#include "net/twamp_wire.hpp"

#include <cstdint>

#include <algorithm>

#include <gtest/gtest.h>

#include "fastpath/core/reflector.hpp"

namespace {

using namespace olv_fastpath;
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

TEST(tick_scale, adds_ticks_of_any_timer_to_an_instant)
{
    struct row {
        const char *label;
        ntp_time start;
        std::uint64_t elapsed;
        std::uint64_t frequency;
        ntp_time expected;
    };
    const row rows[] = {
        {"no time", {10, 20}, 0, 1000, {10, 20}},
        {"whole seconds", {10, 20}, 3000, 1000, {13, 20}},
        {"a fraction", {10, 0}, 250, 1000, {10, 0x40000000}},
        {"rounded down", {10, 0}, 1, 3, {10, 0x55555555}},
        {"the fraction carries", {10, 0xC0000000}, 1500, 1000, {12, 0x40000000}},
        {"the fraction carries exactly", {10, 0x80000000}, 500, 1000, {11, 0}},
        {"the last unit carries", {10, 0xFFFFFFFF}, 1, 4294967296, {11, 0}},
        {"the seconds wrap", {0xFFFFFFFF, 0x80000000}, 500000000, 1000000000, {0, 0}},
        {"more seconds than a word", {1, 0}, 4294967298, 1, {3, 0}},
        {"one tick a second", {1, 5}, 7, 1, {8, 5}},
        {"largest 32-bit frequency", {0, 0}, 4294967294, 4294967295, {0, 0xFFFFFFFE}},
        {"beyond 32 bits", {0, 0}, 10000000000, 40000000000, {0, 0x40000000}},
        {"beyond 32 bits, all ones", {0, 0}, 39999999999, 40000000000, {0, 0xFFFFFFFF}},
        {"beyond 63 bits", {0, 0}, 0xC000000000000000, 0xFFFFFFFFFFFFFFFF, {0, 0xC0000000}},
        {"all ticks there are", {0, 0}, 0xFFFFFFFFFFFFFFFF, 1000000000, {0x4B82FA09, 0xB5A52CB5}},
    };
    for (const row &each : rows) {
        const tick_scale scale{each.frequency};
        EXPECT_EQ(ntp_time::from_units(scale.after(each.start.units(), each.elapsed)), each.expected)
            << each.label;
    }
}

TEST(twamp_wire, replies_are_never_shorter_than_their_header_or_the_request)
{
    EXPECT_EQ(reply_length(14), 41u);
    EXPECT_EQ(reply_length(40), 41u);
    EXPECT_EQ(reply_length(41), 41u);
    EXPECT_EQ(reply_length(44), 44u);
    EXPECT_EQ(reply_length(65507), 65507u);
}

} // namespace
