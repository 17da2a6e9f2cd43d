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

/**
 * Every platform call: name, kind, and whether it can be told to fail.
 * `entry_point_lookup` is the lookup that the framework's IPv4 and IPv6 modules put into
 * moduleMgrCpuServiceFn. olv_lttng_fn_ptr_get fails by leaving the slot untouched, hyx_nvm_calloc by
 * returning NULL, every other one by returning the fault's code.
 */
#define OLV_SIM_CALLS(X)                                                                                       \
    X(olv_sys_sem_lock_wait, service, true)                                                                    \
    X(olv_sys_status_get, text, false)                                                                         \
    X(olv_module_service_function_register, service, true)                                                     \
    X(olv_module_service_function_update, service, true)                                                       \
    X(olv_ptn_new, service, true)                                                                              \
    X(olv_ptn_extend, service, true)                                                                           \
    X(olv_ptn_free, service, false)                                                                            \
    X(olv_ptn_parse, service, true)                                                                            \
    X(olv_ptn_print, print, false)                                                                             \
    X(olv_ptn_action_print, print, false)                                                                      \
    X(olv_byte_string_print, print, false)                                                                     \
    X(olv_sif_fps_map, text, false)                                                                            \
    X(olv_lttng_fn_ptr_get, trace, true)                                                                       \
    X(olv_lttng_trace_sif_force_error, trace, false)                                                           \
    X(hyx_nvm_calloc, service, true)                                                                           \
    X(hyx_nvm_free, service, false)                                                                            \
    X(hyx_sem_post, service, true)                                                                             \
    X(hyx_status_get, text, false)                                                                             \
    X(hyx_gettime, service, false)                                                                             \
    X(hyx_timer_get_timestamp, service, true)                                                                  \
    X(hyx_rsrc_find, service, true)                                                                            \
    X(hyx_rsrc_allocate, service, true)                                                                        \
    X(hyx_rsrc_free, service, true)                                                                            \
    X(hyx_ptn_symbol_get_id, service, true)                                                                    \
    X(hyx_ptn_learn, service, true)                                                                            \
    X(hyx_ptn_unlearn, service, true)                                                                          \
    X(hyx_ptn_list_ptns, service, true)                                                                        \
    X(hyx_se_state_set, service, true)                                                                         \
    X(hyx_se_state_get, service, true)                                                                         \
    X(hyx_htons, byte_order, false)                                                                            \
    X(hyx_htonl, byte_order, false)                                                                            \
    X(hyx_ntohl, byte_order, false)                                                                            \
    X(entry_point_lookup, service, true)

/** The platform calls, an enumerator for each of #OLV_SIM_CALLS in its order. */
enum class call : std::uint8_t {
#define OLV_SIM_CALL_ENUMERATOR(name, kind, can_fail) name,
    OLV_SIM_CALLS(OLV_SIM_CALL_ENUMERATOR)
#undef OLV_SIM_CALL_ENUMERATOR
};

/** How many platform calls there are. */
inline constexpr std::size_t call_count = static_cast<std::size_t>(call::entry_point_lookup) + 1;

/** The name of the C symbol, or "entry_point_lookup". */
[[nodiscard]] std::string_view call_name(call which);
/** What a call is for. */
[[nodiscard]] call_kind kind_of(call which);
/** Whether a call can be told to fail. */
[[nodiscard]] bool can_fail(call which);
/** @return Nothing when no call has that name. */
[[nodiscard]] std::optional<call> call_by_name(std::string_view name);

} // namespace olv_sim

#endif
