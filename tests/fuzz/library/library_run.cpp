#include "library_run.hpp"

#include <algorithm>

#include "difference.hpp"
#include "source_lines.hpp"

namespace olv_fuzz {
namespace {

constexpr int maximum_steps = 48;

model_event as_model(const olv_sim::trace_event &event)
{
    std::string text = event.text;
    if (event.level == 15 || event.level == 16) {
        // Begins with the tree's name and a word of the pattern that is the framework's own.
        const std::size_t word = text.find(' ') + 1;
        text.replace(word, text.find(' ', word) - word, "*");
    }
    return {event.level, event.record, event.file, event.format, text};
}

std::string described(const std::vector<model_event> &events)
{
    std::string text;
    for (const model_event &event : events) {
        text += formatted("  level %u record %p %s format \"%s\" text \"%s\"\n", event.level, event.record,
                          event.file.c_str(), event.format.value_or("(none)").c_str(), event.text.c_str());
    }
    return text;
}

/** A status line carries the source line of its message. */
bool status_lines_follow(const std::vector<olv_sim::trace_event> &events)
{
    for (std::size_t index = 1; index < events.size(); ++index) {
        const olv_sim::trace_event &before = events[index - 1];
        const olv_sim::trace_event &event = events[index];
        if (event.format == "%s\n" && before.level == event.level && before.line != event.line) {
            return false;
        }
    }
    return true;
}

[[noreturn]] void report_texts(const char *name, const char *what, const std::string &expected,
                               const std::string &found)
{
    report_difference(std::string{name} + ", " + what + ", expected:\n" + expected + "\nfound:\n" + found);
}

} // namespace

void library_run::run()
{
    const auto calls = static_cast<std::uint32_t>(library_calls.size());
    const auto changes = static_cast<std::uint32_t>(surrounding_changes.size());
    for (int count = 0; count < maximum_steps && !over_ && !input.empty(); ++count) {
        const std::uint32_t number = input.below(calls + changes);
        if (number < calls) {
            make(library_calls[number]);
        } else {
            surrounding_changes[number - calls].make(*this);
        }
    }
}

model_module *library_run::any_module()
{
    // Mostly the first one; then the one with the wrong magic and NULL.
    const std::uint32_t choice = input.one_of<0, 0, 0, 0, 1, 2, 3, 4>();
    if (choice < world.modules.size()) {
        return &world.modules[choice];
    }
    return choice == 3 ? world.refreshed_foreign() : nullptr;
}

responder_slot library_run::any_responder()
{
    const std::uint32_t slot = input.below(library_world::slot_count + 1);
    return slot < library_world::slot_count ? world.slots[slot] : responder_slot{};
}

void library_run::arm()
{
    world.clear_faults();
    for (const planned_fault &planned : plan) {
        world.plan(planned.which, planned.fault);
    }
}

void library_run::disarm()
{
    world.clear_faults();
    if (!plan_stays) {
        plan.clear();
    }
}

/** Make a call in the model and of the library, with the planned faults, and compare. */
void library_run::make(const library_call &one)
{
    arguments given;
    for (const argument take : one.given) {
        take(*this, given);
        if (!given.is_made) {
            return;
        }
    }
    library_model &model = *world.model;
    world.in_progress = one.name;
    model.console.clear();
    model.events.clear();
    world.traces.clear();
    if (one.has_texts) {
        arm();
    }
    std::uint32_t expected = 0;
    try {
        expected = one.expected(model, given);
    } catch (const out_of_contract &) {
        over_ = true;
        disarm();
        return;
    }
    olv_sim::tracer::set_sink(&world.traces);
    const std::uint32_t found = world.console.during([&] { return one.real(given); });
    olv_sim::tracer::set_sink(nullptr);
    world.require_same("status", 0, expected, found);
    for (std::size_t index = 0; index < given.expected.size(); ++index) {
        world.require_same("result", index, given.expected[index], given.found[index]);
    }
    if (one.has_texts) {
        compare_texts();
        disarm();
    }
    world.compare();
    world.release_held_locks();
    if (given.owns_pattern) {
        olv_ptn_free(given.whole_pattern);
        --model.platform.patterns;
    }
}

void library_run::compare_texts() const
{
    const library_model &model = *world.model;
    const std::string console = olv_test::without_source_lines(world.console.text());
    if (model.console != console) {
        report_texts(world.in_progress, "console", model.console, console);
    }
    std::vector<model_event> events;
    events.reserve(world.traces.events().size());
    for (const olv_sim::trace_event &event : world.traces.events()) {
        events.push_back(as_model(event));
    }
    if (model.events != events) {
        report_texts(world.in_progress, "traces", described(model.events), described(events));
    }
    const bool loses_traces = std::any_of(plan.begin(), plan.end(), [](const planned_fault &planned) {
        return planned.which == call::olv_lttng_fn_ptr_get;
    });
    if (!loses_traces && !status_lines_follow(world.traces.events())) {
        report_difference(std::string{world.in_progress} +
                          ": a status line has not the source line of its message");
    }
}

} // namespace olv_fuzz
