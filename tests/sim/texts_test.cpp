// What the platform prints, and its texts of statuses.
#include <set>

#include "olv_sim/framework.hpp"
#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

using texts = sim_test;

template <typename Work> std::string printed_by(Work &&work)
{
    testing::internal::CaptureStdout();
    work();
    return testing::internal::GetCapturedStdout();
}

TEST_F(texts, of_patterns_actions_and_bytes)
{
    const struct {
        std::uint32_t value;
        std::uint32_t width;
        const char *text;
    } rows[] = {{0xABCDEF, 24, "<key = 0xabcdef/24>"},
                {0, 0, "<key = */0>"},
                {0x15, 5, "<key = 0x15/5>"},
                {1, 1, "<key = 0x1/1>"},
                {0x12345678, 32, "<key = 0x12345678/32>"}};
    for (const auto &row : rows) {
        const olv_ptn pattern = make_pattern(row.value, row.width);
        EXPECT_EQ(printed_by([&] { olv_ptn_print(pattern); }), row.text);
        olv_ptn_free(pattern);
    }
    olv_ptn wide{};
    ASSERT_EQ(olv_ptn_new(256, &wide), 0u);
    for (const std::uint32_t part : {3u, 0xDEADBEEFu, 1u}) {
        EXPECT_EQ(olv_ptn_extend(&wide, part, part == 3 ? 2 : 32), 0u);
    }
    EXPECT_EQ(printed_by([&] { olv_ptn_print(wide); }), "<key = 0x3deadbeef00000001/66>");
    olv_ptn_free(wide);
    EXPECT_EQ(printed_by([&] { olv_ptn_print(wide); }), "<key = invalid>");
    EXPECT_EQ(take_violations().size(), 1u);

    const olv_ptn_action action{{1, 0x401, 0}};
    const unsigned char bytes[] = {0, 1, 2, 0xAB, 0xFF};
    EXPECT_EQ(printed_by([&] { olv_ptn_action_print(action); }), "<action = 0x00000001 0x00000401 0x00000000>");
    EXPECT_EQ(printed_by([&] { olv_byte_string_print(bytes, 5); }), "00 01 02 ab ff");
    EXPECT_EQ(printed_by([&] { olv_byte_string_print(nullptr, 5); }), "");
}

TEST_F(texts, every_status_has_its_own)
{
    const framework framework;
    std::set<std::string> of_framework{"Unknown status"};
    for (const std::uint32_t status : words{
             0,       1,       8,       9,       15,      0x7E,    0x30001, 0x30008, 0x30009, 0x3000C, 0x3000D,
             0x30012, 0x30019, 0x3001D, 0x3001E, 0x3002B, 0x3002C, 0x3003F, 0x30040, 0x30041, 0x3007E, 0x300A5,
             0x1002C, 0x20001, 0x20002, 0x20003, 0x20004, 0x20005, 0x20006, 0x20007, 0x201FF}) {
        EXPECT_TRUE(of_framework.insert(olv_sys_status_get(nullptr, status)).second) << std::hex << status;
        EXPECT_STREQ(olv_sys_status_get(framework.system(), status), olv_sys_status_get(nullptr, status));
    }
    std::set<std::string> of_rte{"Unknown RTE error", hyx_status_get(0), hyx_status_get(0x1FF)};
    EXPECT_EQ(of_rte.size(), 3u);
    for (std::uint32_t status = 0x101; status <= 0x10F; ++status) {
        EXPECT_TRUE(of_rte.insert(hyx_status_get(status)).second) << std::hex << status;
    }
    for (const std::uint32_t unknown : {2u, 0x100u, 0x110u, 0xFFFFFFFFu}) {
        EXPECT_STREQ(olv_sys_status_get(nullptr, unknown), "Unknown status");
        EXPECT_STREQ(hyx_status_get(unknown), "Unknown RTE error");
    }
    EXPECT_STREQ(olv_sys_status_get(nullptr, 0x201FF), "Framework: injected fault");
    EXPECT_STREQ(hyx_status_get(0x10B), "Entry exists already");
}

} // namespace
