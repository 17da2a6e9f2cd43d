// Where the platform, the modules and the responders differ from the model.
#include <algorithm>
#include <cinttypes>
#include <cstring>

#include "difference.hpp"
#include "library_world.hpp"
#include "olv_sim/resources.hpp"
#include "olv_sim/violations.hpp"
#include "program_names.hpp"

namespace olv_fuzz {

void library_world::require_same(const char *what, std::size_t index, std::uint64_t expected,
                                 std::uint64_t found) const
{
    if (expected != found) {
        report_difference(formatted("%s, %s %zu: 0x%" PRIx64 " expected, 0x%" PRIx64 " found", in_progress,
                                    what, index, expected, found));
    }
}

void library_world::note_new_addresses()
{
    for (const model_module &module : modules) {
        model_context *const context = module.context < 0 ? nullptr : &model->context_of(module);
        if (context != nullptr && context->real == nullptr) {
            context->real = module.real->ctx;
        }
    }
    for (const responder_slot &slot : slots) {
        model_responder *const responder =
            slot.model < 0 ? nullptr : &model->responders[static_cast<std::size_t>(slot.model)];
        if (responder != nullptr && responder->real == nullptr) {
            responder->real = slot.real;
        }
    }
}

void library_world::compare()
{
    note_new_addresses();
    const platform_model &platform = model->platform;
    require_same("live blocks", 0, platform.blocks.size(),
                 olv_sim::memory::in_use().live_blocks - blocks_before_);
    require_same("live patterns", 0, platform.patterns, olv_sim::patterns::live() - patterns_before_);
    require_same("breaches of the platform's contract", 0, platform.violations, olv_sim::violations::count());
    for (std::size_t index = 0; index < modules.size(); ++index) {
        compare_module(index);
    }
    for (std::size_t index = 0; index < processors_.size(); ++index) {
        if (processors_[index].touched) {
            compare_processor(index);
        }
    }
    compare_responders();
}

void library_world::compare_module(std::size_t index)
{
    const model_module &expected = modules[index];
    olv_module_handle found = *expected.real;
    found.ctx = nullptr;
    require_same("module log word", index, expected.record.log_flags, found.log_flags);
    require_same("module record", index, 0, std::memcmp(&expected.record, &found, sizeof found) == 0 ? 0 : 1);
    require_same("module has a context", index, expected.context < 0 ? 0 : 1,
                 expected.real->ctx == nullptr ? 0 : 1);
    const void *const context = expected.context < 0 ? nullptr : model->context_of(expected).real;
    require_same("module context", index, low_word(context), low_word(expected.real->ctx));
    require_same("module lock held", index, model->platform.held.contains(locks[index]) ? 1 : 0,
                 olv_sim::semaphores::held(locks[index]));

    const auto table = framework_.registered(expected.real);
    require_same("module registered", index, expected.registered ? 1 : 0, table ? 1 : 0);
    if (table) {
        olv_service_function_table wanted{};
        wanted.shutdown = olv_twamp_shutdown;
        wanted.custom_bind = olv_twamp_custom_bind;
        wanted.custom_unbind = olv_twamp_custom_unbind;
        wanted.get_imc = olv_twamp_get_imc;
        wanted.sys_log = olv_twamp_sys_log;
        wanted.lli_tree_function.id = expected.registered_lli;
        require_same("service functions", index, 0, std::memcmp(&wanted, &*table, sizeof wanted) == 0 ? 0 : 1);
    }
}

void library_world::compare_processor(std::size_t index)
{
    const platform_model::processor &expected = model->platform.processors[index];
    const olv_sim::processor &real = *processors_[index].processor;
    require_same("processor IDs", index, expected.allocated.size(),
                 real.allocated(olv_test::responder_namespace));
    for (const std::uint32_t id : expected.allocated) {
        require_same("processor ID", index, 1, real.is_allocated(olv_test::responder_namespace, id) ? 1 : 0);
    }
    for (const auto &function : expected.program.tree_functions) {
        const auto wanted = expected.trees.find(function.id);
        if (wanted == expected.trees.end()) {
            continue;
        }
        const model_tree &entries = wanted->second;
        const olv_sim::classifier_tree &tree = *real.tree(function.name);
        require_same("tree entries", index, entries.size(), tree.size());
        for (const auto &[key, entry] : entries) {
            const auto action = key.first == 24 ? tree.lookup(key.second) : olv_sim::tree_action{};
            require_same("tree entry", index, 1, action ? 1 : 0);
            for (std::size_t word = 0; key.first == 24 && word < 3; ++word) {
                require_same("tree action", index, entry.action.word[word], action->word[word]);
            }
        }
    }
    for (const auto &[id, bytes] : expected.states) {
        const olv_sim::state_words found = real.state(id);
        require_same("state length", index, bytes.size(), found.size() * 4);
        for (std::size_t word = 0; word < found.size(); ++word) {
            std::uint32_t wanted = 0;
            std::memcpy(&wanted, &bytes[word * 4], sizeof wanted);
            require_same("state word", index, wanted, found[word].load(std::memory_order_relaxed));
        }
    }
}

void library_world::compare_responders() const
{
    for (std::size_t index = 0; index < model->responders.size(); ++index) {
        const model_responder &expected = model->responders[index];
        const twamp_responder_handle *const real = expected.real;
        if (real == nullptr) {
            continue; // was freed before anyone saw it
        }
        require_same("responder lives", index, model->platform.blocks.contains(expected.block) ? 1 : 0,
                     olv_sim::memory::is_live(real) ? 1 : 0);
        require_same("responder ID", index, expected.record.responder_id, real->responder_id);
        require_same("responder magic", index, expected.record.magic, real->magic);
        require_same("responder module", index, low_word(expected.record.module), low_word(real->module));
        require_same("responder reserved words", index, 0, real->reserved[0] | real->reserved[1]);
    }
    for (std::size_t index = 0; index < slots.size(); ++index) {
        require_same("slot is filled", index, slots[index].model < 0 ? 0 : 1,
                     slots[index].real == nullptr ? 0 : 1);
        const auto responder = static_cast<std::size_t>(slots[index].model);
        const bool is_empty = slots[index].model < 0;
        const void *const wanted = is_empty ? nullptr : model->responders[responder].real;
        require_same("slot", index, low_word(wanted), low_word(slots[index].real));
    }
}

void library_world::release_held_locks()
{
    for (const std::uint32_t lock : model->platform.held) {
        (void)hyx_sem_post(lock); // held, as was just seen
    }
    model->platform.held.clear();
}

} // namespace olv_fuzz
