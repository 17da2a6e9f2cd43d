#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/framework.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/resources.hpp"
#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

/** What the registered functions were called with. */
struct seen_call {
    std::string name;
    const void *first = nullptr;
    const olv_bind_info *info = nullptr;
    std::uint32_t level = 0;
};
seen_call seen;

std::uint32_t fake_shutdown(olv_module_handle *module)
{
    seen = {"shutdown", module, nullptr, 0};
    return 0x11;
}

std::uint32_t fake_bind(olv_system_handle *system, const olv_bind_info *info)
{
    seen = {"bind", system, info, 0};
    return 0x12;
}

std::uint32_t fake_unbind(olv_system_handle *system, const olv_bind_info *info)
{
    seen = {"unbind", system, info, 0};
    return 0x13;
}

std::uint32_t fake_get_imc(olv_module_handle *module, const olv_bind_info *info, std::uint32_t *imc)
{
    seen = {"get_imc", module, info, 0};
    *imc = 0x101;
    return 0x14;
}

std::uint32_t fake_sys_log(olv_module_handle *module, std::uint32_t level)
{
    seen = {"sys_log", module, nullptr, level};
    return 0x15;
}

olv_service_function_table fake_table()
{
    olv_service_function_table table{};
    table.shutdown = fake_shutdown;
    table.custom_bind = fake_bind;
    table.custom_unbind = fake_unbind;
    table.get_imc = fake_get_imc;
    table.sys_log = fake_sys_log;
    table.lli_tree_function.id = 0x103;
    return table;
}

class module_manager : public sim_test {
  protected:
    framework owner;
    olv_module_handle *module = owner.create_module({.module_id = 7, .processor = &processor});
};

TEST_F(module_manager, module_record)
{
    ASSERT_NE(module, nullptr);
    EXPECT_EQ(module->magic, 0x53248791u);
    EXPECT_EQ(module->module_id, 7u);
    EXPECT_EQ(module->log_flags, 0u);
    EXPECT_STREQ(module->log_name, "twamp");
    EXPECT_NE(module->lock, 0u);
    EXPECT_EQ(semaphores::held(module->lock), 0u);
    EXPECT_EQ(module->system, owner.system());
    EXPECT_EQ(module->rte_handle, rte);
    EXPECT_EQ(module->default_entry_point, 0u);
    EXPECT_EQ(module->ctx, nullptr);
}

TEST_F(module_manager, module_record_with_options)
{
    const olv_module_handle *other = owner.create_module({.module_id = 63,
                                                          .log_name = "other",
                                                          .log_flags = 0x5F,
                                                          .locked = false,
                                                          .system = false,
                                                          .default_entry_point = 0x123});
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(other->log_flags, 0x5Fu);
    EXPECT_STREQ(other->log_name, "other");
    EXPECT_EQ(other->lock, 0u);
    EXPECT_EQ(other->system, nullptr);
    EXPECT_EQ(other->rte_handle, 0u);
    EXPECT_EQ(other->default_entry_point, 0x123u);
}

TEST_F(module_manager, module_id_out_of_range)
{
    EXPECT_EQ(owner.create_module({.module_id = 64}), nullptr);
    EXPECT_EQ(take_violations(), (std::vector<std::string>{"framework: module ID 64 out of range"}));
}

TEST_F(module_manager, records_stay_where_they_are)
{
    std::vector<olv_module_handle *> records;
    for (std::uint32_t id = 0; id < 60; ++id) {
        records.push_back(owner.create_module({.module_id = id}));
    }
    for (std::uint32_t id = 0; id < 60; ++id) {
        EXPECT_EQ(records[id]->module_id, id);
    }
}

TEST_F(module_manager, system_record)
{
    const framework other{"node"};
    EXPECT_STREQ(other.system()->log_name, "node");
    EXPECT_STREQ(owner.system()->log_name, "system");
    EXPECT_EQ(owner.system()->magic, 0x53A10001u);
    EXPECT_EQ(owner.system()->module_id, 60u);
    EXPECT_EQ(owner.system()->log_flags, 0u);
}

TEST_F(module_manager, drives_the_registered_functions)
{
    const olv_service_function_table table = fake_table();
    ASSERT_EQ(olv_module_service_function_register(owner.system(), module, &table), 0u);
    const std::uint32_t key = 5;
    const olv_bind_info info = make_bind_info(module, owner.ipv4_module(), &key);
    std::uint32_t imc = 0;

    EXPECT_EQ(owner.bind(info), 0x12u);
    EXPECT_EQ(seen.name, "bind");
    EXPECT_EQ(seen.first, owner.system());
    EXPECT_EQ(seen.info, &info);
    EXPECT_EQ(owner.unbind(info), 0x13u);
    EXPECT_EQ(seen.name, "unbind");
    EXPECT_EQ(owner.get_imc(module, info, &imc), 0x14u);
    EXPECT_EQ(seen.first, module);
    EXPECT_EQ(imc, 0x101u);
    EXPECT_EQ(owner.set_log_level(module, 7), 0x15u);
    EXPECT_EQ(seen.level, 7u);
    EXPECT_EQ(owner.shutdown(module), 0x11u);
    EXPECT_EQ(seen.name, "shutdown");
    EXPECT_EQ(owner.registered(module)->lli_tree_function.id, 0x103u);
}

TEST_F(module_manager, nothing_registered)
{
    const std::uint32_t key = 5;
    const olv_bind_info info = make_bind_info(module, owner.ipv4_module(), &key);
    std::uint32_t imc = 77;
    EXPECT_EQ(owner.bind(info), 0x20003u);
    EXPECT_EQ(owner.unbind(info), 0x20003u);
    EXPECT_EQ(owner.get_imc(module, info, &imc), 0x20003u);
    EXPECT_EQ(owner.set_log_level(module, 1), 0x20003u);
    EXPECT_EQ(owner.shutdown(module), 0x20003u);
    EXPECT_EQ(owner.shutdown(nullptr), 0x20003u);
    EXPECT_EQ(imc, 77u);
    EXPECT_FALSE(owner.registered(module).has_value());
    EXPECT_FALSE(owner.last_table(module).has_value());
}

TEST_F(module_manager, register_update_withdraw)
{
    olv_service_function_table table = fake_table();
    const olv_service_function_table empty{};
    EXPECT_EQ(olv_module_service_function_update(owner.system(), module, &table), 0x20003u);
    EXPECT_FALSE(owner.last_table(module).has_value());
    EXPECT_EQ(olv_module_service_function_register(owner.system(), module, &table), 0u);
    table.lli_tree_function.id = 0;
    EXPECT_EQ(owner.registered(module)->lli_tree_function.id, 0x103u); // A copy.
    EXPECT_EQ(olv_module_service_function_update(nullptr, module, &table), 0u);
    EXPECT_EQ(owner.registered(module)->lli_tree_function.id, 0u);
    EXPECT_EQ(olv_module_service_function_register(owner.system(), module, &empty), 0u);
    EXPECT_FALSE(owner.registered(module).has_value());
    ASSERT_TRUE(owner.last_table(module).has_value());
    EXPECT_EQ(owner.last_table(module)->shutdown, nullptr);
    EXPECT_EQ(olv_module_service_function_update(owner.system(), module, &table), 0x20003u);
}

TEST_F(module_manager, refuses_records_that_are_not_its_own)
{
    const olv_service_function_table table = fake_table();
    olv_module_handle foreign = *module;
    olv_system_handle foreign_system = *owner.system();
    EXPECT_EQ(olv_module_service_function_register(owner.system(), nullptr, &table), 0x20001u);
    EXPECT_EQ(olv_module_service_function_register(owner.system(), &foreign, &table), 0x20001u);
    EXPECT_EQ(olv_module_service_function_register(&foreign_system, module, &table), 0x20001u);
    EXPECT_EQ(olv_module_service_function_register(owner.system(), module, nullptr), 0x20002u);
    module->magic = 1;
    EXPECT_EQ(olv_module_service_function_register(owner.system(), module, &table), 0x20001u);
    module->magic = 0x53248791;
    EXPECT_FALSE(owner.last_table(module).has_value());
}

TEST_F(module_manager, injected_refusal_changes_nothing)
{
    const olv_service_function_table table = fake_table();
    ASSERT_TRUE(faults::set(call::olv_module_service_function_register, {.code = 0x20009}));
    EXPECT_EQ(olv_module_service_function_register(owner.system(), module, &table), 0x20009u);
    EXPECT_FALSE(owner.last_table(module).has_value());
}

TEST_F(module_manager, bind_request)
{
    const std::uint32_t key = 0x123456;
    const olv_bind_info info = make_bind_info(module, owner.ipv6_module(), &key);
    EXPECT_EQ(info.bind_type, 2u);
    EXPECT_EQ(info.bind_subtype, 0u);
    EXPECT_EQ(info.bind_path, 1u);
    EXPECT_EQ(info.src_module, module);
    EXPECT_EQ(info.src_instance, &key);
    EXPECT_EQ(info.src_location, 2u);
    EXPECT_EQ(info.dst_module, owner.ipv6_module());
    EXPECT_EQ(info.dst_location, 2u);
    EXPECT_EQ(info.custom_bind, 1u);
}

TEST_F(module_manager, entry_points)
{
    const olv_bind_info info = make_bind_info(module, owner.ipv4_module(), nullptr);
    std::uint32_t entry_point = 0;
    EXPECT_EQ(owner.ipv4_module()->module_id, 1u);
    EXPECT_EQ(owner.ipv6_module()->module_id, 11u);
    EXPECT_EQ(moduleMgrCpuServiceFn[1].entry_point_lookup(owner.ipv4_module(), &info, &entry_point), 0u);
    EXPECT_EQ(entry_point, 0x401u);
    EXPECT_EQ(moduleMgrCpuServiceFn[11].entry_point_lookup(owner.ipv6_module(), &info, &entry_point), 0u);
    EXPECT_EQ(entry_point, 0x601u);
    EXPECT_EQ(moduleMgrCpuServiceFn[7].entry_point_lookup, nullptr);
    entry_point = 9;
    EXPECT_EQ(moduleMgrCpuServiceFn[1].entry_point_lookup(nullptr, &info, &entry_point), 0x20001u);
    EXPECT_EQ(moduleMgrCpuServiceFn[1].entry_point_lookup(module, nullptr, &entry_point), 0x20002u);
    EXPECT_EQ(moduleMgrCpuServiceFn[1].entry_point_lookup(module, &info, nullptr), 0x20002u);
    EXPECT_EQ(entry_point, 9u);
}

TEST(module_manager_life, entry_points_come_and_go)
{
    EXPECT_EQ(moduleMgrCpuServiceFn[1].entry_point_lookup, nullptr);
    {
        const framework first;
        {
            const framework second;
        }
        EXPECT_NE(moduleMgrCpuServiceFn[1].entry_point_lookup, nullptr);
        EXPECT_NE(moduleMgrCpuServiceFn[11].entry_point_lookup, nullptr);
    }
    EXPECT_EQ(moduleMgrCpuServiceFn[1].entry_point_lookup, nullptr);
    EXPECT_EQ(moduleMgrCpuServiceFn[11].entry_point_lookup, nullptr);
}

} // namespace
