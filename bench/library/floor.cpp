#include "floor.hpp"

#include <array>
#include <sys/time.h>

#include "hyx.h"
#include "twamp_program.h"

namespace olv_bench::floors {

namespace {

constexpr std::uint32_t key_bits = TWAMP_KEY_BITS;
constexpr const char *responder_tree = TWAMP_RESPONDER_LOOKUP_FUNCTION;
constexpr const char *bind_tree = TWAMP_BIND_TO_NEXT_MODULE_FUNCTION;

/** A message as it is traced. The line is nobody's: the floors have no messages of their own. */
template <typename... Arguments>
void trace(const bed &b, std::uint32_t level, const char *file, const char *format, Arguments... arguments)
{
    olv_lttng_trace_fn function = nullptr;
    olv_lttng_fn_ptr_get(b.module->module_id, level, &function);
    if (function != nullptr) {
        function(b.module, 1, file, format, arguments...);
    }
}

std::uint32_t enter(const bed &b, const char *file, const char *operation)
{
    trace(b, 8, file, nullptr, operation);
    return olv_sys_sem_lock_wait(b.module->lock);
}

std::uint32_t leave(const bed &b, const char *file, const char *operation)
{
    const std::uint32_t status = hyx_sem_post(b.module->lock);
    trace(b, 9, file, nullptr, operation);
    return status;
}

void trace_learnt(const bed &b, const char *file, const char *tree, const olv_ptn &pattern,
                  const olv_ptn_action &action)
{
    trace(b, 15, file, nullptr, tree, pattern.word[0], pattern.word[1], pattern.word[2], action.word[0],
          action.word[1], action.word[2]);
}

void trace_removed(const bed &b, const char *file, const char *tree, const olv_ptn &pattern,
                   const olv_ptn_action &action)
{
    trace(b, 16, file, nullptr, tree, pattern.word[0], pattern.word[1], pattern.word[2], key_bits,
          action.word[0], action.word[1], action.word[2]);
}

/** A responder's state entry, in words; the first has two halves. */
struct state_entry {
    std::uint16_t halves[2];
    std::array<std::uint32_t, 14> words;
};
static_assert(sizeof(state_entry) == sizeof(twamp_responder_state));

state_entry new_state(bed &b)
{
    state_entry state = {};
    state.halves[1] = hyx_htons(2);
    state.halves[0] = hyx_htons(b.info.param_a);
    state.words[0] = hyx_htonl(b.info.param_b | 0x80000000);
    state.words[1] = hyx_htonl(++b.created);
    timeval now = {};
    (void)gettimeofday(&now, nullptr);
    std::uint64_t timer = 0;
    (void)hyx_timer_get_timestamp(b.module->rte_handle, 0, &timer);
    state.words[3] = hyx_htonl(static_cast<std::uint32_t>(now.tv_sec) + 2208988800u);
    state.words[4] =
        hyx_htonl(static_cast<std::uint32_t>(static_cast<double>(now.tv_usec) * 1e-6 * 4294967295.0));
    state.words[5] = hyx_htonl(static_cast<std::uint32_t>(timer >> 32));
    state.words[6] = hyx_htonl(static_cast<std::uint32_t>(timer));
    state.words[12] = 32;
    return state;
}

/** Where the destination of the bed's request wants to be entered. */
std::uint32_t entry_point(const bed &b)
{
    olv_module_handle *const destination = b.request.dst_module;
    std::uint32_t found = 0;
    (void)moduleMgrCpuServiceFn[destination->module_id].entry_point_lookup(destination, &b.request, &found);
    return found;
}

} // namespace

std::uint32_t create(bed &b)
{
    constexpr const char *file = "twamp_responder.c";
    std::uint32_t status = enter(b, file, "olv_twamp_responder_create");

    auto *const record =
        static_cast<twamp_responder_handle *>(hyx_nvm_calloc(1, sizeof(twamp_responder_handle)));
    status |= hyx_rsrc_allocate(b.responder_ns, 1, &record->responder_id);
    *b.slot = record;

    const state_entry state = new_state(b);
    status |= hyx_se_state_set(b.module->rte_handle, record->responder_id, 0, &state, sizeof state);

    olv_ptn pattern;
    olv_ptn_action action = {};
    status |= olv_ptn_new(key_bits, &pattern);
    status |= olv_ptn_extend(&pattern, record->responder_id, key_bits);
    status |= hyx_ptn_learn(b.module->rte_handle, b.responder_tree, &pattern, &action);
    trace_learnt(b, file, responder_tree, pattern, action);
    olv_ptn_free(pattern);

    return status | leave(b, file, "olv_twamp_responder_create");
}

std::uint32_t statistics(bed &b)
{
    constexpr const char *file = "twamp_responder.c";
    std::uint32_t status = enter(b, file, "olv_twamp_responder_stats_get");

    state_entry state;
    status |= hyx_se_state_get(b.module->rte_handle, (*b.slot)->responder_id, 0, &state, sizeof state);
    b.stats.received = hyx_ntohl(state.words[7]);
    b.stats.transmitted = hyx_ntohl(state.words[8]);
    b.stats.drop_length_check = hyx_ntohl(state.words[10]);
    b.stats.active_sessions = hyx_ntohl(state.words[9]);
    b.stats.drop_max_sessions = hyx_ntohl(state.words[11]);

    return status | leave(b, file, "olv_twamp_responder_stats_get");
}

std::uint32_t remove(bed &b)
{
    constexpr const char *file = "twamp_responder.c";
    std::uint32_t status = enter(b, file, "olv_twamp_responder_delete");

    const std::uint32_t id = (*b.slot)->responder_id;
    olv_ptn pattern;
    olv_ptn_action action = {};
    status |= olv_ptn_new(key_bits, &pattern);
    status |= olv_ptn_extend(&pattern, id, key_bits);
    status |= hyx_ptn_unlearn(b.module->rte_handle, b.responder_tree, &pattern, key_bits, &action, 1);
    trace_removed(b, file, responder_tree, pattern, action);

    status |= hyx_rsrc_free(b.responder_ns, id, 1);
    const state_entry zeros = {};
    status |= hyx_se_state_set(b.module->rte_handle, id, 0, &zeros, sizeof zeros);
    olv_ptn_free(pattern);

    return status | leave(b, file, "olv_twamp_responder_delete");
}

std::uint32_t bind(bed &b)
{
    constexpr const char *file = "twamp_bind.c";
    std::uint32_t status = enter(b, file, "olv_twamp_custom_bind");

    olv_ptn pattern;
    olv_ptn_action action = {{1, entry_point(b), 0}};
    status |= olv_ptn_new(key_bits, &pattern);
    status |= olv_ptn_extend(&pattern, b.bind_key, key_bits);
    status |= hyx_ptn_learn(b.module->rte_handle, b.bind_tree, &pattern, &action);
    trace_learnt(b, file, bind_tree, pattern, action);
    olv_ptn_free(pattern);
    trace(b, 0, file, "Custom Bind Successfully done.\n");

    return status | leave(b, file, "olv_twamp_custom_bind");
}

std::uint32_t lookup(bed &b)
{
    const std::uint32_t status = olv_sys_sem_lock_wait(b.module->lock);
    b.imc = b.imc_tree;
    return status | hyx_sem_post(b.module->lock);
}

std::uint32_t unbind(bed &b)
{
    constexpr const char *file = "twamp_bind.c";
    std::uint32_t status = enter(b, file, "olv_twamp_custom_unbind");

    olv_ptn pattern;
    olv_ptn_action action = {{1, entry_point(b), 0}};
    status |= olv_ptn_new(key_bits, &pattern);
    status |= olv_ptn_extend(&pattern, b.bind_key, key_bits);
    status |= hyx_ptn_unlearn(b.module->rte_handle, b.bind_tree, &pattern, key_bits, &action, 1);
    trace_removed(b, file, bind_tree, pattern, action);
    olv_ptn_free(pattern);
    trace(b, 0, file, "Custom Un Bind Successfully done.\n");

    return status | leave(b, file, "olv_twamp_custom_unbind");
}

} // namespace olv_bench::floors
