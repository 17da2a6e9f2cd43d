// Changes of trees and state, and the observer that is told of them.
#include "olv_sim/statuses.hpp"
#include "sim/rte/processor_model.hpp"

namespace olv_sim {

std::uint32_t processor::implementation::learn(tree_table &tree, const tree_entry &entry)
{
    const std::lock_guard lock{changes_};
    const std::uint32_t status = tree.learn(entry);
    if (status == rte_ok && observer_ != nullptr) {
        observer_->learnt(tree, entry.key, entry.action);
    }
    return status;
}

std::uint32_t processor::implementation::unlearn(tree_table &tree, const tree_key &key)
{
    const std::lock_guard lock{changes_};
    const std::uint32_t status = tree.unlearn(key);
    if (status == rte_ok && observer_ != nullptr) {
        observer_->unlearnt(tree, key);
    }
    return status;
}

void processor::implementation::write_state(std::uint32_t namespace_id, std::uint32_t index, const void *bytes,
                                            std::uint32_t length)
{
    const std::lock_guard lock{changes_};
    const state_words words = reach_state(namespace_id, index);
    write_words(words, bytes, length);
    if (observer_ != nullptr) {
        observer_->state_written(namespace_id, index, words);
    }
}

void processor::implementation::set_observer(processor_observer *observer)
{
    const std::lock_guard lock{changes_};
    observer_ = observer;
    if (observer != nullptr) {
        tell_what_is_there(*observer);
    }
}

void processor::implementation::tell_what_is_there(processor_observer &observer) const
{
    for (const auto &tree : trees) {
        tree_table::cursor walk;
        while (const std::optional<tree_entry> entry = tree->next(walk)) {
            observer.learnt(*tree, entry->key, entry->action);
        }
    }
    for (const auto &entries : states) {
        entries->tell_of_written(observer);
    }
    const bool provided = global_statistics_.data() != own_global_statistics_.data();
    if (!provided && any_bit_set(global_statistics_)) {
        observer.state_written(GLOBAL_STATS_NS_ID, GLOBAL_STATS_INDEX, global_statistics_);
    }
}

std::optional<tree_entry> processor::implementation::next_entry(const tree_table &tree,
                                                                tree_table::cursor &walk) const
{
    const std::lock_guard lock{changes_};
    return tree.next(walk);
}

std::size_t processor::implementation::memory_bytes() const
{
    const std::lock_guard lock{changes_};
    std::size_t bytes = sizeof *this;
    for (const auto &tree : trees) {
        bytes += tree->memory_bytes();
    }
    for (const auto &resources : namespaces) {
        bytes += resources->memory_bytes();
    }
    for (const auto &entries : states) {
        bytes += entries->memory_bytes();
    }
    return bytes;
}

} // namespace olv_sim
