#include "fastpath/core/drop_reasons.hpp"

#include <cstring>

#include <gtest/gtest.h>

#include "fastpath/core/statistics.hpp"
#include "olv_twamp.h"

namespace {

using namespace olv_fastpath;

/** Where the list says who counts a reason, and where its counters are. */
TEST(drop_reasons, are_counted_by_those_who_have_a_counter_for_them)
{
    olv_twamp_global_stats module{};
    olv_twamp_responder_stats responder{};
    std::memset(&module, 0xFF, sizeof module);
    std::memset(&responder, 0xFF, sizeof responder);
    for (const drop_reason_entry &each : drop_reasons) {
        EXPECT_EQ(each.is_counted_by(drop_counter::module), drops_in(module)[each.reason] != 0) << each.name;
        EXPECT_EQ(each.is_counted_by(drop_counter::responder), drops_in(responder)[each.reason] != 0)
            << each.name;
        EXPECT_NE(each.is_counted_by(drop_counter::listener),
                  each.is_counted_by(drop_counter::module_and_responder))
            << each.name;
    }
}

TEST(listener_statistics, are_added_field_by_field)
{
    listener_statistics one{
        .received_packets = 1, .dropped_packets = {}, .sent_replies = 2, .failed_replies = 3};
    one.dropped_packets[drop_reason::socket_full] = 4;
    listener_statistics sum = one;
    one.dropped_packets[drop_reason::packet_rate] = 5;
    sum += one;
    EXPECT_EQ(sum.received_packets, 2u);
    EXPECT_EQ(sum.sent_replies, 4u);
    EXPECT_EQ(sum.failed_replies, 6u);
    EXPECT_EQ(sum.dropped_packets[drop_reason::socket_full], 8u);
    EXPECT_EQ(sum.dropped_packets[drop_reason::packet_rate], 5u);
    EXPECT_EQ(sum.dropped_packets.sum(), 13u);
}

} // namespace
