// Binding the module's output to the IPv4 or the IPv6 module, and removing that binding.
#include "classifier_entry.hpp"
#include "module_call.hpp"

TWAMP_LOG_FILE(twamp_bind);

using namespace twamp;

namespace {

constexpr uint32_t custom_bind_type = 2;
constexpr uint32_t default_entry_point_subtype = 2;

/** What is asked for: the two operations are the same steps with statuses of their own. */
enum class bind_change : uint8_t { bind, unbind };

/** A request that passed the handle checks, and the call that it came with. */
struct bind_request {
    const module_call &call;
    const olv_bind_info &info;
    bind_change change;
};

uint32_t check_request(const bind_request &request)
{
    const auto &[call, info, change] = request;
    if (info.bind_path != OLV_BIND_PATH_DIRECT) {
        return TWAMP_FAIL(call, error, TWAMP_STATUS_INVALID_PARAM, "Only OLV_BIND_PATH_DIRECT is supported\n");
    }
    if (info.bind_type != custom_bind_type) {
        return TWAMP_FAIL(call, error, TWAMP_STATUS_INVALID_PARAM, "Unsupported Binding Type %d\n",
                          info.bind_type);
    }
    if (change == bind_change::bind && info.custom_bind == 0) {
        return TWAMP_FAIL(call, error, TWAMP_STATUS_INVALID_PARAM, "Only custom bind supported\n");
    }
    return OLV_STATUS_OK;
}

uint32_t find_entry_point(const bind_request &request, uint32_t *entry_point)
{
    const module_call &call = request.call;
    const olv_bind_info &info = request.info;
    olv_module_handle *const destination = info.dst_module;
    if (destination == nullptr) {
        return TWAMP_FAIL(call, error, TWAMP_STATUS_INVALID_PARAM, "Null Destination Module Pointer");
    }
    const olv_entry_point_lookup lookup = moduleMgrCpuServiceFn[destination->module_id].entry_point_lookup;
    if (lookup != nullptr && lookup(destination, &info, entry_point) != 0) {
        return TWAMP_FAIL(call, error, TWAMP_STATUS_NO_ENTRY_POINT,
                          "Failed to get Entry point function for destination module\n");
    }
    if (*entry_point == 0 && info.bind_subtype == default_entry_point_subtype) {
        *entry_point = destination->default_entry_point;
    }
    if (*entry_point == 0) {
        return TWAMP_FAIL(call, error, TWAMP_STATUS_NO_ENTRY_POINT,
                          "Invalid Entry point function found for destination module\n");
    }
    return OLV_STATUS_OK;
}

uint32_t check_destination(const bind_request &request)
{
    const uint32_t module_id = request.info.dst_module->module_id;
    if (module_id == OLV_MODULE_ID_IPV4 || module_id == OLV_MODULE_ID_IPV6) {
        return OLV_STATUS_OK;
    }
    return TWAMP_FAIL(request.call, error,
                      request.change == bind_change::bind ? OLV_STATUS_BIND_UNSUPPORTED
                                                          : TWAMP_STATUS_UNSUPPORTED_PAIR,
                      "Following is only supported bind combination\n"
                      " source module = TWAMP, destination module = IPV4\n"
                      " source module = TWAMP, destination module = IPV6\n");
}

uint32_t read_bind_key(const bind_request &request, uint32_t *key)
{
    if (request.info.src_instance == nullptr) {
        return TWAMP_FAIL(request.call, error, TWAMP_STATUS_INVALID_PARAM, "Null Source Instance Pointer");
    }
    *key = *static_cast<const uint32_t *>(request.info.src_instance);
    return OLV_STATUS_OK;
}

/** A pattern that failed. Unbind logs no status text and has one status for both steps. */
uint32_t pattern_refused(const bind_request &request, log_site site, uint32_t status, const char *text)
{
    if (request.change == bind_change::bind) {
        return report(request.call, site, status, text);
    }
    log_text(request.call, site, text);
    return TWAMP_STATUS_NO_MEMORY;
}

uint32_t learn(const module_call &call, classifier_entry &entry)
{
    if (const uint32_t rte = entry.learn(TWAMP_HERE(entry_learnt))) {
        return TWAMP_FAIL_RTE(
            call, TWAMP_STATUS_LEARN_FAILED, rte,
            "Failed to learn the tree entry, treeID = %d\nRTE error code:0x%x, error string: %s\n",
            entry.tree_id());
    }
    return OLV_STATUS_OK;
}

uint32_t unlearn(const module_call &call, classifier_entry &entry)
{
    if (const uint32_t rte = entry.unlearn(TWAMP_HERE(entry_removed))) {
        return TWAMP_FAIL_RTE(
            call, TWAMP_STATUS_UNLEARN_FAILED, rte,
            "Failed to unlearn the tree entry, treeID = %dRTE error code:0x%x, error string: %s\n",
            entry.tree_id());
    }
    return OLV_STATUS_OK;
}

TWAMP_HOT uint32_t change_tree(const bind_request &request, uint32_t key, uint32_t entry_point)
{
    classifier_entry entry(request.call, module_tree::bind, entry_point);
    if (entry.make_pattern() != 0) {
        return pattern_refused(request, TWAMP_HERE(error), TWAMP_STATUS_NO_MEMORY,
                               "Failed to allocate the pattern structure\n");
    }
    if (const uint32_t status = entry.add_key(key)) {
        return pattern_refused(request, TWAMP_HERE(error), as_module_status(status),
                               "Failed to extend the pattern structure\n");
    }
    return request.change == bind_change::bind ? learn(request.call, entry) : unlearn(request.call, entry);
}

TWAMP_HOT uint32_t apply(const bind_request &request)
{
    uint32_t entry_point = 0;
    uint32_t key = 0;
    if (const uint32_t status = check_request(request)) {
        return status;
    }
    if (const uint32_t status = find_entry_point(request, &entry_point)) {
        return status;
    }
    if (const uint32_t status = check_destination(request)) {
        return status;
    }
    if (const uint32_t status = read_bind_key(request, &key)) {
        return status;
    }
    return change_tree(request, key, entry_point);
}

/** The message that ends a bind or unbind. A failure is told whatever the levels, known as the handle is. */
uint32_t log_outcome(const log_context &log, log_site site, uint32_t status, const char *done,
                     const char *failed)
{
    if (status == OLV_STATUS_OK) {
        log_text(log, site, done);
    } else {
        log_unknown(site, failed);
    }
    return status;
}

/** Frame of bind and unbind: the module is the request's source. */
template <typename Work>
uint32_t run_on_source(const Work &work, const olv_system_handle *system, const olv_bind_info *info,
                       log_site site, const char *operation, const char *failed)
{
    if (info == nullptr) {
        // Bind's words for both.
        TWAMP_LOG_UNKNOWN_AT(site, "Invalid bind Info pointer0x%08x\n", address_word(info));
        log_unknown(site, "Failed to create Custom bind entry \n");
        return OLV_STATUS_NULL_BIND_INFO;
    }
    olv_module_handle *const module = info->src_module;
    if (!is_initialised(module) || system == nullptr) {
        return reject_module(site, module, failed);
    }
    return run_locked(work, {*module, system}, site, operation);
}

} // namespace

uint32_t olv_twamp_custom_bind(olv_system_handle *system, const olv_bind_info *info)
{
    const auto change = [=](const module_call &call) {
        return log_outcome(call, TWAMP_HERE(info), apply({call, *info, bind_change::bind}),
                           "Custom Bind Successfully done.\n", "Failed to perform custom binding.\n");
    };
    return run_on_source(change, system, info, TWAMP_HERE(error), __func__,
                         "Failed to create Custom bind entry \n");
}

uint32_t olv_twamp_custom_unbind(olv_system_handle *system, const olv_bind_info *info)
{
    const auto change = [=](const module_call &call) {
        return log_outcome(call, TWAMP_HERE(info), apply({call, *info, bind_change::unbind}),
                           "Custom Un Bind Successfully done.\n", "Failed to perform custom un binding.\n");
    };
    return run_on_source(change, system, info, TWAMP_HERE(error), __func__,
                         "Failed to remove Custom bind entry \n");
}
