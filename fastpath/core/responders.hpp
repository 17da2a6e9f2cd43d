/**
 * @file responders.hpp
 * The responders of a processor, as the control side wrote them.
 */
#ifndef OLV_FASTPATH_RESPONDERS_HPP
#define OLV_FASTPATH_RESPONDERS_HPP

#include <cstdint>

#include "fastpath/core/clocks.hpp"
#include "fastpath/core/session_table.hpp"
#include "fastpath/core/state_entry.hpp"
#include "olv_sim/processor.hpp"

namespace olv_fastpath {

inline constexpr std::uint32_t id_mask = (1u << TWAMP_KEY_BITS) - 1; ///< Of responder IDs and bind keys.

[[nodiscard]] inline responder_creation creation_of(olv_sim::state_words responder)
{
    return {read_word(responder, responder_word::creation_count),
            read_double_word(responder, responder_word::ticks_high)};
}

/** A responder, as its state entry has it. */
struct responder_view {
    std::uint32_t id = 0; ///< Its low 24 bits alone.
    olv_sim::state_words words;
    responder_creation creation; ///< As read with the packet.

    [[nodiscard]] bool exists() const { return !words.empty(); }
    /** As the state entry has it. */
    [[nodiscard]] reply_clock clock() const
    {
        return {.instant = read_double_word(words, responder_word::ntp_seconds), .ticks = creation.ticks()};
    }
};

/** Finds them by their IDs. Belongs to one thread at a time; the processor has to outlive it. */
class responder_lookup {
  public:
    explicit responder_lookup(const olv_sim::processor &processor)
        : processor_(&processor), tree_(processor.tree(TWAMP_RESPONDER_LOOKUP_FUNCTION))
    {}

    /** @return The responder; one that does not exist(): there is no entry, or one that does not say that it is
     *  defined, or a state entry that was not written. */
    [[nodiscard]] responder_view find(std::uint32_t responder_id);

  private:
    const olv_sim::processor *processor_;
    const olv_sim::classifier_tree *tree_;
    std::uint32_t last_id_ = UINT32_MAX; ///< Of the last packet that had one.
    olv_sim::state_words last_words_;    ///< Its words, which stay the same.
};

inline responder_view responder_lookup::find(std::uint32_t responder_id)
{
    const std::uint32_t id = responder_id & id_mask;
    olv_sim::tree_action action;
    if (tree_ == nullptr || !tree_->find(id, action) ||
        (action.word[0] & TWAMP_ACTION_DEFINED_MASK) != TWAMP_ACTION_DEFINED) {
        return {};
    }
    if (last_id_ != id) {
        last_words_ = processor_->state(id);
        last_id_ = id;
    }
    const olv_sim::state_words words = last_words_;
    // An entry without a key leads to IDs that nobody created, a deletion clears the state after the tree.
    if (words.size() < responder_words ||
        (read_word(words, responder_word::flags) & TWAMP_STATE_WRITTEN) == 0) {
        return {};
    }
    return {.id = id, .words = words, .creation = creation_of(words)};
}

} // namespace olv_fastpath

#endif
