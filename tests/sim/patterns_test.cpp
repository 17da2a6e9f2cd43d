#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

using pattern_records = sim_test;

TEST_F(pattern_records, built_and_split)
{
    olv_ptn pattern{{1, 2, 3}};
    ASSERT_EQ(olv_ptn_new(128, &pattern), 0u);
    EXPECT_NE(pattern.word[0], 0u);
    EXPECT_EQ(pattern.word[1], 0u);
    EXPECT_EQ(pattern.word[2], 0u);
    EXPECT_EQ(patterns::live(), patterns_before + 1);
    EXPECT_EQ(olv_ptn_extend(&pattern, 0xFFFFFFF5, 3), 0u); // Only the low bits count.
    EXPECT_EQ(pattern.word[1], 3u);
    EXPECT_EQ(olv_ptn_extend(&pattern, 0xDEADBEEF, 32), 0u);
    EXPECT_EQ(olv_ptn_extend(&pattern, 0, 1), 0u);
    EXPECT_EQ(olv_ptn_extend(&pattern, 0x12345678, 32), 0u);
    EXPECT_EQ(pattern.word[1], 68u);

    const std::uint16_t widths[] = {3, 32, 1, 32};
    std::uint32_t values[4] = {};
    EXPECT_EQ(olv_ptn_parse(&pattern, 4, widths, values), 0u);
    EXPECT_EQ(values[0], 5u);
    EXPECT_EQ(values[1], 0xDEADBEEFu);
    EXPECT_EQ(values[2], 0u);
    EXPECT_EQ(values[3], 0x12345678u);
    const std::uint16_t other_widths[] = {7, 8};
    EXPECT_EQ(olv_ptn_parse(&pattern, 2, other_widths, values), 0u);
    EXPECT_EQ(values[0], 0x5Du); // 101 1101
    EXPECT_EQ(values[1], 0xEAu);
    olv_ptn_free(pattern);
    EXPECT_EQ(patterns::live(), patterns_before);
}

TEST_F(pattern_records, widest)
{
    olv_ptn pattern{};
    ASSERT_EQ(olv_ptn_new(256, &pattern), 0u);
    for (std::uint32_t index = 0; index < 8; ++index) {
        EXPECT_EQ(olv_ptn_extend(&pattern, 0xF0000000 + index, 32), 0u);
    }
    const std::uint16_t widths[] = {32, 32, 32, 32, 32, 32, 32, 32};
    std::uint32_t values[8] = {};
    EXPECT_EQ(olv_ptn_parse(&pattern, 8, widths, values), 0u);
    EXPECT_EQ(values[0], 0xF0000000u);
    EXPECT_EQ(values[7], 0xF0000007u);
    olv_ptn_free(pattern);
}

TEST_F(pattern_records, widths_are_checked)
{
    olv_ptn pattern{{7, 7, 7}};
    EXPECT_EQ(olv_ptn_new(0, &pattern), 0x20004u);
    EXPECT_EQ(olv_ptn_new(257, &pattern), 0x20004u);
    EXPECT_EQ(pattern.word[0], 7u);
    ASSERT_EQ(olv_ptn_new(40, &pattern), 0u);
    EXPECT_EQ(olv_ptn_extend(&pattern, 1, 0), 0x20004u);
    EXPECT_EQ(olv_ptn_extend(&pattern, 1, 33), 0x20004u);
    EXPECT_EQ(pattern.word[1], 0u);
    EXPECT_EQ(olv_ptn_extend(&pattern, 1, 24), 0u);
    const std::uint16_t widths[] = {24, 1, 0, 33};
    std::uint32_t values[2] = {7, 7};
    EXPECT_EQ(olv_ptn_parse(&pattern, 2, widths, values), 0x20004u);
    EXPECT_EQ(olv_ptn_parse(&pattern, 1, widths + 2, values), 0x20004u);
    EXPECT_EQ(olv_ptn_parse(&pattern, 1, widths + 3, values), 0x20004u);
    EXPECT_EQ(olv_ptn_parse(&pattern, 0, widths, values), 0u);
    EXPECT_EQ(values[0], 7u);
    olv_ptn_free(pattern);
}

TEST_F(pattern_records, overflow_is_reported)
{
    olv_ptn pattern = make_pattern(0xABCDEF);
    EXPECT_EQ(olv_ptn_extend(&pattern, 1, 1), 0x20005u);
    EXPECT_EQ(pattern.word[1], 24u);
    EXPECT_EQ(take_violations(), (std::vector<std::string>{"olv_ptn_extend: 24 + 1 bits in a pattern of 24"}));
    olv_ptn_free(pattern);
}

TEST_F(pattern_records, null_pointers)
{
    const std::uint16_t width = 8;
    std::uint32_t value = 0;
    olv_ptn pattern = make_pattern(1);
    EXPECT_EQ(olv_ptn_new(24, nullptr), 0x20002u);
    EXPECT_EQ(olv_ptn_extend(nullptr, 1, 24), 0x20002u);
    EXPECT_EQ(olv_ptn_parse(nullptr, 1, &width, &value), 0x20002u);
    EXPECT_EQ(olv_ptn_parse(&pattern, 1, nullptr, &value), 0x20002u);
    EXPECT_EQ(olv_ptn_parse(&pattern, 1, &width, nullptr), 0x20002u);
    olv_ptn_free(pattern);
}

TEST_F(pattern_records, use_after_free_is_reported)
{
    olv_ptn stale = make_pattern(1);
    olv_ptn_free(stale);
    const olv_ptn other = make_pattern(2); // May take the same place.
    const std::uint16_t width = 24;
    std::uint32_t value = 7;
    olv_ptn_action action{};
    EXPECT_EQ(olv_ptn_extend(&stale, 1, 1), 0x20006u);
    EXPECT_EQ(olv_ptn_parse(&stale, 1, &width, &value), 0x20006u);
    EXPECT_EQ(hyx_ptn_learn(rte, responder_tree, &stale, &action), 0x10Au);
    EXPECT_EQ(hyx_ptn_unlearn(rte, responder_tree, &stale, 24, &action, 1), 0x10Au);
    olv_ptn_free(stale);
    olv_ptn foreign{{0xFFFFFFFF, 24, 0}};
    olv_ptn_free(foreign);
    olv_ptn_free(olv_ptn{});
    const auto reported = take_violations();
    ASSERT_EQ(reported.size(), 7u);
    EXPECT_EQ(reported[0].substr(0, 42), "olv_ptn_extend: freed or foreign pattern 0");
    EXPECT_EQ(reported[4].substr(0, 40), "olv_ptn_free: freed or foreign pattern 0");
    EXPECT_EQ(reported[5], "olv_ptn_free: freed or foreign pattern 0xffffffff");
    EXPECT_EQ(value, 7u);
    EXPECT_EQ(olv_ptn_parse(&other, 1, &width, &value), 0u);
    EXPECT_EQ(value, 2u);
    olv_ptn_free(other);
}

TEST_F(pattern_records, arena_ends)
{
    std::vector<olv_ptn> all;
    olv_ptn pattern{};
    std::uint32_t status = 0;
    while ((status = olv_ptn_new(24, &pattern)) == 0) {
        all.push_back(pattern);
    }
    EXPECT_EQ(status, 0x20007u);
    EXPECT_EQ(all.size(), 65536u);
    for (const olv_ptn &one : all) {
        olv_ptn_free(one);
    }
    EXPECT_EQ(olv_ptn_new(24, &pattern), 0u);
    olv_ptn_free(pattern);
}

} // namespace
