#include "module_call.hpp"

#include "hyx.h"

namespace twamp {

bool is_initialised(const olv_module_handle *module)
{
    return is_module(module) && has_context(*module);
}

uint32_t reject_module(log_site site, const olv_module_handle *module, const char *failed, const char *invalid)
{
    log_unknown(site, invalid, address_word(module));
    log_unknown(site, failed);
    return OLV_STATUS_INVALID_HANDLE;
}

uint32_t run_locked(const operation_work &work, olv_module_handle &module, const olv_system_handle *system,
                    log_site site, const char *operation)
{
    const module_call call(module, system);
    const uint32_t lock = module.lock;
    if (operation != untraced) {
        log_function(call, site.as(severity::entry), operation);
    }
    if (const uint32_t rte = lock != 0 ? olv_sys_sem_lock_wait(lock) : 0) {
        return TWAMP_FAIL_RTE_AT(call, site, TWAMP_STATUS_LOCK_FAILED, rte,
                                 " Failed to acquire lock, RTE error code: %d. %s\n");
    }
    uint32_t status = work(call);
    if (const uint32_t rte = lock != 0 ? hyx_sem_post(lock) : 0) {
        status = TWAMP_FAIL_RTE_AT(call, site, TWAMP_STATUS_LOCK_FAILED, rte,
                                   " Failed to release lock, RTE error code: %d. %s\n");
    }
    if (operation != untraced) {
        log_function(call, site.as(severity::exit), operation);
    }
    return status;
}

uint32_t run(const operation_work &work, olv_module_handle *module, log_site site, const char *operation,
             const char *failed)
{
    if (!is_initialised(module)) {
        return reject_module(site, module, failed);
    }
    return run_locked(work, *module, module->system, site, operation);
}

} // namespace twamp
