/**
 * @file fast_path_seam.hpp
 * For a fast path that cannot look into the platform with each packet, such as a program in the kernel: it
 * provides the memory that state stands in, and is told of every change.
 *
 *     olv_sim::processor processor{program, {.entries = {{"twamp_responder", words, 16}}}};
 *     processor.set_observer(&mirror);
 *
 * A fast path that is part of the process needs neither: processor::state() and classifier_tree::find() of
 * processor.hpp are for it. Both can be had at the same time, from the same trees and the same state.
 */
#ifndef OLV_SIM_FAST_PATH_SEAM_HPP
#define OLV_SIM_FAST_PATH_SEAM_HPP

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "olv_sim/processor.hpp"

namespace olv_sim {

/**
 * Memory for the state entries of a namespace: those of its values one after the other, with the same distance
 * from each to the next, so that the value alone tells the place. It stays the provider's, has to live as long
 * as the processor, and holds zeros when the processor is made. Pages that nobody touches are never touched by
 * the platform either: memory for millions of entries may be sparse.
 */
struct provided_entries {
    std::string name_space; ///< Name of a namespace of the program that has state entries.
    /** The entry of a value begins at word (value - first) * stride and has name_space::state_length bytes.
     * There is room for name_space::values() entries; the last one may end where it ends, short of a whole
     * stride. */
    state_words words;
    std::size_t stride = 0; ///< Words from the beginning of an entry to that of the next.
};

/** Memory for the state of a processor. What is left out stands in memory of the platform's own. */
struct provided_state {
    /** At most one of each namespace. */
    std::vector<provided_entries> entries{};
    /** At least #GLOBAL_STATS_LENGTH bytes of zeros, for the module's counters; they stay the provider's. */
    state_words global_statistics{};
};

/** A key of an entry of a tree. Packets match keys of #TWAMP_KEY_BITS, and the entry without one. */
struct tree_key {
    std::uint32_t bits = 0;  ///< Its width, 1 to 32; 0: there is no key.
    std::uint32_t value = 0; ///< In host order, 0 where there is no key.

    /** The same width and value. */
    friend bool operator==(const tree_key &, const tree_key &) = default;
    /** By width, then by value. */
    friend bool operator<(const tree_key &left, const tree_key &right)
    {
        return left.bits != right.bits ? left.bits < right.bits : left.value < right.value;
    }
};

/**
 * Is told of the changes of one processor, in their order, by the thread that makes the change and before its
 * `hyx_` call returns: when the call is back, a fast path that follows has followed. One thread at a time
 * calls; the next change of this processor waits. Changes that were refused are not told of.
 *
 * An observer may look entries up, and read and count in state words. It makes no `hyx_` call that changes or
 * lists something of this processor: it would wait for itself. It cannot refuse a change: where it has no room
 * for one, it has to know so itself.
 */
class processor_observer {
  public:
    virtual ~processor_observer() = default;

    /** The tree has an entry that it had not: hyx_ptn_learn(). An entry never changes in place. */
    virtual void learnt(const classifier_tree &tree, const tree_key &key,
                        const tree_action &action) noexcept = 0;
    /** The tree no longer has the entry: hyx_ptn_unlearn(). */
    virtual void unlearnt(const classifier_tree &tree, const tree_key &key) noexcept = 0;
    /** hyx_se_state_set() wrote to a state entry. @p words are those that packets count in, of the whole entry,
     *  with bytes in the order in which they stand there; they live as long as the processor. */
    virtual void state_written(std::uint32_t namespace_id, std::uint32_t index, state_words words) noexcept = 0;
};

} // namespace olv_sim

#endif
