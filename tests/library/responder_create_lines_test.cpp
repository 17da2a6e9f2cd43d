// Creation beside its table: IDs and counts, the lines of the pattern bit, what the tracer gets.
#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/resources.hpp"
#include "responder_rows.hpp"

namespace olv_test {
namespace {

#define LEARNT_LINE                                                                                            \
    "[twamp_log: ptn_learn] twamp_responder.c:LINE olv_twamp.twamp_responder_lookup: " OLV_PRINTED_PATTERN(    \
        "000001") OLV_PRINTED_ACTION("00000000", "00000000") "\n"

std::uint32_t create(bench &b)
{
    return olv_twamp_responder_create(b.handle, &b.info, b.slot);
}

TEST(ResponderCreate, TwoRespondersHaveDifferentIdsAndCountUp)
{
    bench b;
    const auto *first = b.create_responder();
    const auto *second = b.create_responder();
    EXPECT_NE(first, second);
    EXPECT_NE(first->responder_id, second->responder_id);
    EXPECT_THAT(creation_count(b, first->responder_id), testing::ElementsAre(0, 0, 0, 1));
    EXPECT_THAT(creation_count(b, second->responder_id), testing::ElementsAre(0, 0, 0, 2));
}

TEST(ResponderCreate, DeletingDoesNotCountDown)
{
    bench b;
    auto *first = b.create_responder();
    (void)captured_console([&] { EXPECT_EQ(olv_twamp_responder_delete(b.module, first), 0u); });
    EXPECT_THAT(creation_count(b, b.create_responder()->responder_id), testing::ElementsAre(0, 0, 0, 2));
}

TEST(ResponderCreate, FreesTheRecordThatTheSlotHoldsWhenInfoIsNull)
{
    bench b;
    (void)captured_console([&] { EXPECT_EQ(create(b), 0u); });
    ASSERT_NE(b.responder, nullptr);
    const twamp_responder_handle *record = b.responder;
    (void)captured_console([&] { EXPECT_EQ(olv_twamp_responder_create(b.module, nullptr, b.slot), 0x30008u); });
    EXPECT_EQ(b.responder, nullptr);
    EXPECT_FALSE(olv_sim::memory::is_live(record));
}

TEST(ResponderCreate, PrintsNothingOnSuccessWithoutItsBits)
{
    bench b({.module_flags = 0x8F, .system_flags = 0x8F, .program = known_program()});
    const observation seen = b.observe([&] { return create(b); });
    EXPECT_EQ(seen.status, 0u);
    EXPECT_EQ(seen.console, "");
    b.keep(b.responder);
}

TEST(ResponderCreate, PrintsOneLearntLineForThePatternBitInBothWords)
{
    bench b({.module_flags = 0x40, .system_flags = 0x40, .program = known_program()});
    const observation seen = b.observe([&] { return create(b); });
    EXPECT_EQ(seen.status, 0u);
    EXPECT_EQ(seen.console, LEARNT_LINE);
    b.keep(b.responder);
}

TEST(ResponderCreate, PrintsPatternAndActionThroughTheFramework)
{
    bench b({.module_flags = 0x40, .system_flags = 0, .program = known_program()});
    const observation seen = b.observe([&] { return create(b); }, 1 + 4);
    EXPECT_THAT(seen.calls, testing::ElementsAre("olv_sys_sem_lock_wait", "hyx_nvm_calloc", "hyx_rsrc_allocate",
                                                 "hyx_timer_get_timestamp", "hyx_se_state_set", "olv_ptn_new",
                                                 "olv_ptn_extend", "hyx_ptn_learn", "olv_ptn_print",
                                                 "olv_ptn_action_print", "olv_ptn_free", "hyx_sem_post"));
    b.keep(b.responder);
}

TEST(ResponderCreate, TracesCarryTheModuleAndTheFile)
{
    bench b({.module_flags = 0, .system_flags = 0, .program = known_program()});
    const observation seen = b.observe([&] { return create(b); });
    ASSERT_EQ(seen.events.size(), 3u);
    for (const auto &event : seen.events) {
        EXPECT_EQ(event.record, b.module);
        EXPECT_EQ(event.file, "twamp_responder.c");
        EXPECT_NE(event.line, 0u);
        EXPECT_EQ(event.format, std::nullopt);
    }
    b.keep(b.responder);
}

TEST(ResponderCreate, MessagesCarryTheirArgumentsToTheTracer)
{
    bench b({.module_flags = 0, .system_flags = 0, .program = known_program()});
    ASSERT_TRUE(olv_sim::faults::set(call::hyx_ptn_learn, {.code = 0x1FF}));
    const observation seen = b.observe([&] { return create(b); });
    EXPECT_EQ(seen.console, "");
    ASSERT_EQ(seen.events.size(), 6u);
    EXPECT_EQ(seen.events[1].text,
              b.expand("Failed to learn the tree entry, treeID = 257RTE error code:0x1ff, error string: "
                       "{rte 0x1FF}\n"));
    EXPECT_EQ(seen.events[2].text, b.expand("{status 0x30040}\n"));
    EXPECT_EQ(seen.events[3].text, "TWAMP Failed to create responder");
    EXPECT_EQ(seen.events[4].text, b.expand("{status 0x30040}\n"));
}

TEST(ResponderCreate, UnknownHandleMessagesAreForcedWithFirstWordZero)
{
    bench b;
    b.handle = nullptr;
    const observation seen = b.observe([&] { return create(b); });
    ASSERT_EQ(seen.events.size(), 2u);
    for (const auto &event : seen.events) {
        EXPECT_EQ(event.first_word, 0u);
        EXPECT_EQ(event.record, nullptr);
        EXPECT_EQ(event.file, "twamp_responder.c");
    }
    EXPECT_EQ(seen.events[0].text, "Invalid TWAMP module handle 0x00000000\n");
    EXPECT_EQ(seen.events[1].text, "Failed to create Responder Handle");
}

TEST(ResponderCreate, ExhaustedNamespaceServesAgainAfterADelete)
{
    bench b(known_with_responders(2));
    auto *first = b.create_responder();
    (void)b.create_responder();
    (void)captured_console([&] { EXPECT_EQ(create(b), 0x3001Du); });
    EXPECT_EQ(b.responder, nullptr);
    (void)captured_console([&] { EXPECT_EQ(olv_twamp_responder_delete(b.module, first), 0u); });
    EXPECT_THAT(creation_count(b, b.create_responder()->responder_id), testing::ElementsAre(0, 0, 0, 3));
}

} // namespace
} // namespace olv_test
