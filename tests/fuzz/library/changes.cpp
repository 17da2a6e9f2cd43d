// What changes around the library: faults, log words, damage to records, entries and state of another's making.
#include <cstring>

#include "library_run.hpp"

namespace olv_fuzz {
namespace {

// Of the classifier program.
constexpr std::uint32_t responder_tree_id = 0x104;
constexpr std::uint32_t bind_tree_id = 0x105;

void add_to_plan(library_run &r, std::optional<call> which, std::uint32_t skips)
{
    const std::uint32_t skip = r.input.below(skips);
    r.plan.push_back(
        {which,
         {r.input.one_of<0x1FF, 0x201FF, 0x10007, 0x10A, 0x20005, 0xFFFFFFFF, 0x80000001, 0xF0000>(), skip,
          r.input.one_of<1, 2, 3, olv_sim::fault::forever>()}});
    r.plan_stays = r.input.byte() >= 192;
}

void plan_any_fault(library_run &r)
{
    add_to_plan(r, std::nullopt, 32);
}

void plan_fault(library_run &r)
{
    std::vector<call> fallible;
    for (std::size_t index = 0; index < olv_sim::call_count; ++index) {
        if (olv_sim::can_fail(static_cast<call>(index))) {
            fallible.push_back(static_cast<call>(index));
        }
    }
    const call which = r.input.pick(fallible);
    add_to_plan(r, which, 4);
}

void clear_plan(library_run &r)
{
    r.plan.clear();
    r.plan_stays = false;
}

void set_log_words(library_run &r)
{
    static constexpr std::array<std::uint32_t, 10> words{0xDF, 0, 1, 3, 7, 15, 0x10, 0x40, 0x80, 0xFFFFFFD0};
    model_module &module = r.framework_module();
    module.set(&olv_module_handle::log_flags, r.input.pick(words));
    olv_system_handle *const system = r.world.systems[r.input.below(2)];
    system->log_flags = r.input.pick(words);
}

void set_module_magic(library_run &r)
{
    model_module &module = r.framework_module();
    module.set(&olv_module_handle::magic, r.input.one_of<module_magic, 0, 0x91872453>());
}

/** Only of a context that lives: nobody writes to one that the library gave back. */
void set_context_magic(library_run &r)
{
    model_module &module = r.framework_module();
    const std::uint32_t magic = r.input.one_of<context_magic, 0, 0x24614918>();
    library_model &model = *r.world.model;
    if (module.context >= 0 && model.platform.blocks.contains(model.context_of(module).block)) {
        model.context_of(module).magic = magic;
        std::memcpy(static_cast<void *>(module.real->ctx), &magic, sizeof magic);
    }
}

template <std::uint32_t... Values>
void set_responder_word(library_run &r, std::uint32_t twamp_responder_handle::*word)
{
    const responder_slot responder = r.any_responder();
    const std::uint32_t value = r.input.one_of<Values...>();
    if (responder.real != nullptr) {
        responder.real->*word = value;
        r.world.model->responders[static_cast<std::size_t>(responder.model)].record.*word = value;
    }
}

void set_responder_magic(library_run &r)
{
    set_responder_word<responder_magic, 0, 0x78563421>(r, &twamp_responder_handle::magic);
}

void set_responder_id(library_run &r)
{
    set_responder_word<1, 2, 3, 0, 0x01000001, global_statistics>(r, &twamp_responder_handle::responder_id);
}

/** The caller may give a record back; the block stays readable, so that a stale handle is refused or taken by
 *  its magic. */
void free_responder(library_run &r)
{
    const responder_slot responder = r.any_responder();
    if (responder.real != nullptr) {
        hyx_nvm_free(responder.real);
        library_model &model = *r.world.model;
        model.platform.free(model.responders[static_cast<std::size_t>(responder.model)].block);
    }
}

void copy_slot(library_run &r)
{
    const responder_slot responder = r.any_responder();
    r.world.slots[r.input.below(library_world::slot_count)] = responder;
}

void drop_slot(library_run &r)
{
    r.world.slots[r.input.below(library_world::slot_count)] = {};
}

void set_state(library_run &r)
{
    const model_module &module = r.framework_module();
    const std::uint32_t choice = r.input.below(library_world::maximum_responders + 1);
    const std::uint32_t word = r.input.below(16);
    r.world.set_state_word(module, choice == 0 ? global_statistics : choice, word, r.input.word());
}

void learn_entry(library_run &r)
{
    const model_module &module = r.framework_module();
    const std::uint32_t tree = r.input.flag() ? responder_tree_id : bind_tree_id;
    const std::uint32_t bits = r.input.one_of<24, 24, 0, 8, 16, 32>();
    const std::uint32_t value = bits == 0 ? 0 : r.input.below(8);
    const model_entry entry{.action = {{r.input.below(6), r.input.byte(), 0}},
                            .pattern_word = r.input.one_of<0, 24, 24, 7>()};
    r.world.change_entry(module, tree, {bits, value}, &entry);
}

void unlearn_entry(library_run &r)
{
    const model_module &module = r.framework_module();
    const std::uint32_t tree = r.input.flag() ? responder_tree_id : bind_tree_id;
    r.world.change_entry(module, tree, {24, r.input.below(8)}, nullptr);
}

void set_lock(library_run &r)
{
    static constexpr std::uint32_t unknown_lock = 0xDEAD0000;
    const std::uint32_t number = r.input.below(3);
    const std::uint32_t own = r.world.locks[number];
    const std::array<std::uint32_t, 4> choices{own, own, 0, unknown_lock};
    r.world.modules[number].set(&olv_module_handle::lock, r.input.pick(choices));
}

void move_module(library_run &r)
{
    model_module &module = r.framework_module();
    r.world.move_module(module, r.input.below(static_cast<std::uint32_t>(r.world.processor_count()) + 1));
}

void set_clocks(library_run &r)
{
    const hyx_time wall_clock{r.input.half(), r.input.half()};
    const std::int64_t word = r.input.word();
    const std::int64_t seconds = word << r.input.below(3);
    const olv_test::time_of_day day{seconds, r.input.word() % 1000000};
    const std::uint64_t high = r.input.word();
    r.world.set_clocks(wall_clock, day, high << 32 | r.input.word());
}

void set_destination(library_run &r)
{
    static constexpr std::array<std::uint16_t, 3> entry_points{0, 0x0123, 0xFFFF};
    olv_module_handle &destination = r.world.destinations[r.input.below(library_world::destination_count)];
    destination.default_entry_point = r.input.pick(entry_points);
    destination.magic = r.input.byte() < 192 ? module_magic : 0;
    const auto kind = static_cast<entry_point_kind>(r.input.below(5));
    // The platform answers for its own two modules only.
    const bool has_lookup = destination.module_id == 1 || destination.module_id == 11;
    const bool is_missing = kind == entry_point_kind::platform && !has_lookup;
    r.world.set_entry_point(destination.module_id, is_missing ? entry_point_kind::none : kind);
}

void set_system(library_run &r)
{
    model_module &module = r.framework_module();
    module.set(&olv_module_handle::system, r.input.below(3) < 2 ? r.world.systems[0] : nullptr);
}

} // namespace

const std::vector<surrounding_change> surrounding_changes{
    {"plan_any_fault", plan_any_fault},
    {"plan_fault", plan_fault},
    {"clear_plan", clear_plan},
    {"set_log_words", set_log_words},
    {"set_module_magic", set_module_magic},
    {"set_context_magic", set_context_magic},
    {"set_responder_magic", set_responder_magic},
    {"set_responder_id", set_responder_id},
    {"free_responder", free_responder},
    {"copy_slot", copy_slot},
    {"drop_slot", drop_slot},
    {"set_state", set_state},
    {"learn_entry", learn_entry},
    {"unlearn_entry", unlearn_entry},
    {"set_lock", set_lock},
    {"move_module", move_module},
    {"set_clocks", set_clocks},
    {"set_destination", set_destination},
    {"set_system", set_system},
};

} // namespace olv_fuzz
