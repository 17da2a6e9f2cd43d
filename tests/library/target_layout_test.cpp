// What is handed to the platform, byte by byte: on the 32-bit control processor the offsets are the
// framework's, on a 64-bit host every pointer-sized slot is twice as wide. Records are held by
// platform/olv_layout.h.
#include <cstring>

#include "harness.hpp"

namespace olv_test {
namespace {

/** What holds on this target. */
constexpr std::size_t here(std::size_t bits32, std::size_t bits64)
{
    return sizeof(void *) == 4 ? bits32 : bits64;
}

template <typename Value> void put(std::vector<std::uint8_t> &bytes, std::size_t offset, Value value)
{
    ASSERT_LE(offset + sizeof value, bytes.size());
    std::memcpy(bytes.data() + offset, &value, sizeof value);
}

/** The table with the five entry points in it, and the tree function. */
std::vector<std::uint8_t> table_with(std::uint16_t tree_function)
{
    std::vector<std::uint8_t> bytes(here(76, 152), 0);
    put(bytes, 0, &olv_twamp_shutdown);
    put(bytes, here(20, 40), &olv_twamp_custom_bind);
    put(bytes, here(24, 48), &olv_twamp_custom_unbind);
    put(bytes, here(40, 80), &olv_twamp_get_imc);
    put(bytes, here(52, 104), tree_function);
    put(bytes, here(64, 128), &olv_twamp_sys_log);
    return bytes;
}

/** The table that the framework got last. */
std::vector<std::uint8_t> last_table(const bench &b)
{
    const olv_service_function_table table = b.framework.last_table(b.module).value();
    std::vector<std::uint8_t> bytes(sizeof table);
    std::memcpy(bytes.data(), &table, sizeof table);
    return bytes;
}

TEST(TargetLayout, ServiceFunctionsByByte)
{
    bench b;
    EXPECT_EQ(last_table(b), table_with(lli_processing_id & 0xFFFF)) << "init";
    ASSERT_EQ(quiet([&] { return olv_twamp_service_function_update(b.module); }), 0u);
    EXPECT_EQ(last_table(b), table_with(0)) << "update: no tree function";
    ASSERT_EQ(quiet([&] { return olv_twamp_shutdown(b.module); }), 0u);
    EXPECT_EQ(last_table(b), std::vector<std::uint8_t>(here(76, 152), 0)) << "shutdown";
}

} // namespace
} // namespace olv_test
