/**
 * @file olv_layout.h
 * The layouts that the framework fixes, checked wherever this file is included. C11 and C++.
 */
#ifndef OLV_LAYOUT_H
#define OLV_LAYOUT_H

#include <assert.h>
#include <stddef.h>

#include "hyx.h"
#include "olv.h"
#include "olv_twamp.h"
#include "twamp_program.h"

/** The first of two values where pointers have 32 bits, otherwise the second. */
#if UINTPTR_MAX == 0xFFFFFFFFu
#define OLV_POINTER_SELECT(bits32, bits64) (bits32)
#else
#define OLV_POINTER_SELECT(bits32, bits64) (bits64)
#endif

/** Fails the build where a field is at another byte of its record than that on 32-bit or 64-bit targets. */
#define OLV_CHECK_OFFSET(record, field, bits32, bits64)                                                        \
    static_assert(offsetof(record, field) == OLV_POINTER_SELECT(bits32, bits64), #record "." #field)
/** Fails the build where a record has another size in bytes than that on 32-bit or 64-bit targets. */
#define OLV_CHECK_SIZE(record, bits32, bits64)                                                                 \
    static_assert(sizeof(record) == OLV_POINTER_SELECT(bits32, bits64), #record)

OLV_CHECK_OFFSET(olv_system_handle, log_flags, 4, 4);
OLV_CHECK_OFFSET(olv_system_handle, log_name, 8, 8);
OLV_CHECK_OFFSET(olv_system_handle, module_id, 20, 24);
OLV_CHECK_SIZE(olv_system_handle, 24, 32);

OLV_CHECK_OFFSET(olv_module_handle, magic, 0, 0);
OLV_CHECK_OFFSET(olv_module_handle, log_flags, 4, 4);
OLV_CHECK_OFFSET(olv_module_handle, log_name, 8, 8);
OLV_CHECK_OFFSET(olv_module_handle, module_id, 20, 24);
OLV_CHECK_OFFSET(olv_module_handle, lock, 24, 28);
OLV_CHECK_OFFSET(olv_module_handle, system, 28, 32);
OLV_CHECK_OFFSET(olv_module_handle, rte_handle, 32, 40);
OLV_CHECK_OFFSET(olv_module_handle, default_entry_point, 46, 54);
OLV_CHECK_OFFSET(olv_module_handle, ctx, 48, 56);
OLV_CHECK_SIZE(olv_module_handle, 52, 64);

OLV_CHECK_SIZE(olv_ptn, 12, 12);
OLV_CHECK_SIZE(olv_ptn_action, 12, 12);

OLV_CHECK_OFFSET(olv_service_function_table, shutdown, 0, 0);
OLV_CHECK_OFFSET(olv_service_function_table, custom_bind, 20, 40);
OLV_CHECK_OFFSET(olv_service_function_table, custom_unbind, 24, 48);
OLV_CHECK_OFFSET(olv_service_function_table, get_imc, 40, 80);
OLV_CHECK_OFFSET(olv_service_function_table, lli_tree_function, 52, 104);
OLV_CHECK_OFFSET(olv_service_function_table, sys_log, 64, 128);
OLV_CHECK_SIZE(olv_service_function_table, 76, 152);

OLV_CHECK_OFFSET(olv_cpu_service_functions, entry_point_lookup, 44, 88);
OLV_CHECK_SIZE(olv_cpu_service_functions, 68, 136);

OLV_CHECK_OFFSET(olv_bind_info, bind_type, 0, 0);
OLV_CHECK_OFFSET(olv_bind_info, bind_subtype, 4, 4);
OLV_CHECK_OFFSET(olv_bind_info, bind_path, 8, 8);
OLV_CHECK_OFFSET(olv_bind_info, src_module, 12, 16);
OLV_CHECK_OFFSET(olv_bind_info, src_instance, 16, 24);
OLV_CHECK_OFFSET(olv_bind_info, src_location, 24, 36);
OLV_CHECK_OFFSET(olv_bind_info, dst_module, 28, 40);
OLV_CHECK_OFFSET(olv_bind_info, dst_location, 40, 56);
OLV_CHECK_OFFSET(olv_bind_info, custom_bind, 56, 72);

OLV_CHECK_SIZE(olv_twamp_responder_info, 4, 4);
OLV_CHECK_OFFSET(twamp_responder_handle, module, 4, 8);
OLV_CHECK_OFFSET(twamp_responder_handle, magic, 8, 16);
OLV_CHECK_SIZE(twamp_responder_handle, 20, 32);
OLV_CHECK_SIZE(olv_twamp_responder_stats, 20, 20);
OLV_CHECK_SIZE(olv_twamp_global_stats, 24, 24);

OLV_CHECK_OFFSET(twamp_responder_state, param_b, 4, 4);
OLV_CHECK_OFFSET(twamp_responder_state, creation_count, 8, 8);
OLV_CHECK_OFFSET(twamp_responder_state, ntp_seconds, 16, 16);
OLV_CHECK_OFFSET(twamp_responder_state, timer_high, 24, 24);
OLV_CHECK_OFFSET(twamp_responder_state, received, 32, 32);
OLV_CHECK_OFFSET(twamp_responder_state, active_sessions, 40, 40);
OLV_CHECK_OFFSET(twamp_responder_state, drop_max_sessions, 48, 48);
OLV_CHECK_OFFSET(twamp_responder_state, max_sessions, 52, 52);
OLV_CHECK_SIZE(twamp_responder_state, 60, 60);

#endif
