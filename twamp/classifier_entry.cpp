#include "classifier_entry.hpp"

#include "hyx.h"

namespace twamp {

namespace {

/** Word 0 of an entry's action: a defined responder, or "hand on to the entry point in word 1". */
constexpr uint32_t responder_defined = 0;
constexpr uint32_t bound = 1;

const char *tree_name(module_tree tree)
{
    return tree == module_tree::responder ? responder_lookup_function : bind_to_next_module_function;
}

} // namespace

classifier_entry::classifier_entry(const module_call &call, module_tree tree, uint32_t entry_point)
    : call_(call),
      tree_id_((tree == module_tree::responder ? call.module.ctx->responder_tree : call.module.ctx->bind_tree)
                   .tree_id),
      tree_(tree),
      action_{{tree == module_tree::responder ? responder_defined : bound, entry_point, 0}}
{}

uint32_t classifier_entry::learn(log_site site)
{
    const uint32_t rte = hyx_ptn_learn(call_.module.rte_handle, tree_id_, &pattern_, &action_);
    if (rte == 0) {
        print(site);
        trace_message(call_, site, nullptr, tree_name(tree_), pattern_.word[0], pattern_.word[1],
                      pattern_.word[2], action_.word[0], action_.word[1], action_.word[2]);
    }
    return rte;
}

uint32_t classifier_entry::unlearn(log_site site)
{
    const uint32_t rte = hyx_ptn_unlearn(call_.module.rte_handle, tree_id_, &pattern_, key_bits, &action_, 1);
    if (rte == 0) {
        print(site);
        trace_message(call_, site, nullptr, tree_name(tree_), pattern_.word[0], pattern_.word[1],
                      pattern_.word[2], key_bits, action_.word[0], action_.word[1], action_.word[2]);
    }
    return rte;
}

void classifier_entry::print(log_site site) const
{
    if (!call_.shows(site.kind())) {
        return;
    }
    // The line of a responder's entry tells file and line, the one of a bind's does not.
    if (tree_ == module_tree::responder) {
        call_.print_prefix(site);
    } else {
        call_.print_name(site.kind());
    }
    std::printf("%s: ", tree_name(tree_));
    olv_ptn_print(pattern_);
    if (site.kind() == severity::entry_removed) {
        std::printf("<xsize = %d>", static_cast<int>(key_bits));
    }
    olv_ptn_action_print(action_);
    std::putchar('\n');
}

} // namespace twamp
