/* The platform as a C program uses it. */
#include "olv_sim.h"

olv_module_handle *module_seen_from_c(const olv_sim_platform *platform);

olv_module_handle *module_seen_from_c(const olv_sim_platform *platform)
{
    static const uint32_t key = 6;
    olv_module_handle *module = olv_sim_platform_module(platform);
    const olv_bind_info info = olv_sim_make_bind_info(module, olv_sim_platform_ipv6_module(platform), &key);
    const int good = info.src_instance == &key && info.dst_module->module_id == OLV_MODULE_ID_IPV6 &&
                     module->system == olv_sim_platform_system(platform) &&
                     olv_sim_platform_ipv4_module(platform)->module_id == OLV_MODULE_ID_IPV4;
    return good ? info.src_module : 0;
}
