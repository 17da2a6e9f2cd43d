/* The platform in C. */
#include "olv_sim.h"

#include "hyx.h"
#include "platform_in_c.h"

#include <stddef.h>
#include <string.h>

#define REQUIRE(condition)                                                                                     \
    if (!(condition))                                                                                          \
    return #condition

static const char *use_records(const olv_sim_platform *platform)
{
    const olv_module_handle *module = olv_sim_platform_module(platform);
    uint32_t tree = 0;

    REQUIRE(module->magic == 0x53248791u);
    REQUIRE(module->module_id == 3);
    REQUIRE(strcmp(module->log_name, "twamp") == 0);
    REQUIRE(module->ctx == NULL);
    REQUIRE(module->system == olv_sim_platform_system(platform));
    REQUIRE(strcmp(module->system->log_name, "system") == 0);
    REQUIRE(olv_sim_platform_ipv4_module(platform)->module_id == 1);
    REQUIRE(olv_sim_platform_ipv6_module(platform)->module_id == 11);
    REQUIRE(olv_sys_sem_lock_wait(module->lock) == 0);
    REQUIRE(hyx_sem_post(module->lock) == 0);
    REQUIRE(hyx_ptn_symbol_get_id(module->rte_handle, "olv_twamp.twamp_responder_lookup", &tree) == 0);
    REQUIRE(tree == 0x104);
    return NULL;
}

static const char *use_bind_info(const olv_sim_platform *platform)
{
    static const uint32_t key = 6;
    olv_module_handle *source = olv_sim_platform_module(platform);
    olv_module_handle *destination = olv_sim_platform_ipv6_module(platform);
    const olv_bind_info info = olv_sim_make_bind_info(source, destination, &key);
    uint32_t entry_point = 0;

    REQUIRE(info.bind_type == 2);
    REQUIRE(info.bind_subtype == 0);
    REQUIRE(info.bind_path == 1);
    REQUIRE(info.src_module == source);
    REQUIRE(info.src_instance == &key);
    REQUIRE(info.src_location == 2);
    REQUIRE(info.dst_module == destination);
    REQUIRE(info.dst_location == 2);
    REQUIRE(info.custom_bind == 1);
    REQUIRE(moduleMgrCpuServiceFn[11].entry_point_lookup(destination, &info, &entry_point) == 0);
    REQUIRE(entry_point == 0x601);
    return NULL;
}

const char *use_platform_in_c(void)
{
    olv_sim_platform *platform = olv_sim_platform_create();
    const char *failed;

    REQUIRE(platform != NULL);
    failed = use_records(platform);
    if (failed == NULL)
        failed = use_bind_info(platform);
    olv_sim_platform_destroy(platform);
    return failed;
}
