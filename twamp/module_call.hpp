// The frame that every exported operation has in common: handle check, entry line, module lock, work, unlock,
// exit line, status.
#ifndef TWAMP_MODULE_CALL_HPP
#define TWAMP_MODULE_CALL_HPP

#include "hyx.h"
#include "log.hpp"
#include "olv_twamp.h"
#include "twamp_ctx.hpp"

namespace twamp {

inline bool is_module(const olv_module_handle *module)
{
    return module != nullptr && module->magic == OLV_MODULE_MAGIC;
}

inline bool is_initialised(const olv_module_handle *module)
{
    return is_module(module) && olv_twamp_valid_module_handle(module) != 0;
}

inline bool is_responder(const twamp_responder_handle *responder)
{
    return responder != nullptr && responder->magic == responder_magic;
}

/** A status of a callee, re-tagged as this module's. */
constexpr uint32_t as_module_status(uint32_t status)
{
    return (status & ~0xF0000u) | 0x30000u;
}

/** Refuse an unusable module handle. @param failed  What could not be done. */
uint32_t reject_module(log_site site, const olv_module_handle *module, const char *failed);

/** Takes the module lock, where there is one. @return OLV_STATUS_OK or TWAMP_STATUS_LOCK_FAILED. */
uint32_t acquire_lock(const log_context &log, log_site site, uint32_t lock);

/** Releases it. @return @p result, or TWAMP_STATUS_LOCK_FAILED in its place. */
uint32_t release_lock(const log_context &log, log_site site, uint32_t lock, uint32_t result);

/** Work under the module lock. Without the lock there is no work. */
template <typename Work>
uint32_t with_module_lock(const log_context &log, log_site site, uint32_t lock, Work work)
{
    if (const uint32_t status = acquire_lock(log, site, lock)) {
        return status;
    }
    return release_lock(log, site, lock, work());
}

/** Work under the module lock, between entry and exit line. Without the lock there is no exit line either. */
template <typename Work>
uint32_t module_call(const log_context &log, log_site site, const char *operation, uint32_t lock, Work work)
{
    log_function(log, severity::entry, site, operation);
    if (const uint32_t status = acquire_lock(log, site, lock)) {
        return status;
    }
    const uint32_t status = release_lock(log, site, lock, work());
    log_function(log, severity::exit, site, operation);
    return status;
}

/** Print a counter unless it is zero. Counters from 2^31 on print negative, as the formats have it. */
void print_counter(const char *format, uint32_t value);

} // namespace twamp

#endif
