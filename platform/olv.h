/**
 * @file olv.h
 * The packet-processing framework as a module sees it: the records it hands over and the services it offers.
 *
 * Conventions:
 *  - Every status is a `uint32_t`; 0 is success. A framework status carries the number of the reporting
 *    module in bits 16-19. A status of the runtime environment ("RTE status") has texts of its own, see
 *    hyx_status_get() in hyx.h.
 *  - All words are unsigned 32-bit values in host byte order unless a field says otherwise.
 *  - Records are owned by whoever created them; a service keeps no pointer to a record after it returns,
 *    except where its comment says so.
 *  - Slots and words that hold pointers are pointer-sized. On the 32-bit control processor the offsets in
 *    the comments hold to the byte.
 *
 * The symbols come from the process that loads a module; no module defines them.
 */
#ifndef OLV_H
#define OLV_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct twamp_ctx;
struct olv_bind_info;

/** The framework's bind request record; its definition crosses the module's interface, see olv_twamp.h. */
typedef struct olv_bind_info olv_bind_info;

/** Value of `magic` in every genuine module record. */
#define OLV_MODULE_MAGIC 0x53248791u

/** Framework identifier of the IPv4 module. */
#define OLV_MODULE_ID_IPV4 1u
/** Framework identifier of the IPv6 module. */
#define OLV_MODULE_ID_IPV6 11u

/** Bits 0-3 of a log word: the log level, one of 0, 1, 3, 7 and 15. */
#define OLV_LOG_LEVEL_MASK 0x0Fu
/** Log-word bit: print the time-stamped entry and exit lines. */
#define OLV_LOG_FUNCTION 0x10u
/** Log-word bit: print the classifier entries that are learnt or removed. */
#define OLV_LOG_PATTERN 0x40u
/** Log-word bit: print dumps of state written to the fast path. */
#define OLV_LOG_STATE 0x80u

/**
 * The framework's system record. Created and owned by the framework.
 * Its first fields stand where those of a module record stand, so that either can name a log line.
 */
typedef struct olv_system_handle {
    uint32_t magic;       /**< Marker of the framework; not read by modules. */
    uint32_t log_flags;   /**< System log word, same bits as a module's. */
    const char *log_name; /**< Name in the prefix of log lines written for the system. */
    uint32_t reserved[2]; /**< Used by the framework. */
    uint32_t module_id;   /**< Identifier with which the system's trace functions are looked up. */
} olv_system_handle;

/**
 * The framework's module record. Created and owned by the framework, which passes it to every operation of
 * the module; the module reads it and writes only `log_flags` and `ctx`.
 */
typedef struct olv_module_handle {
    uint32_t magic;               /**< #OLV_MODULE_MAGIC. */
    uint32_t log_flags;           /**< Module log word: level in bits 0-3, OLV_LOG_* bits above. */
    const char *log_name;         /**< Name in the console prefix of every log line of the module. */
    uint32_t reserved_log[2];     /**< Used by the framework. */
    uint32_t module_id;           /**< Framework identifier of the module (byte 20 on the 32-bit target). */
    uint32_t lock;                /**< Semaphore of the module; 0: calls run without locking. */
    olv_system_handle *system;    /**< The system record; may be NULL. */
    uint32_t rte_handle;          /**< Runtime-environment instance for every `hyx_` call. */
    uint32_t reserved_rte[2];     /**< Used by the framework. */
    uint16_t reserved_entry;      /**< Used by the framework. */
    uint16_t default_entry_point; /**< Default entry point, 0: none (byte 46 on the 32-bit target). */
    struct twamp_ctx *ctx;        /**< The module's private context; NULL before init and after shutdown. */
} olv_module_handle;

/**
 * A classifier pattern: three words on every target. Word 0 refers to the framework's own storage, word 1
 * is the key length in bits (0 for an entry without a key), word 2 belongs to the classifier.
 */
typedef struct olv_ptn {
    uint32_t word[3]; /**< Storage, key length, classifier's. */
} olv_ptn;

/** What a classifier tree returns for an entry: three words on every target; word 0 is the return value. */
typedef struct olv_ptn_action {
    uint32_t word[3]; /**< Word 0: return value; the others are the tree's. */
} olv_ptn_action;

/** Service function: ends the module's life. See olv_twamp_shutdown(). */
typedef uint32_t (*olv_shutdown_fn)(olv_module_handle *module);
/** Service function: makes or removes a custom bind. See olv_twamp_custom_bind(). */
typedef uint32_t (*olv_custom_bind_fn)(olv_system_handle *system, const olv_bind_info *info);
/** Service function: answers for the inter-module call function. See olv_twamp_get_imc(). */
typedef uint32_t (*olv_get_imc_fn)(olv_module_handle *module, const olv_bind_info *info, uint32_t *imc);
/** Service function: sets the module's log level. See olv_twamp_sys_log(). */
typedef uint32_t (*olv_sys_log_fn)(olv_module_handle *module, uint32_t level);
/** A slot of a service table whose meaning is the framework's. */
typedef void (*olv_reserved_fn)(void);

/** A pointer-sized slot that carries a tree-function ID in its first two bytes, in host byte order. */
typedef struct olv_tree_function_slot {
    uint16_t id;                                                  /**< Low 16 bits of the tree-function ID. */
    uint8_t reserved[sizeof(olv_reserved_fn) - sizeof(uint16_t)]; /**< Zero. */
} olv_tree_function_slot;

/**
 * The entry points through which the framework drives a module: 19 pointer-sized slots (76 bytes on the
 * 32-bit target). An all-zero table withdraws every service function. Slots that a module does not offer
 * are zero.
 */
typedef struct olv_service_function_table {
    olv_shutdown_fn shutdown;                 /**< Slot 0. */
    olv_reserved_fn reserved_1[4];            /**< Slots 1-4. */
    olv_custom_bind_fn custom_bind;           /**< Slot 5. */
    olv_custom_bind_fn custom_unbind;         /**< Slot 6. */
    olv_reserved_fn reserved_7[3];            /**< Slots 7-9. */
    olv_get_imc_fn get_imc;                   /**< Slot 10. */
    olv_reserved_fn reserved_11[2];           /**< Slots 11-12. */
    olv_tree_function_slot lli_tree_function; /**< Slot 13: entry of the module's low-level processing. */
    olv_reserved_fn reserved_14[2];           /**< Slots 14-15. */
    olv_sys_log_fn sys_log;                   /**< Slot 16. */
    olv_reserved_fn reserved_17[2];           /**< Slots 17-18. */
} olv_service_function_table;

/**
 * Entry-point lookup of a destination module.
 * @param module       The destination module's record.
 * @param info         The bind request.
 * @param entry_point  Receives the entry point; may be left 0 on success.
 * @return 0 on success, otherwise a framework status.
 */
typedef uint32_t (*olv_entry_point_lookup)(olv_module_handle *module, const olv_bind_info *info,
                                           uint32_t *entry_point);

/** The services that a module on the CPU offers to other modules: 17 pointer-sized words (68 bytes on the
 *  32-bit target). */
typedef struct olv_cpu_service_functions {
    olv_reserved_fn reserved_0[11];            /**< Words 0-10. */
    olv_entry_point_lookup entry_point_lookup; /**< Word 11; NULL: the module has none. */
    olv_reserved_fn reserved_12[5];            /**< Words 12-16. */
} olv_cpu_service_functions;

/** The framework's table of the modules' CPU services, indexed by module ID. Filled by the framework. */
extern olv_cpu_service_functions moduleMgrCpuServiceFn[];

/**
 * A trace function of the framework's LTTng-based tracer.
 * @param module  The record that the event belongs to (module or system record).
 * @param line    Source line.
 * @param file    Source file name; not copied before the function returns.
 * @param format  printf format of the arguments that follow. NULL at the levels whose arguments are fixed:
 *                entry (8) and exit (9): the operation's name; entry learnt (15): tree name, three pattern
 *                words, three action words; entry removed (16): tree name, three pattern words, key width,
 *                three action words; state dump (27): namespace ID, index, bytes, length.
 */
typedef void (*olv_lttng_trace_fn)(const void *module, uint32_t line, const char *file, const char *format,
                                   ...);

/**
 * Wait for a module's lock.
 * @param lock  Semaphore handle, not 0.
 * @return 0 when the lock is held, otherwise an RTE status; the lock is then not held.
 */
uint32_t olv_sys_sem_lock_wait(uint32_t lock);

/**
 * Human-readable text of a framework status.
 * @param system  The system record; may be NULL.
 * @param status  A framework status, known or not.
 * @return A static text without a newline, never NULL.
 */
const char *olv_sys_status_get(const olv_system_handle *system, uint32_t status);

/**
 * Register a module's service functions, replacing those registered before.
 * @param system  The system record; NULL where the module has none.
 * @param module  The module's record.
 * @param table   Copied. All zero: withdraws the functions.
 * @return 0, or a framework status; the registered functions are then unchanged.
 */
uint32_t olv_module_service_function_register(olv_system_handle *system, olv_module_handle *module,
                                              const olv_service_function_table *table);

/**
 * Refresh the service functions of a module that has registered some.
 * @param system  The system record; NULL where the module has none.
 * @param module  The module's record.
 * @param table   Copied.
 * @return 0, or a framework status; the registered functions are then unchanged.
 */
uint32_t olv_module_service_function_update(olv_system_handle *system, olv_module_handle *module,
                                            const olv_service_function_table *table);

/**
 * Begin a pattern.
 * @param width_bits  Key width of the finished pattern.
 * @param pattern     Filled on success; to be released with olv_ptn_free().
 * @return 0, or a framework status; there is then nothing to free.
 */
uint32_t olv_ptn_new(uint32_t width_bits, olv_ptn *pattern);

/**
 * Append a field to a pattern's key.
 * @param pattern     From olv_ptn_new().
 * @param value       The field; its low @p width_bits bits are significant.
 * @param width_bits  Width of the field.
 * @return 0, or a framework status; the pattern is unchanged and still has to be freed.
 */
uint32_t olv_ptn_extend(olv_ptn *pattern, uint32_t value, uint32_t width_bits);

/**
 * Release what olv_ptn_new() and olv_ptn_extend() took.
 * @param pattern  Not to be used afterwards.
 */
void olv_ptn_free(olv_ptn pattern);

/**
 * Split a pattern's key into fields, first field first.
 * @param pattern       The pattern; only read.
 * @param field_count   Number of fields.
 * @param field_widths  Width of each field in bits, at most 32.
 * @param values        Receives one value per field.
 * @return 0, or a framework status; @p values is then undefined.
 */
uint32_t olv_ptn_parse(const olv_ptn *pattern, uint32_t field_count, const uint16_t *field_widths,
                       uint32_t *values);

/**
 * Print a pattern to standard output in the framework's generic form, without a newline.
 * @param pattern  The pattern.
 */
void olv_ptn_print(olv_ptn pattern);

/**
 * Print an action to standard output in the framework's generic form, without a newline.
 * @param action  The action.
 */
void olv_ptn_action_print(olv_ptn_action action);

/**
 * Print bytes to standard output, without a newline.
 * @param bytes   Where they are.
 * @param length  How many.
 */
void olv_byte_string_print(const void *bytes, uint32_t length);

/**
 * Printable name of a tree function.
 * @param tree_id  The tree function's ID, known or not.
 * @return A static text, never NULL.
 */
const char *olv_sif_fps_map(uint32_t tree_id);

/**
 * Look up the trace function of a module for a trace level.
 * @param module_id    `module_id` of the record that will be traced.
 * @param trace_level  4 fatal, 2 error, 0 info, 8 entry, 9 exit, 15 entry learnt, 16 entry removed,
 *                     27 state dump.
 * @param fn           Receives the function; left untouched where the level has none.
 */
void olv_lttng_fn_ptr_get(uint32_t module_id, uint32_t trace_level, olv_lttng_trace_fn *fn);

/**
 * Emit an error event without a record.
 * @param first_word  Free for the caller, 0 by convention.
 * @param line        Source line.
 * @param file        Source file name; not copied before the function returns.
 * @param format      printf format of the arguments that follow.
 */
void olv_lttng_trace_sif_force_error(uint32_t first_word, uint32_t line, const char *file, const char *format,
                                     ...);

#ifdef __cplusplus
}
#endif

#endif
