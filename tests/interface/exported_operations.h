/**
 * @file exported_operations.h
 * The exported operations with their exact types, to be filled from C and from C++.
 */
#ifndef OLV_TWAMP_TESTS_EXPORTED_OPERATIONS_H
#define OLV_TWAMP_TESTS_EXPORTED_OPERATIONS_H

#include "olv_layout.h"

#ifdef __cplusplus
extern "C" {
#endif

/* name, result, parameters */
#define OLV_EXPORTED_OPERATIONS(X)                                                                             \
    X(olv_twamp_valid_module_handle, uint32_t, (const olv_module_handle *))                                    \
    X(olv_twamp_init, uint32_t, (olv_module_handle *))                                                         \
    X(olv_twamp_shutdown, uint32_t, (olv_module_handle *))                                                     \
    X(olv_twamp_service_function_update, uint32_t, (olv_module_handle *))                                      \
    X(olv_twamp_sys_log, uint32_t, (olv_module_handle *, uint32_t))                                            \
    X(olv_twamp_map_sys_log, uint32_t, (olv_module_handle *, uint32_t, uint32_t *))                            \
    X(olv_twamp_responder_create, uint32_t,                                                                    \
      (olv_module_handle *, const olv_twamp_responder_info *, twamp_responder_handle **))                      \
    X(olv_twamp_responder_delete, uint32_t, (olv_module_handle *, twamp_responder_handle *))                   \
    X(olv_twamp_responder_stats_get, uint32_t,                                                                 \
      (olv_module_handle *, twamp_responder_handle *, olv_twamp_responder_stats *))                            \
    X(olv_twamp_responder_stats_print, uint32_t, (olv_module_handle *, twamp_responder_handle *))              \
    X(olv_twamp_custom_bind, uint32_t, (olv_system_handle *, const olv_bind_info *))                           \
    X(olv_twamp_custom_unbind, uint32_t, (olv_system_handle *, const olv_bind_info *))                         \
    X(olv_twamp_get_imc, uint32_t, (olv_module_handle *, const olv_bind_info *, uint32_t *))                   \
    X(olv_twamp_global_stats_get, uint32_t, (olv_module_handle *, olv_twamp_global_stats *))                   \
    X(olv_twamp_global_stats_print, uint32_t, (olv_module_handle *))                                           \
    X(olv_twamp_tables_dump, uint32_t, (olv_module_handle *, uint32_t))                                        \
    X(olv_twamp_dump_tables, uint32_t, (olv_module_handle *, uint32_t))                                        \
    X(olv_twamp_table_entry_dump, void, (uint32_t, const olv_ptn *, const olv_ptn_action *))                   \
    X(olv_twamp_table_entry_dump_fn, void, (void *, void *, const olv_ptn *, const olv_ptn_action *))          \
    X(responder_entry_dump, int, (const olv_ptn *, const olv_ptn_action *))

struct exported_operations {
#define OLV_OPERATION_FIELD(name, result, parameters) result(*name) parameters;
    OLV_EXPORTED_OPERATIONS(OLV_OPERATION_FIELD)
#undef OLV_OPERATION_FIELD
};

/** Filled by a C translation unit. */
extern const struct exported_operations operations_of_c;

#ifdef __cplusplus
}
#endif

#endif
