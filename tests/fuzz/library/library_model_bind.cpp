// Custom bind and unbind, and the lookup of the inter-module call.
#include "library_model.hpp"
#include "olv_sim/framework.hpp"
#include "olv_sim/statuses.hpp"

namespace olv_fuzz {
namespace {

constexpr const char *file = "twamp_bind.c";
constexpr const char *imc_file = "twamp_internal.c";
constexpr std::uint32_t ipv4_module = 1;
constexpr std::uint32_t ipv6_module = 11;
constexpr std::uint32_t on_cpu = 1;

bool is_ip(const olv_module_handle &destination)
{
    return destination.module_id == ipv4_module || destination.module_id == ipv6_module;
}

std::uint32_t check_request(library_model &m, const operation &of, const olv_bind_info &info, bool binds)
{
    if (info.bind_path != 1) {
        return m.fail(of, 0x30008, "Only OLV_BIND_PATH_DIRECT is supported\n");
    }
    if (info.bind_type != 2) {
        return m.fail(of, 0x30008, text("Unsupported Binding Type %d\n", static_cast<int>(info.bind_type)));
    }
    if (binds && info.custom_bind == 0) {
        return m.fail(of, 0x30008, "Only custom bind supported\n");
    }
    return 0;
}

std::uint32_t platform_lookup(library_model &m, const olv_module_handle &destination, std::uint32_t &found)
{
    const std::optional<std::uint32_t> code = m.platform.faults.next(call::entry_point_lookup);
    if (code) {
        return *code;
    }
    if (destination.magic != module_magic) {
        return olv_sim::framework_invalid_handle;
    }
    found = destination.module_id == ipv4_module ? olv_sim::entry_point_ipv4 : olv_sim::entry_point_ipv6;
    return 0;
}

std::uint32_t call_lookup(library_model &m, const olv_module_handle &destination, std::uint32_t &found)
{
    switch (m.entry_points[destination.module_id]) {
    case entry_point_kind::platform:
        return platform_lookup(m, destination, found);
    case entry_point_kind::fixed:
        found = fixed_entry_point;
        return 0;
    case entry_point_kind::failing:
        return failing_entry_point_status;
    case entry_point_kind::none:
    case entry_point_kind::zero:
        break;
    }
    return 0;
}

std::uint32_t find_entry_point(library_model &m, const operation &of, const olv_bind_info &info,
                               std::uint32_t &found)
{
    if (call_lookup(m, *info.dst_module, found) != 0) {
        return m.fail(of, 0x3000D, "Failed to get Entry point function for destination module\n");
    }
    if (found == 0 && info.bind_subtype == 2) {
        found = info.dst_module->default_entry_point;
    }
    if (found == 0) {
        return m.fail(of, 0x3000D, "Invalid Entry point function found for destination module\n");
    }
    return 0;
}

std::uint32_t change_binding(library_model &m, const operation &of, const model_key &key, bool binds,
                             const model_entry &entry)
{
    const std::uint32_t id = m.context_of(of.module).bind_tree;
    const char *const name = "olv_twamp.twamp_bind_to_next_module";
    const model_tree_use learning{
        id, name, false, 0x30040,
        "Failed to learn the tree entry, treeID = %d\nRTE error code:0x%x, error string: %s\n"};
    const model_tree_use removal{
        id, name, false, 0x30041,
        "Failed to unlearn the tree entry, treeID = %dRTE error code:0x%x, error string: %s\n"};
    return binds ? m.change_entry(of, severity::learnt, learning, key, entry)
                 : m.change_entry(of, severity::removed, removal, key, entry);
}

/** An error whose status text follows for bind alone. */
std::uint32_t fail_without_pattern(library_model &m, const operation &of, bool binds, std::uint32_t status,
                                   const message &said)
{
    if (binds) {
        return m.fail(of, status, said);
    }
    m.say(of, severity::error, said);
    return 0x30012;
}

std::uint32_t change_tree(library_model &m, const operation &of, std::uint32_t key, bool binds,
                          const model_entry &entry)
{
    model_pattern pattern;
    if (m.platform.ptn_new(pattern) != 0) {
        return fail_without_pattern(m, of, binds, 0x30012, "Failed to allocate the pattern structure\n");
    }
    std::uint32_t status = m.platform.ptn_extend(pattern, key);
    status = status != 0 ? fail_without_pattern(m, of, binds, as_own(status),
                                                "Failed to extend the pattern structure\n")
                         : change_binding(m, of, pattern.key, binds, entry);
    m.platform.ptn_free(pattern);
    if (status == 0) {
        m.say(of, severity::info,
              binds ? "Custom Bind Successfully done.\n" : "Custom Un Bind Successfully done.\n");
    }
    return status;
}

std::uint32_t bind_work(library_model &m, const operation &of, const olv_bind_info &info, bool binds)
{
    std::uint32_t entry_point = 0;
    std::uint32_t status = check_request(m, of, info, binds);
    status = status != 0 ? status : find_entry_point(m, of, info, entry_point);
    if (status != 0) {
        return status;
    }
    if (!is_ip(*info.dst_module)) {
        return m.fail(
            of, binds ? 9 : m.constants.unbind_unsupported,
            "Following is only supported bind combination\n source module = TWAMP, destination module = IPV4\n "
            "source module = TWAMP, destination module = IPV6\n");
    }
    const auto key = *static_cast<const std::uint32_t *>(info.src_instance);
    return change_tree(m, of, key, binds, {.action = {{1, entry_point, 0}}});
}

} // namespace

std::uint32_t library_model::custom_change(const olv_system_handle *system, const olv_bind_info *info,
                                           model_module *source, bool binds)
{
    if (info == nullptr) {
        (void)refuse(file, text("Invalid bind Info pointer0x%08x\n", 0u),
                     "Failed to create Custom bind entry \n");
        return 8;
    }
    if (!usable(source) || system == nullptr) {
        return refuse_module(file, source,
                             binds ? "Failed to create Custom bind entry \n"
                                   : "Failed to remove Custom bind entry \n");
    }
    const operation of{*source, system, binds ? "olv_twamp_custom_bind" : "olv_twamp_custom_unbind", file};
    return framed(of, [&] {
        const std::uint32_t result = bind_work(*this, of, *info, binds);
        if (result != 0) {
            say_unknown(file, binds ? "Failed to perform custom binding.\n"
                                    : "Failed to perform custom un binding.\n");
        }
        return result;
    });
}

std::uint32_t library_model::get_imc(model_module *module, const olv_bind_info &info, std::uint32_t &imc)
{
    if (!usable(module)) {
        say_unknown(imc_file, text("Invalid TWAMP module handle 0x%08x\n", address_of(module)));
        if (module != nullptr && module->record.magic == module_magic) {
            say_unknown(imc_file, "TWAMP module failed to get IMC function\n");
        }
        return 1;
    }
    operation of{*module, module->record.system, "olv_twamp_get_imc", imc_file};
    if (!takes_lock(of)) {
        return constants.lock_failed;
    }
    std::uint32_t result = 0x3000C;
    if (info.dst_location == on_cpu || info.src_location == on_cpu) {
        of.by = voice::module_alone;
        say(of, severity::info, "Module location CPU not supported\n");
    } else if (is_ip(*info.dst_module)) {
        imc = context_of(*module).ip_direct_tree;
        result = 0;
    } else {
        say(of, severity::info, "Invalid/unsupported bind path\n");
    }
    of.by = voice::module;
    return released(of, result);
}

} // namespace olv_fuzz
