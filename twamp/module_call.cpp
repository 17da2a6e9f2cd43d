#include "module_call.hpp"

namespace twamp {

uint32_t reject_module(log_site site, const olv_module_handle *module, const char *failed)
{
    log_unknown(site, "Invalid TWAMP module handle 0x%08x\n", address_word(module));
    log_unknown(site, failed);
    return OLV_STATUS_INVALID_HANDLE;
}

uint32_t acquire_lock(const log_context &log, log_site site, uint32_t lock)
{
    const uint32_t rte = lock != 0 ? olv_sys_sem_lock_wait(lock) : 0;
    if (rte == 0) {
        return OLV_STATUS_OK;
    }
    return log_failure(log, severity::error, site, TWAMP_STATUS_LOCK_FAILED,
                       " Failed to acquire lock, RTE error code: %d. %s\n", rte, hyx_status_get(rte));
}

uint32_t release_lock(const log_context &log, log_site site, uint32_t lock, uint32_t result)
{
    const uint32_t rte = lock != 0 ? hyx_sem_post(lock) : 0;
    if (rte == 0) {
        return result;
    }
    return log_failure(log, severity::error, site, TWAMP_STATUS_LOCK_FAILED,
                       " Failed to release lock, RTE error code: %d. %s\n", rte, hyx_status_get(rte));
}

void print_counter(const char *format, uint32_t value)
{
    if (value != 0) {
        std::printf(format, static_cast<int>(value));
    }
}

} // namespace twamp
