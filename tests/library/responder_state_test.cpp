// A new responder's state entry, field by field.
#include <bit>

#include "harness.hpp"
#include "olv_sim/faults.hpp"

namespace olv_test {
namespace {

using testing::ElementsAre;

/** Sets time of day and the processor's timer for a test. */
class ResponderState : public testing::Test {
  protected:
    ~ResponderState() override { set_time_of_day(std::nullopt); }

    std::vector<std::uint8_t> state_of_new_responder(std::uint16_t param_a, std::uint16_t param_b)
    {
        return b_.state_bytes(b_.create_responder(param_a, param_b)->responder_id);
    }

    /** Four bytes from @p first of the state entry of a new responder. */
    std::vector<std::uint8_t> word_at(std::ptrdiff_t first, std::uint16_t param_b = 0)
    {
        const auto bytes = state_of_new_responder(0, param_b);
        EXPECT_EQ(bytes.size(), 60u);
        return {bytes.begin() + first, bytes.begin() + first + 4};
    }

    bench b_{{.module_flags = 0, .system_flags = 0}};
};

TEST_F(ResponderState, HasEveryByteInItsPlace)
{
    set_time_of_day(time_of_day{1'700'000'000, 500'000});
    b_.processor.set_timer(0x0123456789ABCDEF);
    std::vector<std::uint8_t> expected{0x12, 0x34,             // first parameter
                                       0x00, 0x02,             // the constant 2
                                       0x80, 0x00, 0xAB, 0xCD, // second parameter with bit 31
                                       0x00, 0x00, 0x00, 0x01, // creation count
                                       0x00, 0x00, 0x00, 0x00, //
                                       0xE8, 0xFE, 0x6F, 0x80, // NTP seconds
                                       0x7F, 0xFF, 0xFF, 0xFF, // NTP fraction
                                       0x01, 0x23, 0x45, 0x67, // timer, high word
                                       0x89, 0xAB, 0xCD, 0xEF, // timer, low word
                                       0x00, 0x00, 0x00, 0x00, // received
                                       0x00, 0x00, 0x00, 0x00, // transmitted
                                       0x00, 0x00, 0x00, 0x00, // active sessions
                                       0x00, 0x00, 0x00, 0x00, // dropped, length check
                                       0x00, 0x00, 0x00, 0x00, // dropped, sessions
                                       0x20, 0x00, 0x00, 0x00, // 32 in host order
                                       0x00, 0x00, 0x00, 0x00};
    if (std::endian::native == std::endian::big) {
        expected[52] = 0x00;
        expected[55] = 0x20;
    }
    EXPECT_EQ(state_of_new_responder(0x1234, 0xABCD), expected);
}

TEST_F(ResponderState, SecondParameterAlwaysHasBit31)
{
    EXPECT_THAT(word_at(4, 0x0000), ElementsAre(0x80, 0x00, 0x00, 0x00));
    EXPECT_THAT(word_at(4, 0xFFFF), ElementsAre(0x80, 0x00, 0xFF, 0xFF));
}

TEST_F(ResponderState, CreationCountGrowsAndStartsAgainWithAnotherInitialisation)
{
    EXPECT_THAT(word_at(8), ElementsAre(0, 0, 0, 1));
    EXPECT_THAT(word_at(8), ElementsAre(0, 0, 0, 2));
    ASSERT_EQ(quiet([&] { return olv_twamp_shutdown(b_.module); }), 0u);
    ASSERT_EQ(quiet([&] { return olv_twamp_init(b_.module); }), 0u);
    EXPECT_THAT(word_at(8), ElementsAre(0, 0, 0, 1));
}

TEST_F(ResponderState, PairsTheInstantWithTheTimerReadingTakenAfterIt)
{
    b_.processor.set_timer(0x1111);
    set_time_of_day(time_of_day{0, 0}, [this] { b_.processor.set_timer(0x2222); });
    EXPECT_THAT(word_at(28), ElementsAre(0x00, 0x00, 0x22, 0x22));
}

TEST_F(ResponderState, FractionIsScaledByTwoToThe32LessOneAndTruncated)
{
    const struct {
        std::int64_t microseconds;
        std::vector<std::uint8_t> fraction;
    } rows[] = {{0, {0x00, 0x00, 0x00, 0x00}},       {1, {0x00, 0x00, 0x10, 0xC6}},
                {250'000, {0x3F, 0xFF, 0xFF, 0xFF}}, {500'000, {0x7F, 0xFF, 0xFF, 0xFF}},
                {750'000, {0xBF, 0xFF, 0xFF, 0xFF}}, {999'999, {0xFF, 0xFF, 0xEF, 0x38}}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.microseconds);
        set_time_of_day(time_of_day{1'700'000'000, row.microseconds});
        EXPECT_EQ(word_at(20), row.fraction);
    }
}

TEST_F(ResponderState, SecondsCountFrom1900AndWrap)
{
    const struct {
        std::int64_t seconds;
        std::vector<std::uint8_t> ntp;
    } rows[] = {{0, {0x83, 0xAA, 0x7E, 0x80}},
                {1'700'000'000, {0xE8, 0xFE, 0x6F, 0x80}},
                {2'085'978'495, {0xFF, 0xFF, 0xFF, 0xFF}},
                {2'085'978'496, {0x00, 0x00, 0x00, 0x00}},
                {4'000'000'000, {0x72, 0x15, 0xA6, 0x80}}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.seconds);
        set_time_of_day(time_of_day{row.seconds, 0});
        EXPECT_EQ(word_at(16), row.ntp);
    }
}

TEST_F(ResponderState, FieldsAreConvertedInTheirOrderAndTheTimerIsReadBetweenThem)
{
    set_time_of_day(time_of_day{1'700'000'000, 500'000});
    b_.processor.set_timer(0x0123456789ABCDEF);
    b_.info = {0x1234, 0xABCD};
    const observation seen =
        b_.observe([&] { return olv_twamp_responder_create(b_.module, &b_.info, &b_.responder); },
                   static_cast<unsigned>(olv_sim::call_kind::service) |
                       static_cast<unsigned>(olv_sim::call_kind::byte_order));
    b_.keep(b_.responder);
    std::vector<std::string> conversions;
    for (const std::string &each : seen.calls()) {
        if (each.starts_with("hyx_hton") || each.starts_with("hyx_timer")) {
            conversions.push_back(each.substr(0, each.find("(rte=")));
        }
    }
    EXPECT_THAT(conversions,
                ElementsAre("hyx_htons(value=0x2)", "hyx_htons(value=0x1234)", "hyx_htonl(value=0x8000abcd)",
                            "hyx_htonl(value=0x1)", "hyx_timer_get_timestamp", "hyx_htonl(value=0xe8fe6f80)",
                            "hyx_htonl(value=0x7fffffff)", "hyx_htonl(value=0x1234567)",
                            "hyx_htonl(value=0x89abcdef)"));
}

} // namespace
} // namespace olv_test
