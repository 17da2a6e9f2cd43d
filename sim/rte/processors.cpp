#include <stdexcept>

#include "sim/faults/argument_text.hpp"
#include "sim/faults/report_violation.hpp"
#include "sim/process_wide.hpp"
#include "sim/rte/processor_model.hpp"

namespace olv_sim::processors {
namespace {

constexpr std::uint32_t maximum_processors = 4096;
constexpr std::uint32_t namespace_bits = 8;

struct directory {
    std::mutex mutex;
    std::array<std::atomic<model *>, maximum_processors> slots{};
};

directory &the_directory()
{
    return process_wide<directory>();
}

/** Handles count from 1. */
model *at(std::uint32_t rte_handle)
{
    if (rte_handle == 0 || rte_handle > maximum_processors) {
        return nullptr;
    }
    return the_directory().slots[rte_handle - 1].load(std::memory_order_acquire);
}

} // namespace

void add(model &added)
{
    directory &all = the_directory();
    const std::lock_guard lock{all.mutex};
    for (std::uint32_t index = 0; index < maximum_processors; ++index) {
        if (all.slots[index].load(std::memory_order_relaxed) == nullptr) {
            added.handle = index + 1;
            all.slots[index].store(&added, std::memory_order_release);
            return;
        }
    }
    throw std::length_error("too many processors");
}

void remove(const model &removed)
{
    directory &all = the_directory();
    const std::lock_guard lock{all.mutex};
    all.slots[removed.handle - 1].store(nullptr, std::memory_order_release);
}

model *find(std::uint32_t rte_handle, const char *user)
{
    model *found = at(rte_handle);
    if (found == nullptr) {
        violations::report(std::string{user} + ": no RTE instance " + std::to_string(rte_handle));
    }
    return found;
}

std::uint32_t namespace_handle(const model &owner, std::size_t position)
{
    return (owner.handle << namespace_bits) | static_cast<std::uint32_t>(position + 1);
}

name_space *find_namespace(std::uint32_t namespace_handle, const char *user)
{
    const model *owner = at(namespace_handle >> namespace_bits);
    const std::uint32_t position = namespace_handle & ((1u << namespace_bits) - 1);
    if (owner == nullptr || position == 0 || position > owner->namespaces.size()) {
        violations::report(std::string{user} + ": no namespace " + hex_word(namespace_handle, 8));
        return nullptr;
    }
    return owner->namespaces[position - 1].get();
}

const char *tree_function_name(std::uint32_t tree_id)
{
    directory &all = the_directory();
    const std::lock_guard lock{all.mutex};
    for (const auto &slot : all.slots) {
        const model *candidate = slot.load(std::memory_order_relaxed);
        if (candidate == nullptr) {
            continue;
        }
        for (const auto &function : candidate->program.tree_functions) {
            if (function.id == tree_id) {
                return function.name.c_str();
            }
        }
    }
    return nullptr;
}

} // namespace olv_sim::processors
