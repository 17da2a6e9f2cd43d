#include "library_world.hpp"

#include <cstring>

#include "olv_sim/process.hpp"
#include "olv_sim/resources.hpp"
#include "olv_sim/violations.hpp"

namespace olv_fuzz {
namespace {

using olv_sim::classifier_program;

/** A program as it should be, and others that lack something. */
std::vector<classifier_program> programs()
{
    std::vector<classifier_program> all(8, classifier_program::twamp(library_world::maximum_responders, 4));
    all[1].namespaces.front().capacity = 2;
    all[2].namespaces.pop_back();
    all[3].tree_functions.pop_back();
    all[4].global_statistics = false;
    all[5].tree_functions[2].id = 0x12345; // not a word of 16 bits
    all[6].tree_functions[3].classifier = false;
    all[7].namespaces.front().state_length = 0;
    return all;
}

olv_entry_point_lookup platform_lookup(std::uint32_t module_id)
{
    static const olv_entry_point_lookup ipv4 = moduleMgrCpuServiceFn[OLV_MODULE_ID_IPV4].entry_point_lookup;
    static const olv_entry_point_lookup ipv6 = moduleMgrCpuServiceFn[OLV_MODULE_ID_IPV6].entry_point_lookup;
    return module_id == OLV_MODULE_ID_IPV4 ? ipv4 : ipv6;
}

/** Change a tree as another user of the processor does. @param entry  NULL: unlearn. What becomes of it is
 *  seen in the comparison. */
void change_tree(std::uint32_t rte, std::uint32_t tree, const model_key &key, const model_entry *entry)
{
    olv_ptn own{};
    (void)olv_ptn_new(32, &own);
    if (key.first != 0) {
        (void)olv_ptn_extend(&own, key.second, key.first);
    }
    olv_ptn pattern = own;
    olv_ptn_action action = entry != nullptr ? entry->action : olv_ptn_action{};
    if (entry == nullptr) {
        (void)hyx_ptn_unlearn(rte, tree, &pattern, key.first, &action, 1);
    } else {
        pattern.word[2] = entry->pattern_word;
        (void)hyx_ptn_learn(rte, tree, &pattern, &action);
    }
    olv_ptn_free(own);
}

} // namespace

library_world::library_world(const model_constants &constants) : constants_(constants)
{
    olv_sim::violations::set_echo(false);
    for (const classifier_program &program : programs()) {
        processors_.push_back({std::make_unique<const classifier_program>(program),
                               std::make_unique<olv_sim::processor>(program), false});
        processors_.back().processor->set_timer(0);
        restore(processors_.back());
    }
    add_modules();
    blocks_before_ = olv_sim::memory::in_use().live_blocks;
    patterns_before_ = olv_sim::patterns::live();
}

void library_world::add_modules()
{
    other_system_ = {.magic = 0x53A10001, .log_flags = 0, .log_name = "other", .reserved = {}, .module_id = 61};
    systems = {framework_.system(), &other_system_};
    modules[0].real = framework_.create_module({.module_id = olv_sim::module_id_twamp, .log_name = "twamp"});
    modules[1].real = framework_.create_module({.module_id = olv_sim::module_id_twamp, .log_name = "second"});
    alien_ = *modules[0].real;
    alien_.log_name = "alien";
    modules[2].real = &alien_;
    locks = {modules[0].real->lock, modules[1].real->lock, modules[0].real->lock};

    const std::array<std::uint32_t, destination_count> ids{1, 11, 7, 8, 9, 63};
    for (std::size_t index = 0; index < destination_count; ++index) {
        destinations[index].module_id = ids[index];
        destinations[index].log_name = "destination";
    }
    (void)platform_lookup(1); // keeps the framework's own
}

void library_world::begin()
{
    olv_sim::reset_process();
    olv_sim::violations::set_echo(false);
    model.emplace(constants_);
    for (const real_processor &one : processors_) {
        model->platform.processors.emplace_back(*one.program, one.processor->rte_handle());
    }
    set_clocks({12, 34}, {1000000000, 500000}, 0);
    for (olv_system_handle *system : systems) {
        system->log_flags = 0;
    }
    for (std::size_t index = 0; index < modules.size(); ++index) {
        begin_module(index);
    }
    for (olv_module_handle &destination : destinations) {
        destination.magic = module_magic;
        destination.default_entry_point = 0;
    }
    set_entry_point(1, entry_point_kind::platform);
    set_entry_point(11, entry_point_kind::platform);
    set_entry_point(7, entry_point_kind::fixed);
    set_entry_point(8, entry_point_kind::zero);
    set_entry_point(9, entry_point_kind::failing);
    set_entry_point(63, entry_point_kind::none);
    slots.fill({});
}

void library_world::begin_module(std::size_t index)
{
    olv_module_handle &record = *modules[index].real;
    record.magic = module_magic;
    record.log_flags = 0;
    record.lock = locks[index];
    record.system = systems[0];
    record.ctx = nullptr;
    modules[index] = {.real = &record, .record = record, .known_to_framework = index < 2};
    model->platform.semaphores.insert(record.lock);
    move_module(modules[index], 0);
}

void library_world::end()
{
    clear_faults();
    for (const model_responder &responder : model->responders) {
        if (olv_sim::memory::is_live(responder.real)) {
            hyx_nvm_free(responder.real);
        }
    }
    for (const model_context &context : model->contexts) {
        if (olv_sim::memory::is_live(context.real)) {
            hyx_nvm_free(context.real);
        }
    }
    const olv_service_function_table nothing{};
    for (std::size_t index = 0; index < 2; ++index) {
        modules[index].real->magic = module_magic;
        (void)olv_module_service_function_register(systems[0], modules[index].real, &nothing);
    }
    for (std::size_t index = 0; index < processors_.size(); ++index) {
        if (!processors_[index].touched) {
            continue;
        }
        for (const auto &[tree, entries] : model->platform.processors[index].trees) {
            for (const auto &[key, entry] : entries) {
                change_tree(processors_[index].processor->rte_handle(), tree, key, nullptr);
            }
        }
        restore(processors_[index]);
    }
}

/** All IDs free, in ascending order, and zeros in state memory. */
void library_world::restore(real_processor &one)
{
    one.touched = false;
    const std::uint32_t rte = one.processor->rte_handle();
    std::uint32_t resources = 0;
    (void)hyx_rsrc_find(rte, 0, "twamp_responder", &resources); // the program has it
    std::uint32_t id = 0;
    while (hyx_rsrc_allocate(resources, 1, &id) == 0) {
    }
    static constexpr std::array<std::uint8_t, 128> zeros{};
    for (id = 1; id <= one.program->namespaces.front().capacity; ++id) {
        (void)hyx_rsrc_free(resources, id, 1);
        (void)hyx_se_state_set(rte, id, 0, zeros.data(), 60); // the program may have none
    }
    (void)hyx_se_state_set(rte, global_statistics, 0, zeros.data(), 128);
}

void library_world::plan(std::optional<call> which, const olv_sim::fault &fault)
{
    model->platform.faults.plan(which, fault);
    if (which) {
        olv_sim::faults::set(*which, fault);
    } else {
        olv_sim::faults::set_any(fault);
    }
}

void library_world::clear_faults()
{
    model->platform.faults.clear();
    olv_sim::faults::clear_all();
}

void library_world::set_clocks(const hyx_time &wall_clock, const olv_test::time_of_day &day,
                               std::uint64_t ticks)
{
    model->wall_clock = wall_clock;
    olv_sim::set_wall_clock(wall_clock);
    model->day = day;
    olv_test::set_time_of_day(day);
    for (std::size_t index = 0; index < 2; ++index) {
        model->platform.processors[index].timer = ticks;
        processors_[index].processor->set_timer(ticks);
    }
}

void library_world::set_entry_point(std::uint32_t module_id, entry_point_kind kind)
{
    // The one that fails answers with an entry point, too, which is not to be used.
    const auto fixed = [](olv_module_handle *, const olv_bind_info *, std::uint32_t *entry_point) {
        *entry_point = fixed_entry_point;
        return 0u;
    };
    const auto failing = [](olv_module_handle *, const olv_bind_info *, std::uint32_t *entry_point) {
        *entry_point = fixed_entry_point;
        return failing_entry_point_status;
    };
    const auto zero = [](olv_module_handle *, const olv_bind_info *, std::uint32_t *) { return 0u; };
    const olv_entry_point_lookup lookups[] = {platform_lookup(module_id), nullptr, zero, fixed, failing};
    model->entry_points[module_id] = kind;
    moduleMgrCpuServiceFn[module_id].entry_point_lookup = lookups[static_cast<std::size_t>(kind)];
}

void library_world::move_module(model_module &module, std::size_t processor)
{
    // One beyond the last stands for a processor that is not there.
    std::uint32_t rte = 4000;
    if (processor < processors_.size()) {
        processors_[processor].touched = true;
        rte = processors_[processor].processor->rte_handle();
    }
    module.set(&olv_module_handle::rte_handle, rte);
}

void library_world::change_entry(const model_module &module, std::uint32_t tree, const model_key &key,
                                 const model_entry *entry)
{
    const std::uint32_t rte = module.record.rte_handle;
    platform_model &platform = model->platform;
    if (platform.find(rte) != nullptr &&
        (entry != nullptr ? platform.learn(rte, tree, key, *entry) : platform.unlearn(rte, tree, key)) == 0) {
        change_tree(rte, tree, key, entry);
    }
}

void library_world::set_state_word(const model_module &module, std::uint32_t id, std::size_t word,
                                   std::uint32_t bytes)
{
    platform_model::processor *const owner = model->platform.find(module.record.rte_handle);
    if (owner == nullptr || !owner->states.contains(id) || word * 4 >= owner->states[id].size()) {
        return;
    }
    std::memcpy(&owner->states[id][word * 4], &bytes, sizeof bytes);
    const auto index = static_cast<std::size_t>(owner - model->platform.processors.data());
    processors_[index].processor->state(id)[word] = bytes;
}

model_module *library_world::refreshed_foreign()
{
    model_foreign_ = modules[0];
    model_foreign_.real = &foreign_;
    foreign_ = *modules[0].real;
    model_foreign_.set(&olv_module_handle::magic, module_magic + 1);
    foreign_.log_name = reinterpret_cast<const char *>(std::uintptr_t{16}); // not to be followed
    foreign_.system = reinterpret_cast<olv_system_handle *>(std::uintptr_t{16});
    return &model_foreign_;
}

} // namespace olv_fuzz
