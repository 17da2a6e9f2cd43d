/**
 * @file hyx.h
 * The network processor's runtime environment ("RTE") as a module sees it: memory, semaphores, time,
 * namespaces, classifier trees, state memory and byte order.
 *
 * Conventions:
 *  - Functions that return a `uint32_t` status return 0 on success and an RTE error code otherwise, whose
 *    text comes from hyx_status_get(). A call that fails writes nothing through its pointers, except where
 *    its comment says otherwise.
 *  - `rte_handle` names one instance of the runtime environment (one processor); it stands in the module
 *    record. Namespace handles and semaphores are unique across instances.
 *  - Bytes in state memory are the fast path's and big-endian unless the owner of the entry says otherwise.
 *  - Buffers and records are only used during the call.
 *
 * The symbols come from the process that loads a module; no module defines them.
 */
#ifndef HYX_H
#define HYX_H

#include <stdint.h>

#include "olv.h"

#ifdef __cplusplus
extern "C" {
#endif

/** A wall-clock instant. */
typedef struct hyx_time {
    unsigned long seconds;      /**< Seconds since 1970. */
    unsigned long microseconds; /**< 0 to 999,999. */
} hyx_time;

/**
 * Receives one entry of a classifier tree.
 * @param context  The context given to hyx_ptn_list_ptns().
 * @param unused   Not used; NULL.
 * @param pattern  The entry's pattern, valid during the call.
 * @param action   The entry's action, valid during the call.
 */
typedef void (*hyx_ptn_list_fn)(void *context, void *unused, const olv_ptn *pattern,
                                const olv_ptn_action *action);

/**
 * Allocate zeroed memory, aligned for any type.
 * @param count  Elements.
 * @param size   Bytes of each.
 * @return The block, to be given back with hyx_nvm_free(), or NULL.
 */
void *hyx_nvm_calloc(uint32_t count, uint32_t size);

/**
 * Give back memory. It stays mapped, its content is undefined.
 * @param block  From hyx_nvm_calloc().
 */
void hyx_nvm_free(void *block);

/**
 * Release a semaphore.
 * @param semaphore  Taken with olv_sys_sem_lock_wait().
 * @return RTE status.
 */
uint32_t hyx_sem_post(uint32_t semaphore);

/**
 * Text of an RTE status.
 * @param status  An RTE status, known or not.
 * @return A static text without a newline, never NULL.
 */
const char *hyx_status_get(uint32_t status);

/**
 * Read the wall clock.
 * @param now  Receives the instant.
 */
void hyx_gettime(hyx_time *now);

/**
 * Read a timer of the processor.
 * @param rte_handle  The instance of the runtime environment.
 * @param timer       Timer number; 0 is the free-running one.
 * @param timestamp   Receives the timer's value in ticks.
 * @return RTE status.
 */
uint32_t hyx_timer_get_timestamp(uint32_t rte_handle, uint32_t timer, uint64_t *timestamp);

/**
 * Find a namespace by name.
 * @param rte_handle        The instance of the runtime environment.
 * @param unused            0.
 * @param name              The namespace's, as the classifier program has it.
 * @param namespace_handle  Receives the handle.
 * @return RTE status.
 */
uint32_t hyx_rsrc_find(uint32_t rte_handle, uint32_t unused, const char *name, uint32_t *namespace_handle);

/**
 * Allocate @p count consecutive resources from a namespace.
 * @param namespace_handle  From hyx_rsrc_find().
 * @param count             How many.
 * @param resource          Receives the value of the first one.
 * @return RTE status.
 */
uint32_t hyx_rsrc_allocate(uint32_t namespace_handle, uint32_t count, uint32_t *resource);

/**
 * Return @p count consecutive resources to their namespace.
 * @param namespace_handle  From hyx_rsrc_find().
 * @param resource          Value of the first one.
 * @param count             How many.
 * @return RTE status; nothing is freed then.
 */
uint32_t hyx_rsrc_free(uint32_t namespace_handle, uint32_t resource, uint32_t count);

/**
 * Find the ID of a tree function of the classifier program.
 * @param rte_handle     The instance of the runtime environment.
 * @param tree_function  Name, such as "module.function".
 * @param tree_id        Receives the ID.
 * @return RTE status.
 */
uint32_t hyx_ptn_symbol_get_id(uint32_t rte_handle, const char *tree_function, uint32_t *tree_id);

/**
 * Add an entry to a classifier tree. Both records are only read.
 * @param rte_handle  The instance of the runtime environment.
 * @param tree_id     From hyx_ptn_symbol_get_id().
 * @param pattern     The entry's key.
 * @param action      What the tree returns for the key.
 * @return RTE status; the tree is then unchanged.
 */
uint32_t hyx_ptn_learn(uint32_t rte_handle, uint32_t tree_id, olv_ptn *pattern, olv_ptn_action *action);

/**
 * Remove the entry with this key from a classifier tree. Both records are only read.
 * @param rte_handle  The instance of the runtime environment.
 * @param tree_id     From hyx_ptn_symbol_get_id().
 * @param pattern     The entry's key.
 * @param key_bits    Key width of the entry.
 * @param action      The entry's action.
 * @param count       Number of entries, 1.
 * @return RTE status; the tree is then unchanged.
 */
uint32_t hyx_ptn_unlearn(uint32_t rte_handle, uint32_t tree_id, olv_ptn *pattern, uint32_t key_bits,
                         olv_ptn_action *action, uint32_t count);

/**
 * Call back once for every entry of a tree, in the calling thread.
 * @param rte_handle  The instance of the runtime environment.
 * @param tree_id     From hyx_ptn_symbol_get_id().
 * @param callback    Called with each entry.
 * @param context     Handed to the callback.
 * @return RTE status; entries may have been listed before a failure.
 */
uint32_t hyx_ptn_list_ptns(uint32_t rte_handle, uint32_t tree_id, hyx_ptn_list_fn callback, void *context);

/**
 * Write to the start of a state entry.
 * @param rte_handle    The instance of the runtime environment.
 * @param namespace_id  Responder ID, or the ID of a block that the program has.
 * @param index         Of the entry, 0.
 * @param bytes         What to write, as it is to stand there.
 * @param length        Bytes to write, at most those of the entry.
 * @return RTE status.
 */
uint32_t hyx_se_state_set(uint32_t rte_handle, uint32_t namespace_id, uint32_t index, const void *bytes,
                          uint32_t length);

/**
 * Read from the start of a state entry. The fast path may change it at any time: words are whole, the entry
 * is no snapshot.
 * @param rte_handle    The instance of the runtime environment.
 * @param namespace_id  As hyx_se_state_set().
 * @param index         As hyx_se_state_set().
 * @param bytes         Receives the bytes as they stand there.
 * @param length        Bytes to read, at most those of the entry.
 * @return RTE status.
 */
uint32_t hyx_se_state_get(uint32_t rte_handle, uint32_t namespace_id, uint32_t index, void *bytes,
                          uint32_t length);

/**
 * 16-bit host to fast-path byte order.
 * @param host  In host byte order.
 * @return In network byte order: big-endian.
 */
uint16_t hyx_htons(uint16_t host);
/**
 * 32-bit host to fast-path byte order.
 * @param host  In host byte order.
 * @return In network byte order: big-endian.
 */
uint32_t hyx_htonl(uint32_t host);
/**
 * 32-bit fast-path to host byte order.
 * @param network  In network byte order: big-endian.
 * @return In host byte order.
 */
uint32_t hyx_ntohl(uint32_t network);

#ifdef __cplusplus
}
#endif

#endif
