#include <cstring>
#include <set>

#include "olv_sim/framework.hpp"
#include "olv_sim/statuses.hpp"
#include "sim_fixture.hpp"

namespace {

using status_texts = sim_test;

TEST_F(status_texts, framework_statuses)
{
    const struct {
        std::uint32_t status;
        const char *text;
    } rows[] = {
        {0, "Success"},
        {1, "Invalid handle"},
        {8, "No bind information"},
        {9, "Bind to this module is not supported"},
        {15, "Invalid log level"},
        {0x7E, "Tree could not be listed"},
        {0x30001, "TWAMP: invalid module handle"},
        {0x30008, "TWAMP: invalid parameter"},
        {0x30009, "TWAMP: unsupported pair of modules"},
        {0x3000C, "TWAMP: unsupported path"},
        {0x3000D, "TWAMP: destination has no entry point"},
        {0x30012, "TWAMP: out of memory"},
        {0x30019, "TWAMP: namespace not found"},
        {0x3001D, "TWAMP: responder ID could not be allocated"},
        {0x3001E, "TWAMP: responder ID could not be freed"},
        {0x3002B, "TWAMP: state could not be read"},
        {0x3002C, "TWAMP: state could not be written"},
        {0x3003F, "TWAMP: tree function not found"},
        {0x30040, "TWAMP: entry could not be learnt or removed"},
        {0x30041, "TWAMP: bind entry could not be removed"},
        {0x3007E, "TWAMP: tables could not be dumped"},
        {0x300A5, "TWAMP: lock could not be taken or released"},
        {0x1002C, "Statistics could not be cleared"},
        {0x20001, "Framework: not a module or system record"},
        {0x20002, "Framework: pointer is NULL"},
        {0x20003, "Framework: service functions not registered"},
        {0x20004, "Framework: invalid pattern or field width"},
        {0x20005, "Framework: pattern extended beyond its width"},
        {0x20006, "Framework: invalid pattern"},
        {0x20007, "Framework: no pattern left"},
        {0x201FF, "Framework: injected fault"},
        {2, "Unknown status"},
        {0xFFFFFFFF, "Unknown status"},
    };
    const olv_sim::framework framework;
    for (const auto &row : rows) {
        EXPECT_STREQ(olv_sys_status_get(nullptr, row.status), row.text) << std::hex << row.status;
        EXPECT_STREQ(olv_sys_status_get(framework.system(), row.status), row.text) << std::hex << row.status;
    }
}

TEST_F(status_texts, rte_statuses)
{
    EXPECT_STREQ(hyx_status_get(0), "Success");
    EXPECT_STREQ(hyx_status_get(0x101), "No such RTE instance");
    EXPECT_STREQ(hyx_status_get(0x10B), "Entry exists already");
    EXPECT_STREQ(hyx_status_get(0x1FF), "Injected fault");
    EXPECT_STREQ(hyx_status_get(0x100), "Unknown RTE error");
    EXPECT_STREQ(hyx_status_get(0xFFFFFFFF), "Unknown RTE error");
}

TEST_F(status_texts, every_rte_status_has_its_own)
{
    std::set<std::string> texts;
    EXPECT_EQ(olv_sim::rte_statuses().size(), 16u);
    for (const std::uint32_t status : olv_sim::rte_statuses()) {
        const std::string text = hyx_status_get(status);
        EXPECT_NE(text, "Unknown RTE error") << std::hex << status;
        EXPECT_TRUE(texts.insert(text).second) << text;
    }
}

} // namespace
