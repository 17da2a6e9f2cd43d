#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

class pattern_records : public sim_test {
  protected:
    /** The fields of a pattern; nothing but the status when it has not so many bits. */
    static words fields(const olv_ptn &pattern, const std::vector<std::uint16_t> &widths)
    {
        words values(widths.size(), 7);
        const std::uint32_t status =
            olv_ptn_parse(&pattern, static_cast<std::uint32_t>(widths.size()), widths.data(), values.data());
        EXPECT_TRUE(status == 0 || values == words(widths.size(), 7)) << "refused, and written";
        return status == 0 ? values : words{status};
    }
};

TEST_F(pattern_records, built_and_split)
{
    olv_ptn pattern{{1, 2, 3}};
    ASSERT_EQ(olv_ptn_new(256, &pattern), 0u);
    EXPECT_EQ(pattern.word[1], 0u);
    EXPECT_EQ(pattern.word[2], 0u);
    EXPECT_EQ(patterns::live(), patterns_before + 1);
    EXPECT_EQ(olv_ptn_extend(&pattern, 0xFFFFFFF5, 3), 0u); // only the low bits count
    EXPECT_EQ(pattern.word[1], 3u);
    EXPECT_EQ(olv_ptn_extend(&pattern, 0xDEADBEEF, 32), 0u);
    EXPECT_EQ(olv_ptn_extend(&pattern, 0, 1), 0u);
    EXPECT_EQ(olv_ptn_extend(&pattern, 0x12345678, 32), 0u);
    EXPECT_EQ(pattern.word[1], 68u);
    EXPECT_EQ(fields(pattern, {3, 32, 1, 32}), (words{5, 0xDEADBEEF, 0, 0x12345678}));
    EXPECT_EQ(fields(pattern, {7, 8}), (words{0x5D, 0xEA}));     // 101 1101
    for (const std::uint32_t width : {32, 32, 32, 32, 32, 28}) { // to the last bit of the widest
        EXPECT_EQ(olv_ptn_extend(&pattern, 0xA0000002, width), 0u);
    }
    EXPECT_EQ(fields(pattern, {32, 32, 32, 32, 32, 32, 32, 32}).back(), 0x20000002u);
    olv_ptn_free(pattern);
    EXPECT_EQ(patterns::live(), patterns_before);
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
    EXPECT_EQ(olv_ptn_extend(&pattern, 1, 17), 0x20005u);
    EXPECT_EQ(pattern.word[1], 24u);
    EXPECT_EQ(take_violations(), lines{"olv_ptn_extend: 24 + 17 bits in a pattern of 40"});
    EXPECT_EQ(fields(pattern, {24, 1}), words{0x20004});
    EXPECT_EQ(fields(pattern, {0}), words{0x20004});
    EXPECT_EQ(fields(pattern, {33}), words{0x20004});
    EXPECT_EQ(fields(pattern, {24}), words{1});
    olv_ptn_free(pattern);
}

TEST_F(pattern_records, use_after_free_is_reported)
{
    olv_ptn stale = make_pattern(1);
    olv_ptn_free(stale);
    const olv_ptn other = make_pattern(2); // may take the same place
    olv_ptn_action action{};
    EXPECT_EQ(olv_ptn_extend(&stale, 1, 1), 0x20006u);
    EXPECT_EQ(fields(stale, {24}), words{0x20006});
    EXPECT_EQ(hyx_ptn_learn(rte, responder_tree, &stale, &action), 0x10Au);
    EXPECT_EQ(hyx_ptn_unlearn(rte, responder_tree, &stale, 24, &action, 1), 0x10Au);
    olv_ptn_free(stale);
    olv_ptn_free(olv_ptn{{0xFFFFFFFF, 24, 0}});
    olv_ptn_free(olv_ptn{});
    const lines reported = take_violations();
    ASSERT_EQ(reported.size(), 7u);
    EXPECT_EQ(reported[0].substr(0, 42), "olv_ptn_extend: freed or foreign pattern 0");
    EXPECT_EQ(reported[5], "olv_ptn_free: freed or foreign pattern 0xffffffff");
    EXPECT_EQ(fields(other, {24}), words{2});
    olv_ptn_free(other);
}

TEST_F(pattern_records, run_out)
{
    std::vector<olv_ptn> all(65536 - patterns_before);
    for (olv_ptn &one : all) {
        ASSERT_EQ(olv_ptn_new(24, &one), 0u);
    }
    olv_ptn pattern{};
    EXPECT_EQ(olv_ptn_new(24, &pattern), 0x20007u);
    for (const olv_ptn &one : all) {
        olv_ptn_free(one);
    }
    olv_ptn_free(make_pattern(1));
}

} // namespace
