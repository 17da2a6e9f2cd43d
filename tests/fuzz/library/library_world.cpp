#include "library_world.hpp"

#include <cstring>

#include "olv_sim/faults.hpp"
#include "olv_sim/framework.hpp"
#include "olv_sim/process.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/resources.hpp"
#include "olv_sim/violations.hpp"
#include "time_of_day.hpp"

namespace olv_fuzz {
namespace {

constexpr std::uint32_t responder_tree = 0x104;
constexpr std::uint32_t bind_tree = 0x105;
constexpr const char *responder_names = "twamp_responder";

std::uint32_t low_word(const void *pointer)
{
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(pointer));
}

olv_sim::classifier_program program_of(const processor_description &description)
{
    olv_sim::classifier_program program = olv_sim::classifier_program::twamp(description.responders, 4);
    if (!description.session_namespace) {
        program.namespaces.pop_back();
    }
    if (!description.responder_state) {
        program.namespaces.front().state_length = 0;
    }
    program.tree_functions[2].id = description.lli_tree_id;
    program.tree_functions[3].classifier = description.responder_tree_has_entries;
    if (!description.bind_tree) {
        program.tree_functions.pop_back();
    }
    program.global_statistics = description.global_statistics;
    return program;
}

// What the destinations' lookups answer.
std::uint32_t lookup_zero(olv_module_handle *, const olv_bind_info *, std::uint32_t *)
{
    return 0;
}

std::uint32_t lookup_fixed(olv_module_handle *, const olv_bind_info *, std::uint32_t *entry_point)
{
    *entry_point = fixed_entry_point;
    return 0;
}

std::uint32_t lookup_failing(olv_module_handle *, const olv_bind_info *, std::uint32_t *entry_point)
{
    *entry_point = fixed_entry_point; // not to be used
    return failing_entry_point_status;
}

olv_entry_point_lookup platform_lookup(std::uint32_t module_id)
{
    static const olv_entry_point_lookup ipv4 = moduleMgrCpuServiceFn[OLV_MODULE_ID_IPV4].entry_point_lookup;
    static const olv_entry_point_lookup ipv6 = moduleMgrCpuServiceFn[OLV_MODULE_ID_IPV6].entry_point_lookup;
    return module_id == OLV_MODULE_ID_IPV4 ? ipv4 : ipv6;
}

} // namespace

library_world::library_world(const model_constants &constants) : constants_(constants)
{
    olv_sim::violations::set_echo(false);
    add_processors();
    add_modules();
    blocks_before_ = olv_sim::memory::in_use().live_blocks;
    patterns_before_ = olv_sim::patterns::live();
}

void library_world::add_processors()
{
    const std::vector<processor_description> descriptions{
        {},
        {.responders = 2},
        {.session_namespace = false},
        {.bind_tree = false},
        {.global_statistics = false},
        {.lli_tree_id = 0x12345},
        {.responder_tree_has_entries = false},
        {.responder_state = false},
    };
    for (const processor_description &description : descriptions) {
        real_processor added{.description = description,
                             .processor = std::make_unique<olv_sim::processor>(program_of(description)),
                             .touched = true};
        restore(added);
        processors_.push_back(std::move(added));
    }
}

void library_world::add_modules()
{
    other_system_ = {.magic = 0x53A10001, .log_flags = 0, .log_name = "other", .reserved = {}, .module_id = 61};
    systems = {framework_.system(), &other_system_};
    modules[0] = framework_.create_module({.module_id = olv_sim::module_id_twamp, .log_name = "twamp"});
    modules[1] = framework_.create_module({.module_id = olv_sim::module_id_twamp, .log_name = "second"});
    alien_ = *modules[0];
    alien_.log_name = "alien";
    modules[2] = &alien_;
    locks = {modules[0]->lock, modules[1]->lock, modules[0]->lock};

    const std::array<std::uint32_t, destination_count> ids{1, 11, 7, 8, 9, 63};
    for (std::size_t index = 0; index < destination_count; ++index) {
        destinations[index].magic = module_magic;
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
    model->wall_clock = {12, 34};
    olv_sim::set_wall_clock(model->wall_clock);
    model->day_seconds = 1000000000;
    model->day_microseconds = 500000;
    olv_test::set_time_of_day(olv_test::time_of_day{model->day_seconds, model->day_microseconds});
    fill_model_processors();
    begin_modules();
    for (std::size_t index = 0; index < destination_count; ++index) {
        destinations[index].magic = module_magic;
        destinations[index].default_entry_point = 0;
        model_destinations[index] = {.module_id = destinations[index].module_id};
    }
    set_entry_point(1, entry_point_kind::platform);
    set_entry_point(11, entry_point_kind::platform);
    set_entry_point(7, entry_point_kind::fixed);
    set_entry_point(8, entry_point_kind::zero);
    set_entry_point(9, entry_point_kind::failing);
    set_entry_point(63, entry_point_kind::none);
    slots.fill(nullptr);
    model_slots.fill(-1);
    records.clear();
    contexts_.clear();
}

void library_world::fill_model_processors()
{
    for (const real_processor &one : processors_) {
        platform_model::processor added{.description = one.description, .rte = one.processor->rte_handle()};
        one.processor->set_timer(0);
        for (std::uint32_t id = 1; id <= one.description.responders; ++id) {
            added.free_ids.push_back(id);
            if (one.description.responder_state) {
                added.states[id] = model_bytes(60);
            }
        }
        if (one.description.global_statistics) {
            added.states[global_statistics] = model_bytes(128);
        }
        if (one.description.responder_tree_has_entries) {
            added.trees[responder_tree] = {};
        }
        if (one.description.bind_tree) {
            added.trees[bind_tree] = {};
        }
        model->platform.processors.push_back(std::move(added));
    }
}

void library_world::begin_modules()
{
    model_systems = {{{.log_flags = 0, .log_name = "system"}, {.log_flags = 0, .log_name = "other"}}};
    for (std::size_t index = 0; index < module_count; ++index) {
        olv_module_handle &record = *modules[index];
        record.magic = module_magic;
        record.log_flags = 0;
        record.lock = locks[index];
        record.system = systems[0];
        record.ctx = nullptr;
        model_modules[index] = {.address = low_word(&record),
                                .magic = module_magic,
                                .log_name = record.log_name,
                                .lock = record.lock,
                                .system = &model_systems[0],
                                .known_to_framework = index < 2};
        model->platform.semaphores.insert(record.lock);
        move_module(index, 0);
    }
    systems[0]->log_flags = 0;
    systems[1]->log_flags = 0;
}

void library_world::end()
{
    clear_faults();
    for (twamp_responder_handle *record : records) {
        if (olv_sim::memory::is_live(record)) {
            hyx_nvm_free(record);
        }
    }
    for (void *context : contexts_) {
        if (olv_sim::memory::is_live(context)) {
            hyx_nvm_free(context);
        }
    }
    const olv_service_function_table nothing{};
    for (std::size_t index = 0; index < 2; ++index) {
        modules[index]->magic = module_magic;
        (void)olv_module_service_function_register(systems[0], modules[index], &nothing);
    }
    for (std::size_t index = 0; index < processors_.size(); ++index) {
        if (processors_[index].touched) {
            for (const auto &[tree, entries] : model->platform.processors[index].trees) {
                const model_tree listed = entries;
                for (const auto &[key, entry] : listed) {
                    unlearn(index, tree, key);
                }
            }
            restore(processors_[index]);
        }
    }
}

/** All IDs free, in ascending order, and zeros in state memory. */
void library_world::restore(real_processor &one)
{
    one.touched = false;
    const std::uint32_t rte = one.processor->rte_handle();
    std::uint32_t resources = 0;
    (void)hyx_rsrc_find(rte, 0, responder_names, &resources); // the program has it
    std::uint32_t id = 0;
    while (hyx_rsrc_allocate(resources, 1, &id) == 0) {
    }
    static constexpr std::array<std::uint8_t, 128> zeros{};
    for (id = 1; id <= one.description.responders; ++id) {
        (void)hyx_rsrc_free(resources, id, 1);
        (void)hyx_se_state_set(rte, id, 0, zeros.data(), 60); // the program may have none
    }
    (void)hyx_se_state_set(rte, global_statistics, 0, zeros.data(), 128);
}

void library_world::plan(std::optional<call> which, const olv_sim::fault &fault)
{
    if (which) {
        olv_sim::faults::set(*which, fault);
        model->platform.faults.plan(*which, fault);
    } else {
        olv_sim::faults::set_any(fault);
        model->platform.faults.plan_any(fault);
    }
}

void library_world::clear_faults()
{
    olv_sim::faults::clear_all();
    model->platform.faults.clear();
}

void library_world::move_module(std::size_t module, std::size_t processor)
{
    // One beyond the last stands for a processor that is not there.
    static constexpr std::uint32_t nowhere = 4000;
    std::uint32_t rte = nowhere;
    if (processor < processors_.size()) {
        processors_[processor].touched = true;
        rte = processors_[processor].processor->rte_handle();
    }
    modules[module]->rte_handle = rte;
    model_modules[module].rte = rte;
}

std::size_t library_world::processor_of(std::uint32_t rte) const
{
    std::size_t index = 0;
    while (index < processors_.size() && processors_[index].processor->rte_handle() != rte) {
        ++index;
    }
    return index;
}

void library_world::learn(std::size_t processor, std::uint32_t tree, const model_key &key,
                          const model_entry &entry)
{
    model_pattern pattern{.known = true, .bits = key.first, .value = key.second};
    processors_[processor].touched = true;
    const std::uint32_t rte = processors_[processor].processor->rte_handle();
    if (model->platform.learn(rte, tree, pattern, entry) != 0) {
        return;
    }
    olv_ptn real{};
    olv_ptn_action action{{entry.action[0], entry.action[1], entry.action[2]}};
    (void)olv_ptn_new(32, &real);
    if (key.first != 0) {
        (void)olv_ptn_extend(&real, key.second, key.first);
    }
    const olv_ptn own = real;
    real.word[2] = entry.pattern_word;
    (void)hyx_ptn_learn(rte, tree, &real, &action); // the comparison sees whether it did
    olv_ptn_free(own);
}

void library_world::unlearn(std::size_t processor, std::uint32_t tree, const model_key &key)
{
    model_pattern pattern{.known = true, .bits = key.first, .value = key.second};
    const std::uint32_t rte = processors_[processor].processor->rte_handle();
    if (model->platform.unlearn(rte, tree, pattern) != 0) {
        return;
    }
    olv_ptn real{};
    olv_ptn_action action{};
    (void)olv_ptn_new(32, &real);
    if (key.first != 0) {
        (void)olv_ptn_extend(&real, key.second, key.first);
    }
    (void)hyx_ptn_unlearn(rte, tree, &real, key.first, &action, 1);
    olv_ptn_free(real);
}

void library_world::set_state_word(std::size_t processor, std::uint32_t id, std::size_t word,
                                   std::uint32_t bytes)
{
    const auto entry = model->platform.processors[processor].states.find(id);
    if (entry == model->platform.processors[processor].states.end() || word * 4 >= entry->second.size()) {
        return;
    }
    processors_[processor].touched = true;
    std::memcpy(&entry->second[word * 4], &bytes, sizeof bytes);
    processors_[processor].processor->state(id)[word] = bytes;
}

void library_world::set_timer(std::size_t processor, std::uint64_t ticks)
{
    processors_[processor].processor->set_timer(ticks);
    model->platform.processors[processor].timer = ticks;
}

void library_world::set_entry_point(std::uint32_t module_id, entry_point_kind kind)
{
    model->entry_points[module_id] = kind;
    olv_entry_point_lookup lookup = nullptr;
    switch (kind) {
    case entry_point_kind::none:
        break;
    case entry_point_kind::platform:
        lookup = platform_lookup(module_id);
        break;
    case entry_point_kind::zero:
        lookup = lookup_zero;
        break;
    case entry_point_kind::fixed:
        lookup = lookup_fixed;
        break;
    case entry_point_kind::failing:
        lookup = lookup_failing;
        break;
    }
    moduleMgrCpuServiceFn[module_id].entry_point_lookup = lookup;
}

module_pair library_world::refreshed_foreign()
{
    foreign = *modules[0];
    foreign.magic = module_magic + 1;
    foreign.log_name = reinterpret_cast<const char *>(std::uintptr_t{16}); // not to be followed
    foreign.system = reinterpret_cast<olv_system_handle *>(std::uintptr_t{16});
    model_foreign = model_modules[0];
    model_foreign.address = low_word(&foreign);
    model_foreign.magic = module_magic + 1;
    return {&foreign, &model_foreign};
}

} // namespace olv_fuzz
