// One entry of a classifier tree and the whole life of its pattern: new, extend, learn or unlearn, log, free.
#ifndef TWAMP_CLASSIFIER_ENTRY_HPP
#define TWAMP_CLASSIFIER_ENTRY_HPP

#include "hyx.h"
#include "log.hpp"
#include "twamp_ctx.hpp"

namespace twamp {

/** A tree of the module, as a runtime environment knows it. */
struct classifier_tree {
    uint32_t rte_handle;
    uint32_t tree_id;
    const char *name;
};

/** Statuses are those of the platform's calls; the callers say what they mean. */
class classifier_entry {
  public:
    /** Whether the console line of the entry tells file and line: the one of a responder does, the one of a
     *  bind does not. */
    enum class console_line { with_site, without_site };

    classifier_entry(const classifier_tree &tree, uint32_t return_value, uint32_t entry_point,
                     console_line line)
        : tree_(tree), action_{{return_value, entry_point, 0}}, line_(line)
    {}
    ~classifier_entry()
    {
        if (has_pattern_) {
            olv_ptn_free(pattern_);
        }
    }
    classifier_entry(const classifier_entry &) = delete;
    classifier_entry &operator=(const classifier_entry &) = delete;

    /** @return Framework status. */
    uint32_t make_pattern()
    {
        const uint32_t status = olv_ptn_new(key_bits, &pattern_);
        has_pattern_ = status == 0;
        return status;
    }
    /** @return Framework status. */
    uint32_t add_key(uint32_t key) { return olv_ptn_extend(&pattern_, key, key_bits); }
    /** @return RTE status. On success the entry is logged. */
    uint32_t learn(const log_context &log, log_site site);
    /** @return RTE status. On success the entry is logged. */
    uint32_t unlearn(const log_context &log, log_site site);

  private:
    void print(const log_context &log, severity kind, log_site site) const;

    const classifier_tree tree_;
    olv_ptn pattern_ = {};
    olv_ptn_action action_;
    const console_line line_;
    bool has_pattern_ = false;
};

} // namespace twamp

#endif
