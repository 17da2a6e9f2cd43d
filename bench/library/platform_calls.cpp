#include "platform_calls.hpp"

#include <sys/time.h>

#include "hyx.h"
#include "twamp_program.h"

namespace olv_bench::platform_calls {

namespace {

constexpr std::uint32_t key_bits = TWAMP_KEY_BITS;
constexpr const char *responder_tree = TWAMP_RESPONDER_LOOKUP_FUNCTION;
constexpr const char *bind_tree = TWAMP_BIND_TO_NEXT_MODULE_FUNCTION;

/** A message as it is traced. The line is made up: there is no source line behind it. */
template <typename... Arguments>
void trace(const measured_module &m, std::uint32_t level, const char *file, const char *format,
           Arguments... arguments)
{
    olv_lttng_trace_fn function = nullptr;
    olv_lttng_fn_ptr_get(m.module->module_id, level, &function);
    if (function != nullptr) {
        function(m.module, 1, file, format, arguments...);
    }
}

std::uint32_t enter(const measured_module &m, const char *file, const char *operation)
{
    trace(m, 8, file, nullptr, operation);
    return olv_sys_sem_lock_wait(m.module->lock);
}

std::uint32_t leave(const measured_module &m, const char *file, const char *operation)
{
    const std::uint32_t status = hyx_sem_post(m.module->lock);
    trace(m, 9, file, nullptr, operation);
    return status;
}

void trace_learnt(const measured_module &m, const char *file, const char *tree, const olv_ptn &pattern,
                  const olv_ptn_action &action)
{
    trace(m, 15, file, nullptr, tree, pattern.word[0], pattern.word[1], pattern.word[2], action.word[0],
          action.word[1], action.word[2]);
}

void trace_removed(const measured_module &m, const char *file, const char *tree, const olv_ptn &pattern,
                   const olv_ptn_action &action)
{
    trace(m, 16, file, nullptr, tree, pattern.word[0], pattern.word[1], pattern.word[2], key_bits,
          action.word[0], action.word[1], action.word[2]);
}

/** Of a responder that is created now. */
twamp_responder_state new_state(measured_module &m)
{
    twamp_responder_state state = {};
    state.constant_two = hyx_htons(TWAMP_STATE_CONSTANT);
    state.param_a = hyx_htons(m.info.param_a);
    state.param_b = hyx_htonl(m.info.param_b | TWAMP_STATE_WRITTEN);
    state.creation_count = hyx_htonl(++m.created);
    timeval now = {};
    (void)gettimeofday(&now, nullptr);
    std::uint64_t timer = 0;
    (void)hyx_timer_get_timestamp(m.module->rte_handle, 0, &timer);
    state.ntp_seconds = hyx_htonl(static_cast<std::uint32_t>(now.tv_sec) + TWAMP_NTP_UNIX_OFFSET);
    state.ntp_fraction =
        hyx_htonl(static_cast<std::uint32_t>(static_cast<double>(now.tv_usec) * 1e-6 * 4294967295.0));
    state.timer_high = hyx_htonl(static_cast<std::uint32_t>(timer >> 32));
    state.timer_low = hyx_htonl(static_cast<std::uint32_t>(timer));
    state.max_sessions = TWAMP_DEFAULT_MAX_SESSIONS;
    return state;
}

/** The entry point that the destination of the bind asks for. */
std::uint32_t entry_point(const measured_module &m)
{
    olv_module_handle *const destination = m.request.dst_module;
    std::uint32_t found = 0;
    (void)moduleMgrCpuServiceFn[destination->module_id].entry_point_lookup(destination, &m.request, &found);
    return found;
}

} // namespace

std::uint32_t create(measured_module &m)
{
    constexpr const char *file = "twamp_responder.c";
    std::uint32_t status = enter(m, file, "olv_twamp_responder_create");

    auto *const record =
        static_cast<twamp_responder_handle *>(hyx_nvm_calloc(1, sizeof(twamp_responder_handle)));
    status |= hyx_rsrc_allocate(m.responder_namespace, 1, &record->responder_id);
    *m.slot = record;

    const twamp_responder_state state = new_state(m);
    status |= hyx_se_state_set(m.module->rte_handle, record->responder_id, 0, &state, sizeof state);

    olv_ptn pattern;
    olv_ptn_action action = {};
    status |= olv_ptn_new(key_bits, &pattern);
    status |= olv_ptn_extend(&pattern, record->responder_id, key_bits);
    status |= hyx_ptn_learn(m.module->rte_handle, m.responder_tree, &pattern, &action);
    trace_learnt(m, file, responder_tree, pattern, action);
    olv_ptn_free(pattern);

    return status | leave(m, file, "olv_twamp_responder_create");
}

std::uint32_t statistics(measured_module &m)
{
    constexpr const char *file = "twamp_responder.c";
    std::uint32_t status = enter(m, file, "olv_twamp_responder_stats_get");

    twamp_responder_state state;
    status |= hyx_se_state_get(m.module->rte_handle, (*m.slot)->responder_id, 0, &state, sizeof state);
    m.stats.received = hyx_ntohl(state.received);
    m.stats.transmitted = hyx_ntohl(state.transmitted);
    m.stats.drop_length_check = hyx_ntohl(state.drop_length_check);
    m.stats.active_sessions = hyx_ntohl(state.active_sessions);
    m.stats.drop_max_sessions = hyx_ntohl(state.drop_max_sessions);

    return status | leave(m, file, "olv_twamp_responder_stats_get");
}

std::uint32_t remove(measured_module &m)
{
    constexpr const char *file = "twamp_responder.c";
    std::uint32_t status = enter(m, file, "olv_twamp_responder_delete");

    const std::uint32_t id = (*m.slot)->responder_id;
    olv_ptn pattern;
    olv_ptn_action action = {};
    status |= olv_ptn_new(key_bits, &pattern);
    status |= olv_ptn_extend(&pattern, id, key_bits);
    status |= hyx_ptn_unlearn(m.module->rte_handle, m.responder_tree, &pattern, key_bits, &action, 1);
    trace_removed(m, file, responder_tree, pattern, action);

    status |= hyx_rsrc_free(m.responder_namespace, id, 1);
    const twamp_responder_state zeros = {};
    status |= hyx_se_state_set(m.module->rte_handle, id, 0, &zeros, sizeof zeros);
    olv_ptn_free(pattern);

    return status | leave(m, file, "olv_twamp_responder_delete");
}

std::uint32_t bind(measured_module &m)
{
    constexpr const char *file = "twamp_bind.c";
    std::uint32_t status = enter(m, file, "olv_twamp_custom_bind");

    olv_ptn pattern;
    olv_ptn_action action = {{TWAMP_ACTION_BOUND, entry_point(m), 0}};
    status |= olv_ptn_new(key_bits, &pattern);
    status |= olv_ptn_extend(&pattern, m.bind_key, key_bits);
    status |= hyx_ptn_learn(m.module->rte_handle, m.bind_tree, &pattern, &action);
    trace_learnt(m, file, bind_tree, pattern, action);
    olv_ptn_free(pattern);
    trace(m, 0, file, "Custom Bind Successfully done.\n");

    return status | leave(m, file, "olv_twamp_custom_bind");
}

std::uint32_t lookup(measured_module &m)
{
    const std::uint32_t status = olv_sys_sem_lock_wait(m.module->lock);
    m.imc = m.imc_tree;
    return status | hyx_sem_post(m.module->lock);
}

std::uint32_t unbind(measured_module &m)
{
    constexpr const char *file = "twamp_bind.c";
    std::uint32_t status = enter(m, file, "olv_twamp_custom_unbind");

    olv_ptn pattern;
    olv_ptn_action action = {{TWAMP_ACTION_BOUND, entry_point(m), 0}};
    status |= olv_ptn_new(key_bits, &pattern);
    status |= olv_ptn_extend(&pattern, m.bind_key, key_bits);
    status |= hyx_ptn_unlearn(m.module->rte_handle, m.bind_tree, &pattern, key_bits, &action, 1);
    trace_removed(m, file, bind_tree, pattern, action);
    olv_ptn_free(pattern);
    trace(m, 0, file, "Custom Un Bind Successfully done.\n");

    return status | leave(m, file, "olv_twamp_custom_unbind");
}

} // namespace olv_bench::platform_calls
