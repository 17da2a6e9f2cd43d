// Where the platform and the modules differ from the model.
#include <algorithm>
#include <cstring>

#include "library_world.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/resources.hpp"
#include "olv_sim/violations.hpp"

namespace olv_fuzz {
namespace {

/** What something belongs to; becomes a text only when there is a difference. */
struct place {
    const char *name = "";
    std::size_t index = 0;
};

/** Nothing when both are the same. */
std::string compared(const place &where, const char *what, std::uint64_t expected, std::uint64_t found)
{
    if (expected == found) {
        return {};
    }
    return std::string{where.name} + ' ' + std::to_string(where.index) + ", " + what + ": " +
           std::to_string(expected) + " expected, " + std::to_string(found) + " found\n";
}

bool same_bytes(const model_bytes &expected, olv_sim::state_words found)
{
    if (found.size() * 4 != expected.size()) {
        return false;
    }
    for (std::size_t word = 0; word < found.size(); ++word) {
        const std::uint32_t value = found[word].load(std::memory_order_relaxed);
        if (std::memcmp(&expected[word * 4], &value, sizeof value) != 0) {
            return false;
        }
    }
    return true;
}

std::string tree_difference(const place &where, const model_tree &expected,
                            const olv_sim::classifier_tree &found)
{
    std::string text = compared(where, "tree entries", expected.size(), found.size());
    for (const auto &[key, entry] : expected) {
        if (key.first != 24) {
            continue;
        }
        const auto action = found.lookup(key.second);
        const bool same = action && std::equal(entry.action.begin(), entry.action.end(), action->word);
        text += compared(where, "tree entry as expected", 1, same ? 1 : 0);
    }
    return text;
}

} // namespace

std::string library_world::state_difference()
{
    std::string text = compared({}, "live blocks", model->platform.blocks.size(),
                                olv_sim::memory::in_use().live_blocks - blocks_before_);
    text +=
        compared({}, "live patterns", model->platform.patterns, olv_sim::patterns::live() - patterns_before_);
    text += compared({}, "breaches of the platform's contract", model->platform.violations,
                     olv_sim::violations::count());
    for (std::size_t index = 0; index < module_count; ++index) {
        text += module_difference(index);
    }
    for (std::size_t index = 0; index < processors_.size(); ++index) {
        if (processors_[index].touched) {
            text += processor_difference(index);
        }
    }
    return text + responder_difference();
}

std::string library_world::module_difference(std::size_t index)
{
    const olv_module_handle &real = *modules[index];
    const model_module &expected = model_modules[index];
    const place where{"module", index};
    std::string text = compared(where, "magic", expected.magic, real.magic);
    text += compared(where, "log flags", expected.log_flags, real.log_flags);
    text += compared(where, "has a context", expected.context >= 0 ? 1 : 0, real.ctx != nullptr ? 1 : 0);
    text += compared(where, "lock held", model->platform.held.contains(locks[index]) ? 1 : 0,
                     olv_sim::semaphores::held(locks[index]));
    if (real.ctx != nullptr && std::find(contexts_.begin(), contexts_.end(), real.ctx) == contexts_.end()) {
        contexts_.push_back(real.ctx);
    }
    return index < 2 ? text + registration_difference(index) : text;
}

std::string library_world::registration_difference(std::size_t index) const
{
    const model_module &expected = model_modules[index];
    const auto table = framework_.registered(modules[index]);
    const place where{"module", index};
    const bool has_one = expected.registered != registration::none;
    if (!table || !has_one) {
        return compared(where, "registered", has_one ? 1 : 0, table ? 1 : 0);
    }
    olv_service_function_table wanted{};
    wanted.shutdown = olv_twamp_shutdown;
    wanted.custom_bind = olv_twamp_custom_bind;
    wanted.custom_unbind = olv_twamp_custom_unbind;
    wanted.get_imc = olv_twamp_get_imc;
    wanted.sys_log = olv_twamp_sys_log;
    wanted.lli_tree_function.id = expected.registered_lli;
    return compared(where, "service functions as expected", 1,
                    std::memcmp(&wanted, &*table, sizeof wanted) == 0 ? 1 : 0);
}

std::string library_world::processor_difference(std::size_t index)
{
    const platform_model::processor &expected = model->platform.processors[index];
    const olv_sim::processor &real = *processors_[index].processor;
    const place where{"processor", index};
    std::string text =
        compared(where, "IDs allocated", expected.allocated.size(), real.allocated("twamp_responder"));
    for (const std::uint32_t id : expected.allocated) {
        text += compared(where, "ID allocated", 1, real.is_allocated("twamp_responder", id) ? 1 : 0);
    }
    for (const auto &[id, entries] : expected.trees) {
        const char *name =
            id == 0x104 ? "olv_twamp.twamp_responder_lookup" : "olv_twamp.twamp_bind_to_next_module";
        text += tree_difference(where, entries, *real.tree(name));
    }
    for (const auto &[id, bytes] : expected.states) {
        text += compared(where, "state entry as expected", 1, same_bytes(bytes, real.state(id)) ? 1 : 0);
    }
    return text;
}

std::string library_world::responder_difference() const
{
    std::string text;
    for (std::size_t index = 0; index < records.size(); ++index) {
        const model_responder &expected = model->responders[index];
        const twamp_responder_handle *real = records[index];
        const place where{"responder record", index};
        if (real == nullptr) {
            continue; // was freed before anyone saw it
        }
        text += compared(where, "live", model->platform.blocks.contains(expected.block) ? 1 : 0,
                         olv_sim::memory::is_live(real) ? 1 : 0);
        text += compared(where, "ID", expected.id, real->responder_id);
        text += compared(where, "magic", expected.magic, real->magic);
        const bool same_module =
            expected.module == nullptr
                ? real->module == nullptr
                : real->module != nullptr &&
                      static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(real->module)) ==
                          expected.module->address;
        text += compared(where, "module", 1, same_module ? 1 : 0);
        text += compared(where, "reserved words", 0, real->reserved[0] | real->reserved[1]);
    }
    for (std::size_t slot = 0; slot < slot_count; ++slot) {
        const int expected = model_slots[slot];
        twamp_responder_handle *wanted = expected < 0 ? nullptr : records[static_cast<std::size_t>(expected)];
        text += compared({"slot", slot}, "as expected", 1, slots[slot] == wanted ? 1 : 0);
    }
    return text;
}

} // namespace olv_fuzz
