// Responders: creation, deletion, counters.
#include <sys/time.h>

#include <cstdio>

#include "classifier_entry.hpp"
#include "hyx.h"
#include "module_call.hpp"
#include "scope_guard.hpp"
#include "twamp_program.h"

TWAMP_LOG_FILE(twamp_responder);

using namespace twamp;

namespace {

constexpr uint32_t responder_magic = 0x43215678;

/** NTP fraction of a second. Scale (2^32 - 1) and order of the products are fixed: others give other low bits.
 */
uint32_t ntp_fraction(long microseconds)
{
    return static_cast<uint32_t>(static_cast<double>(microseconds) * 1e-6 * 4294967295.0);
}

bool is_responder(const twamp_responder_handle *responder)
{
    return responder != nullptr && responder->magic == responder_magic;
}

/** Give back the record that a slot holds, so that nothing takes it for a responder. */
void discard_record(twamp_responder_handle **handle_slot)
{
    if (handle_slot == nullptr || *handle_slot == nullptr) {
        return;
    }
    (*handle_slot)->module = nullptr;
    (*handle_slot)->magic = 0;
    hyx_nvm_free(*handle_slot);
    *handle_slot = nullptr;
}

twamp_responder_state new_responder_state(const olv_module_handle &module, const olv_twamp_responder_info &info)
{
    twamp_responder_state state = {};
    state.constant_two = hyx_htons(TWAMP_STATE_CONSTANT);
    state.param_a = hyx_htons(info.param_a);
    state.param_b = hyx_htonl(info.param_b | TWAMP_STATE_WRITTEN);
    state.creation_count = hyx_htonl(module.ctx->responder_create_count);

    timeval now = {};
    (void)gettimeofday(&now, nullptr); // cannot fail with a valid address
    uint64_t timer = 0;
    (void)hyx_timer_get_timestamp(module.rte_handle, 0,
                                  &timer); // a responder without a timer still reflects

    state.ntp_seconds = hyx_htonl(static_cast<uint32_t>(now.tv_sec) + TWAMP_NTP_UNIX_OFFSET);
    state.ntp_fraction = hyx_htonl(ntp_fraction(static_cast<long>(now.tv_usec)));
    state.timer_high = hyx_htonl(static_cast<uint32_t>(timer >> 32));
    state.timer_low = hyx_htonl(static_cast<uint32_t>(timer));
    state.max_sessions = TWAMP_DEFAULT_MAX_SESSIONS;
    return state;
}

uint32_t write_state(const module_call &call, uint32_t responder_id, const twamp_responder_state &state)
{
    if (const uint32_t rte = hyx_se_state_set(call.module.rte_handle, responder_id, 0, &state, sizeof state)) {
        return TWAMP_FAIL_RTE(call, TWAMP_STATUS_STATE_WRITE_FAILED, rte,
                              "Failed to reset Responder state, RTE error code:0x%x, error string: %s\n");
    }
    return OLV_STATUS_OK;
}

uint32_t make_key(const module_call &call, classifier_entry &entry, uint32_t responder_id)
{
    if (const uint32_t status = entry.make_pattern()) {
        return TWAMP_FAIL(call, error, status, "Failed to allocate the pattern structure");
    }
    if (const uint32_t status = entry.add_key(responder_id)) {
        return TWAMP_FAIL(call, error, status, "Failed to add the responder flow ID to the pattern");
    }
    return OLV_STATUS_OK;
}

/** Creation and deletion report a refused entry alike. */
uint32_t entry_refused(const module_call &call, const classifier_entry &entry, uint32_t rte)
{
    return TWAMP_FAIL_RTE(call, TWAMP_STATUS_LEARN_FAILED, rte,
                          "Failed to learn the tree entry, treeID = %dRTE error code:0x%x, error string: %s\n",
                          entry.tree_id());
}

uint32_t learn_entry(const module_call &call, uint32_t responder_id)
{
    classifier_entry entry(call, module_tree::responder, 0);
    if (const uint32_t status = make_key(call, entry, responder_id)) {
        return status;
    }
    if (const uint32_t rte = entry.learn(TWAMP_HERE(entry_learnt))) {
        return entry_refused(call, entry, rte);
    }
    return OLV_STATUS_OK;
}

uint32_t make_responder(const module_call &call, const olv_twamp_responder_info *info,
                        twamp_responder_handle **handle_slot)
{
    scope_guard release_record([handle_slot] { discard_record(handle_slot); });
    if (info == nullptr || handle_slot == nullptr) {
        return TWAMP_FAIL(call, error, TWAMP_STATUS_INVALID_PARAM, "Null Info / Flow Handle Pointer");
    }

    *handle_slot = nullptr;
    auto *const record =
        static_cast<twamp_responder_handle *>(hyx_nvm_calloc(1, sizeof(twamp_responder_handle)));
    if (record == nullptr) {
        return TWAMP_FAIL(call, fatal, TWAMP_STATUS_NO_MEMORY, "Memory allocation failed responder handle");
    }
    record->module = &call.module;
    record->magic = responder_magic;
    *handle_slot = record;

    twamp_ctx &ctx = *call.module.ctx;
    uint32_t id = 0;
    if (const uint32_t rte = hyx_rsrc_allocate(ctx.responder_ns, 1, &id)) {
        return TWAMP_FAIL_RTE(call, TWAMP_STATUS_INDEX_ALLOC_FAILED, rte,
                              "Failed to allocate index from namespace handle 0x%0x, RTE error code:0x%x, "
                              "error string: %s\n",
                              ctx.responder_ns);
    }
    // A failed return is not reported: the failure that led here is.
    scope_guard return_id([&ctx, id] { (void)hyx_rsrc_free(ctx.responder_ns, id, 1); });
    record->responder_id = id;
    ++ctx.responder_create_count;

    if (const uint32_t status = write_state(call, id, new_responder_state(call.module, *info))) {
        return status;
    }
    if (const uint32_t status = learn_entry(call, id)) {
        return status;
    }
    return_id.dismiss();
    release_record.dismiss();
    return OLV_STATUS_OK;
}

uint32_t create_responder(const module_call &call, const olv_twamp_responder_info *info,
                          twamp_responder_handle **handle_slot)
{
    if (const uint32_t status = make_responder(call, info, handle_slot)) {
        return TWAMP_FAIL(call, error, status, "TWAMP Failed to create responder");
    }
    return OLV_STATUS_OK;
}

uint32_t delete_responder(const module_call &call, uint32_t responder_id)
{
    // The entry goes first, so that no packet reaches a responder whose ID is free; its pattern lives to the
    // end of the deletion.
    classifier_entry entry(call, module_tree::responder, 0);
    if (const uint32_t status = make_key(call, entry, responder_id)) {
        return status;
    }
    if (const uint32_t rte = entry.unlearn(TWAMP_HERE(entry_removed))) {
        return entry_refused(call, entry, rte);
    }
    const uint32_t responder_ns = call.module.ctx->responder_ns;
    if (const uint32_t rte = hyx_rsrc_free(responder_ns, responder_id, 1)) {
        return TWAMP_FAIL_RTE(call, TWAMP_STATUS_INDEX_FREE_FAILED, rte,
                              "Failed to free resource to namespace handle 0x%0x, RTE error code:0x%x, "
                              "error string: %s\n",
                              responder_ns);
    }
    return write_state(call, responder_id, twamp_responder_state{});
}

uint32_t read_stats(const module_call &call, uint32_t responder_id, olv_twamp_responder_stats *stats)
{
    if (stats == nullptr) {
        return TWAMP_FAIL(call, error, TWAMP_STATUS_INVALID_PARAM, "Null Stats Pointer");
    }
    twamp_responder_state state = {};
    if (const uint32_t rte = hyx_se_state_get(call.module.rte_handle, responder_id, 0, &state, sizeof state)) {
        return TWAMP_FAIL_RTE(call, TWAMP_STATUS_STATE_READ_FAILED, rte,
                              "Failed to read Responder state, RTE error code:0x%x, error string: %s\n");
    }
    stats->received = hyx_ntohl(state.received);
    stats->transmitted = hyx_ntohl(state.transmitted);
    stats->drop_length_check = hyx_ntohl(state.drop_length_check);
    stats->active_sessions = hyx_ntohl(state.active_sessions);
    stats->drop_max_sessions = hyx_ntohl(state.drop_max_sessions);
    return OLV_STATUS_OK;
}

/** Frame of the operations on a responder. Both refusals use deletion's words, whatever was asked for. */
template <typename Work>
uint32_t run_on_responder(const Work &work, olv_module_handle *module, const twamp_responder_handle *responder,
                          log_site site, const char *operation)
{
    constexpr const char *failed = "Failed to delete Responder Handle";
    if (const uint32_t status = check_module(site, module, failed)) {
        return status;
    }
    if (!is_responder(responder)) {
        TWAMP_LOG_UNKNOWN_AT(site, "Invalid TWAMP Responder handle 0x%08x\n", address_word(responder));
        log_unknown(site, failed);
        return OLV_STATUS_INVALID_HANDLE;
    }
    return run_locked(work, {*module, module->system}, site, operation);
}

} // namespace

uint32_t olv_twamp_responder_create(olv_module_handle *module, const olv_twamp_responder_info *info,
                                    twamp_responder_handle **handle_slot)
{
    return run([=](const module_call &call) { return create_responder(call, info, handle_slot); }, module,
               TWAMP_HERE(error), __func__, "Failed to create Responder Handle");
}

uint32_t olv_twamp_responder_delete(olv_module_handle *module, twamp_responder_handle *responder)
{
    return run_on_responder(
        [=](const module_call &call) { return delete_responder(call, responder->responder_id); }, module,
        responder, TWAMP_HERE(error), __func__);
}

uint32_t olv_twamp_responder_stats_get(olv_module_handle *module, twamp_responder_handle *responder,
                                       olv_twamp_responder_stats *stats)
{
    return run_on_responder(
        [=](const module_call &call) { return read_stats(call, responder->responder_id, stats); }, module,
        responder, TWAMP_HERE(error), __func__);
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
