#include <tuple>

#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/framework.hpp"
#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

/** Everything that the framework fills in. */
auto fields_of(const olv_module_handle &record)
{
    return std::tuple(record.magic, record.log_flags, std::string(record.log_name), record.module_id,
                      record.lock, record.system, record.rte_handle, record.default_entry_point, record.ctx);
}

class module_manager : public sim_test {
  protected:
    framework owner;
    olv_module_handle *module = owner.create_module({.module_id = 7, .processor = &processor});
};

TEST_F(module_manager, records_as_they_are_asked_for)
{
    const std::uint32_t lock = module->lock;
    EXPECT_NE(lock, 0u);
    EXPECT_EQ(semaphores::held(lock), 0u);
    EXPECT_EQ(fields_of(*module),
              std::tuple(0x53248791u, 0u, "twamp", 7u, lock, owner.system(), rte, 0u, nullptr));
    const olv_module_handle *other = owner.create_module({.module_id = 63,
                                                          .log_name = "other",
                                                          .log_flags = 0x5F,
                                                          .locked = false,
                                                          .system = false,
                                                          .default_entry_point = 0x123});
    EXPECT_EQ(fields_of(*other),
              std::tuple(0x53248791u, 0x5Fu, "other", 63u, 0u, nullptr, 0u, 0x123u, nullptr));
    EXPECT_EQ(owner.create_module({.module_id = 64}), nullptr);
    EXPECT_EQ(take_violations(), lines{"framework: module ID 64 out of range"});
    for (std::uint32_t id = 0; id < 60; ++id) {
        ASSERT_EQ(owner.create_module({.module_id = id})->module_id, id);
    }
    EXPECT_EQ(module->module_id, 7u); // records stay where they are
    const framework node{"node"};
    EXPECT_STREQ(node.system()->log_name, "node");
    EXPECT_EQ((words{node.system()->magic, node.system()->module_id, node.system()->log_flags}),
              (words{0x53A10001, 60, 0}));
}

TEST_F(module_manager, drives_the_functions_that_are_registered_updated_and_withdrawn)
{
    olv_service_function_table table{};
    const olv_service_function_table empty{};
    const std::uint32_t key = 5;
    const olv_bind_info info = make_bind_info(module, owner.ipv4_module(), &key);
    EXPECT_EQ(std::tie(info.bind_type, info.bind_subtype, info.bind_path), std::tuple(2u, 0u, 1u));
    EXPECT_EQ(std::tie(info.src_module, info.src_instance, info.src_location), std::tuple(module, &key, 2u));
    EXPECT_EQ(std::tie(info.dst_module, info.dst_location), std::tuple(owner.ipv4_module(), 2u));
    EXPECT_EQ(info.custom_bind, 1u);
    const auto expect_nothing = [&] {
        std::uint32_t imc = 77;
        EXPECT_FALSE(owner.registered(module).has_value());
        EXPECT_EQ((words{owner.bind(info), owner.unbind(info), owner.get_imc(module, info, &imc),
                         owner.set_log_level(module, 1), owner.shutdown(module), owner.shutdown(nullptr),
                         olv_module_service_function_update(owner.system(), module, &table)}),
                  words(7, 0x20003));
        EXPECT_EQ(imc, 77u);
    };
    expect_nothing();
    EXPECT_FALSE(owner.last_table(module).has_value());
    table.sys_log = [](olv_module_handle *record, std::uint32_t level) { return record->module_id + level; };
    EXPECT_EQ(olv_module_service_function_register(owner.system(), module, &table), 0u);
    table.lli_tree_function.id = 0x103;
    EXPECT_EQ(owner.registered(module)->lli_tree_function.id, 0u); // a copy
    EXPECT_EQ(owner.set_log_level(module, 100), 107u);
    EXPECT_EQ(owner.shutdown(module), 0x20003u); // has no function
    EXPECT_EQ(olv_module_service_function_update(nullptr, module, &table), 0u);
    EXPECT_EQ(owner.registered(module)->lli_tree_function.id, 0x103u);
    EXPECT_EQ(olv_module_service_function_register(owner.system(), module, &empty), 0u);
    expect_nothing();
    EXPECT_EQ(owner.last_table(module).value().sys_log, nullptr);
}

TEST_F(module_manager, what_is_refused_changes_nothing)
{
    const olv_service_function_table table{};
    olv_module_handle foreign = *module;
    olv_system_handle foreign_system = *owner.system();
    const auto &enrol = olv_module_service_function_register;
    EXPECT_EQ(enrol(owner.system(), nullptr, &table), 0x20001u);
    EXPECT_EQ(enrol(owner.system(), &foreign, &table), 0x20001u);
    EXPECT_EQ(enrol(&foreign_system, module, &table), 0x20001u);
    EXPECT_EQ(enrol(owner.system(), module, nullptr), 0x20002u);
    module->magic = 1;
    EXPECT_EQ(enrol(owner.system(), module, &table), 0x20001u);
    module->magic = 0x53248791;
    ASSERT_TRUE(faults::set(call::olv_module_service_function_register, {.code = 0x20009}));
    EXPECT_EQ(enrol(owner.system(), module, &table), 0x20009u);
    EXPECT_FALSE(owner.last_table(module).has_value());
}

TEST(entry_points, are_there_while_a_framework_is)
{
    const olv_entry_point_lookup &ipv4 = moduleMgrCpuServiceFn[1].entry_point_lookup;
    const olv_entry_point_lookup &ipv6 = moduleMgrCpuServiceFn[11].entry_point_lookup;
    EXPECT_EQ(ipv4, nullptr);
    {
        const framework first;
        {
            const framework second;
        }
        const olv_bind_info info{};
        std::uint32_t entry_point = 0;
        EXPECT_EQ(moduleMgrCpuServiceFn[7].entry_point_lookup, nullptr);
        EXPECT_EQ(ipv4(first.ipv4_module(), &info, &entry_point), 0u);
        EXPECT_EQ(entry_point, 0x401u);
        EXPECT_EQ(ipv6(first.ipv6_module(), &info, &entry_point), 0u);
        EXPECT_EQ(entry_point, 0x601u);
        EXPECT_EQ(ipv4(nullptr, &info, &entry_point), 0x20001u);
        EXPECT_EQ(ipv4(first.ipv4_module(), nullptr, &entry_point), 0x20002u);
        EXPECT_EQ(ipv4(first.ipv4_module(), &info, nullptr), 0x20002u);
        EXPECT_EQ(entry_point, 0x601u);
    }
    EXPECT_EQ(ipv4, nullptr);
    EXPECT_EQ(ipv6, nullptr);
}

} // namespace
