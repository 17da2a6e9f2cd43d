// What stands behind a processor, and how the calls find it by handle.
#ifndef OLV_SIM_PROCESSOR_MODEL_HPP
#define OLV_SIM_PROCESSOR_MODEL_HPP

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "olv_sim/fast_path_seam.hpp"
#include "olv_sim/processor.hpp"
#include "sim/rte/name_space.hpp"
#include "sim/rte/state_memory.hpp"
#include "sim/rte/tree_table.hpp"
#include "twamp_program.h"

namespace olv_sim {

struct processor::implementation {
    implementation(classifier_program loaded, const provided_state &memory);

    /** NULL where there is none. */
    [[nodiscard]] tree_table *tree(std::uint32_t tree_id) const;
    [[nodiscard]] tree_table *tree(std::string_view name) const;
    [[nodiscard]] name_space *resources(std::string_view name) const;

    /** Bytes of a state entry, 0 where there is none. */
    [[nodiscard]] std::uint32_t state_length(std::uint32_t namespace_id, std::uint32_t index) const;
    [[nodiscard]] state_words reach_state(std::uint32_t namespace_id, std::uint32_t index);
    /** Empty also where the entry was never reached. */
    [[nodiscard]] state_words peek_state(std::uint32_t namespace_id, std::uint32_t index);

    // What changes a tree or a state entry, one change after the other, and tells the observer. RTE statuses.
    std::uint32_t learn(tree_table &tree, const tree_entry &entry);
    std::uint32_t unlearn(tree_table &tree, const tree_key &key);
    void write_state(std::uint32_t namespace_id, std::uint32_t index, const void *bytes, std::uint32_t length);
    void set_observer(processor_observer *observer);
    /** The next entry of a walk. */
    [[nodiscard]] std::optional<tree_entry> next_entry(const tree_table &tree, tree_table::cursor &walk) const;

    [[nodiscard]] std::uint64_t timer_now() const;
    [[nodiscard]] std::size_t memory_bytes() const;

    const classifier_program program;
    std::uint32_t handle = 0;
    std::vector<std::unique_ptr<name_space>> namespaces; ///< In the program's order.
    std::vector<std::unique_ptr<tree_table>> trees;
    std::vector<std::unique_ptr<state_memory>> states;

    std::atomic<bool> timer_stands{false};
    mutable std::mutex timer_mutex;
    std::uint64_t timer_value = 0;

  private:
    void make_states(const provided_state &memory);
    [[nodiscard]] bool is_global_statistics(std::uint32_t namespace_id, std::uint32_t index) const;
    [[nodiscard]] state_memory *state_of(std::uint32_t namespace_id, std::uint32_t index) const;
    void tell_what_is_there(processor_observer &observer) const;

    std::array<std::atomic<std::uint32_t>, GLOBAL_STATS_LENGTH / 4> own_global_statistics_{};
    state_words global_statistics_{own_global_statistics_};
    mutable std::mutex
        changes_; ///< Held while a tree or a state entry changes, and while the observer is told.
    processor_observer *observer_ = nullptr;
};

namespace processors {

using model = processor::implementation;

/** Give the model a handle. */
void add(model &added);
void remove(const model &removed);
/** NULL, and a violation, where no processor has this handle. Constant time, no lock. */
[[nodiscard]] model *find(std::uint32_t rte_handle, const char *user);

/** Handle of a processor's namespace, unique in the process. */
[[nodiscard]] std::uint32_t namespace_handle(const model &owner, std::size_t position);
/** NULL, and a violation, where no namespace has this handle. Constant time, no lock. */
[[nodiscard]] name_space *find_namespace(std::uint32_t namespace_handle, const char *user);

/** Name of a tree function of any processor, NULL where none has it. */
[[nodiscard]] const char *tree_function_name(std::uint32_t tree_id);

} // namespace processors
} // namespace olv_sim

#endif
