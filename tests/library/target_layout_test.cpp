// Records that cross the library's boundaries, byte by byte: on the 32-bit control processor the offsets are
// the framework's, on a 64-bit host every pointer-sized slot is twice as wide.
#include <algorithm>
#include <cstring>

#include "harness.hpp"

namespace olv_test {
namespace {

/** What holds on this target. */
constexpr std::size_t here(std::size_t bits32, std::size_t bits64)
{
    return sizeof(void *) == 4 ? bits32 : bits64;
}

template <typename Record> std::vector<std::uint8_t> bytes_of(const Record &record)
{
    std::vector<std::uint8_t> bytes(sizeof record);
    std::memcpy(bytes.data(), &record, sizeof record);
    return bytes;
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

TEST(TargetLayout, RegisteredServiceFunctionsByByte)
{
    auto program = olv_sim::classifier_program::twamp(16, 16);
    for (auto &function : program.tree_functions) {
        if (function.name == "olv_twamp.twamp_lli_processing") {
            function.id = 0x00012345;
        }
    }
    const bench b({.program = program});
    EXPECT_EQ(bytes_of(*b.framework.registered(b.module)), table_with(0x2345));
}

TEST(TargetLayout, UpdatedServiceFunctionsByByte)
{
    bench b;
    ASSERT_EQ(quiet([&] { return olv_twamp_service_function_update(b.module); }), 0u);
    EXPECT_EQ(bytes_of(*b.framework.last_table(b.module)), table_with(0));
}

TEST(TargetLayout, InitWrites128ZeroBytesOverTheGlobalStatistics)
{
    bench b({.initialised = false});
    b.set_state_bytes(0x7008C1, std::vector<std::uint8_t>(128, 0xFF));
    const observation seen = b.observe([&] { return olv_twamp_init(b.module); });
    ASSERT_EQ(seen.status, 0u);
    EXPECT_EQ(b.state_bytes(0x7008C1), std::vector<std::uint8_t>(128, 0));
    const auto write = std::find_if(seen.recorded.begin(), seen.recorded.end(), [](const auto &call) {
        return call.which == olv_sim::call::hyx_se_state_set;
    });
    ASSERT_NE(write, seen.recorded.end());
    EXPECT_THAT(write->arguments, testing::HasSubstr("=" + std::string(256, '0')));
}

/** Each field alone is set, and its bytes are looked for at their offset. */
template <typename Record> class record_bytes {
  public:
    template <typename Value>
    void expect(const char *field, Value Record::*member, std::size_t offset, Value value) const
    {
        Record record;
        std::memset(static_cast<void *>(&record), 0, sizeof record);
        record.*member = value;
        std::vector<std::uint8_t> expected(sizeof record, 0);
        put(expected, offset, value);
        EXPECT_EQ(bytes_of(record), expected) << field;
    }
};

TEST(TargetLayout, BindInfoByByte)
{
    olv_module_handle module{};
    const std::uint32_t key = 0;
    const record_bytes<olv_bind_info> info;
    info.expect("bind_type", &olv_bind_info::bind_type, 0, 0x11223344u);
    info.expect("bind_subtype", &olv_bind_info::bind_subtype, 4, 0x11223344u);
    info.expect("bind_path", &olv_bind_info::bind_path, 8, 0x11223344u);
    info.expect("src_module", &olv_bind_info::src_module, here(12, 16), &module);
    info.expect("src_instance", &olv_bind_info::src_instance, here(16, 24), static_cast<const void *>(&key));
    info.expect("src_location", &olv_bind_info::src_location, here(24, 36), 0x11223344u);
    info.expect("dst_module", &olv_bind_info::dst_module, here(28, 40), &module);
    info.expect("dst_location", &olv_bind_info::dst_location, here(40, 56), 0x11223344u);
    info.expect("custom_bind", &olv_bind_info::custom_bind, here(56, 72), std::uint8_t{0x11});
}

TEST(TargetLayout, ModuleRecordByByte)
{
    olv_system_handle system{};
    const record_bytes<olv_module_handle> module;
    module.expect("magic", &olv_module_handle::magic, 0, 0x53248791u);
    module.expect("log_flags", &olv_module_handle::log_flags, 4, 0x11223344u);
    module.expect("log_name", &olv_module_handle::log_name, 8, "twamp");
    module.expect("module_id", &olv_module_handle::module_id, here(20, 24), 0x11223344u);
    module.expect("lock", &olv_module_handle::lock, here(24, 28), 0x11223344u);
    module.expect("system", &olv_module_handle::system, here(28, 32), &system);
    module.expect("rte_handle", &olv_module_handle::rte_handle, here(32, 40), 0x11223344u);
    module.expect("default_entry_point", &olv_module_handle::default_entry_point, here(46, 54),
                  std::uint16_t{0x1122});
}

TEST(TargetLayout, SystemRecordByByte)
{
    const record_bytes<olv_system_handle> system;
    system.expect("log_flags", &olv_system_handle::log_flags, 4, 0x11223344u);
    system.expect("log_name", &olv_system_handle::log_name, 8, "system");
    system.expect("module_id", &olv_system_handle::module_id, here(20, 24), 0x11223344u);
}

TEST(TargetLayout, EntryPointLookupStandsInWordElevenOfSeventeen)
{
    EXPECT_EQ(sizeof(olv_cpu_service_functions), here(68, 136));
    olv_entry_point_lookup lookup = [](olv_module_handle *, const olv_bind_info *,
                                       std::uint32_t *) -> std::uint32_t { return 0; };
    record_bytes<olv_cpu_service_functions>{}.expect(
        "entry_point_lookup", &olv_cpu_service_functions::entry_point_lookup, here(44, 88), lookup);
}

} // namespace
} // namespace olv_test
