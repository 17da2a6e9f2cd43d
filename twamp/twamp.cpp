// The module itself: init, shutdown, service functions, log level, global statistics, table dump.
#include <cstdio>

#include "hyx.h"
#include "module_call.hpp"
#include "scope_guard.hpp"
#include "twamp_program.h"

TWAMP_LOG_FILE(twamp);

using namespace twamp;

namespace {

/** The update leaves the slot of the tree function empty. */
constexpr uint16_t no_tree_function = 0;

/** Messages through the system record; through the module's where there is none. */
log_context system_log(const module_call &call)
{
    return call.module.system != nullptr ? log_context(*call.module.system) : log_context(call);
}

/** Not inlined: registration and update share it. */
[[gnu::noinline]] olv_service_function_table service_functions(uint16_t lli_tree_function)
{
    olv_service_function_table table = {};
    table.shutdown = olv_twamp_shutdown;
    table.custom_bind = olv_twamp_custom_bind;
    table.custom_unbind = olv_twamp_custom_unbind;
    table.get_imc = olv_twamp_get_imc;
    table.lli_tree_function.id = lli_tree_function;
    table.sys_log = olv_twamp_sys_log;
    return table;
}

uint32_t find_namespaces(const module_call &call, twamp_ctx &ctx)
{
    if (const uint32_t rte =
            hyx_rsrc_find(call.module.rte_handle, 0, TWAMP_RESPONDER_NAMESPACE, &ctx.responder_ns)) {
        return TWAMP_FAIL_RTE(
            call, TWAMP_STATUS_NAMESPACE_NOT_FOUND, rte,
            "Failed to get the handle for TWAMP responder name space %s, RTE error code:0x%x, "
            "error string: %s\n",
            TWAMP_RESPONDER_NAMESPACE);
    }
    if (const uint32_t rte = hyx_rsrc_find(call.module.rte_handle, 0, TWAMP_REFLECTOR_SESSION_NAMESPACE,
                                           &ctx.reflector_session_ns)) {
        return TWAMP_FAIL_RTE(call, TWAMP_STATUS_NAMESPACE_NOT_FOUND, rte,
                              "Failed to get the handle for TWAMP reflector session name space %s, RTE error "
                              "code:0x%x, error string: %s\n",
                              TWAMP_REFLECTOR_SESSION_NAMESPACE);
    }
    return OLV_STATUS_OK;
}

uint32_t find_tree_function(const module_call &call, const char *name, uint32_t *tree_id)
{
    if (const uint32_t rte = hyx_ptn_symbol_get_id(call.module.rte_handle, name, tree_id)) {
        return TWAMP_FAIL_RTE(
            call, TWAMP_STATUS_TREE_ID_NOT_FOUND, rte,
            "Failed to get ID for the QMT tree function %s, RTE error code:0x%x, error string: %s\n", name);
    }
    return OLV_STATUS_OK;
}

void describe(twamp_tree_desc &tree, uint8_t responder_format, uint32_t table_group)
{
    tree.key_bits = TWAMP_KEY_BITS;
    for (uint32_t &word : tree.reserved_20) {
        word = 0;
    }
    tree.responder_format = responder_format;
    tree.table_group_mask = table_group;
}

uint32_t find_tree_functions(const module_call &call, twamp_ctx &ctx)
{
    const struct {
        const char *name;
        uint32_t *tree_id;
    } tree_functions[] = {
        {TWAMP_TO_IP_DIRECT_IMC_FUNCTION, &ctx.to_ip_direct_imc_tree_id},
        {TWAMP_TO_IPV6_INDIRECT_IMC_FUNCTION, &ctx.to_ipv6_indirect_imc_tree_id},
        {TWAMP_LLI_PROCESSING_FUNCTION, &ctx.lli_processing_tree_id},
        {TWAMP_RESPONDER_LOOKUP_FUNCTION, &ctx.responder_tree.tree_id},
    };
    for (const auto &[name, tree_id] : tree_functions) {
        if (const uint32_t status = find_tree_function(call, name, tree_id)) {
            return status;
        }
    }
    describe(ctx.responder_tree, 1, OLV_TWAMP_TABLE_GROUP_RESPONDER);
    if (const uint32_t status =
            find_tree_function(call, TWAMP_BIND_TO_NEXT_MODULE_FUNCTION, &ctx.bind_tree.tree_id)) {
        return status;
    }
    describe(ctx.bind_tree, 0, OLV_TWAMP_TABLE_GROUP_BIND);
    return OLV_STATUS_OK;
}

uint32_t register_service_functions(const module_call &call, const twamp_ctx &ctx)
{
    const olv_service_function_table table =
        service_functions(static_cast<uint16_t>(ctx.lli_processing_tree_id));
    if (const uint32_t status =
            olv_module_service_function_register(call.module.system, &call.module, &table)) {
        return TWAMP_FAIL(system_log(call), fatal, as_module_status(status),
                          "Failed to register the service functions\n");
    }
    return OLV_STATUS_OK;
}

uint32_t clear_global_stats(const module_call &call)
{
    const uint8_t zeros[GLOBAL_STATS_LENGTH] = {};
    log_state_dump(call, TWAMP_HERE(state_dump), GLOBAL_STATS_NS_ID, GLOBAL_STATS_INDEX, zeros, sizeof zeros);
    if (const uint32_t rte = hyx_se_state_set(call.module.rte_handle, GLOBAL_STATS_NS_ID, GLOBAL_STATS_INDEX,
                                              zeros, sizeof zeros)) {
        return TWAMP_FAIL(call, fatal, TWAMP_STATUS_STATS_CLEAR_FAILED,
                          "Failed to clear global stats, RTE Error: %s\n", hyx_status_get(rte));
    }
    return OLV_STATUS_OK;
}

uint32_t initialise(const module_call &call)
{
    auto *const ctx = static_cast<twamp_ctx *>(hyx_nvm_calloc(1, sizeof(twamp_ctx)));
    if (ctx == nullptr) {
        return TWAMP_FAIL(system_log(call), fatal, TWAMP_STATUS_NO_MEMORY, "Fail to allocate memory\n");
    }
    call.module.ctx = ctx;
    // A failed init leaves `ctx` pointing at the freed block: its magic was never written.
    scope_guard release_context([ctx] { hyx_nvm_free(ctx); });

    if (const uint32_t status = find_namespaces(call, *ctx)) {
        return status;
    }
    if (const uint32_t status = find_tree_functions(call, *ctx)) {
        return status;
    }
    if (const uint32_t status = register_service_functions(call, *ctx)) {
        return status;
    }
    if (const uint32_t status = clear_global_stats(call)) {
        return status;
    }
    release_context.dismiss();
    ctx->magic = ctx_magic;
    TWAMP_LOG(call, info, "Profile - OLV_KORVA_PROFILE_2\n");
    log_text(call, TWAMP_HERE(info).without_newline(), "Succefully initialized TWAMP module");
    return OLV_STATUS_OK;
}

void release_context(olv_module_handle &module)
{
    // The magic goes first: a stale pointer to the block is not taken for a context.
    module.ctx->magic = 0;
    hyx_nvm_free(module.ctx);
    module.ctx = nullptr;
}

uint32_t shut_down(const module_call &call)
{
    const olv_service_function_table none = {};
    const uint32_t status = olv_module_service_function_register(call.module.system, &call.module, &none);
    if (status != OLV_STATUS_OK) {
        (void)TWAMP_FAIL(call, error, status, "Failed to register NULL functions\n");
        release_context(call.module);
        return TWAMP_FAIL(call, error, status, "TWAMP module 0x%08x failed to shutdown\n",
                          address_word(&call.module));
    }
    release_context(call.module);
    TWAMP_LOG(call, info, "TWAMP module 0x%08x shutdown\n", address_word(&call.module));
    return OLV_STATUS_OK;
}

uint32_t update_service_functions(const module_call &call)
{
    const olv_service_function_table table = service_functions(no_tree_function);
    if (const uint32_t status = olv_module_service_function_update(call.module.system, &call.module, &table)) {
        return TWAMP_FAIL(call, error, status, "Failed to update service functions");
    }
    return OLV_STATUS_OK;
}

uint32_t set_log_level(const module_call &call, uint32_t level)
{
    uint32_t mapped = 0;
    if (const uint32_t status = olv_twamp_map_sys_log(&call.module, level, &mapped)) {
        return TWAMP_FAIL(call, error, status, "Failed to set log-level %d\n", level);
    }
    // The whole word: setting a level clears the bits above it.
    __atomic_store_n(&call.module.log_flags, mapped, __ATOMIC_RELAXED);
    TWAMP_LOG(call, info, "TWAMP module 0x%08x log-level set to 0x%x\n", address_word(&call.module), mapped);
    return OLV_STATUS_OK;
}

uint32_t read_global_stats(const module_call &call, olv_twamp_global_stats *stats)
{
    if (stats == nullptr) {
        return TWAMP_FAIL(call, error, TWAMP_STATUS_INVALID_PARAM, "Null Stats Pointer");
    }
    *stats = {};
    if (const uint32_t rte = hyx_se_state_get(call.module.rte_handle, GLOBAL_STATS_NS_ID, GLOBAL_STATS_INDEX,
                                              stats, sizeof *stats)) {
        return TWAMP_FAIL_RTE(call, TWAMP_STATUS_STATE_READ_FAILED, rte,
                              "Failed to read TWAMP Gloabl Stats, RTE error code:0x%x, error string: %s\n");
    }
    stats->total_rx = hyx_ntohl(stats->total_rx);
    stats->total_tx = hyx_ntohl(stats->total_tx);
    stats->drop_no_responder = hyx_ntohl(stats->drop_no_responder);
    stats->drop_length_check = hyx_ntohl(stats->drop_length_check);
    stats->drop_hash_error = hyx_ntohl(stats->drop_hash_error);
    stats->drop_no_bind = hyx_ntohl(stats->drop_no_bind);
    return OLV_STATUS_OK;
}

uint32_t dump_group(const module_call &call, uint32_t table_group)
{
    if (table_group < OLV_TWAMP_TABLE_GROUP_RESPONDER || table_group > OLV_TWAMP_TABLE_GROUP_ALL) {
        TWAMP_LOG_UNKNOWN("Invalid table group %d\n", table_group);
        return TWAMP_STATUS_INVALID_PARAM;
    }
    if (const uint32_t status = olv_twamp_dump_tables(&call.module, table_group)) {
        return TWAMP_FAIL(call, error, as_module_status(status), "Failed to dump TWAMP Tables");
    }
    return OLV_STATUS_OK;
}

} // namespace

uint32_t olv_twamp_init(olv_module_handle *module)
{
    if (!is_module(module)) {
        return reject_module(TWAMP_HERE(error), module, "TWAMP module failed to initilize\n",
                             "Invalid TWAMP module handle 0x%08X\n");
    }
    if (has_context(*module)) {
        TWAMP_LOG_UNKNOWN("TWAMP Module handle 0x%08x is already initialized\n", address_word(module));
        return OLV_STATUS_OK;
    }
    // No lock: the framework calls this once, before any other operation.
    const module_call call(*module, module->system);
    const log_site site = TWAMP_HERE(entry);
    log_function(call, site, __func__);
    const uint32_t status = initialise(call);
    log_function(call, site.as(severity::exit), __func__);
    return status;
}

uint32_t olv_twamp_shutdown(olv_module_handle *module)
{
    constexpr const char *failed = "TWAMP module failed to shutdown\n";
    const log_site site = TWAMP_HERE(error);
    if (!is_module(module)) {
        return reject_module(site, module, failed, "Invalid TWAMP Module handle 0x%08x\n");
    }
    return run(shut_down, module, site, untraced, failed);
}

uint32_t olv_twamp_service_function_update(olv_module_handle *module)
{
    return run(update_service_functions, module, TWAMP_HERE(error), __func__, "Service function update failed");
}

uint32_t olv_twamp_sys_log(olv_module_handle *module, uint32_t level)
{
    if (!is_initialised(module)) {
        TWAMP_LOG_UNKNOWN(invalid_module, address_word(module));
        TWAMP_LOG_UNKNOWN("Failed to set log-level 0x%x for TWAMP\n", level);
        return OLV_STATUS_INVALID_HANDLE;
    }
    return run_locked([=](const module_call &call) { return set_log_level(call, level); },
                      {*module, module->system}, TWAMP_HERE(error), __func__);
}

uint32_t olv_twamp_global_stats_get(olv_module_handle *module, olv_twamp_global_stats *stats)
{
    // Deletion's words, as in the responder's getter.
    return run([=](const module_call &call) { return read_global_stats(call, stats); }, module,
               TWAMP_HERE(error), __func__, "Failed to delete Responder Handle");
}

uint32_t olv_twamp_global_stats_print(olv_module_handle *module)
{
    olv_twamp_global_stats stats = {};
    if (olv_twamp_global_stats_get(module, &stats) != OLV_STATUS_OK) {
        return OLV_STATUS_OK;
    }
    std::puts("\nTWAMP global statistics (Non-zero only)");
    print_counter("Total received packets: %d\n", stats.total_rx);
    print_counter("Total transmitted packets: %d\n", stats.total_tx);
    print_counter("Packets dropped due to responder not defined : %d\n", stats.drop_no_responder);
    print_counter("Packets dropped due to length check failed: %d\n", stats.drop_length_check);
    print_counter("Packets dropped due to hash errors: %d\n", stats.drop_hash_error);
    print_counter("Packets dropped due to bind not defined: %d\n", stats.drop_no_bind);
    return OLV_STATUS_OK;
}

uint32_t olv_twamp_tables_dump(olv_module_handle *module, uint32_t table_group)
{
    if (!is_module(module)) {
        TWAMP_LOG_UNKNOWN("Invalid module handle 0x%08x\n", address_word(module));
        return TWAMP_STATUS_INVALID_MODULE;
    }
    return run([=](const module_call &call) { return dump_group(call, table_group); }, module,
               TWAMP_HERE(error), __func__, "failed to dump TWAMP tables");
}
