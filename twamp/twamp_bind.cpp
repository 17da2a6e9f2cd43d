// Binding the module's output to the IPv4 or the IPv6 module, and removing that binding.
#include <cstdio>

#include "classifier_entry.hpp"
#include "module_call.hpp"

TWAMP_LOG_FILE("twamp_bind.c");

using namespace twamp;

namespace {

constexpr uint32_t custom_bind_type = 2;
constexpr uint32_t default_entry_point_subtype = 2;
/** Word 0 of a bind's action: hand on to the entry point in word 1. */
constexpr uint32_t bound = 1;

/** A bind or unbind request that passed the handle checks. */
struct bind_request {
    const olv_bind_info &info;
    const olv_module_handle &module;
    const log_context &log;
};

uint32_t check_path_and_type(const bind_request &request)
{
    if (request.info.bind_path != OLV_BIND_PATH_DIRECT) {
        return TWAMP_FAIL(request.log, severity::error, TWAMP_STATUS_INVALID_PARAM,
                          "Only OLV_BIND_PATH_DIRECT is supported\n");
    }
    if (request.info.bind_type != custom_bind_type) {
        return TWAMP_FAIL(request.log, severity::error, TWAMP_STATUS_INVALID_PARAM,
                          "Unsupported Binding Type %d\n", request.info.bind_type);
    }
    return OLV_STATUS_OK;
}

uint32_t find_entry_point(const bind_request &request, uint32_t *entry_point)
{
    olv_module_handle *const destination = request.info.dst_module;
    if (destination == nullptr) {
        return TWAMP_FAIL(request.log, severity::error, TWAMP_STATUS_INVALID_PARAM,
                          "Null Destination Module Pointer");
    }
    const olv_entry_point_lookup lookup = moduleMgrCpuServiceFn[destination->module_id].entry_point_lookup;
    if (lookup != nullptr && lookup(destination, &request.info, entry_point) != 0) {
        return TWAMP_FAIL(request.log, severity::error, TWAMP_STATUS_NO_ENTRY_POINT,
                          "Failed to get Entry point function for destination module\n");
    }
    if (*entry_point == 0 && request.info.bind_subtype == default_entry_point_subtype) {
        *entry_point = destination->default_entry_point;
    }
    if (*entry_point == 0) {
        return TWAMP_FAIL(request.log, severity::error, TWAMP_STATUS_NO_ENTRY_POINT,
                          "Invalid Entry point function found for destination module\n");
    }
    return OLV_STATUS_OK;
}

/** Bind and unbind refuse a destination with statuses of their own. */
uint32_t check_destination(const bind_request &request, uint32_t unsupported)
{
    const uint32_t module_id = request.info.dst_module->module_id;
    if (module_id == OLV_MODULE_ID_IPV4 || module_id == OLV_MODULE_ID_IPV6) {
        return OLV_STATUS_OK;
    }
    return TWAMP_FAIL(request.log, severity::error, unsupported,
                      "Following is only supported bind combination\n"
                      " source module = TWAMP, destination module = IPV4\n"
                      " source module = TWAMP, destination module = IPV6\n");
}

uint32_t read_bind_key(const bind_request &request, uint32_t *key)
{
    if (request.info.src_instance == nullptr) {
        return TWAMP_FAIL(request.log, severity::error, TWAMP_STATUS_INVALID_PARAM,
                          "Null Source Instance Pointer");
    }
    *key = *static_cast<const uint32_t *>(request.info.src_instance);
    return OLV_STATUS_OK;
}

classifier_tree bind_tree(const olv_module_handle &module)
{
    return {module.rte_handle, module.ctx->bind_tree.tree_id, bind_to_next_module_function};
}

uint32_t learn_bind(const bind_request &request, uint32_t key, uint32_t entry_point)
{
    const log_context &log = request.log;
    const classifier_tree tree = bind_tree(request.module);
    classifier_entry entry(tree, bound, entry_point, classifier_entry::console_line::without_site);
    if (entry.make_pattern() != 0) {
        return TWAMP_FAIL(log, severity::error, TWAMP_STATUS_NO_MEMORY,
                          "Failed to allocate the pattern structure\n");
    }
    if (const uint32_t status = entry.add_key(key)) {
        return TWAMP_FAIL(log, severity::error, as_module_status(status),
                          "Failed to extend the pattern structure\n");
    }
    if (const uint32_t rte = entry.learn(log, TWAMP_HERE)) {
        return TWAMP_FAIL(
            log, severity::error, TWAMP_STATUS_LEARN_FAILED,
            "Failed to learn the tree entry, treeID = %d\nRTE error code:0x%x, error string: %s\n",
            tree.tree_id, rte, hyx_status_get(rte));
    }
    return OLV_STATUS_OK;
}

/** Pattern failures have no status text here, and one status. */
uint32_t unlearn_bind(const bind_request &request, uint32_t key, uint32_t entry_point)
{
    const log_context &log = request.log;
    const classifier_tree tree = bind_tree(request.module);
    classifier_entry entry(tree, bound, entry_point, classifier_entry::console_line::without_site);
    if (entry.make_pattern() != 0) {
        TWAMP_LOG(log, severity::error, "Failed to allocate the pattern structure\n");
        return TWAMP_STATUS_NO_MEMORY;
    }
    if (entry.add_key(key) != 0) {
        TWAMP_LOG(log, severity::error, "Failed to extend the pattern structure\n");
        return TWAMP_STATUS_NO_MEMORY;
    }
    if (const uint32_t rte = entry.unlearn(log, TWAMP_HERE)) {
        return TWAMP_FAIL(
            log, severity::error, TWAMP_STATUS_UNLEARN_FAILED,
            "Failed to unlearn the tree entry, treeID = %dRTE error code:0x%x, error string: %s\n",
            tree.tree_id, rte, hyx_status_get(rte));
    }
    return OLV_STATUS_OK;
}

uint32_t bind(const bind_request &request)
{
    uint32_t entry_point = 0;
    uint32_t key = 0;
    if (const uint32_t status = check_path_and_type(request)) {
        return status;
    }
    if (request.info.custom_bind == 0) {
        return TWAMP_FAIL(request.log, severity::error, TWAMP_STATUS_INVALID_PARAM,
                          "Only custom bind supported\n");
    }
    if (const uint32_t status = find_entry_point(request, &entry_point)) {
        return status;
    }
    if (const uint32_t status = check_destination(request, OLV_STATUS_BIND_UNSUPPORTED)) {
        return status;
    }
    if (const uint32_t status = read_bind_key(request, &key)) {
        return status;
    }
    return learn_bind(request, key, entry_point);
}

uint32_t unbind(const bind_request &request)
{
    uint32_t entry_point = 0;
    uint32_t key = 0;
    if (const uint32_t status = check_path_and_type(request)) {
        return status;
    }
    if (const uint32_t status = find_entry_point(request, &entry_point)) {
        return status;
    }
    if (const uint32_t status = check_destination(request, TWAMP_STATUS_UNSUPPORTED_PAIR)) {
        return status;
    }
    if (const uint32_t status = read_bind_key(request, &key)) {
        return status;
    }
    return unlearn_bind(request, key, entry_point);
}

/** Both operations refuse a null request with the same words. */
uint32_t reject_null_info(log_site site, const olv_bind_info *info)
{
    log_unknown(site, "Invalid bind Info pointer0x%08x\n", address_word(info));
    log_unknown(site, "Failed to create Custom bind entry \n");
    return OLV_STATUS_NULL_BIND_INFO;
}

} // namespace

uint32_t olv_twamp_custom_bind(olv_system_handle *system, const olv_bind_info *info)
{
    if (info == nullptr) {
        return reject_null_info(TWAMP_HERE, info);
    }
    const olv_module_handle *const module = info->src_module;
    if (!is_initialised(module) || system == nullptr) {
        return reject_module(TWAMP_HERE, module, "Failed to create Custom bind entry \n");
    }
    const log_context log(*module, system);
    return module_call(log, TWAMP_HERE, __func__, module->lock, [&] {
        const uint32_t status = bind({*info, *module, log});
        if (status == OLV_STATUS_OK) {
            TWAMP_LOG(log, severity::info, "Custom Bind Successfully done.\n");
        } else {
            TWAMP_LOG_UNKNOWN("Failed to perform custom binding.\n");
        }
        return status;
    });
}

uint32_t olv_twamp_custom_unbind(olv_system_handle *system, const olv_bind_info *info)
{
    if (info == nullptr) {
        return reject_null_info(TWAMP_HERE, info);
    }
    const olv_module_handle *const module = info->src_module;
    if (!is_initialised(module) || system == nullptr) {
        return reject_module(TWAMP_HERE, module, "Failed to remove Custom bind entry \n");
    }
    const log_context log(*module, system);
    return module_call(log, TWAMP_HERE, __func__, module->lock, [&] {
        const uint32_t status = unbind({*info, *module, log});
        if (status == OLV_STATUS_OK) {
            TWAMP_LOG(log, severity::info, "Custom Un Bind Successfully done.\n");
        } else {
            TWAMP_LOG_UNKNOWN("Failed to perform custom un binding.\n");
        }
        return status;
    });
}
