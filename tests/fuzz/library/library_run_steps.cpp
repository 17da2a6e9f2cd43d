// Steps: counters and dumps, and what changes around the library.
#include <cstring>

#include "library_run.hpp"
#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/framework.hpp"
#include "olv_sim/process.hpp"
#include "olv_sim/processor.hpp"
#include "time_of_day.hpp"

namespace olv_fuzz {
namespace {

constexpr std::array fallible{call::olv_sys_sem_lock_wait,
                              call::olv_module_service_function_register,
                              call::olv_module_service_function_update,
                              call::olv_ptn_new,
                              call::olv_ptn_extend,
                              call::olv_ptn_parse,
                              call::olv_lttng_fn_ptr_get,
                              call::hyx_nvm_calloc,
                              call::hyx_sem_post,
                              call::hyx_timer_get_timestamp,
                              call::hyx_rsrc_find,
                              call::hyx_rsrc_allocate,
                              call::hyx_rsrc_free,
                              call::hyx_ptn_symbol_get_id,
                              call::hyx_ptn_learn,
                              call::hyx_ptn_unlearn,
                              call::hyx_ptn_list_ptns,
                              call::hyx_se_state_set,
                              call::hyx_se_state_get,
                              call::entry_point_lookup};

constexpr std::array<std::uint32_t, 8> fault_codes{0x1FF,   0x201FF,    0x10007,    0x10A,
                                                   0x20005, 0xFFFFFFFF, 0x80000001, 0xF0000};
constexpr std::array<std::uint32_t, 4> fault_counts{1, 2, 3, olv_sim::fault::forever};

std::optional<std::uint32_t> value_of(const std::optional<olv_ptn_action> &action)
{
    return action ? std::optional{action->word[0]} : std::nullopt;
}

} // namespace

/** NULL pointers that the documentation gives a status for but no text: the status, and that nothing changed.
 */
void library_run::call_with_null()
{
    olv_module_handle *const module = world_.modules[0];
    const std::uint32_t lock = world_.model_modules[0].lock;
    const bool usable =
        module->magic == module_magic && world_.model->valid_module_handle(world_.model_modules[0]) == 1;
    if (!usable || (lock != 0 && lock != world_.locks[0])) {
        return; // what is wrong with the module decides first
    }
    std::uint32_t word = 0xA5A5A5A5;
    olv_bind_info info = olv_sim::make_bind_info(module, nullptr, &bind_key_);
    const std::uint32_t choice = input_.below(8);
    const std::uint32_t found = world_.seen.observe([&] {
        switch (choice) {
        case 0:
            return olv_twamp_get_imc(module, nullptr, &word);
        case 1:
            return olv_twamp_get_imc(module, &info, &word);
        case 2:
            info.dst_module = &world_.destinations[0];
            return olv_twamp_get_imc(module, &info, nullptr);
        case 3:
            return olv_twamp_map_sys_log(module, 3, nullptr);
        case 4:
            return olv_twamp_custom_bind(world_.systems[0], &info);
        case 5:
            return olv_twamp_custom_unbind(world_.systems[0], &info);
        case 6:
            world_.set_entry_point(11, entry_point_kind::fixed);
            info.dst_module = &world_.destinations[1];
            info.src_instance = nullptr;
            return olv_twamp_custom_bind(world_.systems[0], &info);
        default:
            return olv_twamp_dump_tables(nullptr, 3);
        }
    });
    require_equal("call with a NULL pointer", "status", choice == 7 ? 1 : 0x30008, found);
    require_equal("call with a NULL pointer", "result word", 0xA5A5A5A5, word);
    require_equal("call with a NULL pointer", "changes", 0, world_.state_difference().size());
}

void library_run::global_stats_get()
{
    const module_pair module = any_module();
    const bool has_stats = input_.byte() < 224;
    std::array<std::uint32_t, 6> expected{};
    expected.fill(0xA5A5A5A5);
    std::array<std::uint32_t, 6> found = expected;
    static_assert(sizeof found == sizeof(olv_twamp_global_stats));
    olv_twamp_global_stats record{};
    std::memcpy(&record, found.data(), sizeof record);
    both(
        "global_stats_get",
        [&] { return world_.model->global_stats_get(module.model, has_stats ? &expected : nullptr); },
        [&] { return olv_twamp_global_stats_get(module.real, has_stats ? &record : nullptr); });
    std::memcpy(found.data(), &record, sizeof record);
    for (std::size_t index = 0; index < found.size(); ++index) {
        require_equal("global_stats_get", "counter", expected[index], found[index]);
    }
}

void library_run::global_stats_print()
{
    const module_pair module = any_module();
    both(
        "global_stats_print", [&] { return world_.model->global_stats_print(module.model); },
        [&] { return olv_twamp_global_stats_print(module.real); });
}

void library_run::tables_dump()
{
    static constexpr std::array<std::uint32_t, 8> groups{3, 1, 2, 0, 4, 0x80000000, 0xFFFFFFFF, 7};
    const module_pair module = any_module();
    const std::uint32_t group = input_.pick(groups);
    both(
        "tables_dump", [&] { return world_.model->tables_dump(module.model, group); },
        [&] { return olv_twamp_tables_dump(module.real, group); });
}

void library_run::dump_tables()
{
    const std::size_t index = framework_module();
    const std::uint32_t group = input_.below(8);
    model_module &model = world_.model_modules[index];
    const bool usable = model.magic == module_magic && world_.model->valid_module_handle(model) == 1;
    if (!usable) {
        return; // its caller has checked the handle
    }
    both(
        "dump_tables", [&] { return world_.model->dump_tables(model, group); },
        [&] { return olv_twamp_dump_tables(world_.modules[index], group); });
}

/** NULL, a pattern of the framework, or words that are none. */
std::optional<pattern_argument> library_run::pattern(olv_ptn &real, bool &owned)
{
    static constexpr std::array<std::uint32_t, 5> widths{24, 0, 16, 24, 32};
    const std::uint32_t choice = input_.below(4);
    owned = false;
    if (choice == 0) {
        return std::nullopt;
    }
    const std::uint32_t bits = input_.pick(widths);
    pattern_argument expected{.length = bits, .pattern = {}};
    if (choice == 1) {
        real = {{0xFFFFFFFF, bits, 0}};
        return expected;
    }
    const std::uint32_t value = input_.word();
    owned = true;
    (void)olv_ptn_new(32, &real);
    if (bits > 0) {
        (void)olv_ptn_extend(&real, value, bits);
    }
    expected.pattern = {.known = true, .bits = bits, .value = bits == 24 ? value & 0xFFFFFF : value};
    return expected;
}

/** Of an entry: each value that has a meaning, some that have none, or NULL. */
std::optional<olv_ptn_action> library_run::action()
{
    const std::uint32_t value = input_.below(7);
    return value < 6 ? std::optional<olv_ptn_action>{{{value, 0, 0}}} : std::nullopt;
}

void library_run::table_entry_dump()
{
    const std::uint32_t index = input_.below(3);
    const std::optional<olv_ptn_action> real_action = action();
    olv_ptn real{};
    bool owned = false;
    const std::optional<pattern_argument> expected = pattern(real, owned);
    world_.model->platform.patterns += owned ? 1 : 0;
    both(
        "table_entry_dump",
        [&] {
            world_.model->table_entry_dump(index, expected ? &*expected : nullptr, value_of(real_action));
            return 0u;
        },
        [&] {
            olv_twamp_table_entry_dump(index, expected ? &real : nullptr,
                                       real_action ? &*real_action : nullptr);
            return 0u;
        });
    world_.model->platform.patterns -= owned ? 1 : 0;
    if (owned) {
        olv_ptn_free(real);
    }
}

void library_run::responder_entry_dump()
{
    const std::optional<olv_ptn_action> real_action = action();
    olv_ptn real{};
    bool owned = false;
    const std::optional<pattern_argument> expected = pattern(real, owned);
    world_.model->platform.patterns += owned ? 1 : 0;
    both(
        "responder_entry_dump",
        [&] {
            return static_cast<std::uint32_t>(
                world_.model->responder_entry_dump(expected ? &*expected : nullptr, value_of(real_action)));
        },
        [&] {
            return static_cast<std::uint32_t>(
                ::responder_entry_dump(expected ? &real : nullptr, real_action ? &*real_action : nullptr));
        });
    world_.model->platform.patterns -= owned ? 1 : 0;
    if (owned) {
        olv_ptn_free(real);
    }
}

void library_run::valid_module_handle()
{
    const std::size_t index = framework_module();
    both(
        "valid_module_handle", [&] { return world_.model->valid_module_handle(world_.model_modules[index]); },
        [&] { return olv_twamp_valid_module_handle(world_.modules[index]); });
}

void library_run::plan_any_fault()
{
    const std::uint32_t skip = input_.below(32);
    plan_.push_back({std::nullopt, {input_.pick(fault_codes), skip, input_.pick(fault_counts)}});
    plan_stays_ = input_.byte() >= 192;
}

void library_run::plan_fault()
{
    const call which = input_.pick(fallible);
    const std::uint32_t skip = input_.below(4);
    plan_.push_back({which, {input_.pick(fault_codes), skip, input_.pick(fault_counts)}});
    plan_stays_ = input_.byte() >= 192;
}

void library_run::clear_plan()
{
    plan_.clear();
    plan_stays_ = false;
}

void library_run::set_log_words()
{
    static constexpr std::array<std::uint32_t, 10> words{0xDF, 0, 1, 3, 7, 15, 0x10, 0x40, 0x80, 0xFFFFFFD0};
    const std::size_t module = framework_module();
    world_.modules[module]->log_flags = input_.pick(words);
    world_.model_modules[module].log_flags = world_.modules[module]->log_flags;
    const std::uint32_t system = input_.below(2);
    world_.systems[system]->log_flags = input_.pick(words);
    world_.model_systems[system].log_flags = world_.systems[system]->log_flags;
}

void library_run::set_module_magic()
{
    static constexpr std::array<std::uint32_t, 3> magics{module_magic, 0, 0x91872453};
    const std::size_t module = framework_module();
    world_.modules[module]->magic = input_.pick(magics);
    world_.model_modules[module].magic = world_.modules[module]->magic;
}

/** Only of a context that lives: nobody writes to one that the library gave back. */
void library_run::set_context_magic()
{
    static constexpr std::array<std::uint32_t, 3> magics{context_magic, 0, 0x24614918};
    const std::size_t module = framework_module();
    const std::uint32_t magic = input_.pick(magics);
    const int context = world_.model_modules[module].context;
    if (context < 0) {
        return;
    }
    model_context &expected = world_.model->contexts[static_cast<std::size_t>(context)];
    if (world_.model->platform.blocks.contains(expected.block)) {
        expected.magic = magic;
        std::memcpy(static_cast<void *>(world_.modules[module]->ctx), &magic, sizeof magic);
    }
}

void library_run::set_responder_word(std::span<const std::uint32_t> values,
                                     std::uint32_t twamp_responder_handle::*real,
                                     std::uint32_t model_responder::*expected)
{
    const responder_pair responder = any_responder();
    const std::uint32_t value = input_.pick(values);
    if (responder.real != nullptr) {
        responder.real->*real = value;
        world_.model->responders[static_cast<std::size_t>(responder.model)].*expected = value;
    }
}

void library_run::set_responder_magic()
{
    static constexpr std::array<std::uint32_t, 3> magics{responder_magic, 0, 0x78563421};
    set_responder_word(magics, &twamp_responder_handle::magic, &model_responder::magic);
}

void library_run::set_responder_id()
{
    static constexpr std::array<std::uint32_t, 6> ids{1, 2, 3, 0, 0x01000001, global_statistics};
    set_responder_word(ids, &twamp_responder_handle::responder_id, &model_responder::id);
}

/** The caller may give a record back; the block stays readable, so that a stale handle is refused or taken by
 *  its magic. */
void library_run::free_responder()
{
    const responder_pair responder = any_responder();
    if (responder.real != nullptr) {
        hyx_nvm_free(responder.real);
        model_responder &expected = world_.model->responders[static_cast<std::size_t>(responder.model)];
        world_.model->platform.free(expected.block);
    }
}

void library_run::copy_slot()
{
    const responder_pair responder = any_responder();
    const std::uint32_t to = input_.below(slot_count);
    world_.slots[to] = responder.real;
    world_.model_slots[to] = responder.model;
}

void library_run::drop_slot()
{
    const std::uint32_t slot = input_.below(slot_count);
    world_.slots[slot] = nullptr;
    world_.model_slots[slot] = -1;
}

void library_run::set_state()
{
    const std::size_t processor = world_.processor_of(world_.modules[framework_module()]->rte_handle);
    const std::uint32_t choice = input_.below(library_world::maximum_responders + 1);
    const std::uint32_t id = choice == 0 ? global_statistics : choice;
    const std::uint32_t word = input_.below(16);
    const std::uint32_t bytes = input_.word();
    if (processor < world_.processor_count()) {
        world_.set_state_word(processor, id, word, bytes);
    }
}

void library_run::learn_entry()
{
    static constexpr std::array<std::uint32_t, 6> widths{24, 24, 0, 8, 16, 32};
    static constexpr std::array<std::uint32_t, 4> pattern_words{0, 24, 24, 7};
    const std::size_t processor = world_.processor_of(world_.modules[framework_module()]->rte_handle);
    const std::uint32_t tree = input_.flag() ? 0x104 : 0x105;
    const std::uint32_t bits = input_.pick(widths);
    const std::uint32_t value = bits == 0 ? 0 : input_.below(8);
    const model_entry entry{.action = {input_.below(6), input_.byte(), 0},
                            .pattern_word = input_.pick(pattern_words)};
    if (processor < world_.processor_count()) {
        world_.learn(processor, tree, {bits, value}, entry);
    }
}

void library_run::unlearn_entry()
{
    const std::size_t processor = world_.processor_of(world_.modules[framework_module()]->rte_handle);
    const std::uint32_t tree = input_.flag() ? 0x104 : 0x105;
    const std::uint32_t value = input_.below(8);
    if (processor < world_.processor_count()) {
        world_.unlearn(processor, tree, {24, value});
    }
}

void library_run::set_lock()
{
    static constexpr std::uint32_t unknown_lock = 0xDEAD0000;
    const std::size_t module = framework_module();
    const std::array<std::uint32_t, 4> choices{world_.locks[module], world_.locks[module], 0, unknown_lock};
    world_.modules[module]->lock = input_.pick(choices);
    world_.model_modules[module].lock = world_.modules[module]->lock;
}

void library_run::move_module()
{
    const std::size_t module = framework_module();
    world_.move_module(module, input_.below(static_cast<std::uint32_t>(world_.processor_count()) + 1));
}

void library_run::set_clocks()
{
    library_model &model = *world_.model;
    model.wall_clock = {input_.half(), input_.half()};
    olv_sim::set_wall_clock(model.wall_clock);
    model.day_seconds = static_cast<std::int64_t>(input_.word()) << input_.below(3);
    model.day_microseconds = input_.word() % 1000000;
    olv_test::set_time_of_day(olv_test::time_of_day{model.day_seconds, model.day_microseconds});
    const std::uint64_t ticks = std::uint64_t{input_.word()} << 32 | input_.word();
    for (std::size_t processor = 0; processor < 2; ++processor) {
        world_.set_timer(processor, ticks);
    }
}

void library_run::set_destination()
{
    static constexpr std::array kinds{entry_point_kind::platform, entry_point_kind::none,
                                      entry_point_kind::zero, entry_point_kind::fixed,
                                      entry_point_kind::failing};
    static constexpr std::array<std::uint16_t, 3> entry_points{0, 0x0123, 0xFFFF};
    const std::uint32_t index = input_.below(library_world::destination_count);
    olv_module_handle &real = world_.destinations[index];
    model_destination &model = world_.model_destinations[index];
    real.default_entry_point = input_.pick(entry_points);
    model.default_entry_point = real.default_entry_point;
    model.genuine = input_.byte() < 192;
    real.magic = model.genuine ? module_magic : 0;
    const std::uint32_t kind = input_.below(kinds.size());
    // The platform answers for its own two modules only.
    const bool is_ip = real.module_id == 1 || real.module_id == 11;
    world_.set_entry_point(real.module_id, kind == 0 && !is_ip ? entry_point_kind::none : kinds[kind]);
}

void library_run::set_system()
{
    const std::size_t module = framework_module();
    const std::uint32_t choice = input_.below(3);
    world_.modules[module]->system = choice < 2 ? world_.systems[0] : nullptr;
    world_.model_modules[module].system = choice < 2 ? &world_.model_systems[0] : nullptr;
}

} // namespace olv_fuzz
