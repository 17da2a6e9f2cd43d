#include "fault_sweep.hpp"
#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/tracer.hpp"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <iterator>
#include <sstream>

namespace olv_test::sweeping {

namespace {

std::string number(std::uint32_t value)
{
    std::ostringstream text;
    text << "0x" << std::hex << std::uppercase << value;
    return text.str();
}

path one(step only)
{
    path steps;
    steps.push_back(std::move(only));
    return steps;
}

std::string hex(const std::vector<std::uint8_t> &bytes)
{
    std::string text;
    for (const std::uint8_t byte : bytes) {
        std::array<char, 3> digits{};
        (void)std::snprintf(digits.data(), digits.size(), "%02x", byte);
        text += digits.data();
    }
    return text;
}

/** Calls that fail: by their place among those that can, from 1. */
struct plan {
    std::string label;
    std::uint32_t first = 0;  ///< 0: none.
    std::uint32_t second = 0; ///< 0: none.
    bool from_then_on = false;

    [[nodiscard]] bool fails(std::uint32_t place) const
    {
        return first != 0 && (place == first || (from_then_on && place > first) || place == second);
    }

    void set() const
    {
        if (first != 0) {
            olv_sim::faults::set_any({.skip = first - 1, .count = from_then_on ? olv_sim::fault::forever : 1});
        } else {
            olv_sim::faults::set_any({.count = 0}); // Counts.
        }
        if (second != 0) {
            olv_sim::faults::add_any({.skip = second - 1});
        }
    }

    [[nodiscard]] std::uint32_t least_hits() const { return (first != 0 ? 1U : 0U) + (second != 0 ? 1U : 0U); }
};

bool is_a_lock_call(const step &each)
{
    return each.called == call::olv_sys_sem_lock_wait || each.called == call::hyx_sem_post;
}

/** Walks the steps of an operation and puts together what they lead to. */
class expectation {
  public:
    expectation(const subject &under_test, const options &setup, const plan &faults, std::string state_before)
        : setup_(setup), faults_(faults)
    {
        result_.left = under_test.before;
        result_.creations = under_test.creations_before;
        result_.state = std::move(state_before);
        walk(under_test.steps);
        if (under_test.at_last) {
            under_test.at_last(result_);
        }
    }

    [[nodiscard]] outcome result() && { return std::move(result_); }

  private:
    void walk(const path &steps)
    {
        for (const step &each : steps) {
            if (is_a_lock_call(each) && !setup_.locked) {
                continue;
            }
            if (each.called && fails(*each.called)) {
                if (each.else_) {
                    walk(*each.else_);
                    return;
                }
                continue;
            }
            apply(each);
        }
    }

    /** Note a call. @return Whether it fails. */
    bool fails(call which)
    {
        const bool of_function_line = which == call::hyx_gettime;
        const std::uint32_t words = setup_.module_flags | (setup_.system ? setup_.system_flags : 0);
        if (of_function_line && (words & OLV_LOG_FUNCTION) == 0) {
            return false;
        }
        result_.calls.emplace_back(olv_sim::call_name(which));
        return olv_sim::can_fail(which) && faults_.fails(++place_);
    }

    void apply(const step &each)
    {
        result_.console += each.console;
        if (each.traced) {
            result_.traces.push_back(*each.traced);
        }
        if (each.then) {
            each.then(result_);
        }
    }

    const options &setup_;
    const plan &faults_;
    std::uint32_t place_ = 0;
    outcome result_;
};

/** The numbers of a run that no literal can hold: the namespace handle and the pattern's storage. */
void name_numbers(bench &b, outcome &expected, const std::string &pattern_word)
{
    std::array<char, 16> handle{};
    (void)std::snprintf(handle.data(), handle.size(), "0x%0x,", values().namespace_handle);
    replace_all(expected.console, "NAMESPACE,", handle.data());
    expected.console = b.expand(expected.console);
    for (trace &event : expected.traces) {
        replace_all(event.text, "{pattern}", pattern_word);
        event.text = b.expand(event.text);
    }
}

/** The module does all its work again: creates, reads, deletes, goes down, comes up. */
void expect_usable(bench &b, const outcome &after)
{
    const auto quietly_yields = [](std::uint32_t status, const std::function<std::uint32_t()> &work) {
        EXPECT_EQ(quiet(work), status);
    };
    if (!after.left.initialised) {
        quietly_yields(0, [&] { return olv_twamp_init(b.module); });
    }
    const std::uint32_t count = after.left.initialised ? after.creations + 1 : 1;
    twamp_responder_handle *created = b.create_responder(0xABCD, 0);
    ASSERT_NE(created, nullptr);
    EXPECT_EQ(b.state_bytes(created->responder_id).at(11), count) << "creation count";
    olv_twamp_responder_stats stats{1, 1, 1, 1, 1};
    quietly_yields(0, [&] { return olv_twamp_responder_stats_get(b.module, created, &stats); });
    EXPECT_EQ(stats.received, 0u);
    quietly_yields(0, [&] { return olv_twamp_responder_delete(b.module, created); });
    quietly_yields(0, [&] { return olv_twamp_shutdown(b.module); });
    quietly_yields(0, [&] { return olv_twamp_init(b.module); });
    EXPECT_EQ(b.left().patterns, 0u);
    EXPECT_EQ(b.left().lock_held, 0u);
}

/** What one run of a plan told. */
struct run_report {
    std::uint32_t hits;
    std::uint32_t calls; ///< That could fail.
};

run_report run(const subject &under_test, const options &setup, const plan &faults)
{
    SCOPED_TRACE(under_test.label + ", " + faults.label);
    set_time_of_day(time_of_day{1700000000, 500000});
    bench b(setup);
    b.processor.set_timer(0x0123456789ABCDEF);
    learn_namespace(b);
    if (under_test.arrange) {
        under_test.arrange(b);
    }
    const std::string state_before = hex(b.state_bytes(under_test.watched_state));
    outcome expected = expectation(under_test, setup, faults, state_before).result();
    const std::optional<std::uint32_t> system = setup.system ? std::optional{setup.system_flags} : std::nullopt;
    expected.console = filtered_console(expected.console, setup.module_flags, system);
    name_numbers(b, expected, next_pattern_word());

    faults.set();
    const observation seen = b.observe([&] { return under_test.work(b); });
    const run_report report{olv_sim::faults::hits_of_any(), olv_sim::faults::calls_of_any()};
    olv_sim::faults::clear_all();
    set_time_of_day(std::nullopt);
    b.keep(b.responder);
    const remains left = b.left();
    release_lock(b);

    EXPECT_EQ(seen.status, expected.status);
    EXPECT_EQ(seen.console, expected.console);
    EXPECT_EQ(seen.traces, expected.traces);
    EXPECT_EQ(seen.calls, expected.calls);
    EXPECT_EQ(left, expected.left);
    EXPECT_EQ(hex(b.state_bytes(under_test.watched_state)), expected.state);
    expect_status_lines_follow_messages(seen);
    if (under_test.afterwards) {
        under_test.afterwards(b, expected);
    }
    expect_usable(b, expected);
    return report;
}

struct points {
    std::uint32_t calls = 0; ///< Of the run without faults that can fail.
    std::uint32_t once = 0;
    std::uint32_t from_then_on = 0;
    std::uint32_t pairs = 0;
};

/** Sweep at one pair of log words. */
points sweep_at(const subject &under_test, const options &setup)
{
    points swept;
    swept.calls = run(under_test, setup, {.label = "without a fault"}).calls;
    const auto fires = [&](const plan &faults) {
        return run(under_test, setup, faults).hits >= faults.least_hits() && !testing::Test::HasFailure();
    };
    const auto place = [](std::uint32_t n) { return "call " + std::to_string(n); };
    while (fires({.label = place(swept.once + 1), .first = swept.once + 1})) {
        ++swept.once;
    }
    while (fires({.label = "from " + place(swept.from_then_on + 1) + " on",
                  .first = swept.from_then_on + 1,
                  .from_then_on = true})) {
        ++swept.from_then_on;
    }
    for (std::uint32_t first = 1; first <= swept.once; ++first) {
        for (std::uint32_t second = first + 1;
             fires({.label = place(first) + " and " + place(second), .first = first, .second = second});
             ++second) {
            ++swept.pairs;
        }
    }
    return swept;
}

/** What a run shows that is the same on every bench. */
struct tracer_run {
    std::uint32_t status;
    std::vector<std::string> calls;
    remains left;
    std::string console; ///< Without addresses and numbers.
    std::vector<std::uint32_t> levels;
    bool fired;

    bool operator==(const tracer_run &) const = default;
};

/** Run with one tracer look-up failing, or with none. */
tracer_run run_without_look_up(const subject &under_test, std::optional<std::uint32_t> failing)
{
    bench b(under_test.setup);
    learn_namespace(b);
    if (under_test.arrange) {
        under_test.arrange(b);
    }
    if (failing) {
        olv_sim::faults::set(call::olv_lttng_fn_ptr_get, {.skip = *failing});
    }
    const observation seen = b.observe([&] { return under_test.work(b); });
    const bool fired = olv_sim::faults::hits(call::olv_lttng_fn_ptr_get) == 1;
    b.keep(b.responder);
    tracer_run shown{seen.status, seen.calls, b.left(), "", {}, fired};
    std::copy_if(seen.console.begin(), seen.console.end(), std::back_inserter(shown.console),
                 [](unsigned char letter) { return std::isxdigit(letter) == 0; });
    for (const olv_sim::trace_event &event : seen.events) {
        shown.levels.push_back(event.level);
    }
    return shown;
}

/** @p levels without the Nth that is no forced error: those need no look-up. */
std::vector<std::uint32_t> without_event(std::vector<std::uint32_t> levels, std::uint32_t nth)
{
    for (auto each = levels.begin(); each != levels.end(); ++each) {
        if (*each != olv_sim::trace_event::forced_error && nth-- == 0) {
            levels.erase(each);
            break;
        }
    }
    return levels;
}

/** Tracer look-ups are apart: one that fails loses its event and nothing else. */
std::uint32_t sweep_tracer(const subject &under_test)
{
    const tracer_run whole = run_without_look_up(under_test, std::nullopt);
    std::uint32_t swept = 0;
    while (!testing::Test::HasFailure()) {
        SCOPED_TRACE(under_test.label + ", tracer look-up " + std::to_string(swept + 1));
        const tracer_run seen = run_without_look_up(under_test, swept);
        if (!seen.fired) {
            break;
        }
        tracer_run expected = whole;
        expected.fired = true;
        expected.levels = without_event(whole.levels, swept);
        EXPECT_TRUE(seen == expected) << "more than the event is lost";
        ++swept;
    }
    return swept;
}

} // namespace

path join(std::initializer_list<path> parts)
{
    path joined;
    for (const path &part : parts) {
        joined.insert(joined.end(), part.begin(), part.end());
    }
    return joined;
}

path calls(call which, effect succeeded)
{
    return one({.called = which, .then = std::move(succeeded)});
}

path calls(call which, effect succeeded, path rest_when_it_fails)
{
    return one({.called = which, .then = std::move(succeeded), .else_ = std::move(rest_when_it_fails)});
}

path says(std::string console, trace traced)
{
    return one({.console = std::move(console), .traced = std::move(traced)});
}

path prints(std::string console)
{
    return one({.console = "{plain}" + std::move(console)});
}

path changes(effect what)
{
    return one({.then = std::move(what)});
}

path yields(std::uint32_t status)
{
    return changes([status](outcome &result) { result.status = status; });
}

path reports(const std::string &source, std::uint32_t status)
{
    return says("[twamp_log: ERROR] " + source + ":LINE {status " + number(status) + "}\n", error_status());
}

path fails(const std::string &source, const std::string &text, const std::string &format, std::uint32_t status)
{
    return join({says("[twamp_log: ERROR] " + source + ":LINE " + text + "\n", error(format)),
                 reports(source, status), yields(status)});
}

path enters(const std::string &source, const std::string &operation)
{
    return join({calls(call::hyx_gettime), says("[twamp_log: function] " + source +
                                                    ":LINE [00000012:00000034] Entering " + operation + "\n",
                                                entry(operation))});
}

path exits(const std::string &source, const std::string &operation)
{
    return join({calls(call::hyx_gettime), says("[twamp_log: function] " + source +
                                                    ":LINE [00000012:00000034] Exiting " + operation + "\n",
                                                exit(operation))});
}

path locks(const std::string &source, path work)
{
    return join(
        {calls(
             call::olv_sys_sem_lock_wait, [](outcome &result) { result.left.lock_held = 1; },
             fails(source, " Failed to acquire lock, RTE error code: 511. {rte 0x1FF}", lock_refused, 0x300A5)),
         std::move(work)});
}

path unlocks(const std::string &source, const path &last)
{
    return join({calls(
                     call::hyx_sem_post, [](outcome &result) { result.left.lock_held = 0; },
                     join({fails(source, " Failed to release lock, RTE error code: 511. {rte 0x1FF}",
                                 release_refused, 0x300A5),
                           last})),
                 last});
}

effect adds(std::size_t remains::*what)
{
    return [what](outcome &result) { ++(result.left.*what); };
}

effect takes(std::size_t remains::*what)
{
    return [what](outcome &result) { --(result.left.*what); };
}

effect prints_unless_failed(const std::string &console)
{
    return [console](outcome &result) {
        if (result.status == 0) {
            result.console += "{plain}" + console;
        }
        result.status = 0;
    };
}

void sweep(const subject &under_test)
{
    std::vector<options> setups{under_test.setup};
    options changed = under_test.setup;
    changed.locked = false;
    setups.push_back(changed);
    if (under_test.every_level) {
        changed = under_test.setup;
        changed.module_flags = changed.system_flags = 0;
        setups.push_back(changed);
        changed.module_flags = 0x43; // Errors and classifier entries.
        setups.push_back(changed);
    }
    if (under_test.without_system) {
        changed = under_test.setup;
        changed.system = false;
        setups.push_back(changed);
    }
    points total;
    for (const options &setup : setups) {
        const points swept = sweep_at(under_test, setup);
        EXPECT_EQ(swept.once, swept.calls) << under_test.label;
        EXPECT_EQ(swept.from_then_on, swept.calls) << under_test.label;
        total.calls += swept.calls;
        total.once += swept.once;
        total.from_then_on += swept.from_then_on;
        total.pairs += swept.pairs;
    }
    const std::uint32_t lookups = sweep_tracer(under_test);
    std::printf("%s: %u calls that can fail in %zu settings; swept %u once, %u from then on, %u pairs, %u "
                "tracer look-ups\n",
                under_test.label.c_str(), total.calls, setups.size(), total.once, total.from_then_on,
                total.pairs, lookups);
    testing::Test::RecordProperty("points",
                                  static_cast<int>(total.once + total.from_then_on + total.pairs + lookups));
}

} // namespace olv_test::sweeping
