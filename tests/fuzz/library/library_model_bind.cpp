// Custom bind and unbind, and the lookup of the inter-module call.
#include "library_model.hpp"
#include "olv_sim/calls.hpp"
#include "olv_sim/framework.hpp"
#include "olv_sim/statuses.hpp"

namespace olv_fuzz {
namespace {

constexpr const char *file = "twamp_bind.c";
constexpr const char *bind_tree_name = "olv_twamp.twamp_bind_to_next_module";
constexpr std::uint32_t ipv4_module = 1;
constexpr std::uint32_t ipv6_module = 11;
constexpr std::uint32_t on_cpu = 1;

bool is_ip(std::uint32_t module_id)
{
    return module_id == ipv4_module || module_id == ipv6_module;
}

} // namespace

std::uint32_t library_model::custom_bind(const model_system *system, const model_bind_info *info)
{
    return custom_change(system, info, true);
}

std::uint32_t library_model::custom_unbind(const model_system *system, const model_bind_info *info)
{
    return custom_change(system, info, false);
}

std::uint32_t library_model::custom_change(const model_system *system, const model_bind_info *info, bool binds)
{
    if (info == nullptr) {
        say_unknown(file, "Invalid bind Info pointer0x%08x\n", 0u);
        say_unknown(file, "Failed to create Custom bind entry \n");
        return 8;
    }
    if (!usable(info->source) || system == nullptr) {
        say_unknown(file, "Invalid TWAMP module handle 0x%08x\n",
                    info->source != nullptr ? info->source->address : 0);
        if (binds) {
            say_unknown(file, "Failed to create Custom bind entry \n");
        } else {
            say_unknown(file, "Failed to remove Custom bind entry \n");
        }
        return 1;
    }
    const operation current{.module = info->source,
                            .system = system,
                            .name = binds ? "olv_twamp_custom_bind" : "olv_twamp_custom_unbind",
                            .file = file};
    return framed(current, [&] {
        const std::uint32_t result = bind_work(current, *info, binds);
        if (result != 0 && binds) {
            say_unknown(file, "Failed to perform custom binding.\n");
        } else if (result != 0) {
            say_unknown(file, "Failed to perform custom un binding.\n");
        }
        return result;
    });
}

std::uint32_t library_model::bind_work(const operation &current, const model_bind_info &info, bool binds)
{
    std::uint32_t status = bind_checks(current, info, binds);
    if (status != 0) {
        return status;
    }
    std::uint32_t entry_point = 0;
    status = find_entry_point(current, info, entry_point);
    if (status != 0) {
        return status;
    }
    if (!is_ip(info.destination->module_id)) {
        const std::uint32_t unsupported = binds ? 9 : constants_.unbind_unsupported;
        return fail(
            speaker_of(current), unsupported,
            "Following is only supported bind combination\n source module = TWAMP, destination module = IPV4\n "
            "source module = TWAMP, destination module = IPV6\n");
    }
    return change_bind(current, info, binds, {.action = {1, entry_point, 0}});
}

std::uint32_t library_model::bind_checks(const operation &current, const model_bind_info &info, bool binds)
{
    const speaker by = speaker_of(current);
    if (info.path != 1) {
        return fail(by, 0x30008, "Only OLV_BIND_PATH_DIRECT is supported\n");
    }
    if (info.type != 2) {
        return fail(by, 0x30008, "Unsupported Binding Type %d\n", static_cast<int>(info.type));
    }
    if (binds && !info.custom) {
        return fail(by, 0x30008, "Only custom bind supported\n");
    }
    return 0;
}

std::uint32_t library_model::call_lookup(const model_bind_info &info, std::uint32_t &found)
{
    switch (entry_points[info.destination->module_id]) {
    case entry_point_kind::platform: {
        const std::optional<std::uint32_t> code = platform.faults.next(call::entry_point_lookup);
        if (code) {
            return *code;
        }
        if (!info.destination->genuine) {
            return olv_sim::framework_invalid_handle;
        }
        found =
            info.destination->module_id == ipv4_module ? olv_sim::entry_point_ipv4 : olv_sim::entry_point_ipv6;
        return 0;
    }
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

std::uint32_t library_model::find_entry_point(const operation &current, const model_bind_info &info,
                                              std::uint32_t &found)
{
    const speaker by = speaker_of(current);
    if (call_lookup(info, found) != 0) {
        return fail(by, 0x3000D, "Failed to get Entry point function for destination module\n");
    }
    if (found == 0 && info.subtype == 2) {
        found = info.destination->default_entry_point;
    }
    if (found == 0) {
        return fail(by, 0x3000D, "Invalid Entry point function found for destination module\n");
    }
    return 0;
}

std::uint32_t library_model::change_bind(const operation &current, const model_bind_info &info, bool binds,
                                         const model_entry &entry)
{
    const speaker by = speaker_of(current);
    model_pattern pattern;
    std::uint32_t status = platform.ptn_new(pattern);
    if (status != 0) {
        say(by, severity::error, "Failed to allocate the pattern structure\n");
        if (binds) {
            report(by, severity::error, 0x30012);
        }
        return 0x30012;
    }
    status = platform.ptn_extend(pattern, info.key, 24);
    if (status != 0) {
        status = binds ? (status & ~0xF0000u) | 0x30000u : 0x30012;
        say(by, severity::error, "Failed to extend the pattern structure\n");
        if (binds) {
            report(by, severity::error, status);
        }
    } else {
        status = apply_bind(current, pattern, binds, entry);
    }
    platform.ptn_free(pattern);
    if (status == 0 && binds) {
        say(by, severity::info, "Custom Bind Successfully done.\n");
    } else if (status == 0) {
        say(by, severity::info, "Custom Un Bind Successfully done.\n");
    }
    return status;
}

std::uint32_t library_model::apply_bind(const operation &current, const model_pattern &pattern, bool binds,
                                        const model_entry &entry)
{
    const speaker by = speaker_of(current);
    const std::uint32_t tree = context_of(*current.module).bind_tree;
    const std::uint32_t rte = current.module->rte;
    const std::uint32_t code =
        binds ? platform.learn(rte, tree, pattern, entry) : platform.unlearn(rte, tree, pattern);
    if (code == 0) {
        pattern_line(current, binds ? "ptn_learn" : "ptn_unlearn", false, bind_tree_name, pattern, entry);
        return 0;
    }
    if (binds) {
        return fail(by, 0x30040,
                    "Failed to learn the tree entry, treeID = %d\nRTE error code:0x%x, error string: %s\n",
                    static_cast<int>(tree), code, hyx_status_get(code));
    }
    return fail(by, 0x30041,
                "Failed to unlearn the tree entry, treeID = %dRTE error code:0x%x, error string: %s\n",
                static_cast<int>(tree), code, hyx_status_get(code));
}

std::uint32_t library_model::get_imc(model_module *module, const model_bind_info &info, std::uint32_t &imc)
{
    const char *const own_file = "twamp_internal.c";
    const std::uint32_t address = module != nullptr ? module->address : 0;
    if (!usable(module)) {
        say_unknown(own_file, "Invalid TWAMP module handle 0x%08x\n", address);
        if (module != nullptr && module->magic == 0x53248791) {
            say_unknown(own_file, "TWAMP module failed to get IMC function\n");
        }
        return 1;
    }
    const operation current = operation_of(*module, "olv_twamp_get_imc", own_file);
    if (!takes_lock(current)) {
        return constants_.lock_failed;
    }
    std::uint32_t result = 0x3000C;
    speaker by = speaker_of(current);
    if (info.destination_location == on_cpu || info.source_location == on_cpu) {
        by.system_flags.reset(); // the module's own level decides alone
        say(by, severity::info, "Module location CPU not supported\n");
    } else if (is_ip(info.destination->module_id)) {
        imc = context_of(*module).ip_direct_tree;
        result = 0;
    } else {
        say(by, severity::info, "Invalid/unsupported bind path\n");
    }
    return released(current, result);
}

} // namespace olv_fuzz
