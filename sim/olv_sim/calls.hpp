/**
 * @file calls.hpp
 * The platform calls: the C symbols of olv.h and hyx.h, and the entry-point lookups.
 */
#ifndef OLV_SIM_CALLS_HPP
#define OLV_SIM_CALLS_HPP

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace olv_sim {

/** What a platform call is for; a call record keeps the kinds it is asked for. */
enum class call_kind : std::uint8_t {
    service = 1,    ///< Does or changes something: locks, memory, patterns, resources, trees, state, time.
    text = 2,       ///< Looks up a text: status texts, tree names.
    print = 4,      ///< Prints.
    trace = 8,      ///< Finds or calls the tracer.
    byte_order = 16 ///< Converts.
};

/** How a call tells that it failed. */
enum class failure : std::uint8_t {
    never,            ///< It cannot fail.
    rte_status,       ///< Returns a status of the runtime environment; its text comes from hyx_status_get().
    framework_status, ///< Returns a status of the framework; its text comes from olv_sys_status_get().
    null_pointer,     ///< Returns NULL.
    empty_slot        ///< Leaves the slot that it was to fill as it is.
};

/**
 * Every platform call: name, kind, and how it fails when it is told to. `entry_point_lookup` is the lookup that
 * the framework's IPv4 and IPv6 modules put into moduleMgrCpuServiceFn.
 */
#define OLV_SIM_CALLS(X)                                                                                       \
    X(olv_sys_sem_lock_wait, service, rte_status)                                                              \
    X(olv_sys_status_get, text, never)                                                                         \
    X(olv_module_service_function_register, service, framework_status)                                         \
    X(olv_module_service_function_update, service, framework_status)                                           \
    X(olv_ptn_new, service, framework_status)                                                                  \
    X(olv_ptn_extend, service, framework_status)                                                               \
    X(olv_ptn_free, service, never)                                                                            \
    X(olv_ptn_parse, service, framework_status)                                                                \
    X(olv_ptn_print, print, never)                                                                             \
    X(olv_ptn_action_print, print, never)                                                                      \
    X(olv_byte_string_print, print, never)                                                                     \
    X(olv_sif_fps_map, text, never)                                                                            \
    X(olv_lttng_fn_ptr_get, trace, empty_slot)                                                                 \
    X(olv_lttng_trace_sif_force_error, trace, never)                                                           \
    X(hyx_nvm_calloc, service, null_pointer)                                                                   \
    X(hyx_nvm_free, service, never)                                                                            \
    X(hyx_sem_post, service, rte_status)                                                                       \
    X(hyx_status_get, text, never)                                                                             \
    X(hyx_gettime, service, never)                                                                             \
    X(hyx_timer_get_timestamp, service, rte_status)                                                            \
    X(hyx_rsrc_find, service, rte_status)                                                                      \
    X(hyx_rsrc_allocate, service, rte_status)                                                                  \
    X(hyx_rsrc_free, service, rte_status)                                                                      \
    X(hyx_ptn_symbol_get_id, service, rte_status)                                                              \
    X(hyx_ptn_learn, service, rte_status)                                                                      \
    X(hyx_ptn_unlearn, service, rte_status)                                                                    \
    X(hyx_ptn_list_ptns, service, rte_status)                                                                  \
    X(hyx_se_state_set, service, rte_status)                                                                   \
    X(hyx_se_state_get, service, rte_status)                                                                   \
    X(hyx_htons, byte_order, never)                                                                            \
    X(hyx_htonl, byte_order, never)                                                                            \
    X(hyx_ntohl, byte_order, never)                                                                            \
    X(entry_point_lookup, service, framework_status)

/** The platform calls, an enumerator for each of #OLV_SIM_CALLS in its order. */
enum class call : std::uint8_t {
#define OLV_SIM_CALL_ENUMERATOR(name, kind, failure) name,
    OLV_SIM_CALLS(OLV_SIM_CALL_ENUMERATOR)
#undef OLV_SIM_CALL_ENUMERATOR
};

/** How many platform calls there are. */
inline constexpr std::size_t call_count = static_cast<std::size_t>(call::entry_point_lookup) + 1;

/** The name of the C symbol, or "entry_point_lookup". */
[[nodiscard]] std::string_view call_name(call which);
/** What a call is for. */
[[nodiscard]] call_kind kind_of(call which);
/** How a call fails. */
[[nodiscard]] failure failure_of(call which);
/** Whether a call can be told to fail. */
[[nodiscard]] bool can_fail(call which);
/** What a call returns when a fault that has no code of its own makes it fail: a status of the call's family,
 *  0 where it returns none. */
[[nodiscard]] std::uint32_t usual_code(call which);
/** @return Nothing when no call has that name. */
[[nodiscard]] std::optional<call> call_by_name(std::string_view name);

} // namespace olv_sim

#endif
