#include "module_call.hpp"

namespace twamp {

uint32_t reject_module(log_site site, const olv_module_handle *module, const char *failed, const char *invalid)
{
    log_unknown(site, invalid, address_word(module));
    log_unknown(site, failed);
    return OLV_STATUS_INVALID_HANDLE;
}

} // namespace twamp
