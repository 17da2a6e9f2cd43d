// A classifier tree.
#ifndef OLV_SIM_TREE_TABLE_HPP
#define OLV_SIM_TREE_TABLE_HPP

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "olv_sim/fast_path_seam.hpp"
#include "olv_sim/processor.hpp"
#include "twamp_program.h"

namespace olv_sim {

struct tree_entry {
    tree_key key;
    tree_action action{};
    std::uint32_t pattern_word = 0; ///< The classifier's own word of the pattern.
};

/**
 * Entries with keys of the tree's width stand in a table by key, in leaves that come when first used; those
 * with other widths, which no packet can match, in a list. A lookup only reads atomic words; everything else
 * is done by one thread at a time, which is the caller's to see to.
 */
class tree_table final : public classifier_tree {
  public:
    explicit tree_table(const classifier_program::tree_function &description);
    ~tree_table() override;

    [[nodiscard]] bool find(std::uint32_t key, tree_action &action) const override;
    [[nodiscard]] std::size_t size() const override { return size_.load(std::memory_order_relaxed); }
    [[nodiscard]] std::uint32_t id() const override { return id_; }
    [[nodiscard]] const std::string &name() const override { return name_; }

    // RTE statuses.
    std::uint32_t learn(const tree_entry &entry);
    std::uint32_t unlearn(const tree_key &key);

    /** Where a walk stands. Entries that are added or removed between its steps may or may not be seen. */
    struct cursor {
        std::uint64_t position = 0; ///< 0: entry without a key; then the table; then the list.
        std::optional<tree_key> listed;
    };
    /** The next entry: the one without a key, the table's by key, the list's. */
    [[nodiscard]] std::optional<tree_entry> next(cursor &walk) const;

    [[nodiscard]] std::size_t memory_bytes() const;

  private:
    static constexpr std::uint32_t cells_in_leaf = 4096;
    static constexpr std::uint32_t leaf_count = (1u << TWAMP_KEY_BITS) / cells_in_leaf;

    /**
     * An entry's place. `state` has a bit that is set while the words change, a bit that tells whether an
     * entry is there, and a count of the changes above them. Built from 32-bit words alone: not every target
     * has larger atomics.
     */
    struct cell {
        static constexpr std::uint32_t changing = 1;
        static constexpr std::uint32_t present = 2;
        static constexpr std::uint32_t one_change = 4;

        std::atomic<std::uint32_t> state{0};
        std::atomic<std::uint32_t> word[4]{}; ///< The action's words, then the pattern's.

        /** While the words may change. */
        [[nodiscard]] bool read(tree_action &action) const
        {
            for (;;) {
                const std::uint32_t before = state.load(std::memory_order_acquire);
                if ((before & (changing | present)) == 0) {
                    return false;
                }
                action.word[0] = word[0].load(std::memory_order_acquire);
                action.word[1] = word[1].load(std::memory_order_acquire);
                action.word[2] = word[2].load(std::memory_order_acquire);
                // Nothing changed meanwhile, and nothing was being changed: there is an entry then.
                if (state.load(std::memory_order_relaxed) == before && (before & changing) == 0) {
                    return true;
                }
            }
        }
        // While nothing changes.
        [[nodiscard]] bool is_present() const;
        [[nodiscard]] tree_entry entry(const tree_key &key) const;
        void write(const tree_entry &entry);
        void erase();
    };
    struct leaf {
        std::array<cell, cells_in_leaf> cells;
    };

    /** NULL where no leaf is; key widths 0 and TWAMP_KEY_BITS only. */
    [[nodiscard]] const cell *cell_of(const tree_key &key) const;
    cell &place(const tree_key &key);
    [[nodiscard]] std::optional<tree_entry> next_in_table(cursor &walk) const;
    [[nodiscard]] std::optional<tree_entry> next_in_list(cursor &walk) const;

    static bool is_listed(const tree_key &key) { return key.bits != 0 && key.bits != TWAMP_KEY_BITS; }

    std::string name_;
    std::uint32_t id_;
    cell default_;
    std::array<std::atomic<leaf *>, leaf_count> leaves_{};
    std::vector<std::unique_ptr<leaf>> owned_;
    std::map<tree_key, tree_entry> list_;
    std::atomic<std::size_t> size_{0};
};

} // namespace olv_sim

#endif
