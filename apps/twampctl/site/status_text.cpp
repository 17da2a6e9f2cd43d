#include "apps/twampctl/site/status_text.hpp"

#include <algorithm>
#include <array>

#include "apps/common/formatted.hpp"
#include "olv_sim/statuses.hpp"
#include "olv_twamp.h"

namespace twampctl {
namespace {

struct named_status {
    std::uint32_t status;
    std::string_view name;
};

#define OLV_NAMED(status)                                                                                      \
    named_status                                                                                               \
    {                                                                                                          \
        status, #status                                                                                        \
    }

using namespace olv_sim;

constexpr std::array names{
    OLV_NAMED(OLV_STATUS_OK),
    OLV_NAMED(OLV_STATUS_INVALID_HANDLE),
    OLV_NAMED(OLV_STATUS_NULL_BIND_INFO),
    OLV_NAMED(OLV_STATUS_BIND_UNSUPPORTED),
    OLV_NAMED(OLV_STATUS_BAD_LOG_LEVEL),
    OLV_NAMED(OLV_STATUS_DUMP_FAILED),
    OLV_NAMED(TWAMP_STATUS_INVALID_MODULE),
    OLV_NAMED(TWAMP_STATUS_INVALID_PARAM),
    OLV_NAMED(TWAMP_STATUS_UNSUPPORTED_PAIR),
    OLV_NAMED(TWAMP_STATUS_UNSUPPORTED_PATH),
    OLV_NAMED(TWAMP_STATUS_NO_ENTRY_POINT),
    OLV_NAMED(TWAMP_STATUS_NO_MEMORY),
    OLV_NAMED(TWAMP_STATUS_NAMESPACE_NOT_FOUND),
    OLV_NAMED(TWAMP_STATUS_INDEX_ALLOC_FAILED),
    OLV_NAMED(TWAMP_STATUS_INDEX_FREE_FAILED),
    OLV_NAMED(TWAMP_STATUS_STATE_READ_FAILED),
    OLV_NAMED(TWAMP_STATUS_STATE_WRITE_FAILED),
    OLV_NAMED(TWAMP_STATUS_TREE_ID_NOT_FOUND),
    OLV_NAMED(TWAMP_STATUS_LEARN_FAILED),
    OLV_NAMED(TWAMP_STATUS_UNLEARN_FAILED),
    OLV_NAMED(TWAMP_STATUS_DUMP_FAILED),
    OLV_NAMED(TWAMP_STATUS_LOCK_FAILED),
    OLV_NAMED(TWAMP_STATUS_STATS_CLEAR_FAILED),
    OLV_NAMED(framework_invalid_handle),
    OLV_NAMED(framework_null_pointer),
    OLV_NAMED(framework_not_registered),
    OLV_NAMED(framework_invalid_width),
    OLV_NAMED(framework_pattern_overflow),
    OLV_NAMED(framework_invalid_pattern),
    OLV_NAMED(framework_no_pattern),
    OLV_NAMED(framework_injected),
    OLV_NAMED(rte_invalid_instance),
    OLV_NAMED(rte_null_pointer),
    OLV_NAMED(rte_invalid_semaphore),
    OLV_NAMED(rte_semaphore_not_held),
    OLV_NAMED(rte_invalid_timer),
    OLV_NAMED(rte_no_such_namespace),
    OLV_NAMED(rte_namespace_exhausted),
    OLV_NAMED(rte_resource_not_allocated),
    OLV_NAMED(rte_no_such_tree),
    OLV_NAMED(rte_invalid_pattern),
    OLV_NAMED(rte_duplicate_entry),
    OLV_NAMED(rte_no_such_entry),
    OLV_NAMED(rte_no_such_state),
    OLV_NAMED(rte_state_length),
    OLV_NAMED(rte_invalid_count),
    OLV_NAMED(rte_injected),
};

#undef OLV_NAMED

} // namespace

std::string_view status_name(std::uint32_t status)
{
    const auto *found = std::find_if(names.begin(), names.end(),
                                     [status](const named_status &each) { return each.status == status; });
    return found == names.end() ? std::string_view{} : found->name;
}

std::string status_text(const olv_system_handle *system, std::uint32_t status)
{
    std::string text = olv_apps::formatted("status 0x%X", status);
    const std::string_view name = status_name(status);
    if (!name.empty()) {
        text.append(" ").append(name);
    }
    return text + ": " + olv_sys_status_get(system, status);
}

} // namespace twampctl
