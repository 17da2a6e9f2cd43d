#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

class printing : public sim_test {
  protected:
    template <typename Work> static std::string printed_by(Work &&work)
    {
        testing::internal::CaptureStdout();
        work();
        return testing::internal::GetCapturedStdout();
    }

    static std::string printed_pattern(const olv_ptn &pattern)
    {
        std::string text = printed_by([&] { olv_ptn_print(pattern); });
        olv_ptn_free(pattern);
        return text;
    }
};

TEST_F(printing, patterns)
{
    EXPECT_EQ(printed_pattern(make_pattern(1)), "<key = 0x000001/24>");
    EXPECT_EQ(printed_pattern(make_pattern(0xABCDEF)), "<key = 0xabcdef/24>");
    EXPECT_EQ(printed_pattern(make_pattern(0, 0)), "<key = */0>");
    EXPECT_EQ(printed_pattern(make_pattern(0x15, 5)), "<key = 0x15/5>");
    EXPECT_EQ(printed_pattern(make_pattern(1, 1)), "<key = 0x1/1>");
    EXPECT_EQ(printed_pattern(make_pattern(0x12345678, 32)), "<key = 0x12345678/32>");
    olv_ptn wide{};
    ASSERT_EQ(olv_ptn_new(256, &wide), 0u);
    EXPECT_EQ(olv_ptn_extend(&wide, 0x3, 2), 0u);
    EXPECT_EQ(olv_ptn_extend(&wide, 0xDEADBEEF, 32), 0u);
    EXPECT_EQ(olv_ptn_extend(&wide, 0x00000001, 32), 0u);
    EXPECT_EQ(printed_pattern(wide), "<key = 0x3deadbeef00000001/66>");
}

TEST_F(printing, freed_pattern)
{
    const olv_ptn pattern = make_pattern(1);
    olv_ptn_free(pattern);
    EXPECT_EQ(printed_by([&] { olv_ptn_print(pattern); }), "<key = invalid>");
    EXPECT_EQ(take_violations().size(), 1u);
}

TEST_F(printing, actions)
{
    EXPECT_EQ(printed_by([] {
                  olv_ptn_action_print({{1, 0x401, 0}});
              }),
              "<action = 0x00000001 0x00000401 0x00000000>");
}

TEST_F(printing, bytes)
{
    const unsigned char bytes[] = {0, 1, 2, 0xAB, 0xFF};
    EXPECT_EQ(printed_by([&] { olv_byte_string_print(bytes, 5); }), "00 01 02 ab ff");
    EXPECT_EQ(printed_by([&] { olv_byte_string_print(bytes, 1); }), "00");
    EXPECT_EQ(printed_by([&] { olv_byte_string_print(bytes, 0); }), "");
    EXPECT_EQ(printed_by([&] { olv_byte_string_print(nullptr, 5); }), "");
}

TEST_F(printing, tree_names)
{
    EXPECT_STREQ(olv_sif_fps_map(0x101), "olv_twamp.twamp_to_ip_direct_imc");
    EXPECT_STREQ(olv_sif_fps_map(0x102), "olv_twamp.twamp_to_ipv6_indirect_imc");
    EXPECT_STREQ(olv_sif_fps_map(0x103), "olv_twamp.twamp_lli_processing");
    EXPECT_STREQ(olv_sif_fps_map(0x104), "olv_twamp.twamp_responder_lookup");
    EXPECT_STREQ(olv_sif_fps_map(0x105), "olv_twamp.twamp_bind_to_next_module");
    EXPECT_STREQ(olv_sif_fps_map(0x106), "unknown tree function");
}

TEST_F(printing, byte_order)
{
    EXPECT_EQ(hyx_ntohl(hyx_htonl(0x12345678)), 0x12345678u);
    const std::uint32_t word = hyx_htonl(0x01020304);
    const std::uint16_t half = hyx_htons(0x0102);
    EXPECT_EQ(reinterpret_cast<const unsigned char *>(&word)[0], 1);
    EXPECT_EQ(reinterpret_cast<const unsigned char *>(&word)[3], 4);
    EXPECT_EQ(reinterpret_cast<const unsigned char *>(&half)[0], 1);
}

} // namespace
