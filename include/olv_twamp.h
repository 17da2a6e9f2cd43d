/**
 * @file olv_twamp.h
 * The exported interface of libolv-twamp: the TWAMP (RFC 5357) module of the packet-processing framework.
 *
 * The library prepares the network processor's fast path as a TWAMP session reflector and reads its
 * counters back. Packets never pass through it.
 *
 * Conventions of the ABI:
 *  1. Every operation is `extern "C"`, throws nothing and keeps no global state. Operations on one module
 *     may be called from several threads; the module's semaphore, if it has one, serialises their work.
 *     olv_twamp_init() and olv_twamp_shutdown() are not to run beside other operations of that module.
 *  2. Every status is a `uint32_t`; 0 is success. The module's own codes carry its number, 3, in bits
 *     16-19; 1, 8, 9, 15 and 0x7E carry none, and 0x1002C carries 1. The text of every status is the
 *     framework's (olv_sys_status_get()).
 *  3. The module handle is the framework's module record. It is valid when its magic is 0x53248791 and
 *     initialised from a successful olv_twamp_init() to olv_twamp_shutdown(). A handle that is not (for init:
 *     one that is not valid) is refused with a line or two on the console whatever the levels; no lock is
 *     taken and nothing changed. The status is 1, with three exceptions: olv_twamp_tables_dump() has another
 *     for what is no module record, the two prints return 0, and olv_twamp_map_sys_log() refuses no handle:
 *     its status depends on its other arguments alone.
 *  4. Unless an operation says otherwise it runs between an entry and an exit line under the module lock.
 *     #TWAMP_STATUS_LOCK_FAILED means one of two things. The lock was not taken: nothing was done, and there
 *     is no exit line. Or it was not released: that status takes the place of the work's own, and what the
 *     work did, or left when it failed, stays.
 *  5. All fields are unsigned 32-bit words in host byte order unless a comment says otherwise. What is
 *     written to the fast path is big-endian, except one word (twamp_responder_state::max_sessions).
 *  6. Requests passed in are only read, during the call. Of the module record, olv_twamp_sys_log() writes
 *     `log_flags`, init and shutdown write `ctx`. Records passed out are the caller's.
 *  7. Every failure goes to the tracer, and to the console under the log levels; most are followed by the
 *     framework's text of the status. Without that text, and shown whatever the levels, are the refusals of
 *     a handle, of a NULL bind request and of a table group, the line that ends a failed bind or unbind, and
 *     a failed olv_twamp_map_sys_log() with an unusable handle.
 */
#ifndef OLV_TWAMP_H
#define OLV_TWAMP_H

#include <stdint.h>

#include "olv.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Marks an exported operation. */
#if defined(__GNUC__)
#define OLV_TWAMP_API __attribute__((visibility("default")))
#else
#define OLV_TWAMP_API
#endif

/** Status codes of the module. */
enum {
    OLV_STATUS_OK = 0,               /**< Success; also init of a module that is initialised already. */
    OLV_STATUS_INVALID_HANDLE = 1,   /**< The module, responder or (bind, unbind) system handle is unusable. */
    OLV_STATUS_NULL_BIND_INFO = 8,   /**< Bind, unbind: the request is NULL. */
    OLV_STATUS_BIND_UNSUPPORTED = 9, /**< Bind: destination neither IPv4 nor IPv6. */
    OLV_STATUS_BAD_LOG_LEVEL = 15,   /**< Log level other than 0, 1, 3, 7, 15. */
    OLV_STATUS_DUMP_FAILED = 0x7E,   /**< A classifier tree could not be listed. */

    TWAMP_STATUS_INVALID_MODULE = 0x30001,   /**< Table dump: handle NULL or not a module record. */
    TWAMP_STATUS_INVALID_PARAM = 0x30008,    /**< NULL argument; unsupported bind or group. */
    TWAMP_STATUS_UNSUPPORTED_PAIR = 0x30009, /**< Unbind: destination neither IPv4 nor IPv6. */
    TWAMP_STATUS_UNSUPPORTED_PATH = 0x3000C, /**< IMC lookup: module on the CPU, or destination unknown. */
    TWAMP_STATUS_NO_ENTRY_POINT = 0x3000D,   /**< The destination module has no, or tells no, entry point. */
    TWAMP_STATUS_NO_MEMORY = 0x30012,        /**< No context or responder handle; bind, unbind: no pattern. */
    TWAMP_STATUS_NAMESPACE_NOT_FOUND = 0x30019, /**< Init: a namespace is missing. */
    TWAMP_STATUS_INDEX_ALLOC_FAILED = 0x3001D,  /**< No responder ID could be allocated. */
    TWAMP_STATUS_INDEX_FREE_FAILED = 0x3001E,   /**< A responder ID could not be returned. */
    TWAMP_STATUS_STATE_READ_FAILED = 0x3002B,   /**< Fast-path state could not be read. */
    TWAMP_STATUS_STATE_WRITE_FAILED = 0x3002C,  /**< Fast-path state could not be written. */
    TWAMP_STATUS_TREE_ID_NOT_FOUND = 0x3003F,   /**< Init: a tree function is missing. */
    TWAMP_STATUS_LEARN_FAILED = 0x30040,        /**< A classifier entry could not be learnt; delete: removed. */
    TWAMP_STATUS_UNLEARN_FAILED = 0x30041,      /**< Unbind: the classifier entry could not be removed. */
    TWAMP_STATUS_DUMP_FAILED = 0x3007E,         /**< Table dump: a tree could not be listed. */
    TWAMP_STATUS_LOCK_FAILED = 0x300A5,         /**< The module lock could not be taken or released. */
    TWAMP_STATUS_STATS_CLEAR_FAILED = 0x1002C   /**< Init: global statistics not cleared. Module number 1. */
};

/** The one supported value of olv_bind_info::bind_path. */
#define OLV_BIND_PATH_DIRECT 1u

/** Table groups of olv_twamp_tables_dump(): the responder lookup tree. */
#define OLV_TWAMP_TABLE_GROUP_RESPONDER 1u
/** The bind-to-next-module tree. */
#define OLV_TWAMP_TABLE_GROUP_BIND 2u
/** Both trees. */
#define OLV_TWAMP_TABLE_GROUP_ALL 3u

/** Request of olv_twamp_responder_create(). Owned by the caller. */
typedef struct olv_twamp_responder_info {
    uint16_t param_a; /**< Host order; goes to bytes 0-1 of the state entry. The fast path gives it meaning. */
    uint16_t param_b; /**< Host order; goes, with bit 31 set, to bytes 4-7 of the state entry. */
} olv_twamp_responder_info;

/**
 * A responder. Allocated by olv_twamp_responder_create(); from then on the caller's. It stays allocated
 * and unchanged when the responder is deleted: a caller that wants the memory back gives the record to
 * hyx_nvm_free() once nothing uses it.
 */
typedef struct twamp_responder_handle {
    uint32_t responder_id;     /**< 24-bit responder ID: state address and classifier key. */
    olv_module_handle *module; /**< The module that created it. Not compared in later calls. */
    uint32_t magic;            /**< 0x43215678 from the creation on, also after the deletion. */
    uint32_t reserved[2];      /**< Zero. */
} twamp_responder_handle;

/** Counters of one responder. The fast path counts in bytes 32-51 of the state entry, in another order. */
typedef struct olv_twamp_responder_stats {
    uint32_t received;          /**< Packets received. */
    uint32_t transmitted;       /**< Packets reflected. */
    uint32_t drop_length_check; /**< Packets dropped because the length check failed. */
    uint32_t active_sessions;   /**< Number of active sessions. */
    uint32_t drop_max_sessions; /**< Packets dropped because the maximum number of sessions was reached. */
} olv_twamp_responder_stats;

/** Counters of the whole module. The fast path keeps the same words, big-endian, in the same order. */
typedef struct olv_twamp_global_stats {
    uint32_t total_rx;          /**< Packets received. */
    uint32_t total_tx;          /**< Packets reflected. */
    uint32_t drop_no_responder; /**< Packets dropped because no responder is defined for them. */
    uint32_t drop_length_check; /**< Packets dropped because the length check failed. */
    uint32_t drop_hash_error;   /**< Packets dropped because of hash errors. */
    uint32_t drop_no_bind;      /**< Packets dropped because no output path is bound. */
} olv_twamp_global_stats;

/** The framework's bind request. Only read. Offsets are those of the 32-bit target. */
struct olv_bind_info {
    uint32_t bind_type;            /**< 0: binding type; only 2 is accepted. */
    uint32_t bind_subtype;         /**< 4: 2 allows the destination's default entry point. */
    uint32_t bind_path;            /**< 8: only #OLV_BIND_PATH_DIRECT is accepted. */
    olv_module_handle *src_module; /**< 12: this module's record. */
    const void *src_instance;      /**< 16: source instance; its first 32-bit word is the bind key. */
    uint32_t reserved_20;          /**< 20: the framework's. */
    uint32_t src_location;         /**< 24: where the source runs; 1 is the CPU. */
    olv_module_handle *dst_module; /**< 28: the destination module's record. */
    uint32_t reserved_32[2];       /**< 32: the framework's. */
    uint32_t dst_location;         /**< 40: where the destination runs; 1 is the CPU. */
    uint32_t reserved_44[3];       /**< 44: the framework's. */
    uint8_t custom_bind;           /**< 56: non-zero asks for a custom bind. Unbind does not look at it. */
};

/**
 * Tell whether a module is initialised.
 * Looks at nothing but the private context: the caller has made sure that @p module is a module record.
 * @param module  A module record, not NULL.
 * @return 1 when it is initialised, otherwise 0. Logs nothing, takes no lock.
 */
OLV_TWAMP_API uint32_t olv_twamp_valid_module_handle(const olv_module_handle *module);

/**
 * Initialise the module: allocate the private context, find the namespaces and tree functions of the
 * classifier program, register the service functions, clear the global statistics. Takes no lock.
 *
 * A failure leaves the module uninitialised. It frees the context, once there is one, and `ctx` still holds
 * the freed block's address. The service functions stay registered when only the clearing failed.
 *
 * @param module  The module record.
 * @return OLV_STATUS_OK, also for a module that is initialised already (nothing changes);
 *         OLV_STATUS_INVALID_HANDLE; TWAMP_STATUS_NO_MEMORY; TWAMP_STATUS_NAMESPACE_NOT_FOUND;
 *         TWAMP_STATUS_TREE_ID_NOT_FOUND; the framework's status of the registration with 3 in bits 16-19;
 *         TWAMP_STATUS_STATS_CLEAR_FAILED.
 */
OLV_TWAMP_API uint32_t olv_twamp_init(olv_module_handle *module);

/**
 * Shut the module down: withdraw the service functions, free the private context. Prints no entry or exit
 * line. Responders, binds and counters in the fast path stay as they are.
 *
 * @param module  The module record.
 * @return OLV_STATUS_OK; OLV_STATUS_INVALID_HANDLE; TWAMP_STATUS_LOCK_FAILED (lock not taken: still
 *         initialised; not released: shut down); the framework's status, unchanged, when it refuses the
 *         withdrawal: the module is shut down all the same.
 */
OLV_TWAMP_API uint32_t olv_twamp_shutdown(olv_module_handle *module);

/**
 * Hand the framework the service functions again. The slot of the tree function stays 0 here.
 * @param module  The module record.
 * @return OLV_STATUS_OK; OLV_STATUS_INVALID_HANDLE; TWAMP_STATUS_LOCK_FAILED; the framework's status,
 *         unchanged.
 */
OLV_TWAMP_API uint32_t olv_twamp_service_function_update(olv_module_handle *module);

/**
 * Set the module's log level. Replaces the whole log word: the bits above the level are cleared.
 * @param module  The module record.
 * @param level   0, 1, 3, 7 or 15.
 * @return OLV_STATUS_OK; OLV_STATUS_INVALID_HANDLE; TWAMP_STATUS_LOCK_FAILED; OLV_STATUS_BAD_LOG_LEVEL
 *         (the log word is unchanged).
 */
OLV_TWAMP_API uint32_t olv_twamp_sys_log(olv_module_handle *module, uint32_t level);

/**
 * Map a requested log level to the module's. Takes no lock, prints no entry or exit line. The handle is only
 * looked at to tell of a failure: through the module, or in one line without status text where it is unusable.
 * @param module  The module record; may be NULL.
 * @param level   0, 1, 3, 7 or 15, each mapped to itself.
 * @param mapped  Receives the mapped level; unchanged on failure.
 * @return OLV_STATUS_OK; OLV_STATUS_BAD_LOG_LEVEL; TWAMP_STATUS_INVALID_PARAM when @p mapped is NULL and the
 *         level is supported.
 */
OLV_TWAMP_API uint32_t olv_twamp_map_sys_log(olv_module_handle *module, uint32_t level, uint32_t *mapped);

/**
 * Create a responder: allocate its ID, write its state entry, learn its entry in the responder lookup tree.
 *
 * Work that fails undoes its steps in reverse order and leaves NULL in @p handle_slot; a state entry that
 * was written stays written, and the creation count stays raised from the allocation of the ID on. A record
 * that @p handle_slot holds when @p info is NULL is freed as if this call had allocated it.
 *
 * @param module  The module record.
 * @param info    The request.
 * @param handle_slot  Receives the handle, which the caller owns.
 * @return OLV_STATUS_OK; OLV_STATUS_INVALID_HANDLE and TWAMP_STATUS_LOCK_FAILED from taking the lock
 *         (@p handle_slot untouched); TWAMP_STATUS_INVALID_PARAM; TWAMP_STATUS_NO_MEMORY;
 *         TWAMP_STATUS_INDEX_ALLOC_FAILED; TWAMP_STATUS_STATE_WRITE_FAILED; the status of the framework's
 *         pattern call, unchanged; TWAMP_STATUS_LEARN_FAILED; TWAMP_STATUS_LOCK_FAILED from releasing the
 *         lock (the responder lives and @p handle_slot holds it, or the work had failed and it holds NULL).
 */
OLV_TWAMP_API uint32_t olv_twamp_responder_create(olv_module_handle *module,
                                                  const olv_twamp_responder_info *info,
                                                  twamp_responder_handle **handle_slot);

/**
 * Delete a responder: remove its entry from the responder lookup tree, return its ID, clear its state
 * entry. The record itself is neither freed nor changed. What a failing step leaves is not undone: before
 * the removal everything is kept; after it the ID or the state entry may be left.
 *
 * The handle is accepted again afterwards: a stale one deletes the responder that got its ID since.
 *
 * @param module     The module record. Not compared with the module that created the responder.
 * @param responder  The handle that the creation stored.
 * @return OLV_STATUS_OK; OLV_STATUS_INVALID_HANDLE; TWAMP_STATUS_LOCK_FAILED; the status of the framework's
 *         pattern call, unchanged; TWAMP_STATUS_LEARN_FAILED when the entry cannot be removed;
 *         TWAMP_STATUS_INDEX_FREE_FAILED; TWAMP_STATUS_STATE_WRITE_FAILED.
 */
OLV_TWAMP_API uint32_t olv_twamp_responder_delete(olv_module_handle *module, twamp_responder_handle *responder);

/**
 * Read a responder's counters. Clears nothing; the five values need not be one consistent snapshot.
 * @param module     The module record.
 * @param responder  The handle that the creation stored.
 * @param stats      Filled once the counters are read, also when only the release of the lock failed;
 *                   otherwise untouched.
 * @return OLV_STATUS_OK; OLV_STATUS_INVALID_HANDLE; TWAMP_STATUS_LOCK_FAILED; TWAMP_STATUS_INVALID_PARAM
 *         when @p stats is NULL; TWAMP_STATUS_STATE_READ_FAILED.
 */
OLV_TWAMP_API uint32_t olv_twamp_responder_stats_get(olv_module_handle *module,
                                                     twamp_responder_handle *responder,
                                                     olv_twamp_responder_stats *stats);

/**
 * Print a responder's non-zero counters to standard output, after olv_twamp_responder_stats_get(). Where that
 * fails nothing is printed but its messages.
 * @param module     The module record.
 * @param responder  The handle that the creation stored.
 * @return 0, always.
 */
OLV_TWAMP_API uint32_t olv_twamp_responder_stats_print(olv_module_handle *module,
                                                       twamp_responder_handle *responder);

/**
 * Service function: bind the module's output to the IPv4 or IPv6 module, by an entry in the bind tree keyed
 * by the low 24 bits of the source instance's first word. Nothing is stored in the module.
 * The destination's entry-point lookup is called with the module lock held; its `module_id` indexes
 * moduleMgrCpuServiceFn and has to be one that the framework knows.
 *
 * @param system  The system record: its log word is used, and it is asked for status texts. NULL is refused
 *                as an unusable handle.
 * @param info    The request; `src_module` is the module's record.
 * @return OLV_STATUS_OK; OLV_STATUS_NULL_BIND_INFO; OLV_STATUS_INVALID_HANDLE; TWAMP_STATUS_LOCK_FAILED;
 *         TWAMP_STATUS_INVALID_PARAM; TWAMP_STATUS_NO_ENTRY_POINT; OLV_STATUS_BIND_UNSUPPORTED;
 *         TWAMP_STATUS_NO_MEMORY; the status of the pattern's extension with 3 in bits 16-19;
 *         TWAMP_STATUS_LEARN_FAILED. A failed bind leaves the tree as it was, but for
 *         TWAMP_STATUS_LOCK_FAILED from releasing the lock after the entry was learnt, which stays.
 */
OLV_TWAMP_API uint32_t olv_twamp_custom_bind(olv_system_handle *system, const olv_bind_info *info);

/**
 * Service function: remove the entry that olv_twamp_custom_bind() learnt for the same request. The entry
 * point is asked for again. `custom_bind` is not looked at. A failure leaves the tree as with bind.
 *
 * @param system  As olv_twamp_custom_bind().
 * @param info    As olv_twamp_custom_bind(), with the same source instance.
 * @return OLV_STATUS_OK; OLV_STATUS_NULL_BIND_INFO; OLV_STATUS_INVALID_HANDLE; TWAMP_STATUS_LOCK_FAILED;
 *         TWAMP_STATUS_INVALID_PARAM; TWAMP_STATUS_NO_ENTRY_POINT; TWAMP_STATUS_UNSUPPORTED_PAIR;
 *         TWAMP_STATUS_NO_MEMORY when the pattern cannot be made or extended; TWAMP_STATUS_UNLEARN_FAILED.
 */
OLV_TWAMP_API uint32_t olv_twamp_custom_unbind(olv_system_handle *system, const olv_bind_info *info);

/**
 * Service function: the tree function through which the module calls the IPv4 or IPv6 module; the same ID
 * for both. Changes no state, prints no entry or exit line.
 * @param module  The module record.
 * @param info    The request: its locations and its destination are looked at.
 * @param imc     Receives the tree-function ID, also when only the release of the lock failed; otherwise
 *                untouched.
 * @return OLV_STATUS_OK; OLV_STATUS_INVALID_HANDLE; TWAMP_STATUS_LOCK_FAILED; TWAMP_STATUS_UNSUPPORTED_PATH;
 *         TWAMP_STATUS_INVALID_PARAM for a NULL pointer.
 */
OLV_TWAMP_API uint32_t olv_twamp_get_imc(olv_module_handle *module, const olv_bind_info *info, uint32_t *imc);

/**
 * Read the module's counters. Clears nothing; the six values need not be one consistent snapshot.
 * @param module  The module record.
 * @param stats   Filled once the counters are read, also when only the release of the lock failed. After a
 *                failed read: zeros, but for what the runtime environment wrote before it failed, which is
 *                not converted. Otherwise untouched.
 * @return OLV_STATUS_OK; OLV_STATUS_INVALID_HANDLE; TWAMP_STATUS_LOCK_FAILED; TWAMP_STATUS_INVALID_PARAM
 *         when @p stats is NULL; TWAMP_STATUS_STATE_READ_FAILED.
 */
OLV_TWAMP_API uint32_t olv_twamp_global_stats_get(olv_module_handle *module, olv_twamp_global_stats *stats);

/**
 * Print the module's non-zero counters to standard output, after olv_twamp_global_stats_get(). Where that
 * fails nothing is printed but its messages.
 * @param module  The module record.
 * @return 0, always.
 */
OLV_TWAMP_API uint32_t olv_twamp_global_stats_print(olv_module_handle *module);

/**
 * Print every entry of the module's classifier trees to standard output.
 * @param module       The module record.
 * @param table_group  OLV_TWAMP_TABLE_GROUP_RESPONDER, _BIND or _ALL.
 * @return OLV_STATUS_OK; TWAMP_STATUS_INVALID_MODULE for NULL or a record that is no module's;
 *         OLV_STATUS_INVALID_HANDLE for an uninitialised module; TWAMP_STATUS_LOCK_FAILED;
 *         TWAMP_STATUS_INVALID_PARAM; TWAMP_STATUS_DUMP_FAILED (what was printed stays printed).
 */
OLV_TWAMP_API uint32_t olv_twamp_tables_dump(olv_module_handle *module, uint32_t table_group);

/**
 * The walk of olv_twamp_tables_dump(), for a caller that holds the module lock and has checked the group.
 * Takes no lock; prints an entry line, and an exit line only when a tree could not be listed.
 * @param module       The module record.
 * @param table_group  The trees: bits of the groups above.
 * @return OLV_STATUS_OK; OLV_STATUS_DUMP_FAILED; OLV_STATUS_INVALID_HANDLE.
 */
OLV_TWAMP_API uint32_t olv_twamp_dump_tables(olv_module_handle *module, uint32_t table_group);

/**
 * Print one classifier entry of a tree that has a format of its own. Neither this nor the next two
 * operations take a lock or print entry and exit lines.
 * @param tree_index  0: as responder_entry_dump(); any other tree prints nothing.
 * @param pattern     The entry's pattern; NULL prints the column header.
 * @param action      The entry's action; may be NULL, see responder_entry_dump().
 */
OLV_TWAMP_API void olv_twamp_table_entry_dump(uint32_t tree_index, const olv_ptn *pattern,
                                              const olv_ptn_action *action);

/**
 * Callback of the walk, see #hyx_ptn_list_fn: print one line for one entry. Of the entries whose pattern's
 * third word is the tree's key width, 24, only the first in a walk has a line.
 * @param context  The walk's; nothing is printed where it is NULL.
 * @param unused   Not used.
 * @param pattern  The entry's pattern; nothing is printed where it is NULL.
 * @param action   The entry's action; NULL prints "!!Unexpected Return!!", except behind another mark.
 */
OLV_TWAMP_API void olv_twamp_table_entry_dump_fn(void *context, void *unused, const olv_ptn *pattern,
                                                 const olv_ptn_action *action);

/**
 * Print one entry of the responder lookup tree, without a newline. A key that is not 24 bits long is marked
 * "!!Unexpected Pattern!!", one that cannot be read "!!Parse Error!!"; no action is looked at then.
 * @param pattern  The entry's pattern; NULL prints the column header.
 * @param action   The entry's action; NULL prints "!!Unexpected Return!!", except behind another mark.
 * @return The count returned by the last printf.
 */
OLV_TWAMP_API int responder_entry_dump(const olv_ptn *pattern, const olv_ptn_action *action);

#ifdef __cplusplus
}
#endif

#endif
