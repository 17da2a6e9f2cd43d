// Texts of the framework statuses.
#include "olv_sim/statuses.hpp"
#include "olv_sim/calls.hpp"
#include "olv_twamp.h"
#include "sim/faults/platform_call.hpp"

using namespace olv_sim;

namespace {

const char *status_text(std::uint32_t status)
{
    switch (status) {
    case OLV_STATUS_OK:
        return "Success";
    case OLV_STATUS_INVALID_HANDLE:
        return "Invalid handle";
    case OLV_STATUS_NULL_BIND_INFO:
        return "No bind information";
    case OLV_STATUS_BIND_UNSUPPORTED:
        return "Bind to this module is not supported";
    case OLV_STATUS_BAD_LOG_LEVEL:
        return "Invalid log level";
    case OLV_STATUS_DUMP_FAILED:
        return "Tree could not be listed";
    case TWAMP_STATUS_INVALID_MODULE:
        return "TWAMP: invalid module handle";
    case TWAMP_STATUS_INVALID_PARAM:
        return "TWAMP: invalid parameter";
    case TWAMP_STATUS_UNSUPPORTED_PAIR:
        return "TWAMP: unsupported pair of modules";
    case TWAMP_STATUS_UNSUPPORTED_PATH:
        return "TWAMP: unsupported path";
    case TWAMP_STATUS_NO_ENTRY_POINT:
        return "TWAMP: destination has no entry point";
    case TWAMP_STATUS_NO_MEMORY:
        return "TWAMP: out of memory";
    case TWAMP_STATUS_NAMESPACE_NOT_FOUND:
        return "TWAMP: namespace not found";
    case TWAMP_STATUS_INDEX_ALLOC_FAILED:
        return "TWAMP: responder ID could not be allocated";
    case TWAMP_STATUS_INDEX_FREE_FAILED:
        return "TWAMP: responder ID could not be freed";
    case TWAMP_STATUS_STATE_READ_FAILED:
        return "TWAMP: state could not be read";
    case TWAMP_STATUS_STATE_WRITE_FAILED:
        return "TWAMP: state could not be written";
    case TWAMP_STATUS_TREE_ID_NOT_FOUND:
        return "TWAMP: tree function not found";
    case TWAMP_STATUS_LEARN_FAILED:
        return "TWAMP: entry could not be learnt or removed";
    case TWAMP_STATUS_UNLEARN_FAILED:
        return "TWAMP: bind entry could not be removed";
    case TWAMP_STATUS_DUMP_FAILED:
        return "TWAMP: tables could not be dumped";
    case TWAMP_STATUS_LOCK_FAILED:
        return "TWAMP: lock could not be taken or released";
    case TWAMP_STATUS_STATS_CLEAR_FAILED:
        return "Statistics could not be cleared";
    case framework_invalid_handle:
        return "Framework: not a module or system record";
    case framework_null_pointer:
        return "Framework: pointer is NULL";
    case framework_not_registered:
        return "Framework: service functions not registered";
    case framework_invalid_width:
        return "Framework: invalid pattern or field width";
    case framework_pattern_overflow:
        return "Framework: pattern extended beyond its width";
    case framework_invalid_pattern:
        return "Framework: invalid pattern";
    case framework_no_pattern:
        return "Framework: no pattern left";
    case framework_injected:
        return "Framework: injected fault";
    default:
        return "Unknown status";
    }
}

} // namespace

const char *olv_sys_status_get(const olv_system_handle *system, std::uint32_t status)
{
    return plain_call(
        call::olv_sys_status_get,
        [&](argument_text &text) {
            text.text("system", system != nullptr ? system->log_name : nullptr).hex("status", status);
        },
        [&] { return status_text(status); });
}
