// Orders that neither the console nor the traces show alone: a message is printed, then traced; the wall clock
// is read before its line; what is freed no longer looks like what it was.
#include "sequence.hpp"

#include <cstring>

#include "bind_rows.hpp"
#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"

namespace olv_test {
namespace {

#define TWAMP_ENTERING(operation)                                                                              \
    "<hyx_gettime>\n" OLV_ENTERING("twamp.c", operation) "<trace 8, initialised>\n"
#define TWAMP_EXITING(operation) "<hyx_gettime>\n" OLV_EXITING("twamp.c", operation) "<trace 9, initialised>\n"

TEST(Sequence, InitCompletesTheContextBeforeItTellsOfSuccess)
{
    bench b({.initialised = false});
    EXPECT_EQ(
        sequence_of(b, [&] { return olv_twamp_init(b.module); }),
        b.expand("<hyx_gettime>\n" OLV_ENTERING(
            "twamp.c",
            "olv_twamp_init") "<trace 8>\n"
                              "[twamp_log: se_write] twamp.c:LINE NS ID 0x007008c1 idx 0: {zeros 128}\n"
                              "<trace 27>\n" OLV_INFO(
                                  "twamp.c",
                                  "Profile - OLV_KORVA_PROFILE_2") "<trace 0, initialised>\n"
                                                                   "[twamp_log: info] twamp.c:LINE Succefully "
                                                                   "initialized TWAMP module"
                                                                   "<trace 0, initialised>\n" TWAMP_EXITING(
                                                                       "olv_twamp_init")));
}

TEST(Sequence, ShutdownClearsAndFreesTheContextBeforeItTellsOfIt)
{
    bench b;
    const std::function<void(const void *)> context_is_no_more = [](const void *block) {
        std::uint32_t magic = 1;
        std::memcpy(&magic, block, sizeof magic);
        EXPECT_EQ(magic, 0u);
    };
    EXPECT_EQ(
        sequence_of(
            b, [&] { return olv_twamp_shutdown(b.module); }, context_is_no_more),
        b.expand("<hyx_nvm_free>\n" OLV_INFO("twamp.c", "TWAMP module 0x{module} shutdown") "<trace 0>\n"));

    EXPECT_EQ(quiet([&] { return olv_twamp_init(b.module); }), 0u);
    olv_sim::faults::set(call::olv_module_service_function_register, {.code = 0x10007});
    EXPECT_EQ(
        sequence_of(
            b, [&] { return olv_twamp_shutdown(b.module); }, context_is_no_more),
        b.expand(OLV_ERROR("twamp.c", "Failed to register NULL functions") "<trace 2, initialised>\n" OLV_ERROR(
            "twamp.c",
            "{status 0x10007}") "<trace 2, initialised>\n"
                                "<hyx_nvm_free>\n" OLV_ERROR(
                                    "twamp.c",
                                    "TWAMP module 0x{module} failed to "
                                    "shutdown") "<trace 2>\n" OLV_ERROR("twamp.c",
                                                                        "{status 0x10007}") "<trace 2>\n"));
}

TEST(Sequence, MessagesWithAndWithoutArgumentsArePrintedThenTraced)
{
    bench b;
    EXPECT_EQ(sequence_of(b, [&] { return olv_twamp_sys_log(b.module, 2); }),
              b.expand(TWAMP_ENTERING(
                  "olv_twamp_sys_log") "[twamp_log: ERROR] twamp_internal.c:LINE Unsupported "
                                       "log-level in TWAMP!"
                                       "<trace 2, initialised>\n" OLV_ERROR("twamp_internal.c", "{status 15}") "<trace 2, initialised>\n" OLV_ERROR(
                                           "twamp.c",
                                           "Failed to set log-level 2") "<trace 2, "
                                                                        "initialised>"
                                                                        "\n" OLV_ERROR(
                                                                            "twamp.c",
                                                                            "{status "
                                                                            "15}") "<t"
                                                                                   "ra"
                                                                                   "ce"
                                                                                   " 2"
                                                                                   ", "
                                                                                   "in"
                                                                                   "it"
                                                                                   "ia"
                                                                                   "li"
                                                                                   "se"
                                                                                   "d>"
                                                                                   "\n" TWAMP_EXITING(
                                                                                       "olv_twamp_sys_log")));
}

TEST(Sequence, MessagesWithoutAHandleArePrintedThenTraced)
{
    bench b;
    EXPECT_EQ(sequence_of(b, [] { return olv_twamp_global_stats_get(nullptr, nullptr); }),
              OLV_UNKNOWN("twamp.c", "Invalid TWAMP module handle 0x00000000") "<forced error>\n" OLV_UNKNOWN(
                  "twamp.c", "Failed to delete Responder Handle") "<forced error>\n");
    std::uint32_t mapped = 0;
    EXPECT_EQ(sequence_of(b, [&] { return olv_twamp_map_sys_log(nullptr, 2, &mapped); }),
              "[olv_unknown_log: ERROR] twamp_internal.c:LINE Unsupported log-level in TWAMP!<forced error>\n");
}

TEST(Sequence, EntriesArePrintedThenTraced)
{
    bench b;
    b.set_log_words(OLV_LOG_PATTERN, 0);
    request asked(b);
    const char *const bound =
        "[twamp_log: ptn_learn]olv_twamp.twamp_bind_to_next_module: " OLV_PRINTED_PATTERN("abcdef")
            OLV_PRINTED_ACTION("00000001", "00000401") "\n<trace 15, initialised>\n";
    EXPECT_THAT(sequence_of(b, [&] { return olv_twamp_custom_bind(b.framework.system(), &asked.info); }),
                testing::HasSubstr(bound));
    const char *const unbound =
        "[twamp_log: ptn_unlearn]olv_twamp.twamp_bind_to_next_module: " OLV_PRINTED_PATTERN(
            "abcdef") "<xsize = 24>" OLV_PRINTED_ACTION("00000001", "00000401") "\n<trace 16, initialised>\n";
    EXPECT_THAT(sequence_of(b, [&] { return olv_twamp_custom_unbind(b.framework.system(), &asked.info); }),
                testing::HasSubstr(unbound));
}

TEST(Sequence, RecordOfAResponderThatIsNotCreatedIsClearedBeforeItIsFreed)
{
    bench b;
    b.set_log_words(0, 0);
    int freed = 0;
    const std::function<void(const void *)> record_is_no_more = [&freed](const void *block) {
        twamp_responder_handle record{1, nullptr, 1, {}};
        std::memcpy(&record, block, sizeof record);
        EXPECT_EQ(record.module, nullptr);
        EXPECT_EQ(record.magic, 0u);
        ++freed;
    };
    olv_sim::faults::set(call::hyx_ptn_learn, {.code = 0x1FF});
    (void)sequence_of(
        b, [&] { return olv_twamp_responder_create(b.module, &b.info, b.slot); }, record_is_no_more);
    EXPECT_EQ(freed, 1);
}

} // namespace
} // namespace olv_test
