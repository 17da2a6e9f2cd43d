// The headers in C++, and every operation with its type, the same that C sees.
#include "hyx.h"

#include "olv.h"
#include "olv_layout.h"
#include "olv_twamp.h"

#include "exported_operations.h"

#include <cstdint>
#include <type_traits>

#include "gtest/gtest.h"

namespace {

#define OLV_OPERATION_TYPE(name, result, parameters)                                                           \
    static_assert(std::is_same_v<decltype(&name), result(*) parameters>);
OLV_EXPORTED_OPERATIONS(OLV_OPERATION_TYPE)
#undef OLV_OPERATION_TYPE

// The service functions have the types of their slots.
static_assert(std::is_same_v<decltype(&olv_twamp_shutdown), olv_shutdown_fn>);
static_assert(std::is_same_v<decltype(&olv_twamp_custom_bind), olv_custom_bind_fn>);
static_assert(std::is_same_v<decltype(&olv_twamp_custom_unbind), olv_custom_bind_fn>);
static_assert(std::is_same_v<decltype(&olv_twamp_get_imc), olv_get_imc_fn>);
static_assert(std::is_same_v<decltype(&olv_twamp_sys_log), olv_sys_log_fn>);
static_assert(std::is_same_v<decltype(&olv_twamp_table_entry_dump_fn), hyx_ptn_list_fn>);

TEST(Interface, CAndCxxSeeTheSameOperations)
{
#define OLV_OPERATION_EXPECTED(name, result, parameters)                                                       \
    EXPECT_NE(operations_of_c.name, nullptr) << #name;                                                         \
    EXPECT_EQ(operations_of_c.name, &name) << #name;
    OLV_EXPORTED_OPERATIONS(OLV_OPERATION_EXPECTED)
#undef OLV_OPERATION_EXPECTED
}

TEST(Interface, StatusCodesHaveTheirValues)
{
    EXPECT_EQ(OLV_STATUS_OK, 0);
    EXPECT_EQ(OLV_STATUS_INVALID_HANDLE, 1);
    EXPECT_EQ(OLV_STATUS_NULL_BIND_INFO, 8);
    EXPECT_EQ(OLV_STATUS_BIND_UNSUPPORTED, 9);
    EXPECT_EQ(OLV_STATUS_BAD_LOG_LEVEL, 15);
    EXPECT_EQ(OLV_STATUS_DUMP_FAILED, 126);
    EXPECT_EQ(TWAMP_STATUS_INVALID_MODULE, 0x30001);
    EXPECT_EQ(TWAMP_STATUS_INVALID_PARAM, 0x30008);
    EXPECT_EQ(TWAMP_STATUS_UNSUPPORTED_PAIR, 0x30009);
    EXPECT_EQ(TWAMP_STATUS_UNSUPPORTED_PATH, 0x3000C);
    EXPECT_EQ(TWAMP_STATUS_NO_ENTRY_POINT, 0x3000D);
    EXPECT_EQ(TWAMP_STATUS_NO_MEMORY, 0x30012);
    EXPECT_EQ(TWAMP_STATUS_NAMESPACE_NOT_FOUND, 0x30019);
    EXPECT_EQ(TWAMP_STATUS_INDEX_ALLOC_FAILED, 0x3001D);
    EXPECT_EQ(TWAMP_STATUS_INDEX_FREE_FAILED, 0x3001E);
    EXPECT_EQ(TWAMP_STATUS_STATE_READ_FAILED, 0x3002B);
    EXPECT_EQ(TWAMP_STATUS_STATE_WRITE_FAILED, 0x3002C);
    EXPECT_EQ(TWAMP_STATUS_TREE_ID_NOT_FOUND, 0x3003F);
    EXPECT_EQ(TWAMP_STATUS_LEARN_FAILED, 0x30040);
    EXPECT_EQ(TWAMP_STATUS_UNLEARN_FAILED, 0x30041);
    EXPECT_EQ(TWAMP_STATUS_DUMP_FAILED, 0x3007E);
    EXPECT_EQ(TWAMP_STATUS_LOCK_FAILED, 0x300A5);
    EXPECT_EQ(TWAMP_STATUS_STATS_CLEAR_FAILED, 0x1002C);
    EXPECT_EQ(OLV_BIND_PATH_DIRECT, 1u);
    EXPECT_EQ(OLV_TWAMP_TABLE_GROUP_RESPONDER, 1u);
    EXPECT_EQ(OLV_TWAMP_TABLE_GROUP_BIND, 2u);
    EXPECT_EQ(OLV_TWAMP_TABLE_GROUP_ALL, 3u);
    EXPECT_EQ(OLV_MODULE_MAGIC, 0x53248791u);
}

} // namespace
