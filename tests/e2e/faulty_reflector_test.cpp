// twamp-probe against reflectors that do something wrong.

#include <algorithm>
#include <functional>
#include <ostream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "control_program.hpp"

namespace e2e {
namespace {

using testing::HasSubstr;

using octets = std::vector<std::uint8_t>;

/** A good reply to a request of 50 octets. */
octets reply_to(const octets &request)
{
    octets reply(50);
    std::copy_n(request.begin(), 4, reply.begin());       // sequence number
    reply[4] = 0xE0;                                      // sent back
    reply[11] = 2;                                        //
    reply[12] = 0x16;                                     // error estimate
    reply[13] = 1;                                        //
    reply[16] = 0xE0;                                     // received
    reply[23] = 1;                                        //
    std::copy_n(request.begin(), 14, reply.begin() + 24); // sender's header
    reply[40] = 255;
    std::copy_n(request.begin() + 14, 9, reply.begin() + 41);
    return reply;
}

struct fault_row {
    const char *label;
    std::function<void(octets &)> spoil; ///< The second of two replies.
    const char *reason;
};

void PrintTo(const fault_row &row, std::ostream *out)
{
    *out << row.label;
}

class FaultyReflector : public testing::TestWithParam<fault_row> {};

TEST_P(FaultyReflector, IsFoundOut)
{
    loopback_socket reflector;
    child_program probe{
        TWAMP_PROBE,
        {reflector.address(), "--count", "2", "--interval", "1", "--size", "50", "--timeout", "2"}};
    for (int packet = 0; packet < 2; ++packet) {
        const auto request = reflector.receive();
        ASSERT_TRUE(request);
        ASSERT_EQ(request->size(), 50u);
        octets reply = reply_to(*request);
        if (packet == 1) {
            GetParam().spoil(reply);
        }
        reflector.answer(reply);
    }
    EXPECT_EQ(probe.wait(), 1);
    EXPECT_THAT(probe.output(), HasSubstr(std::string("received: 2\nvalid: 1\ninvalid: 1\n  ") +
                                          GetParam().reason + ": 1\nlost: "));
}

INSTANTIATE_TEST_SUITE_P(
    Faults, FaultyReflector,
    testing::Values(
        fault_row{"Empty", [](octets &reply) { reply.clear(); }, "wrong length"},
        fault_row{"Shorter", [](octets &reply) { reply.pop_back(); }, "wrong length"},
        fault_row{"Longer", [](octets &reply) { reply.push_back(0); }, "wrong length"},
        fault_row{"Zero14", [](octets &reply) { reply[15] = 1; }, "a field that must be zero is not"},
        fault_row{"Zero38", [](octets &reply) { reply[38] = 1; }, "a field that must be zero is not"},
        fault_row{"SenderSequence", [](octets &reply) { reply[24] = 1; }, "sender sequence number never sent"},
        fault_row{"SenderTimestamp", [](octets &reply) { reply[35] ^= 1; }, "sender timestamp not as sent"},
        fault_row{"SenderEstimate", [](octets &reply) { reply[36] ^= 1; }, "sender error estimate not as sent"},
        fault_row{"SenderTtl", [](octets &reply) { reply[40] = 0; }, "sender TTL 0"},
        fault_row{"Sequence", [](octets &reply) { reply[3] = 0; },
                  "reflector sequence number not above the one before"},
        fault_row{"Timestamps", [](octets &reply) { reply[23] = 3; }, "received after it was sent back"},
        fault_row{"Estimate", [](octets &reply) { reply[13] = 0; }, "error estimate with multiplier 0"},
        fault_row{"Padding", [](octets &reply) { reply[49] ^= 0x80; }, "padding not as sent"}),
    [](const auto &row) { return std::string(row.param.label); });

TEST(FaultyReflectorOnce, DuplicatesAreCountedAndForgiven)
{
    loopback_socket reflector;
    child_program probe{TWAMP_PROBE,
                        {reflector.address(), "--count", "2", "--interval", "200", "--size", "50"}};
    for (int packet = 0; packet < 2; ++packet) {
        const auto request = reflector.receive();
        ASSERT_TRUE(request);
        octets reply = reply_to(*request);
        if (packet == 0) {
            reflector.answer(reply);
        }
        reflector.answer(reply);
    }
    EXPECT_EQ(probe.wait(), 0);
    EXPECT_THAT(probe.output(),
                HasSubstr("received: 3\nvalid: 2\ninvalid: 0\nlost: 0 (0.00 %)\nduplicates: 1\n"));
}

TEST(FaultyReflectorOnce, OtherTtlIsReported)
{
    loopback_socket reflector;
    child_program probe{TWAMP_PROBE, {reflector.address(), "--count", "1", "--size", "50"}};
    const auto request = reflector.receive();
    ASSERT_TRUE(request);
    octets reply = reply_to(*request);
    reply[40] = 64;
    reflector.answer(reply);
    EXPECT_EQ(probe.wait(), 0);
    EXPECT_THAT(probe.output(), HasSubstr("duplicates: 0\nsender TTL not 255: 1\n"));
}

TEST(FaultyReflectorOnce, OneMissingReplyIsHalfTheLoss)
{
    loopback_socket reflector;
    child_program probe{
        TWAMP_PROBE,
        {reflector.address(), "--count", "2", "--interval", "1", "--size", "50", "--timeout", "2"}};
    const auto request = reflector.receive();
    ASSERT_TRUE(request);
    reflector.answer(reply_to(*request));
    EXPECT_EQ(probe.wait(), 1);
    EXPECT_THAT(probe.output(), HasSubstr("sent: 2\nreceived: 1\nvalid: 1\ninvalid: 0\nlost: 1 (50.00 %)\n"));
}

} // namespace
} // namespace e2e
