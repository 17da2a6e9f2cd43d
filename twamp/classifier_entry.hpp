// One entry of a classifier tree and the whole life of its pattern: new, extend, learn or unlearn, log, free.
#ifndef TWAMP_CLASSIFIER_ENTRY_HPP
#define TWAMP_CLASSIFIER_ENTRY_HPP

#include "module_call.hpp"

namespace twamp {

/** The trees that the module keeps entries in. */
enum class module_tree : uint8_t { responder, bind };

/** Statuses are those of the platform's calls; the callers say what they mean. */
class classifier_entry {
  public:
    /** Refers to @p call. @param entry_point  Where a bind leads to; 0 for a responder. */
    classifier_entry(const module_call &call, module_tree tree, uint32_t entry_point);
    ~classifier_entry()
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
        const uint32_t status = olv_ptn_new(key_bits, &pattern_);
        has_pattern_ = status == 0;
        return status;
    }
    /** @return Framework status. */
    uint32_t add_key(uint32_t key) { return olv_ptn_extend(&pattern_, key, key_bits); }
    /** @return RTE status. On success the entry is logged. */
    uint32_t learn(log_site site);
    /** @return RTE status. On success the entry is logged. */
    uint32_t unlearn(log_site site);

  private:
    void print(log_site site) const;

    const module_call &call_;
    const uint32_t tree_id_;
    const module_tree tree_;
    bool has_pattern_ = false;
    olv_ptn pattern_ = {};
    olv_ptn_action action_;
};

} // namespace twamp

#endif
