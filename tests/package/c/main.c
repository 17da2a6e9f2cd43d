/* The life of the TWAMP module in a C program, on the software platform: one responder, bound to the IPv4
 * module and taken down again. */
#include <hyx.h>
#include <olv_sim.h>
#include <olv_twamp.h>

#include <inttypes.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>

static bool succeeded(const char *step, uint32_t status)
{
    if (status != OLV_STATUS_OK)
        fprintf(stderr, "%s: status 0x%" PRIX32 ": %s\n", step, status, olv_sys_status_get(NULL, status));
    return status == OLV_STATUS_OK;
}

static bool use_responder(olv_module_handle *module, twamp_responder_handle *responder,
                          const olv_bind_info *output)
{
    olv_twamp_responder_stats stats;

    if (!succeeded("bind", olv_twamp_custom_bind(module->system, output)) ||
        !succeeded("statistics", olv_twamp_responder_stats_get(module, responder, &stats)) ||
        !succeeded("unbind", olv_twamp_custom_unbind(module->system, output)))
        return false;
    printf("responder %" PRIu32 ": %" PRIu32 " received, %" PRIu32 " transmitted\n", responder->responder_id,
           stats.received, stats.transmitted);
    return true;
}

static bool use_module(olv_module_handle *module, olv_module_handle *destination)
{
    static const uint32_t bind_key = 4;
    const olv_bind_info output = olv_sim_make_bind_info(module, destination, &bind_key);
    const olv_twamp_responder_info info = {.param_a = 0, .param_b = 0};
    twamp_responder_handle *responder = NULL;
    bool good;

    if (!succeeded("create", olv_twamp_responder_create(module, &info, &responder)))
        return false;
    good = use_responder(module, responder, &output);
    good = succeeded("delete", olv_twamp_responder_delete(module, responder)) && good;
    hyx_nvm_free(responder);
    return good;
}

int main(void)
{
    olv_sim_platform *platform = olv_sim_platform_create();
    olv_module_handle *module = olv_sim_platform_module(platform);
    bool good = false;

    if (platform == NULL) {
        fprintf(stderr, "no platform\n");
    } else if (succeeded("init", olv_twamp_init(module))) {
        good = use_module(module, olv_sim_platform_ipv4_module(platform));
        good = succeeded("shutdown", olv_twamp_shutdown(module)) && good;
    }
    olv_sim_platform_destroy(platform);
    return good ? EXIT_SUCCESS : EXIT_FAILURE;
}
