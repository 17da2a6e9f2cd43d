#include <algorithm>
#include <ctime>
#include <stdexcept>

#include "sim/rte/processor_model.hpp"
#include "twamp_program.h"

namespace olv_sim {
namespace {

constexpr std::uint64_t ticks_per_second = 1'000'000'000;
constexpr std::size_t maximum_namespaces = 255;

/** NULL where none has the name. */
template <typename Models> auto *by_name(const Models &models, std::string_view name)
{
    for (const auto &model : models) {
        if (model->name() == name) {
            return model.get();
        }
    }
    return decltype(models.front().get()){nullptr};
}

} // namespace

classifier_program classifier_program::twamp(std::uint32_t responders, std::uint32_t sessions)
{
    return {.namespaces = {{TWAMP_RESPONDER_NAMESPACE, 1, responders, sizeof(twamp_responder_state)},
                           {TWAMP_REFLECTOR_SESSION_NAMESPACE, 1, sessions, 0}},
            .tree_functions = {{TWAMP_TO_IP_DIRECT_IMC_FUNCTION, 0x101, false},
                               {TWAMP_TO_IPV6_INDIRECT_IMC_FUNCTION, 0x102, false},
                               {TWAMP_LLI_PROCESSING_FUNCTION, 0x103, false},
                               {TWAMP_RESPONDER_LOOKUP_FUNCTION, 0x104, true},
                               {TWAMP_BIND_TO_NEXT_MODULE_FUNCTION, 0x105, true}},
            .global_statistics = true};
}

processor::implementation::implementation(classifier_program loaded, const provided_state &memory)
    : program(std::move(loaded))
{
    if (program.namespaces.size() > maximum_namespaces) {
        throw std::length_error("too many namespaces");
    }
    for (const auto &description : program.namespaces) {
        namespaces.push_back(std::make_unique<name_space>(description));
    }
    make_states(memory);
    for (const auto &description : program.tree_functions) {
        if (description.classifier) {
            trees.push_back(std::make_unique<tree_table>(description));
        }
    }
}

void processor::implementation::make_states(const provided_state &memory)
{
    std::size_t used = 0;
    for (const auto &description : program.namespaces) {
        if (description.state_length == 0) {
            continue;
        }
        const auto provided = std::find_if(memory.entries.begin(), memory.entries.end(), [&](const auto &each) {
            return each.name_space == description.name;
        });
        if (provided == memory.entries.end()) {
            states.push_back(std::make_unique<state_memory>(description));
        } else {
            states.push_back(std::make_unique<state_memory>(description, *provided));
            ++used;
        }
    }
    if (used != memory.entries.size()) {
        throw std::invalid_argument("provided state: the program has no such state, or memory is there twice");
    }
    if (!memory.global_statistics.empty()) {
        global_statistics_ = memory.global_statistics;
    }
    constexpr std::size_t words = GLOBAL_STATS_LENGTH / 4;
    if (global_statistics_.size() < words) {
        throw std::invalid_argument("provided state of the global statistics: too few words");
    }
    global_statistics_ = global_statistics_.first(words);
}

tree_table *processor::implementation::tree(std::uint32_t tree_id) const
{
    for (const auto &candidate : trees) {
        if (candidate->id() == tree_id) {
            return candidate.get();
        }
    }
    return nullptr;
}

tree_table *processor::implementation::tree(std::string_view name) const
{
    return by_name(trees, name);
}

name_space *processor::implementation::resources(std::string_view name) const
{
    return by_name(namespaces, name);
}

bool processor::implementation::is_global_statistics(std::uint32_t namespace_id, std::uint32_t index) const
{
    return program.global_statistics && namespace_id == GLOBAL_STATS_NS_ID && index == 0;
}

state_memory *processor::implementation::state_of(std::uint32_t namespace_id, std::uint32_t index) const
{
    if (index != 0 || namespace_id == GLOBAL_STATS_NS_ID) {
        return nullptr;
    }
    for (const auto &candidate : states) {
        if (candidate->contains(namespace_id)) {
            return candidate.get();
        }
    }
    return nullptr;
}

std::uint32_t processor::implementation::state_length(std::uint32_t namespace_id, std::uint32_t index) const
{
    if (is_global_statistics(namespace_id, index)) {
        return GLOBAL_STATS_LENGTH;
    }
    const state_memory *entries = state_of(namespace_id, index);
    return entries == nullptr ? 0 : entries->length();
}

state_words processor::implementation::reach_state(std::uint32_t namespace_id, std::uint32_t index)
{
    if (is_global_statistics(namespace_id, index)) {
        return global_statistics_;
    }
    state_memory *entries = state_of(namespace_id, index);
    return entries == nullptr ? state_words{} : entries->reach(namespace_id);
}

state_words processor::implementation::peek_state(std::uint32_t namespace_id, std::uint32_t index)
{
    if (is_global_statistics(namespace_id, index)) {
        return global_statistics_;
    }
    const state_memory *entries = state_of(namespace_id, index);
    return entries == nullptr ? state_words{} : entries->peek(namespace_id);
}

std::uint64_t processor::implementation::timer_now() const
{
    if (timer_stands.load(std::memory_order_acquire)) {
        const std::lock_guard lock{timer_mutex};
        return timer_value;
    }
    std::timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now); // Cannot fail: the clock exists.
    return static_cast<std::uint64_t>(now.tv_sec) * ticks_per_second + static_cast<std::uint64_t>(now.tv_nsec);
}

processor::processor(classifier_program program) : processor(std::move(program), provided_state{}) {}

processor::processor(classifier_program program, const provided_state &memory)
    : implementation_(std::make_unique<implementation>(std::move(program), memory))
{
    processors::add(*implementation_);
}

processor::~processor()
{
    processors::remove(*implementation_);
}

std::uint32_t processor::rte_handle() const
{
    return implementation_->handle;
}

classifier_tree *processor::tree(std::string_view name) const
{
    return implementation_->tree(name);
}

void processor::set_observer(processor_observer *observer)
{
    implementation_->set_observer(observer);
}

state_words processor::state(std::uint32_t namespace_id, std::uint32_t index) const
{
    return implementation_->reach_state(namespace_id, index);
}

std::size_t processor::allocated(std::string_view namespace_name) const
{
    const name_space *resources = implementation_->resources(namespace_name);
    return resources == nullptr ? 0 : resources->allocated();
}

bool processor::is_allocated(std::string_view namespace_name, std::uint32_t resource) const
{
    const name_space *resources = implementation_->resources(namespace_name);
    return resources != nullptr && resources->is_allocated(resource);
}

std::uint64_t processor::timer_frequency() const
{
    return ticks_per_second;
}

std::uint64_t processor::timer_now() const
{
    return implementation_->timer_now();
}

void processor::set_timer(std::uint64_t ticks)
{
    const std::lock_guard lock{implementation_->timer_mutex};
    implementation_->timer_value = ticks;
    implementation_->timer_stands.store(true, std::memory_order_release);
}

void processor::run_timer()
{
    implementation_->timer_stands.store(false, std::memory_order_release);
}

bool processor::timer_runs() const
{
    return !implementation_->timer_stands.load(std::memory_order_acquire);
}

std::size_t processor::memory_bytes() const
{
    return implementation_->memory_bytes();
}

} // namespace olv_sim
