#include "sim/rte/tree_table.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/statuses.hpp"
#include "twamp_program.h"

namespace olv_sim {

tree_table::tree_table(const classifier_program::tree_function &description)
    : name_(description.name), id_(description.id)
{}

tree_table::~tree_table() = default;

bool tree_table::cell::is_present() const
{
    return (state.load(std::memory_order_relaxed) & present) != 0;
}

tree_entry tree_table::cell::entry(const tree_key &key) const
{
    tree_entry entry{.key = key};
    for (std::size_t index = 0; index < 3; ++index) {
        entry.action.word[index] = word[index].load(std::memory_order_relaxed);
    }
    entry.pattern_word = word[3].load(std::memory_order_relaxed);
    return entry;
}

// The words are read and written with acquire and release, not only the state: a lookup that sees a word of a
// change under way then also sees the state move.
void tree_table::cell::write(const tree_entry &entry)
{
    const std::uint32_t before = state.load(std::memory_order_relaxed);
    state.store(before | changing, std::memory_order_relaxed);
    for (std::size_t index = 0; index < 3; ++index) {
        word[index].store(entry.action.word[index], std::memory_order_release);
    }
    word[3].store(entry.pattern_word, std::memory_order_release);
    state.store((before + one_change) | present, std::memory_order_release);
}

void tree_table::cell::erase()
{
    const std::uint32_t before = state.load(std::memory_order_relaxed);
    state.store((before + one_change) & ~present, std::memory_order_release);
}

bool tree_table::find(std::uint32_t key, tree_action &action) const
{
    if (key < (1u << TWAMP_KEY_BITS)) {
        const leaf *home = leaves_[key / cells_in_leaf].load(std::memory_order_acquire);
        if (home != nullptr && home->cells[key % cells_in_leaf].read(action)) {
            return true;
        }
    }
    return default_.read(action);
}

const tree_table::cell *tree_table::cell_of(const tree_key &key) const
{
    if (key.bits == 0) {
        return &default_;
    }
    const leaf *home = leaves_[key.value / cells_in_leaf].load(std::memory_order_acquire);
    return home == nullptr ? nullptr : &home->cells[key.value % cells_in_leaf];
}

tree_table::cell &tree_table::place(const tree_key &key)
{
    if (key.bits == 0) {
        return default_;
    }
    std::atomic<leaf *> &home = leaves_[key.value / cells_in_leaf];
    if (home.load(std::memory_order_relaxed) == nullptr) {
        owned_.push_back(std::make_unique<leaf>());
        home.store(owned_.back().get(), std::memory_order_release);
    }
    return home.load(std::memory_order_relaxed)->cells[key.value % cells_in_leaf];
}

std::uint32_t tree_table::learn(const tree_entry &entry)
{
    if (is_listed(entry.key)) {
        if (!list_.emplace(entry.key, entry).second) {
            return rte_duplicate_entry;
        }
    } else {
        cell &home = place(entry.key);
        if (home.is_present()) {
            return rte_duplicate_entry;
        }
        home.write(entry);
    }
    ++size_;
    return rte_ok;
}

std::uint32_t tree_table::unlearn(const tree_key &key)
{
    if (is_listed(key)) {
        if (list_.erase(key) == 0) {
            return rte_no_such_entry;
        }
    } else {
        const cell *home = cell_of(key);
        if (home == nullptr || !home->is_present()) {
            return rte_no_such_entry;
        }
        place(key).erase();
    }
    --size_;
    return rte_ok;
}

std::optional<tree_entry> tree_table::next(cursor &walk) const
{
    if (walk.position == 0) {
        ++walk.position;
        if (default_.is_present()) {
            return default_.entry({});
        }
    }
    std::optional<tree_entry> entry = next_in_table(walk);
    return entry ? entry : next_in_list(walk);
}

std::optional<tree_entry> tree_table::next_in_table(cursor &walk) const
{
    while (walk.position <= (1u << TWAMP_KEY_BITS)) {
        const auto value = static_cast<std::uint32_t>(walk.position - 1);
        const cell *home = cell_of({TWAMP_KEY_BITS, value});
        if (home == nullptr) {
            walk.position += cells_in_leaf - value % cells_in_leaf;
            continue;
        }
        ++walk.position;
        if (home->is_present()) {
            return home->entry({TWAMP_KEY_BITS, value});
        }
    }
    return std::nullopt;
}

std::optional<tree_entry> tree_table::next_in_list(cursor &walk) const
{
    const auto found = walk.listed ? list_.upper_bound(*walk.listed) : list_.begin();
    if (found == list_.end()) {
        return std::nullopt;
    }
    walk.listed = found->first;
    return found->second;
}

std::size_t tree_table::memory_bytes() const
{
    return sizeof *this + owned_.size() * sizeof(leaf) + list_.size() * sizeof(tree_entry);
}

} // namespace olv_sim
