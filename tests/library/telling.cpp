// A story turned into text: as it is expected, and as it was seen.
#include <string_view>
#include <utility>

#include "story.hpp"

namespace olv_test {

namespace {

// The lines of a told story.

std::string call_line(std::string_view name, const std::string &arguments)
{
    return "  " + std::string(name) + "(" + arguments + ")\n";
}

struct trace_line {
    std::uint32_t level;
    const char *record;
    std::string file;
    std::optional<std::string> format;
    std::string text;
    bool initialised;
    bool locked;
};

std::string told(const trace_line &event)
{
    const std::string level =
        event.level == olv_sim::trace_event::forced_error ? "forced" : std::to_string(event.level);
    return "  trace " + level + " of " + event.record + " in " + event.file +
           (event.initialised ? ", initialised" : "") + (event.locked ? ", locked" : "") + ": " +
           (event.format ? testing::PrintToString(*event.format) + " " : "") +
           testing::PrintToString(event.text) + "\n";
}

/** So that what follows begins a line. */
std::string whole_lines(const std::string &console)
{
    return console.empty() || console.ends_with('\n') ? console : console + "(no newline)\n";
}

/** Walks the steps of a story and puts together what they lead to. */
class teller {
  public:
    teller(const circumstances &given, outcome before) : given_(given), result_(std::move(before)) {}

    void walk(const story &all)
    {
        for (const auto &shared : all.steps()) {
            const step &each = *shared;
            if (each.called &&
                (*each.called == call::olv_sys_sem_lock_wait || *each.called == call::hyx_sem_post) &&
                !given_.locked) {
                continue;
            }
            if (each.called && fails(each)) {
                if (each.when_it_fails) {
                    walk(*each.when_it_fails);
                }
                if (!each.goes_on) {
                    return;
                }
                continue;
            }
            if (each.said) {
                say(*each.said);
            }
            printed_ += each.printed;
            result_.status = each.status.value_or(result_.status);
            if (each.then) {
                each.then(result_);
            }
        }
    }

    [[nodiscard]] outcome result() &&
    {
        end_episode();
        return std::move(result_);
    }

  private:
    /** Note a call. @return Whether it fails. */
    bool fails(const step &each)
    {
        called_ += call_line(olv_sim::call_name(*each.called), each.arguments);
        return olv_sim::can_fail(*each.called) && given_.fails(++place_);
    }

    [[nodiscard]] bool shown(const log_line &said) const
    {
        const severity_rule &own = rule(said.how);
        const bool by_module = own.is_shown_with(result_.left.log_flags);
        const bool by_system = given_.system_flags && own.is_shown_with(*given_.system_flags);
        switch (said.by) {
        case voice::nobody:
            return true;
        case voice::module_alone:
            return by_module;
        case voice::system:
            return given_.system_flags ? by_system : by_module;
        default:
            return by_module || by_system;
        }
    }

    void say(const log_line &said)
    {
        const bool of_system = said.by == voice::system && given_.system_flags;
        if (shown(said)) {
            if (said.how == severity::entry || said.how == severity::exit) {
                called_ += call_line("hyx_gettime", "");
            }
            printed_ += said.by == voice::nobody ? "[olv_unknown_log: ERROR]"
                                                 : std::string(of_system ? "[system" : "[twamp") +
                                                       "_log: " + rule(said.how).keyword + "]";
            printed_ += (said.with_place ? " " + said.file + ":LINE " : "") + said.shown;
        }
        const bool forced = said.by == voice::nobody;
        if (!forced && given_.loses(++event_)) {
            return;
        }
        end_episode();
        result_.told += told({.level = forced ? olv_sim::trace_event::forced_error : rule(said.how).trace_level,
                              .record = forced      ? "nobody"
                                        : of_system ? "system"
                                                    : "module",
                              .file = said.file,
                              .format = said.format,
                              .text = said.text,
                              .initialised = result_.left.initialised,
                              .locked = result_.left.lock_held != 0});
    }

    void end_episode()
    {
        result_.told += called_ + whole_lines(printed_);
        called_.clear();
        printed_.clear();
    }

    const circumstances &given_;
    outcome result_;
    std::uint32_t place_ = 0;
    std::uint32_t event_ = 0;
    std::string called_;
    std::string printed_;
};

} // namespace

outcome tell(const story &steps, const circumstances &given, outcome before)
{
    teller telling(given, std::move(before));
    telling.walk(steps);
    return std::move(telling).result();
}

std::string narrate(const observation &seen, const bench &b)
{
    std::string text;
    for (const episode &each : seen.episodes) {
        for (const olv_sim::recorded_call &made : each.calls) {
            text += call_line(olv_sim::call_name(made.which), made.arguments);
        }
        text += whole_lines(without_source_lines(each.console));
        if (!each.event) {
            continue;
        }
        const olv_sim::trace_event &event = each.event->event;
        const char *const record = event.record == nullptr                ? "nobody"
                                   : event.record == b.module             ? "module"
                                   : event.record == b.framework.system() ? "system"
                                                                          : "a stranger";
        text += told({event.level, record, event.file, event.format, event.text, each.event->initialised,
                      each.event->locked});
        EXPECT_EQ(event.first_word, 0u) << event.text;
    }
    return text;
}

} // namespace olv_test
