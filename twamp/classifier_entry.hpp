// One entry of a classifier tree and the whole life of its pattern: new, extend, learn or unlearn, log, free.
#ifndef TWAMP_CLASSIFIER_ENTRY_HPP
#define TWAMP_CLASSIFIER_ENTRY_HPP

#include "hyx.h"
#include "module_call.hpp"
#include "twamp_program.h"

namespace twamp {

/** The trees that the module keeps entries in. */
enum class module_tree : uint8_t { responder, bind };

/** Statuses are those of the platform's calls; the callers say what they mean. */
class classifier_entry {
  public:
    /** Refers to @p call. @param entry_point  Where a bind leads to; 0 for a responder. */
    TWAMP_HOT classifier_entry(const module_call &call, module_tree tree, uint32_t entry_point)
        : call_(call),
          tree_id_(
              (tree == module_tree::responder ? call.module.ctx->responder_tree : call.module.ctx->bind_tree)
                  .tree_id),
          tree_(tree),
          action_{{tree == module_tree::responder ? TWAMP_ACTION_DEFINED : TWAMP_ACTION_BOUND, entry_point, 0}}
    {}
    TWAMP_HOT ~classifier_entry()
    {
        if (has_pattern_) {
            olv_ptn_free(pattern_);
        }
    }
    classifier_entry(const classifier_entry &) = delete;
    classifier_entry &operator=(const classifier_entry &) = delete;

    [[nodiscard]] uint32_t tree_id() const { return tree_id_; }

    /** @return Framework status. */
    uint32_t make_pattern()
    {
        const uint32_t status = olv_ptn_new(TWAMP_KEY_BITS, &pattern_);
        has_pattern_ = status == 0;
        return status;
    }
    /** @return Framework status. */
    uint32_t add_key(uint32_t key) { return olv_ptn_extend(&pattern_, key, TWAMP_KEY_BITS); }

    /** @return RTE status. On success the entry is logged. */
    TWAMP_HOT uint32_t learn(log_site site)
    {
        const uint32_t rte = hyx_ptn_learn(call_.module.rte_handle, tree_id_, &pattern_, &action_);
        if (rte == 0) {
            print_where_shown(site);
            trace_message(call_, site, nullptr, tree_name(), pattern_.word[0], pattern_.word[1],
                          pattern_.word[2], action_.word[0], action_.word[1], action_.word[2]);
        }
        return rte;
    }

    /** @return RTE status. On success the entry is logged. */
    TWAMP_HOT uint32_t unlearn(log_site site)
    {
        const uint32_t rte =
            hyx_ptn_unlearn(call_.module.rte_handle, tree_id_, &pattern_, TWAMP_KEY_BITS, &action_, 1);
        if (rte == 0) {
            print_where_shown(site);
            trace_message(call_, site, nullptr, tree_name(), pattern_.word[0], pattern_.word[1],
                          pattern_.word[2], TWAMP_KEY_BITS, action_.word[0], action_.word[1], action_.word[2]);
        }
        return rte;
    }

  private:
    [[nodiscard]] TWAMP_HOT const char *tree_name() const
    {
        return tree_ == module_tree::responder ? TWAMP_RESPONDER_LOOKUP_FUNCTION
                                               : TWAMP_BIND_TO_NEXT_MODULE_FUNCTION;
    }
    void print_where_shown(log_site site) const
    {
        if (call_.shows(site.kind())) {
            print(site);
        }
    }
    [[gnu::cold]] void print(log_site site) const;

    const module_call &call_;
    const uint32_t tree_id_;
    const module_tree tree_;
    bool has_pattern_ = false;
    olv_ptn pattern_ = {};
    olv_ptn_action action_;
};

} // namespace twamp

#endif
