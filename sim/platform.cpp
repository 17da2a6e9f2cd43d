// The platform of olv_sim.h, made from the parts in olv_sim/.
#include "olv_sim.h"

#include "olv_sim/framework.hpp"
#include "olv_sim/processor.hpp"

struct olv_sim_platform {
    olv_sim::processor processor{olv_sim::classifier_program::twamp()};
    olv_sim::framework framework;
    olv_module_handle *module =
        framework.create_module({.module_id = olv_sim::module_id_twamp, .processor = &processor});
};

olv_sim_platform *olv_sim_platform_create()
{
    try {
        return new olv_sim_platform;
    } catch (...) { // C callers cannot catch; whatever it was, there is no platform
        return nullptr;
    }
}

void olv_sim_platform_destroy(olv_sim_platform *platform)
{
    delete platform;
}

olv_module_handle *olv_sim_platform_module(const olv_sim_platform *platform)
{
    return platform == nullptr ? nullptr : platform->module;
}

olv_system_handle *olv_sim_platform_system(const olv_sim_platform *platform)
{
    return platform == nullptr ? nullptr : platform->framework.system();
}

olv_module_handle *olv_sim_platform_ipv4_module(const olv_sim_platform *platform)
{
    return platform == nullptr ? nullptr : platform->framework.ipv4_module();
}

olv_module_handle *olv_sim_platform_ipv6_module(const olv_sim_platform *platform)
{
    return platform == nullptr ? nullptr : platform->framework.ipv6_module();
}

olv_bind_info olv_sim_make_bind_info(olv_module_handle *source, olv_module_handle *destination,
                                     const uint32_t *bind_key)
{
    return olv_sim::make_bind_info(source, destination, bind_key);
}
