// hyx_ptn_symbol_get_id, hyx_ptn_learn, hyx_ptn_unlearn, hyx_ptn_list_ptns, olv_sif_fps_map.
#include "hyx.h"
#include "olv_sim/calls.hpp"
#include "olv_sim/statuses.hpp"
#include "olv_twamp.h"
#include "sim/faults/platform_call.hpp"
#include "sim/framework/pattern_arena.hpp"
#include "sim/rte/processor_model.hpp"
#include "twamp_program.h"

using namespace olv_sim;

namespace {

std::uint32_t find_symbol(std::uint32_t rte_handle, const char *tree_function, std::uint32_t *tree_id)
{
    const processors::model *owner = processors::find(rte_handle, "hyx_ptn_symbol_get_id");
    if (owner == nullptr) {
        return rte_invalid_instance;
    }
    if (tree_function == nullptr || tree_id == nullptr) {
        return rte_null_pointer;
    }
    for (const auto &function : owner->program.tree_functions) {
        if (function.name == tree_function) {
            *tree_id = function.id;
            return rte_ok;
        }
    }
    return rte_no_such_tree;
}

struct tree_of_processor {
    processors::model *owner = nullptr;
    tree_table *tree = nullptr;
};

/** Find a tree. @return RTE status. */
std::uint32_t find_tree(std::uint32_t rte_handle, std::uint32_t tree_id, const char *user,
                        tree_of_processor &found)
{
    found.owner = processors::find(rte_handle, user);
    if (found.owner == nullptr) {
        return rte_invalid_instance;
    }
    found.tree = found.owner->tree(tree_id);
    return found.tree == nullptr ? rte_no_such_tree : rte_ok;
}

std::optional<tree_key> key_of(const olv_ptn &pattern, const char *user)
{
    const auto key = pattern_arena::read(pattern, user);
    if (!key || key->bits > 32) {
        return std::nullopt;
    }
    return tree_key{key->bits, key->bits == 0 ? 0 : key->field(0, key->bits)};
}

std::uint32_t learn(std::uint32_t rte_handle, std::uint32_t tree_id, const olv_ptn *pattern,
                    const olv_ptn_action *action)
{
    tree_of_processor in;
    const std::uint32_t status = find_tree(rte_handle, tree_id, "hyx_ptn_learn", in);
    if (status != rte_ok) {
        return status;
    }
    if (pattern == nullptr || action == nullptr) {
        return rte_null_pointer;
    }
    const auto key = key_of(*pattern, "hyx_ptn_learn");
    if (!key) {
        return rte_invalid_pattern;
    }
    return in.owner->learn(*in.tree, {.key = *key,
                                      .action = {{action->word[0], action->word[1], action->word[2]}},
                                      .pattern_word = pattern->word[2]});
}

std::uint32_t unlearn(std::uint32_t rte_handle, std::uint32_t tree_id, const olv_ptn *pattern,
                      std::uint32_t bits, const olv_ptn_action *action, std::uint32_t count)
{
    tree_of_processor in;
    const std::uint32_t status = find_tree(rte_handle, tree_id, "hyx_ptn_unlearn", in);
    if (status != rte_ok) {
        return status;
    }
    if (pattern == nullptr || action == nullptr) {
        return rte_null_pointer;
    }
    if (count != 1) {
        return rte_invalid_count;
    }
    const auto key = key_of(*pattern, "hyx_ptn_unlearn");
    if (!key || key->bits != bits) {
        return rte_invalid_pattern;
    }
    return in.owner->unlearn(*in.tree, *key);
}

/** Show one entry to the callback, with a pattern that lives as long. */
std::uint32_t show(const tree_entry &entry, hyx_ptn_list_fn callback, void *context)
{
    olv_ptn pattern{};
    const std::uint32_t width = entry.key.bits == 0 ? TWAMP_KEY_BITS : entry.key.bits;
    if (pattern_arena::create(width, pattern) != OLV_STATUS_OK) {
        return rte_invalid_pattern;
    }
    if (entry.key.bits > 0) {
        (void)pattern_arena::extend(pattern, entry.key.value, entry.key.bits); // Fits: it is as wide.
    }
    const olv_ptn own = pattern;
    pattern.word[2] = entry.pattern_word;
    const olv_ptn_action action{{entry.action.word[0], entry.action.word[1], entry.action.word[2]}};
    callback(context, nullptr, &pattern, &action);
    pattern_arena::release(own);
    return rte_ok;
}

std::uint32_t list(std::uint32_t rte_handle, std::uint32_t tree_id, hyx_ptn_list_fn callback, void *context)
{
    tree_of_processor in;
    std::uint32_t status = find_tree(rte_handle, tree_id, "hyx_ptn_list_ptns", in);
    if (status != rte_ok) {
        return status;
    }
    if (callback == nullptr) {
        return rte_null_pointer;
    }
    tree_table::cursor walk;
    while (status == rte_ok) {
        const std::optional<tree_entry> entry = in.owner->next_entry(*in.tree, walk);
        if (!entry) {
            break;
        }
        status = show(*entry, callback, context);
    }
    return status;
}

} // namespace

std::uint32_t hyx_ptn_symbol_get_id(std::uint32_t rte_handle, const char *tree_function, std::uint32_t *tree_id)
{
    return status_call(
        call::hyx_ptn_symbol_get_id,
        [&](argument_text &text) { text.number("rte", rte_handle).text("name", tree_function); },
        [&] { return find_symbol(rte_handle, tree_function, tree_id); });
}

std::uint32_t hyx_ptn_learn(std::uint32_t rte_handle, std::uint32_t tree_id, olv_ptn *pattern,
                            olv_ptn_action *action)
{
    return status_call(
        call::hyx_ptn_learn,
        [&](argument_text &text) {
            text.number("rte", rte_handle).hex("tree", tree_id).pattern("key", pattern);
            text.action("action", action);
        },
        [&] { return learn(rte_handle, tree_id, pattern, action); });
}

std::uint32_t hyx_ptn_unlearn(std::uint32_t rte_handle, std::uint32_t tree_id, olv_ptn *pattern,
                              std::uint32_t width_bits, olv_ptn_action *action, std::uint32_t count)
{
    return status_call(
        call::hyx_ptn_unlearn,
        [&](argument_text &text) {
            text.number("rte", rte_handle).hex("tree", tree_id).pattern("key", pattern);
            text.number("key_bits", width_bits).action("action", action).number("count", count);
        },
        [&] { return unlearn(rte_handle, tree_id, pattern, width_bits, action, count); });
}

std::uint32_t hyx_ptn_list_ptns(std::uint32_t rte_handle, std::uint32_t tree_id, hyx_ptn_list_fn callback,
                                void *context)
{
    return status_call(
        call::hyx_ptn_list_ptns,
        [&](argument_text &text) { text.number("rte", rte_handle).hex("tree", tree_id); },
        [&] { return list(rte_handle, tree_id, callback, context); });
}

const char *olv_sif_fps_map(std::uint32_t tree_id)
{
    return plain_call(
        call::olv_sif_fps_map, [&](argument_text &text) { text.hex("tree", tree_id); },
        [&] {
            const char *name = processors::tree_function_name(tree_id);
            return name == nullptr ? "unknown tree function" : name;
        });
}
