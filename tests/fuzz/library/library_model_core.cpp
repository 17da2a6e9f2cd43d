// Init, shutdown, service functions, log level.
#include "library_model.hpp"
#include "olv_sim/statuses.hpp"

namespace olv_fuzz {
namespace {

constexpr const char *file = "twamp.c";
constexpr const char *internal_file = "twamp_internal.c";

bool is_level(std::uint32_t level)
{
    return level == 0 || level == 1 || level == 3 || level == 7 || level == 15;
}

std::uint32_t find_namespaces(library_model &m, const operation &of, model_context &context)
{
    const struct {
        const char *name;
        std::uint32_t &handle;
        const char *refused;
    } namespaces[] = {{"twamp_responder", context.responder_namespace,
                       "Failed to get the handle for TWAMP responder name space %s, RTE error code:0x%x, "
                       "error string: %s\n"},
                      {"twamp_reflector_session", context.session_namespace,
                       "Failed to get the handle for TWAMP reflector session name space %s, RTE error "
                       "code:0x%x, error string: %s\n"}};
    for (const auto &[name, handle, refused] : namespaces) {
        const std::uint32_t code = m.platform.rsrc_find(of.module.record.rte_handle, name, handle);
        if (code != 0) {
            return m.fail(of, 0x30019, text(refused, name, code, hyx_status_get(code)));
        }
    }
    return 0;
}

std::uint32_t find_trees(library_model &m, const operation &of, model_context &context)
{
    const std::pair<const char *, std::uint32_t &> trees[] = {
        {"olv_twamp.twamp_to_ip_direct_imc", context.ip_direct_tree},
        {"olv_twamp.twamp_to_ipv6_indirect_imc", context.ipv6_indirect_tree},
        {"olv_twamp.twamp_lli_processing", context.lli_tree},
        {"olv_twamp.twamp_responder_lookup", context.responder_tree},
        {"olv_twamp.twamp_bind_to_next_module", context.bind_tree}};
    for (const auto &[name, id] : trees) {
        const std::uint32_t code = m.platform.symbol_id(of.module.record.rte_handle, name, id);
        if (code != 0) {
            return m.fail(of, 0x3003F,
                          text("Failed to get ID for the QMT tree function %s, RTE error code:0x%x, error "
                               "string: %s\n",
                               name, code, hyx_status_get(code)));
        }
    }
    return 0;
}

/** Register service functions, with the lli tree function's ID, or withdraw them. */
std::uint32_t change_functions(library_model &m, model_module &module, call how, bool registers,
                               std::uint32_t lli)
{
    const std::optional<std::uint32_t> code = m.platform.faults.next(how);
    if (code) {
        return *code;
    }
    if (!module.known_to_framework) {
        return olv_sim::framework_invalid_handle;
    }
    if (how == call::olv_module_service_function_update && !module.registered) {
        return olv_sim::framework_not_registered;
    }
    module.registered = registers;
    module.registered_lli = static_cast<std::uint16_t>(lli);
    return 0;
}

std::uint32_t clear_global_statistics(library_model &m, const operation &of)
{
    std::string bytes = "00";
    for (int byte = 1; byte < 128; ++byte) {
        bytes += " 00";
    }
    m.tell(of, severity::state_dump, "NS ID 0x007008c1 idx 0: " + bytes + "\n", std::nullopt,
           "0x007008c1 0 " + std::string(256, '0') + " 128");
    const std::uint32_t code =
        m.platform.state_set(of.module.record.rte_handle, global_statistics, model_bytes(128));
    return code == 0 ? 0
                     : m.fail(of, 0x1002C,
                              text("Failed to clear global stats, RTE Error: %s\n", hyx_status_get(code)),
                              severity::fatal);
}

/** What init does with the context that it has allocated. */
std::uint32_t fill_context(library_model &m, const operation &of, model_context &context)
{
    std::uint32_t status = find_namespaces(m, of, context);
    status = status != 0 ? status : find_trees(m, of, context);
    if (status != 0) {
        return status;
    }
    status = change_functions(m, of.module, call::olv_module_service_function_register, true, context.lli_tree);
    if (status != 0) {
        operation of_system = of;
        of_system.by = voice::system;
        return m.fail(of_system, as_own(status), "Failed to register the service functions\n", severity::fatal);
    }
    status = clear_global_statistics(m, of);
    if (status == 0) {
        context.magic = context_magic;
        m.say(of, severity::info, "Profile - OLV_KORVA_PROFILE_2\n");
        m.say(of, severity::info, "Succefully initialized TWAMP module");
    }
    return status;
}

std::uint32_t init_work(library_model &m, const operation &of)
{
    const std::uint32_t block = m.platform.calloc();
    if (block == no_block) {
        operation of_system = of;
        of_system.by = voice::system;
        return m.fail(of_system, 0x30012, "Fail to allocate memory\n", severity::fatal);
    }
    m.contexts.push_back({.block = block});
    of.module.context = static_cast<int>(m.contexts.size()) - 1;
    const std::uint32_t status = fill_context(m, of, m.contexts.back());
    if (status != 0) {
        m.platform.free(block);
    }
    return status;
}

} // namespace

std::uint32_t library_model::init(model_module *module)
{
    if (module == nullptr || module->record.magic != module_magic) {
        return refuse(file, text("Invalid TWAMP module handle 0x%08X\n", address_of(module)),
                      "TWAMP module failed to initilize\n");
    }
    if (usable(module)) {
        say_unknown(file, text("TWAMP Module handle 0x%08x is already initialized\n", address_of(module)));
        return 0;
    }
    const operation of{*module, module->record.system, "olv_twamp_init", file};
    function_line(of, severity::entry);
    const std::uint32_t result = init_work(*this, of);
    function_line(of, severity::exit);
    return result;
}

std::uint32_t library_model::shutdown(model_module *module)
{
    const std::uint32_t address = address_of(module);
    if (module == nullptr || module->record.magic != module_magic) {
        return refuse(file, text("Invalid TWAMP Module handle 0x%08x\n", address),
                      "TWAMP module failed to shutdown\n");
    }
    if (!usable(module)) {
        return refuse_module(file, module, "TWAMP module failed to shutdown\n");
    }
    const operation of{*module, module->record.system, "olv_twamp_shutdown", file};
    if (!takes_lock(of)) {
        return constants.lock_failed;
    }
    const std::uint32_t result =
        change_functions(*this, *module, call::olv_module_service_function_register, false, 0);
    if (result != 0) {
        fail(of, result, "Failed to register NULL functions\n");
    }
    context_of(*module).magic = 0;
    platform.free(context_of(*module).block);
    module->context = -1;
    if (result != 0) {
        fail(of, result, text("TWAMP module 0x%08x failed to shutdown\n", address));
    } else {
        say(of, severity::info, text("TWAMP module 0x%08x shutdown\n", address));
    }
    return released(of, result);
}

std::uint32_t library_model::service_function_update(model_module *module)
{
    const operation_name name{"olv_twamp_service_function_update", file, "Service function update failed"};
    return operate(module, name, [&](const operation &of) {
        const std::uint32_t status =
            change_functions(*this, *module, call::olv_module_service_function_update, true, 0);
        return status == 0 ? 0 : fail(of, status, "Failed to update service functions");
    });
}

std::uint32_t library_model::map_sys_log(model_module *module, std::uint32_t level, std::uint32_t &mapped)
{
    static constexpr const char *unsupported = "Unsupported log-level in TWAMP!";
    if (is_level(level)) {
        mapped = level;
        return 0;
    }
    if (!usable(module)) {
        say_unknown(internal_file, unsupported);
        return 15;
    }
    return fail({*module, module->record.system, "olv_twamp_map_sys_log", internal_file}, 15, unsupported);
}

std::uint32_t library_model::sys_log(model_module *module, std::uint32_t level)
{
    const operation_name name{"olv_twamp_sys_log", file,
                              text("Failed to set log-level 0x%x for TWAMP\n", level)};
    return operate(module, name, [&](const operation &of) {
        std::uint32_t mapped = 0;
        const std::uint32_t status = map_sys_log(module, level, mapped);
        if (status != 0) {
            return fail(of, status, text("Failed to set log-level %d\n", static_cast<int>(level)));
        }
        module->record.log_flags = mapped;
        say(of, severity::info,
            text("TWAMP module 0x%08x log-level set to 0x%x\n", address_of(module), mapped));
        return 0u;
    });
}

} // namespace olv_fuzz
