// Handle test, level mapping, inter-module call lookup, tree walks.
#include <cstdio>
#include <iterator>

#include "hyx.h"
#include "module_call.hpp"
#include "twamp_program.h"

TWAMP_LOG_FILE(twamp_internal);

using namespace twamp;

namespace {

constexpr uint32_t location_cpu = 1;

/** Context of one tree walk, on the walker's stack. */
struct twamp_dump_ctx {
    uint32_t tree_index;
    const twamp_tree_desc *tree;
    uint8_t printed_once;
};

bool is_log_level(uint32_t level)
{
    return level == 0 || level == 1 || level == 3 || level == 7 || level == 15;
}

uint32_t null_argument(const log_context &log)
{
    return TWAMP_FAIL(log, error, TWAMP_STATUS_INVALID_PARAM, "Null Bind Info / IMC Pointer");
}

uint32_t find_imc(const module_call &call, const olv_bind_info *info, uint32_t *imc)
{
    if (info == nullptr) {
        return null_argument(call);
    }
    if (info->dst_location == location_cpu || info->src_location == location_cpu) {
        // The system's level is not asked for this one.
        const log_context module_alone(call.module, nullptr);
        TWAMP_LOG(module_alone, info, "Module location CPU not supported\n");
        return TWAMP_STATUS_UNSUPPORTED_PATH;
    }
    if (info->dst_module == nullptr) {
        return TWAMP_FAIL(call, error, TWAMP_STATUS_INVALID_PARAM, "Null Destination Module Pointer");
    }
    const uint32_t destination = info->dst_module->module_id;
    if (destination != OLV_MODULE_ID_IPV4 && destination != OLV_MODULE_ID_IPV6) {
        TWAMP_LOG(call, info, "Invalid/unsupported bind path\n");
        return TWAMP_STATUS_UNSUPPORTED_PATH;
    }
    if (imc == nullptr) {
        return null_argument(call);
    }
    // One function serves both families; the indirect IPv6 one is not handed out.
    *imc = call.module.ctx->to_ip_direct_imc_tree_id;
    return OLV_STATUS_OK;
}

uint32_t dump_tree(const module_call &call, uint32_t index, const twamp_tree_desc &tree)
{
    twamp_dump_ctx context = {index, &tree, 0};
    if (tree.responder_format == 1) {
        std::printf("\n%s, ", olv_sif_fps_map(tree.tree_id));
        olv_twamp_table_entry_dump(index, nullptr, nullptr);
        std::putchar('\n');
    }
    const uint32_t rte =
        hyx_ptn_list_ptns(call.module.rte_handle, tree.tree_id, olv_twamp_table_entry_dump_fn, &context);
    if (rte != 0) {
        return TWAMP_FAIL(call, error, OLV_STATUS_DUMP_FAILED,
                          "RTE Error %s: Failed to dump TWAMP tree for idx %d\n", hyx_status_get(rte), index);
    }
    return OLV_STATUS_OK;
}

/** Through the module where the handle is usable; of another one nothing is read. */
uint32_t refuse_level(const olv_module_handle *module, log_site site, uint32_t status, const char *text)
{
    if (!is_initialised(module)) {
        log_unknown(site, text);
        return status;
    }
    return report({*module, module->system}, site, status, text);
}

/** In place of an action that is missing, or none of the module's. */
int print_unexpected_return()
{
    return std::printf("!!Unexpected Return!!");
}

int print_responder_action(const olv_ptn_action *action)
{
    if (action == nullptr) {
        return print_unexpected_return();
    }
    const uint32_t value = action->word[0];
    if ((value & TWAMP_ACTION_DEFINED_MASK) == TWAMP_ACTION_DEFINED) {
        return std::printf(", DEFINED");
    }
    if (value == TWAMP_ACTION_NOT_DEFINED) {
        return std::printf(", NOT_DEFINED");
    }
    return print_unexpected_return();
}

/** An entry of a tree without a format of its own. */
void print_entry(olv_ptn pattern, const olv_ptn_action *action)
{
    olv_ptn_print(pattern);
    if (action == nullptr) {
        (void)print_unexpected_return(); // the count is of no use here
        return;
    }
    olv_ptn_action_print(*action);
}

} // namespace

uint32_t olv_twamp_valid_module_handle(const olv_module_handle *module)
{
    return has_context(*module) ? 1 : 0;
}

uint32_t olv_twamp_map_sys_log(olv_module_handle *module, uint32_t level, uint32_t *mapped)
{
    if (!is_log_level(level)) {
        return refuse_level(module, TWAMP_HERE(error).without_newline(), OLV_STATUS_BAD_LOG_LEVEL,
                            "Unsupported log-level in TWAMP!");
    }
    if (mapped == nullptr) {
        return refuse_level(module, TWAMP_HERE(error), TWAMP_STATUS_INVALID_PARAM,
                            "Null Mapped Level Pointer\n");
    }
    *mapped = level;
    return OLV_STATUS_OK;
}

uint32_t olv_twamp_get_imc(olv_module_handle *module, const olv_bind_info *info, uint32_t *imc)
{
    if (!is_module(module)) {
        TWAMP_LOG_UNKNOWN(invalid_module, address_word(module));
        return OLV_STATUS_INVALID_HANDLE;
    }
    return run([=](const module_call &call) { return find_imc(call, info, imc); }, module, TWAMP_HERE(error),
               untraced, "TWAMP module failed to get IMC function\n");
}

uint32_t olv_twamp_dump_tables(olv_module_handle *module, uint32_t table_group)
{
    if (!is_initialised(module)) {
        TWAMP_LOG_UNKNOWN(invalid_module, address_word(module));
        return OLV_STATUS_INVALID_HANDLE;
    }
    const module_call call(*module, module->system);
    const log_site site = TWAMP_HERE(entry);
    log_function(call, site, __func__);
    const twamp_tree_desc *const trees[] = {&module->ctx->responder_tree, &module->ctx->bind_tree};
    for (uint32_t index = 0; index < std::size(trees); ++index) {
        if ((table_group & trees[index]->table_group_mask) == 0) {
            continue;
        }
        if (dump_tree(call, index, *trees[index]) != OLV_STATUS_OK) {
            (void)TWAMP_FAIL(call, error, OLV_STATUS_DUMP_FAILED, "Failed to dump TWAMP module's trees");
            log_function(call, site.as(severity::exit), __func__);
            return OLV_STATUS_DUMP_FAILED;
        }
    }
    // Only a failed walk has an exit line.
    return OLV_STATUS_OK;
}

void olv_twamp_table_entry_dump(uint32_t tree_index, const olv_ptn *pattern, const olv_ptn_action *action)
{
    if (tree_index == 0) {
        (void)responder_entry_dump(pattern, action); // the count is of no use here
    }
}

void olv_twamp_table_entry_dump_fn(void *context, void * /*unused*/, const olv_ptn *pattern,
                                   const olv_ptn_action *action)
{
    auto *const walk = static_cast<twamp_dump_ctx *>(context);
    if (walk == nullptr || pattern == nullptr) {
        return;
    }
    const bool once = pattern->word[2] == walk->tree->key_bits;
    if (once && walk->printed_once == 1) {
        return;
    }
    std::printf("%s, ", olv_sif_fps_map(walk->tree->tree_id));
    if (walk->tree->responder_format == 1) {
        olv_twamp_table_entry_dump(walk->tree_index, pattern, action);
    } else {
        print_entry(*pattern, action);
    }
    std::putchar('\n');
    if (once) {
        walk->printed_once = 1;
    }
}

int responder_entry_dump(const olv_ptn *pattern, const olv_ptn_action *action)
{
    if (pattern == nullptr) {
        return std::printf("RESPONDER-ID, DEFINED/NOT_DEFINED ");
    }
    const uint32_t key_length = pattern->word[1];
    if (key_length == 0) {
        std::putchar('*');
        return print_responder_action(action);
    }
    if (key_length != TWAMP_KEY_BITS) {
        return std::printf("!!Unexpected Pattern!!");
    }
    const auto field_width = static_cast<uint16_t>(key_length);
    uint32_t responder_id = 0;
    if (olv_ptn_parse(pattern, 1, &field_width, &responder_id) != 0) {
        return std::printf("!!Parse Error!!");
    }
    std::printf("0x%X", responder_id);
    return print_responder_action(action);
}
