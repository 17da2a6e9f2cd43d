// The frame that every exported operation has in common: handle check, entry line, module lock, work, unlock,
// exit line, status.
#ifndef TWAMP_MODULE_CALL_HPP
#define TWAMP_MODULE_CALL_HPP

#include "hyx.h"
#include "log.hpp"
#include "olv_twamp.h"
#include "twamp_ctx.hpp"

namespace twamp {

/** Whether init completed on this module record and shutdown has not begun. */
inline bool has_context(const olv_module_handle &module)
{
    return module.ctx != nullptr && module.ctx->magic == ctx_magic;
}

inline bool is_module(const olv_module_handle *module)
{
    return module != nullptr && module->magic == OLV_MODULE_MAGIC;
}

/** Whether an operation can work on this handle. */
inline bool is_initialised(const olv_module_handle *module)
{
    return is_module(module) && has_context(*module);
}

/** A status of a callee, re-tagged as this module's. */
constexpr uint32_t as_module_status(uint32_t status)
{
    return (status & ~0xF0000u) | 0x30000u;
}

/** Operation without entry and exit line. */
inline constexpr const char *untraced = nullptr;

/** A call in progress: the module it works on with its lock, and what its messages are logged through. */
struct module_call : log_context {
    /** @param system  Logged through beside the module; may be NULL. */
    module_call(olv_module_handle &called, const olv_system_handle *system)
        : log_context(called, system), module(called), lock(called.lock)
    {}

    olv_module_handle &module;
    const uint32_t lock;
};

/** @return RTE status; OLV_STATUS_OK where a module has no lock. */
inline uint32_t acquire(uint32_t lock)
{
    if (lock == 0) [[unlikely]] {
        return OLV_STATUS_OK;
    }
    return olv_sys_sem_lock_wait(lock);
}

/** As acquire(). */
inline uint32_t release(uint32_t lock)
{
    if (lock == 0) [[unlikely]] {
        return OLV_STATUS_OK;
    }
    return hyx_sem_post(lock);
}

/** Entry line and lock. @return OLV_STATUS_OK with the lock held. */
TWAMP_HOT uint32_t enter(const module_call &call, log_site site, const char *operation)
{
    if (operation != untraced) {
        log_function(call, site.as(severity::entry), operation);
    }
    if (const uint32_t rte = acquire(call.lock)) {
        return TWAMP_FAIL_RTE_AT(call, site, TWAMP_STATUS_LOCK_FAILED, rte,
                                 " Failed to acquire lock, RTE error code: %d. %s\n");
    }
    return OLV_STATUS_OK;
}

/** Unlock and exit line. @return The work's status; that of a failed release takes its place. */
TWAMP_HOT uint32_t leave(const module_call &call, log_site site, const char *operation, uint32_t status)
{
    if (const uint32_t rte = release(call.lock)) {
        status = TWAMP_FAIL_RTE_AT(call, site, TWAMP_STATUS_LOCK_FAILED, rte,
                                   " Failed to release lock, RTE error code: %d. %s\n");
    }
    if (operation != untraced) {
        log_function(call, site.as(severity::exit), operation);
    }
    return status;
}

/**
 * Entry line, module lock, work, unlock, exit line. Without the lock there is neither work nor exit line.
 * @param work       What the operation does under the lock: a status from its module_call.
 * @param operation  Exported name, or `untraced`.
 */
template <typename Work>
uint32_t run_locked(const Work &work, const module_call &call, log_site site, const char *operation)
{
    if (const uint32_t status = enter(call, site, operation)) {
        return status;
    }
    return leave(call, site, operation, work(call));
}

inline constexpr const char *invalid_module = "Invalid TWAMP module handle 0x%08x\n";

/**
 * Refuse an unusable module handle.
 * @param failed   What could not be done.
 * @param invalid  Format of the line with the handle's address.
 */
[[gnu::cold]] uint32_t reject_module(log_site site, const olv_module_handle *module, const char *failed,
                                     const char *invalid = invalid_module);

/** @return OLV_STATUS_OK for a module that an operation can work on; others are refused. */
TWAMP_HOT uint32_t check_module(log_site site, const olv_module_handle *module, const char *failed)
{
    if (!is_initialised(module)) {
        return reject_module(site, module, failed);
    }
    return OLV_STATUS_OK;
}

/** The whole frame: handle check, then the locked work. */
template <typename Work>
uint32_t run(const Work &work, olv_module_handle *module, log_site site, const char *operation,
             const char *failed)
{
    if (const uint32_t status = check_module(site, module, failed)) {
        return status;
    }
    return run_locked(work, {*module, module->system}, site, operation);
}

} // namespace twamp

#endif
