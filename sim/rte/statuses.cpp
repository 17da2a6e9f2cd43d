// Texts of the RTE statuses.
#include "olv_sim/statuses.hpp"
#include "olv_sim/calls.hpp"
#include "sim/faults/platform_call.hpp"

using namespace olv_sim;

namespace {

const char *status_text(std::uint32_t status)
{
    switch (status) {
    case rte_ok:
        return "Success";
    case rte_invalid_instance:
        return "No such RTE instance";
    case rte_null_pointer:
        return "Pointer is NULL";
    case rte_invalid_semaphore:
        return "No such semaphore";
    case rte_semaphore_not_held:
        return "Semaphore is not held";
    case rte_invalid_timer:
        return "No such timer";
    case rte_no_such_namespace:
        return "No such namespace";
    case rte_namespace_exhausted:
        return "Namespace is exhausted";
    case rte_resource_not_allocated:
        return "Resource is not allocated";
    case rte_no_such_tree:
        return "No such tree";
    case rte_invalid_pattern:
        return "Invalid pattern";
    case rte_duplicate_entry:
        return "Entry exists already";
    case rte_no_such_entry:
        return "No such entry";
    case rte_no_such_state:
        return "No such state entry";
    case rte_state_length:
        return "Length does not fit the state entry";
    case rte_invalid_count:
        return "Invalid count";
    case rte_injected:
        return "Injected fault";
    default:
        return "Unknown RTE error";
    }
}

} // namespace

const char *hyx_status_get(std::uint32_t status)
{
    return plain_call(
        call::hyx_status_get, [&](argument_text &text) { text.hex("status", status); },
        [&] { return status_text(status); });
}
