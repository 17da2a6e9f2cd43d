// Init, shutdown, service functions, log level.
#include "hyx.h"
#include "library_model.hpp"
#include "olv_sim/calls.hpp"
#include "olv_sim/statuses.hpp"

namespace olv_fuzz {
namespace {

constexpr const char *file = "twamp.c";
constexpr const char *internal_file = "twamp_internal.c";
constexpr std::uint32_t state_bit = 0x80;

bool is_level(std::uint32_t level)
{
    return level == 0 || level == 1 || level == 3 || level == 7 || level == 15;
}

} // namespace

std::uint32_t library_model::init(model_module *module)
{
    const std::uint32_t address = module != nullptr ? module->address : 0;
    if (module == nullptr || module->magic != module_magic) {
        say_unknown(file, "Invalid TWAMP module handle 0x%08X\n", address);
        say_unknown(file, "TWAMP module failed to initilize\n");
        return 1;
    }
    if (usable(module)) {
        say_unknown(file, "TWAMP Module handle 0x%08x is already initialized\n", address);
        return 0;
    }
    const operation current = operation_of(*module, "olv_twamp_init", file);
    function_line(current, true);
    const std::uint32_t block = platform.calloc();
    std::uint32_t result = 0x30012;
    if (block == no_block) {
        if (module->system == nullptr) {
            throw out_of_contract("init without a system record");
        }
        const speaker system{.own_flags = module->system->log_flags,
                             .system_flags = std::nullopt,
                             .name = module->system->log_name,
                             .record = trace_record::system,
                             .file = file};
        fail_fatally(system, result, "Fail to allocate memory\n");
    } else {
        contexts.push_back({.magic = 0, .block = block});
        module->context = static_cast<int>(contexts.size()) - 1;
        result = init_work(*module, contexts.back());
        if (result != 0) {
            platform.free(block);
        }
    }
    function_line(current, false);
    return result;
}

std::uint32_t library_model::find_namespaces(model_module &module, model_context &context, const speaker &by)
{
    std::uint32_t code = platform.rsrc_find(module.rte, "twamp_responder", context.responder_namespace);
    if (code != 0) {
        return fail(
            by, 0x30019,
            "Failed to get the handle for TWAMP responder name space %s, RTE error code:0x%x, error string: "
            "%s\n",
            "twamp_responder", code, hyx_status_get(code));
    }
    code = platform.rsrc_find(module.rte, "twamp_reflector_session", context.session_namespace);
    if (code != 0) {
        return fail(
            by, 0x30019,
            "Failed to get the handle for TWAMP reflector session name space %s, RTE error code:0x%x, error "
            "string: %s\n",
            "twamp_reflector_session", code, hyx_status_get(code));
    }
    return 0;
}

std::uint32_t library_model::find_tree(const model_module &module, const char *name, std::uint32_t &id,
                                       const speaker &by)
{
    const std::uint32_t code = platform.symbol_id(module.rte, name, id);
    if (code == 0) {
        return 0;
    }
    return fail(by, 0x3003F,
                "Failed to get ID for the QMT tree function %s, RTE error code:0x%x, error string: %s\n", name,
                code, hyx_status_get(code));
}

std::uint32_t library_model::init_work(model_module &module, model_context &context)
{
    const speaker by = speaker_of(operation_of(module, "olv_twamp_init", file));
    if (find_namespaces(module, context, by) != 0) {
        return 0x30019;
    }
    if (find_tree(module, "olv_twamp.twamp_to_ip_direct_imc", context.ip_direct_tree, by) != 0 ||
        find_tree(module, "olv_twamp.twamp_to_ipv6_indirect_imc", context.ipv6_indirect_tree, by) != 0 ||
        find_tree(module, "olv_twamp.twamp_lli_processing", context.lli_tree, by) != 0 ||
        find_tree(module, "olv_twamp.twamp_responder_lookup", context.responder_tree, by) != 0 ||
        find_tree(module, "olv_twamp.twamp_bind_to_next_module", context.bind_tree, by) != 0) {
        return 0x3003F;
    }
    const std::uint32_t registered = register_functions(
        module, registration::by_init, static_cast<std::uint16_t>(context.lli_tree & 0xFFFF), false);
    if (registered != 0) {
        if (module.system == nullptr) {
            throw out_of_contract("init without a system record");
        }
        const std::uint32_t retagged = (registered & ~0xF0000u) | 0x30000u;
        const speaker system{.own_flags = module.system->log_flags,
                             .system_flags = std::nullopt,
                             .name = module.system->log_name,
                             .record = trace_record::system,
                             .file = file};
        return fail_fatally(system, retagged, "Failed to register the service functions\n");
    }
    std::string zeros = "00";
    std::string traced(256, '0');
    for (int byte = 1; byte < 128; ++byte) {
        zeros += " 00";
    }
    if (((module.log_flags | by.system_flags.value_or(0)) & state_bit) != 0) {
        console +=
            "[" + module.log_name + "_log: se_write] twamp.c:LINE NS ID 0x007008c1 idx 0: " + zeros + "\n";
    }
    trace({27, trace_record::module, file, std::nullopt, "0x007008c1 0 " + traced + " 128"});
    const std::uint32_t code = platform.state_set(module.rte, global_statistics, model_bytes(128));
    if (code != 0) {
        return fail_fatally(by, 0x1002C, "Failed to clear global stats, RTE Error: %s\n", hyx_status_get(code));
    }
    context.magic = context_magic;
    say(by, severity::info, "Profile - OLV_KORVA_PROFILE_2\n");
    say(by, severity::info, "Succefully initialized TWAMP module");
    return 0;
}

std::uint32_t library_model::register_functions(model_module &module, registration how, std::uint16_t lli,
                                                bool update)
{
    const std::optional<std::uint32_t> code = platform.faults.next(
        update ? call::olv_module_service_function_update : call::olv_module_service_function_register);
    if (code) {
        return *code;
    }
    if (!module.known_to_framework) {
        return olv_sim::framework_invalid_handle;
    }
    if (update && module.registered == registration::none) {
        return olv_sim::framework_not_registered;
    }
    module.registered = how;
    module.registered_lli = lli;
    return 0;
}

std::uint32_t library_model::shutdown(model_module *module)
{
    const std::uint32_t address = module != nullptr ? module->address : 0;
    if (module == nullptr || module->magic != module_magic) {
        say_unknown(file, "Invalid TWAMP Module handle 0x%08x\n", address);
        say_unknown(file, "TWAMP module failed to shutdown\n");
        return 1;
    }
    if (!usable(module)) {
        return refuse(file, module, "TWAMP module failed to shutdown\n");
    }
    const operation current = operation_of(*module, "olv_twamp_shutdown", file);
    if (!takes_lock(current)) {
        return constants_.lock_failed;
    }
    const speaker by = speaker_of(current);
    const std::uint32_t result = register_functions(*module, registration::none, 0, false);
    if (result != 0) {
        fail(by, result, "Failed to register NULL functions\n");
    }
    context_of(*module).magic = 0;
    platform.free(context_of(*module).block);
    module->context = -1;
    if (result != 0) {
        fail(by, result, "TWAMP module 0x%08x failed to shutdown\n", address);
    } else {
        say(by, severity::info, "TWAMP module 0x%08x shutdown\n", address);
    }
    return released(current, result);
}

std::uint32_t library_model::service_function_update(model_module *module)
{
    if (!usable(module)) {
        return refuse(file, module, "Service function update failed");
    }
    const operation current = operation_of(*module, "olv_twamp_service_function_update", file);
    return framed(current, [&] {
        const std::uint32_t status = register_functions(*module, registration::by_update, 0, true);
        return status == 0 ? 0 : fail(speaker_of(current), status, "Failed to update service functions");
    });
}

std::uint32_t library_model::map_sys_log(model_module *module, std::uint32_t level, std::uint32_t &mapped)
{
    if (is_level(level)) {
        mapped = level;
        return 0;
    }
    if (!usable(module)) {
        say_unknown(internal_file, "Unsupported log-level in TWAMP!");
        return 15;
    }
    const speaker by = speaker_of(operation_of(*module, "olv_twamp_map_sys_log", internal_file));
    return fail(by, 15, "Unsupported log-level in TWAMP!");
}

std::uint32_t library_model::sys_log(model_module *module, std::uint32_t level)
{
    if (!usable(module)) {
        say_unknown(file, "Invalid TWAMP module handle 0x%08x\n", module != nullptr ? module->address : 0);
        say_unknown(file, "Failed to set log-level 0x%x for TWAMP\n", level);
        return 1;
    }
    const operation current = operation_of(*module, "olv_twamp_sys_log", file);
    return framed(current, [&] {
        std::uint32_t mapped = 0;
        const std::uint32_t status = map_sys_log(module, level, mapped);
        if (status != 0) {
            return fail(speaker_of(current), status, "Failed to set log-level %d\n", static_cast<int>(level));
        }
        module->log_flags = mapped;
        say(speaker_of(current), severity::info, "TWAMP module 0x%08x log-level set to 0x%x\n", module->address,
            mapped);
        return 0u;
    });
}

} // namespace olv_fuzz
