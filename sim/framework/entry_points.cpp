#include "sim/framework/entry_points.hpp"

#include "olv_sim/calls.hpp"
#include "olv_sim/framework.hpp"
#include "olv_sim/statuses.hpp"
#include "olv_twamp.h"
#include "sim/faults/platform_call.hpp"
#include "sim/process_wide.hpp"

olv_cpu_service_functions moduleMgrCpuServiceFn[olv_sim::module_id_limit] = {};

namespace olv_sim::entry_points {
namespace {

struct users {
    unsigned count = 0;
};

std::uint32_t answer(olv_module_handle *module, const olv_bind_info *info, std::uint32_t *entry_point,
                     std::uint32_t value)
{
    return status_call(
        call::entry_point_lookup,
        [&](argument_text &text) {
            if (module == nullptr) {
                text.text("module", nullptr);
            } else {
                text.number("module", module->module_id);
            }
        },
        [&]() -> std::uint32_t {
            if (module == nullptr || module->magic != OLV_MODULE_MAGIC) {
                return framework_invalid_handle;
            }
            if (info == nullptr || entry_point == nullptr) {
                return framework_null_pointer;
            }
            *entry_point = value;
            return OLV_STATUS_OK;
        });
}

std::uint32_t lookup_ipv4(olv_module_handle *module, const olv_bind_info *info, std::uint32_t *entry_point)
{
    return answer(module, info, entry_point, entry_point_ipv4);
}

std::uint32_t lookup_ipv6(olv_module_handle *module, const olv_bind_info *info, std::uint32_t *entry_point)
{
    return answer(module, info, entry_point, entry_point_ipv6);
}

} // namespace

void install()
{
    const locked<users> all;
    if (all->count++ == 0) {
        moduleMgrCpuServiceFn[OLV_MODULE_ID_IPV4].entry_point_lookup = lookup_ipv4;
        moduleMgrCpuServiceFn[OLV_MODULE_ID_IPV6].entry_point_lookup = lookup_ipv6;
    }
}

void remove()
{
    const locked<users> all;
    if (--all->count == 0) {
        moduleMgrCpuServiceFn[OLV_MODULE_ID_IPV4] = {};
        moduleMgrCpuServiceFn[OLV_MODULE_ID_IPV6] = {};
    }
}

} // namespace olv_sim::entry_points
