// The module manager: records, service-function tables, and the calls that bring them in.
#include <cstring>
#include <deque>
#include <unordered_map>
#include <unordered_set>

#include "olv_sim/calls.hpp"
#include "olv_sim/framework.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/resources.hpp"
#include "olv_sim/statuses.hpp"
#include "olv_sim/violations.hpp"
#include "olv_twamp.h"
#include "sim/faults/platform_call.hpp"
#include "sim/faults/report_violation.hpp"
#include "sim/framework/entry_points.hpp"
#include "sim/framework/records.hpp"
#include "sim/process_wide.hpp"

namespace olv_sim {
namespace {

constexpr std::uint32_t system_magic = 0x53A10001;
constexpr std::uint32_t system_module_id = 60;
/** Location of both ends of a bind request. */
constexpr std::uint32_t at_the_fast_path = 2;

struct module_entry {
    olv_module_handle record{};
    std::string log_name;
    std::uint32_t semaphore = 0; // The record's own lock word is open to anyone.
    std::optional<olv_service_function_table> last_table;
};

/** Every record that a living framework has made, by address. */
struct directory {
    std::unordered_map<const olv_module_handle *, module_entry *> modules;
    std::unordered_set<const olv_system_handle *> systems;

    /** NULL where no framework has made the record. */
    [[nodiscard]] module_entry *find(const olv_module_handle *module)
    {
        const auto found = modules.find(module);
        return found == modules.end() ? nullptr : found->second;
    }
};

bool withdraws(const olv_service_function_table &table)
{
    static constexpr unsigned char nothing[sizeof(olv_service_function_table)] = {};
    return std::memcmp(&table, nothing, sizeof table) == 0;
}

/** The table in force; nothing when none is. */
std::optional<olv_service_function_table> table_of(const olv_module_handle *module)
{
    const locked<directory> all;
    const module_entry *entry = all->find(module);
    if (entry == nullptr || !entry->last_table || withdraws(*entry->last_table)) {
        return std::nullopt;
    }
    return entry->last_table;
}

/** A log name is a word of the record, which is open to anyone. */
std::string text_or_nothing(const char *text)
{
    return text == nullptr ? "" : text;
}

std::uint32_t store_table(const olv_system_handle *system, const olv_module_handle *module,
                          const olv_service_function_table *table, bool update)
{
    const locked<directory> all;
    if (system != nullptr && !all->systems.contains(system)) {
        return framework_invalid_handle;
    }
    module_entry *entry = all->find(module);
    if (entry == nullptr || entry->record.magic != OLV_MODULE_MAGIC) {
        return framework_invalid_handle;
    }
    if (table == nullptr) {
        return framework_null_pointer;
    }
    if (update && (!entry->last_table || withdraws(*entry->last_table))) {
        return framework_not_registered;
    }
    entry->last_table = *table;
    return OLV_STATUS_OK;
}

/** Only reads a record that is known to be one. */
void describe_registration(argument_text &text, const olv_module_handle *module,
                           const olv_service_function_table *table)
{
    const locked<directory> all;
    const module_entry *entry = all->find(module);
    if (entry == nullptr) {
        text.text("module", module == nullptr ? nullptr : "unknown");
    } else {
        text.number("module", entry->record.module_id);
    }
    if (table == nullptr) {
        text.text("table", nullptr);
    } else {
        text.text("table", withdraws(*table) ? "empty" : "set").hex("lli", table->lli_tree_function.id);
    }
}

} // namespace

struct framework::implementation {
    olv_system_handle system{};
    std::string log_name;
    std::deque<module_entry> modules; // A deque keeps the records where they are.
    olv_module_handle *ipv4 = nullptr;
    olv_module_handle *ipv6 = nullptr;
};

std::string log_name_of(const void *record)
{
    const locked<directory> all;
    const auto module = all->modules.find(static_cast<const olv_module_handle *>(record));
    if (module != all->modules.end()) {
        return text_or_nothing(module->first->log_name);
    }
    const auto system = all->systems.find(static_cast<const olv_system_handle *>(record));
    return system != all->systems.end() ? text_or_nothing((*system)->log_name) : "";
}

framework::framework(std::string system_log_name) : implementation_(std::make_unique<implementation>())
{
    implementation_->log_name = std::move(system_log_name);
    implementation_->system = {system_magic, 0, implementation_->log_name.c_str(), {0, 0}, system_module_id};
    locked<directory>()->systems.insert(&implementation_->system);
    implementation_->ipv4 =
        create_module({.module_id = OLV_MODULE_ID_IPV4, .log_name = "ipv4", .locked = false});
    implementation_->ipv6 =
        create_module({.module_id = OLV_MODULE_ID_IPV6, .log_name = "ipv6", .locked = false});
    entry_points::install();
}

framework::~framework()
{
    entry_points::remove();
    const locked<directory> all;
    for (module_entry &entry : implementation_->modules) {
        all->modules.erase(&entry.record);
        if (entry.semaphore != 0) {
            semaphores::destroy(entry.semaphore);
        }
    }
    all->systems.erase(&implementation_->system);
}

olv_system_handle *framework::system() const
{
    return &implementation_->system;
}

olv_module_handle *framework::create_module(const module_options &options)
{
    if (options.module_id >= module_id_limit) {
        violations::report("framework: module ID " + std::to_string(options.module_id) + " out of range");
        return nullptr;
    }
    const locked<directory> all;
    module_entry &entry = implementation_->modules.emplace_back();
    entry.log_name = options.log_name;
    entry.record.magic = OLV_MODULE_MAGIC;
    entry.record.log_flags = options.log_flags;
    entry.record.log_name = entry.log_name.c_str();
    entry.record.module_id = options.module_id;
    entry.semaphore = options.locked ? semaphores::create() : 0;
    entry.record.lock = entry.semaphore;
    entry.record.system = options.system ? &implementation_->system : nullptr;
    entry.record.rte_handle = options.processor == nullptr ? 0 : options.processor->rte_handle();
    entry.record.default_entry_point = options.default_entry_point;
    all->modules.emplace(&entry.record, &entry);
    return &entry.record;
}

olv_module_handle *framework::ipv4_module() const
{
    return implementation_->ipv4;
}

olv_module_handle *framework::ipv6_module() const
{
    return implementation_->ipv6;
}

std::optional<olv_service_function_table> framework::registered(const olv_module_handle *module) const
{
    return table_of(module);
}

std::optional<olv_service_function_table> framework::last_table(const olv_module_handle *module) const
{
    const locked<directory> all;
    const module_entry *entry = all->find(module);
    return entry == nullptr ? std::nullopt : entry->last_table;
}

std::uint32_t framework::shutdown(olv_module_handle *module)
{
    const auto table = table_of(module);
    return table && table->shutdown != nullptr ? table->shutdown(module) : framework_not_registered;
}

std::uint32_t framework::bind(const olv_bind_info &info)
{
    const auto table = table_of(info.src_module);
    return table && table->custom_bind != nullptr ? table->custom_bind(system(), &info)
                                                  : framework_not_registered;
}

std::uint32_t framework::unbind(const olv_bind_info &info)
{
    const auto table = table_of(info.src_module);
    return table && table->custom_unbind != nullptr ? table->custom_unbind(system(), &info)
                                                    : framework_not_registered;
}

std::uint32_t framework::get_imc(olv_module_handle *module, const olv_bind_info &info, std::uint32_t *imc)
{
    const auto table = table_of(module);
    return table && table->get_imc != nullptr ? table->get_imc(module, &info, imc) : framework_not_registered;
}

std::uint32_t framework::set_log_level(olv_module_handle *module, std::uint32_t level)
{
    const auto table = table_of(module);
    return table && table->sys_log != nullptr ? table->sys_log(module, level) : framework_not_registered;
}

olv_bind_info make_bind_info(olv_module_handle *source, olv_module_handle *destination,
                             const std::uint32_t *bind_key)
{
    olv_bind_info info{};
    info.bind_type = 2;
    info.bind_path = OLV_BIND_PATH_DIRECT;
    info.src_module = source;
    info.src_instance = bind_key;
    info.src_location = at_the_fast_path;
    info.dst_module = destination;
    info.dst_location = at_the_fast_path;
    info.custom_bind = 1;
    return info;
}

} // namespace olv_sim

using namespace olv_sim;

std::uint32_t olv_module_service_function_register(olv_system_handle *system, olv_module_handle *module,
                                                   const olv_service_function_table *table)
{
    return status_call(
        call::olv_module_service_function_register,
        [&](argument_text &text) { describe_registration(text, module, table); },
        [&] { return store_table(system, module, table, false); });
}

std::uint32_t olv_module_service_function_update(olv_system_handle *system, olv_module_handle *module,
                                                 const olv_service_function_table *table)
{
    return status_call(
        call::olv_module_service_function_update,
        [&](argument_text &text) { describe_registration(text, module, table); },
        [&] { return store_table(system, module, table, true); });
}
