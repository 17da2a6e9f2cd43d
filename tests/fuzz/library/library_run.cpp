#include "library_run.hpp"

#include <sstream>

#include "difference.hpp"
#include "hyx.h"
#include "olv_sim/calls.hpp"
#include "olv_sim/tracer.hpp"

namespace olv_fuzz {
namespace {

constexpr int maximum_steps = 48;

/** The tracer's text of a pattern event begins with the tree's name and a word that is the framework's own. */
std::string without_pattern_word(const std::string &text)
{
    const std::size_t first = text.find(' ');
    const std::size_t second = text.find(' ', first + 1);
    return text.substr(0, first + 1) + "*" + text.substr(second);
}

trace_record record_of(const olv_sim::trace_event &event, const library_world &world)
{
    if (event.record == nullptr) {
        return trace_record::none;
    }
    const bool by_system = event.record == world.systems[0] || event.record == world.systems[1];
    return by_system ? trace_record::system : trace_record::module;
}

model_event as_model(const olv_sim::trace_event &event, const library_world &world)
{
    const bool of_pattern = event.level == 15 || event.level == 16;
    return {.level = event.level,
            .record = record_of(event, world),
            .file = event.file,
            .format = event.format,
            .text = of_pattern ? without_pattern_word(event.text) : event.text};
}

std::string described(const std::vector<model_event> &events)
{
    std::ostringstream text;
    for (const model_event &event : events) {
        text << "  level " << static_cast<int>(event.level) << " record " << static_cast<int>(event.record)
             << ' ' << event.file << " format \"" << event.format.value_or("(none)") << "\" text \""
             << event.text << "\"\n";
    }
    return text.str();
}

/** A status line carries the source line of its message. */
bool status_lines_follow(const std::vector<olv_sim::trace_event> &events)
{
    for (std::size_t index = 0; index < events.size(); ++index) {
        const bool is_status = events[index].format == "%s\n";
        if (is_status && index > 0 && events[index - 1].level == events[index].level &&
            events[index - 1].line != events[index].line) {
            return false;
        }
    }
    return true;
}

} // namespace

void require_equal(const char *operation, const char *what, std::uint64_t expected, std::uint64_t found)
{
    if (expected != found) {
        std::ostringstream text;
        text << operation << ", " << what << ": 0x" << std::hex << expected << " expected, 0x" << found
             << " found";
        report_difference(text.str());
    }
}

const std::vector<library_run::step> library_run::steps{
    &library_run::init,
    &library_run::shutdown,
    &library_run::update,
    &library_run::sys_log,
    &library_run::map_sys_log,
    &library_run::create,
    &library_run::remove,
    &library_run::stats_get,
    &library_run::stats_print,
    &library_run::bind,
    &library_run::unbind,
    &library_run::get_imc,
    &library_run::call_with_null,
    &library_run::global_stats_get,
    &library_run::global_stats_print,
    &library_run::tables_dump,
    &library_run::dump_tables,
    &library_run::table_entry_dump,
    &library_run::responder_entry_dump,
    &library_run::valid_module_handle,
    &library_run::plan_any_fault,
    &library_run::plan_fault,
    &library_run::clear_plan,
    &library_run::set_log_words,
    &library_run::set_module_magic,
    &library_run::set_context_magic,
    &library_run::set_responder_magic,
    &library_run::set_responder_id,
    &library_run::free_responder,
    &library_run::copy_slot,
    &library_run::drop_slot,
    &library_run::set_state,
    &library_run::learn_entry,
    &library_run::unlearn_entry,
    &library_run::set_lock,
    &library_run::move_module,
    &library_run::set_clocks,
    &library_run::set_destination,
    &library_run::set_system,
};

void library_run::run()
{
    for (int count = 0; count < maximum_steps && !over_ && !input_.empty(); ++count) {
        const step next = steps[input_.below(static_cast<std::uint32_t>(steps.size()))];
        (this->*next)();
    }
}

void library_run::arm()
{
    world_.clear_faults();
    loses_traces_ = false;
    for (const planned_fault &planned : plan_) {
        world_.plan(planned.which, planned.fault);
        loses_traces_ = loses_traces_ || planned.which == call::olv_lttng_fn_ptr_get;
    }
}

void library_run::disarm()
{
    world_.clear_faults();
    if (!plan_stays_) {
        plan_.clear();
    }
}

void library_run::both(const char *name, const std::function<std::uint32_t()> &expected,
                       const std::function<std::uint32_t()> &real)
{
    world_.model->console.clear();
    world_.model->events.clear();
    arm();
    std::uint32_t wanted = 0;
    try {
        wanted = expected();
    } catch (const out_of_contract &) {
        disarm();
        over_ = true;
        return;
    }
    const std::uint32_t found = world_.seen.observe(real);
    disarm();
    compare(name, wanted, found);
}

void library_run::compare(const char *name, std::uint32_t expected, std::uint32_t found)
{
    require_equal(name, "status", expected, found);
    const library_model &model = *world_.model;
    if (model.console != world_.seen.console()) {
        report_difference(std::string{name} + ", console, expected:\n" + model.console + "\nfound:\n" +
                          world_.seen.console());
    }
    std::vector<model_event> events;
    events.reserve(world_.seen.raw_events().size());
    for (const olv_sim::trace_event &event : world_.seen.raw_events()) {
        events.push_back(as_model(event, world_));
    }
    if (model.events != events) {
        report_difference(std::string{name} + ", traces, expected:\n" + described(model.events) + "found:\n" +
                          described(events));
    }
    if (!loses_traces_ && !status_lines_follow(world_.seen.raw_events())) {
        report_difference(std::string{name} + ": a status line has not the source line of its message");
    }
    note_new_records();
    const std::string difference = world_.state_difference();
    if (!difference.empty()) {
        report_difference(std::string{name} + " left:\n" + difference);
    }
    release_held_locks();
}

/** The addresses of records that the library has made since. */
void library_run::note_new_records()
{
    std::vector<model_responder> &responders = world_.model->responders;
    while (world_.records.size() < responders.size()) {
        const int index = static_cast<int>(world_.records.size());
        twamp_responder_handle *record = nullptr;
        for (std::size_t slot = 0; slot < slot_count; ++slot) {
            record = world_.model_slots[slot] == index ? world_.slots[slot] : record;
        }
        world_.records.push_back(record);
        responders[world_.records.size() - 1].address =
            static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(record));
    }
}

/** After a release that failed. */
void library_run::release_held_locks()
{
    const std::set<std::uint32_t> held = world_.model->platform.held;
    for (const std::uint32_t lock : held) {
        (void)hyx_sem_post(lock); // held, as was just seen
    }
    world_.model->platform.held.clear();
}

module_pair library_run::any_module()
{
    static constexpr std::uint32_t foreign = library_world::module_count;
    static constexpr std::uint32_t null = foreign + 1;
    // Mostly the first one.
    static constexpr std::array<std::uint32_t, 8> choices{0, 0, 0, 0, 1, 2, foreign, null};
    const std::uint32_t choice = input_.pick(choices);
    if (choice == null) {
        return {};
    }
    if (choice == foreign) {
        return world_.refreshed_foreign();
    }
    return {world_.modules[choice], &world_.model_modules[choice]};
}

std::size_t library_run::framework_module()
{
    return input_.below(library_world::module_count);
}

responder_pair library_run::any_responder()
{
    const std::uint32_t slot = input_.below(slot_count + 1);
    return slot < slot_count ? responder_pair{world_.slots[slot], world_.model_slots[slot]} : responder_pair{};
}

std::uint32_t library_run::level()
{
    static constexpr std::array<std::uint32_t, 12> levels{0,  1,    3,    7,          15,         2,
                                                          16, 0x11, 0xFF, 0x80000000, 0xFFFFFFFF, 4};
    return input_.pick(levels);
}

void library_run::init()
{
    const module_pair module = any_module();
    both(
        "init", [&] { return world_.model->init(module.model); }, [&] { return olv_twamp_init(module.real); });
}

void library_run::shutdown()
{
    const module_pair module = any_module();
    both(
        "shutdown", [&] { return world_.model->shutdown(module.model); },
        [&] { return olv_twamp_shutdown(module.real); });
}

void library_run::update()
{
    const module_pair module = any_module();
    both(
        "service_function_update", [&] { return world_.model->service_function_update(module.model); },
        [&] { return olv_twamp_service_function_update(module.real); });
}

void library_run::sys_log()
{
    const module_pair module = any_module();
    const std::uint32_t wanted = level();
    both(
        "sys_log", [&] { return world_.model->sys_log(module.model, wanted); },
        [&] { return olv_twamp_sys_log(module.real, wanted); });
}

void library_run::map_sys_log()
{
    const module_pair module = any_module();
    const std::uint32_t wanted = level();
    std::uint32_t expected = 0xA5A5A5A5;
    std::uint32_t found = expected;
    both(
        "map_sys_log", [&] { return world_.model->map_sys_log(module.model, wanted, expected); },
        [&] { return olv_twamp_map_sys_log(module.real, wanted, &found); });
    require_equal("map_sys_log", "level", expected, found);
}

void library_run::create()
{
    const module_pair module = any_module();
    const std::uint32_t slot = input_.below(slot_count + 1);
    const bool has_info = input_.byte() < 224;
    info_ = {input_.half(), input_.half()};
    const responder_request request{info_.param_a, info_.param_b};
    const bool has_slot = slot < slot_count;
    both(
        "responder_create",
        [&] {
            return world_.model->responder_create(module.model, has_info ? &request : nullptr,
                                                  has_slot ? &world_.model_slots[slot] : nullptr);
        },
        [&] {
            return olv_twamp_responder_create(module.real, has_info ? &info_ : nullptr,
                                              has_slot ? &world_.slots[slot] : nullptr);
        });
}

void library_run::remove()
{
    const module_pair module = any_module();
    const responder_pair responder = any_responder();
    both(
        "responder_delete", [&] { return world_.model->responder_delete(module.model, responder.model); },
        [&] { return olv_twamp_responder_delete(module.real, responder.real); });
}

void library_run::stats_get()
{
    const module_pair module = any_module();
    const responder_pair responder = any_responder();
    const bool has_stats = input_.byte() < 224;
    std::array<std::uint32_t, 5> expected{};
    expected.fill(0xA5A5A5A5);
    olv_twamp_responder_stats found{0xA5A5A5A5, 0xA5A5A5A5, 0xA5A5A5A5, 0xA5A5A5A5, 0xA5A5A5A5};
    both(
        "responder_stats_get",
        [&] {
            return world_.model->responder_stats_get(module.model, responder.model,
                                                     has_stats ? &expected : nullptr);
        },
        [&] {
            return olv_twamp_responder_stats_get(module.real, responder.real, has_stats ? &found : nullptr);
        });
    require_equal("responder_stats_get", "received", expected[0], found.received);
    require_equal("responder_stats_get", "transmitted", expected[1], found.transmitted);
    require_equal("responder_stats_get", "drop_length_check", expected[2], found.drop_length_check);
    require_equal("responder_stats_get", "active_sessions", expected[3], found.active_sessions);
    require_equal("responder_stats_get", "drop_max_sessions", expected[4], found.drop_max_sessions);
}

void library_run::stats_print()
{
    const module_pair module = any_module();
    const responder_pair responder = any_responder();
    both(
        "responder_stats_print",
        [&] { return world_.model->responder_stats_print(module.model, responder.model); },
        [&] { return olv_twamp_responder_stats_print(module.real, responder.real); });
}

void library_run::bind()
{
    change_bind(true);
}

void library_run::unbind()
{
    change_bind(false);
}

void library_run::change_bind(bool binds)
{
    model_bind_info expected;
    const olv_bind_info real = bind_request(expected);
    const bool has_info = input_.byte() < 240;
    static constexpr std::array<std::uint32_t, 6> choices{0, 0, 0, 1, 1, 2};
    const std::uint32_t choice = input_.pick(choices);
    olv_system_handle *system = choice < 2 ? world_.systems[choice] : nullptr;
    const model_system *model_system = choice < 2 ? &world_.model_systems[choice] : nullptr;
    const olv_bind_info *info = has_info ? &real : nullptr;
    const model_bind_info *model_info = has_info ? &expected : nullptr;
    both(
        binds ? "custom_bind" : "custom_unbind",
        [&] {
            return binds ? world_.model->custom_bind(model_system, model_info)
                         : world_.model->custom_unbind(model_system, model_info);
        },
        [&] { return binds ? olv_twamp_custom_bind(system, info) : olv_twamp_custom_unbind(system, info); });
}

olv_bind_info library_run::bind_request(model_bind_info &expected)
{
    static constexpr std::array<std::uint32_t, 4> types{2, 2, 2, 5};
    static constexpr std::array<std::uint32_t, 4> subtypes{2, 2, 0, 1};
    static constexpr std::array<std::uint32_t, 4> paths{1, 1, 1, 2};
    static constexpr std::array<std::uint32_t, 4> locations{2, 2, 0, 1};
    static constexpr std::array<std::uint32_t, 4> keys{5, 0x00ABCDEF, 0xFF000005, 0};
    const module_pair source = any_module();
    const std::uint32_t destination = input_.below(library_world::destination_count);
    expected = {.type = input_.pick(types),
                .subtype = input_.pick(subtypes),
                .path = input_.pick(paths),
                .source_location = input_.pick(locations),
                .destination_location = input_.pick(locations),
                .key = input_.pick(keys),
                .source = source.model,
                .destination = &world_.model_destinations[destination],
                .custom = input_.byte() < 224};
    bind_key_ = expected.key;
    olv_bind_info real{};
    real.bind_type = expected.type;
    real.bind_subtype = expected.subtype;
    real.bind_path = expected.path;
    real.src_module = source.real;
    real.src_instance = &bind_key_;
    real.src_location = expected.source_location;
    real.dst_module = &world_.destinations[destination];
    real.dst_location = expected.destination_location;
    real.custom_bind = expected.custom ? 1 : 0;
    return real;
}

void library_run::get_imc()
{
    const module_pair module = any_module();
    model_bind_info expected;
    const olv_bind_info info = bind_request(expected);
    std::uint32_t wanted = 0xA5A5A5A5;
    std::uint32_t found = wanted;
    both(
        "get_imc", [&] { return world_.model->get_imc(module.model, expected, wanted); },
        [&] { return olv_twamp_get_imc(module.real, &info, &found); });
    require_equal("get_imc", "result word", wanted, found);
}

} // namespace olv_fuzz
