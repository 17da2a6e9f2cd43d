// Responders: creation, deletion, counters.
#include <sys/time.h>

#include <cstdio>

#include "classifier_entry.hpp"
#include "module_call.hpp"
#include "responder_state.hpp"
#include "scope_guard.hpp"

TWAMP_LOG_FILE("twamp_responder.c");

using namespace twamp;

namespace {

/** Word 0 of a responder's action: the responder is defined. */
constexpr uint32_t responder_defined = 0;

classifier_tree responder_tree(const olv_module_handle &module)
{
    return {module.rte_handle, module.ctx->responder_tree.tree_id, responder_lookup_function};
}

/** Give back the record that a slot holds, so that nothing takes it for a responder. */
void discard_record(twamp_responder_handle **slot)
{
    if (slot == nullptr || *slot == nullptr) {
        return;
    }
    (*slot)->module = nullptr;
    (*slot)->magic = 0;
    hyx_nvm_free(*slot);
    *slot = nullptr;
}

responder_state new_responder_state(const olv_module_handle &module, const olv_twamp_responder_info &info)
{
    responder_state state = {};
    state.constant_two = hyx_htons(state_constant);
    state.param_a = hyx_htons(info.param_a);
    state.param_b = hyx_htonl(info.param_b | param_b_flag);
    state.creation_count = hyx_htonl(module.ctx->responder_create_count);

    timeval now = {};
    (void)gettimeofday(&now, nullptr); // cannot fail with a valid address
    uint64_t timer = 0;
    (void)hyx_timer_get_timestamp(module.rte_handle, 0, &timer); // a responder without a timer still reflects

    state.ntp_seconds = hyx_htonl(static_cast<uint32_t>(now.tv_sec) + ntp_epoch_offset);
    state.ntp_fraction = hyx_htonl(ntp_fraction(static_cast<long>(now.tv_usec)));
    state.timer_high = hyx_htonl(static_cast<uint32_t>(timer >> 32));
    state.timer_low = hyx_htonl(static_cast<uint32_t>(timer));
    state.max_sessions = default_max_sessions;
    return state;
}

uint32_t write_state(const olv_module_handle &module, const log_context &log, uint32_t responder_id,
                     const responder_state &state)
{
    if (const uint32_t rte = hyx_se_state_set(module.rte_handle, responder_id, 0, &state, sizeof state)) {
        return TWAMP_FAIL(log, severity::error, TWAMP_STATUS_STATE_WRITE_FAILED,
                          "Failed to reset Responder state, RTE error code:0x%x, error string: %s\n", rte,
                          hyx_status_get(rte));
    }
    return OLV_STATUS_OK;
}

uint32_t make_key(const log_context &log, classifier_entry &entry, uint32_t responder_id)
{
    if (const uint32_t status = entry.make_pattern()) {
        return TWAMP_FAIL(log, severity::error, status, "Failed to allocate the pattern structure");
    }
    if (const uint32_t status = entry.add_key(responder_id)) {
        return TWAMP_FAIL(log, severity::error, status, "Failed to add the responder flow ID to the pattern");
    }
    return OLV_STATUS_OK;
}

/** Creation and deletion report a refused entry alike. */
uint32_t entry_refused(const olv_module_handle &module, const log_context &log, uint32_t rte)
{
    return TWAMP_FAIL(log, severity::error, TWAMP_STATUS_LEARN_FAILED,
                      "Failed to learn the tree entry, treeID = %dRTE error code:0x%x, error string: %s\n",
                      module.ctx->responder_tree.tree_id, rte, hyx_status_get(rte));
}

uint32_t learn_entry(const olv_module_handle &module, const log_context &log, uint32_t responder_id)
{
    classifier_entry entry(responder_tree(module), responder_defined, 0,
                           classifier_entry::console_line::with_site);
    if (const uint32_t status = make_key(log, entry, responder_id)) {
        return status;
    }
    if (const uint32_t rte = entry.learn(log, TWAMP_HERE)) {
        return entry_refused(module, log, rte);
    }
    return OLV_STATUS_OK;
}

uint32_t create_responder(olv_module_handle &module, const log_context &log,
                          const olv_twamp_responder_info *info, twamp_responder_handle **slot)
{
    scope_guard release_record([slot] { discard_record(slot); });
    if (info == nullptr || slot == nullptr) {
        return TWAMP_FAIL(log, severity::error, TWAMP_STATUS_INVALID_PARAM, "Null Info / Flow Handle Pointer");
    }

    *slot = nullptr;
    auto *const record =
        static_cast<twamp_responder_handle *>(hyx_nvm_calloc(1, sizeof(twamp_responder_handle)));
    if (record == nullptr) {
        return TWAMP_FAIL(log, severity::fatal, TWAMP_STATUS_NO_MEMORY,
                          "Memory allocation failed responder handle");
    }
    record->module = &module;
    record->magic = responder_magic;
    *slot = record;

    twamp_ctx &ctx = *module.ctx;
    uint32_t id = 0;
    if (const uint32_t rte = hyx_rsrc_allocate(ctx.responder_ns, 1, &id)) {
        return TWAMP_FAIL(log, severity::error, TWAMP_STATUS_INDEX_ALLOC_FAILED,
                          "Failed to allocate index from namespace handle 0x%0x, RTE error code:0x%x, "
                          "error string: %s\n",
                          ctx.responder_ns, rte, hyx_status_get(rte));
    }
    // A failed return is not reported: the failure that led here is.
    scope_guard return_id([&ctx, id] { (void)hyx_rsrc_free(ctx.responder_ns, id, 1); });
    record->responder_id = id;
    ++ctx.responder_create_count;

    if (const uint32_t status = write_state(module, log, id, new_responder_state(module, *info))) {
        return status;
    }
    if (const uint32_t status = learn_entry(module, log, id)) {
        return status;
    }
    return_id.dismiss();
    release_record.dismiss();
    return OLV_STATUS_OK;
}

uint32_t delete_responder(const olv_module_handle &module, const log_context &log, uint32_t responder_id)
{
    // The entry goes first, so that no packet reaches a responder whose ID is free; its pattern lives to the
    // end of the deletion.
    classifier_entry entry(responder_tree(module), responder_defined, 0,
                           classifier_entry::console_line::with_site);
    if (const uint32_t status = make_key(log, entry, responder_id)) {
        return status;
    }
    if (const uint32_t rte = entry.unlearn(log, TWAMP_HERE)) {
        return entry_refused(module, log, rte);
    }
    const uint32_t responder_ns = module.ctx->responder_ns;
    if (const uint32_t rte = hyx_rsrc_free(responder_ns, responder_id, 1)) {
        return TWAMP_FAIL(log, severity::error, TWAMP_STATUS_INDEX_FREE_FAILED,
                          "Failed to free resource to namespace handle 0x%0x, RTE error code:0x%x, "
                          "error string: %s\n",
                          responder_ns, rte, hyx_status_get(rte));
    }
    return write_state(module, log, responder_id, responder_state{});
}

uint32_t read_stats(const olv_module_handle &module, const log_context &log, uint32_t responder_id,
                    olv_twamp_responder_stats *stats)
{
    if (stats == nullptr) {
        return TWAMP_FAIL(log, severity::error, TWAMP_STATUS_INVALID_PARAM, "Null Stats Pointer");
    }
    responder_state state = {};
    if (const uint32_t rte = hyx_se_state_get(module.rte_handle, responder_id, 0, &state, sizeof state)) {
        return TWAMP_FAIL(log, severity::error, TWAMP_STATUS_STATE_READ_FAILED,
                          "Failed to read Responder state, RTE error code:0x%x, error string: %s\n", rte,
                          hyx_status_get(rte));
    }
    *stats = {};
    stats->received = hyx_ntohl(state.received);
    stats->transmitted = hyx_ntohl(state.transmitted);
    stats->drop_length_check = hyx_ntohl(state.drop_length_check);
    stats->active_sessions = hyx_ntohl(state.active_sessions);
    stats->drop_max_sessions = hyx_ntohl(state.drop_max_sessions);
    return OLV_STATUS_OK;
}

uint32_t reject_responder(log_site site, const twamp_responder_handle *responder)
{
    log_unknown(site, "Invalid TWAMP Responder handle 0x%08x\n", address_word(responder));
    log_unknown(site, "Failed to delete Responder Handle");
    return OLV_STATUS_INVALID_HANDLE;
}

} // namespace

uint32_t olv_twamp_responder_create(olv_module_handle *module, const olv_twamp_responder_info *info,
                                    twamp_responder_handle **slot)
{
    if (!is_initialised(module)) {
        return reject_module(TWAMP_HERE, module, "Failed to create Responder Handle");
    }
    const log_context log(*module);
    return module_call(log, TWAMP_HERE, __func__, module->lock, [&]() -> uint32_t {
        const uint32_t status = create_responder(*module, log, info, slot);
        if (status != OLV_STATUS_OK) {
            return TWAMP_FAIL(log, severity::error, status, "TWAMP Failed to create responder");
        }
        return OLV_STATUS_OK;
    });
}

uint32_t olv_twamp_responder_delete(olv_module_handle *module, twamp_responder_handle *responder)
{
    if (!is_initialised(module)) {
        return reject_module(TWAMP_HERE, module, "Failed to delete Responder Handle");
    }
    if (!is_responder(responder)) {
        return reject_responder(TWAMP_HERE, responder);
    }
    const log_context log(*module);
    return module_call(log, TWAMP_HERE, __func__, module->lock,
                       [&] { return delete_responder(*module, log, responder->responder_id); });
}

uint32_t olv_twamp_responder_stats_get(olv_module_handle *module, twamp_responder_handle *responder,
                                       olv_twamp_responder_stats *stats)
{
    // Both refusals tell of deletion here too: operators' scripts look for these texts.
    if (!is_initialised(module)) {
        return reject_module(TWAMP_HERE, module, "Failed to delete Responder Handle");
    }
    if (!is_responder(responder)) {
        return reject_responder(TWAMP_HERE, responder);
    }
    const log_context log(*module);
    return module_call(log, TWAMP_HERE, __func__, module->lock,
                       [&] { return read_stats(*module, log, responder->responder_id, stats); });
}

uint32_t olv_twamp_responder_stats_print(olv_module_handle *module, twamp_responder_handle *responder)
{
    olv_twamp_responder_stats stats = {};
    if (olv_twamp_responder_stats_get(module, responder, &stats) != OLV_STATUS_OK) {
        return OLV_STATUS_OK;
    }
    std::puts("\nTWAMP responder statistics (Non-zero only)");
    print_counter("received packets: %d\n", stats.received);
    print_counter("transmitted packets: %d\n", stats.transmitted);
    print_counter("Packets dropped due to length check failed: %d\n", stats.drop_length_check);
    print_counter("Number of active sessions: %d\n", stats.active_sessions);
    print_counter("Packets dropped due to max number of sessions reached: %d\n", stats.drop_max_sessions);
    return OLV_STATUS_OK;
}
