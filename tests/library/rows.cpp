#include "rows.hpp"

#include <array>
#include <cstdio>
#include <sstream>

namespace olv_test {

namespace {

std::vector<const table *> &registry()
{
    static std::vector<const table *> tables;
    return tables;
}

/** What fails in a run: calls by their place among those that can, from 1, or a look-up of the tracer. */
struct plan {
    std::string label;
    std::uint32_t first = 0;  ///< 0: none.
    std::uint32_t second = 0; ///< 0: none.
    bool from_then_on = false;
    std::uint32_t lost_event = 0; ///< 0: none.

    [[nodiscard]] bool fails(std::uint32_t place) const
    {
        return first != 0 && (place == first || (from_then_on && place > first) || place == second);
    }

    void set() const
    {
        if (lost_event != 0) {
            olv_sim::faults::set(call::olv_lttng_fn_ptr_get, {.skip = lost_event - 1});
        }
        if (first != 0) {
            olv_sim::faults::set_any({.skip = first - 1, .count = from_then_on ? olv_sim::fault::forever : 1});
        } else {
            olv_sim::faults::set_any({.count = 0}); // Counts.
        }
        if (second != 0) {
            olv_sim::faults::add_any({.skip = second - 1});
        }
    }

    /** Whether all that was planned has happened. */
    [[nodiscard]] bool has_fired() const
    {
        return olv_sim::faults::hits_of_any() >= (first != 0 ? 1U : 0U) + (second != 0 ? 1U : 0U) &&
               (lost_event == 0 || olv_sim::faults::hits(call::olv_lttng_fn_ptr_get) == 1);
    }
};

/** First word of the pattern that will be made next: the storage of the one that was freed last, one generation
 *  on. */
std::string next_pattern_word()
{
    olv_ptn probe{};
    EXPECT_EQ(olv_ptn_new(24, &probe), 0u);
    olv_ptn_free(probe);
    const std::uint32_t following = ((probe.word[0] >> 16) + 1) & 0xFFFF;
    std::array<char, 16> text{};
    (void)std::snprintf(text.data(), text.size(), "0x%08x",
                        (following == 0 ? 1 : following) << 16 | (probe.word[0] & 0xFFFF));
    return text.data();
}

void replace_all(std::string &text, const std::string &from, const std::string &to)
{
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
}

std::string described(const options &setup)
{
    std::ostringstream text;
    text << std::hex << "module word 0x" << setup.module_flags;
    if (setup.system) {
        text << ", system word 0x" << setup.system_flags;
    } else {
        text << ", no system record";
    }
    text << (setup.locked ? "" : ", no lock");
    return text.str();
}

/** The module does all its work again: creates, reads, deletes, goes down, comes up. */
void expect_usable(bench &b, std::uint32_t creations)
{
    b.restore_context();
    if (!b.left().initialised) {
        creations = 0;
        EXPECT_EQ(quiet([&] { return olv_twamp_init(b.module); }), 0u);
    }
    twamp_responder_handle *created = b.create_responder(0xABCD, 0);
    ASSERT_NE(created, nullptr);
    EXPECT_EQ(b.state_bytes(created->responder_id).at(11), creations + 1) << "creation count";
    olv_twamp_responder_stats stats{1, 1, 1, 1, 1};
    EXPECT_EQ(quiet([&] { return olv_twamp_responder_stats_get(b.module, created, &stats); }), 0u);
    EXPECT_EQ(stats.received, 0u);
    EXPECT_EQ(quiet([&] { return olv_twamp_responder_delete(b.module, created); }), 0u);
    EXPECT_EQ(quiet([&] { return olv_twamp_shutdown(b.module); }), 0u);
    EXPECT_EQ(quiet([&] { return olv_twamp_init(b.module); }), 0u);
    EXPECT_EQ(b.left().patterns, 0u);
    EXPECT_EQ(b.left().lock_held, 0u);
}

circumstances circumstances_of(const row &each, const options &setup, const plan &faults)
{
    circumstances given;
    if (setup.system || each.system_is_argument) {
        given.system_flags = setup.system_flags;
    }
    given.locked = setup.locked;
    given.fails = [&faults](std::uint32_t place) { return faults.fails(place); };
    given.loses = [&faults](std::uint32_t event) { return event == faults.lost_event; };
    return given;
}

/** What one run of a plan told. */
struct run_report {
    bool fired;
    std::uint32_t calls; ///< That could fail.
};

run_report run(const row &each, const options &setup, const plan &faults)
{
    SCOPED_TRACE(each.label + ", " + described(setup) + ", " + faults.label);
    set_time_of_day(time_of_day{1700000000, 500000});
    bench b(setup);
    b.processor.set_timer(0x0123456789ABCDEF);
    if (each.arrange) {
        each.arrange(b);
    }
    outcome before;
    before.left = b.left();
    before.creations = b.created();
    outcome expected = tell(each.tells(b), circumstances_of(each, setup, faults), before);
    replace_all(expected.told, "{pattern}", next_pattern_word());
    if (each.figures) {
        expected.told += expected.status == 0 ? *each.figures : "";
        expected.status = 0;
    }

    for (const planned_fault &own : each.faults) {
        EXPECT_TRUE(olv_sim::faults::set(own.which, own.plan)) << olv_sim::call_name(own.which);
    }
    faults.set();
    const observation seen = b.observe([&] { return each.work(b); });
    const run_report report{faults.has_fired(), olv_sim::faults::calls_of_any()};
    for (const planned_fault &own : each.faults) {
        EXPECT_GE(olv_sim::faults::hits(own.which), 1u) << "not called: " << olv_sim::call_name(own.which);
    }
    set_time_of_day(std::nullopt);
    const remains left = b.left();
    b.release_lock();

    EXPECT_EQ(seen.status, expected.status);
    EXPECT_EQ(narrate(seen, b), expected.told);
    EXPECT_EQ(left, expected.left);
    if (faults.lost_event == 0) {
        expect_source_lines_agree(seen);
    }
    if (each.afterwards) {
        each.afterwards(b, expected);
    }
    if (each.usable_afterwards) {
        expect_usable(b, expected.creations);
    }
    return report;
}

/** The row's starting state at every log word. */
std::vector<options> at_every_log_word(const row &each)
{
    if (each.variation) {
        return {};
    }
    constexpr std::uint32_t levels[] = {0, 1, 3, 7, 15};
    constexpr std::uint32_t bits[] = {0x8, 0x10, 0x40, 0x80};
    std::vector<options> all;
    const auto add = [&](std::uint32_t module, std::optional<std::uint32_t> system) {
        options changed = each.setup;
        changed.module_flags = module;
        changed.system_flags = system.value_or(0);
        changed.system = system.has_value();
        all.push_back(changed);
    };
    for (const std::uint32_t module : levels) {
        for (const std::uint32_t system : levels) {
            add(module, system);
        }
        add(module, std::nullopt);
    }
    for (const std::uint32_t bit : bits) {
        add(bit, 0);
        add(0, bit);
        add(bit, std::nullopt);
    }
    return all;
}

/** The starting states that a row is swept in. */
std::vector<options> settings_of(const row &each)
{
    if (each.variation) {
        return {each.setup};
    }
    std::vector<options> all(5, each.setup);
    all[1].locked = false;
    all[2].module_flags = all[2].system_flags = 0;
    all[3].module_flags = 0x43; // Errors and classifier entries.
    all[3].system_flags = 0;
    all[4].system = false;
    return all;
}

struct points {
    std::uint32_t calls = 0; ///< Of the runs without faults that can fail.
    std::uint32_t once = 0;
    std::uint32_t from_then_on = 0;
    std::uint32_t pairs = 0;
    std::uint32_t events = 0;
};

/** How often @p next, which makes a plan of a number, fires for the numbers from @p begin. */
template <typename Next>
std::uint32_t sweep(const row &each, const options &setup, std::uint32_t begin, const Next &next)
{
    std::uint32_t fired = 0;
    while (run(each, setup, next(begin + fired)).fired && !testing::Test::HasFailure()) {
        ++fired;
    }
    return fired;
}

void sweep_at(const row &each, const options &setup, points &swept)
{
    const auto call_number = [](std::uint32_t n) { return "call " + std::to_string(n); };
    const std::uint32_t calls = run(each, setup, {.label = "no fault"}).calls;
    if (testing::Test::HasFailure()) {
        return; // One run's differences are enough to read.
    }
    const std::uint32_t once =
        sweep(each, setup, 1, [&](std::uint32_t n) { return plan{.label = call_number(n), .first = n}; });
    const std::uint32_t from_then_on = sweep(each, setup, 1, [&](std::uint32_t n) {
        return plan{.label = "from " + call_number(n) + " on", .first = n, .from_then_on = true};
    });
    EXPECT_EQ(once, calls) << each.label;
    EXPECT_EQ(from_then_on, calls) << each.label;
    for (std::uint32_t first = 1; first <= once; ++first) {
        swept.pairs += sweep(each, setup, first + 1, [&](std::uint32_t second) {
            return plan{
                .label = call_number(first) + " and " + call_number(second), .first = first, .second = second};
        });
    }
    swept.calls += calls;
    swept.once += once;
    swept.from_then_on += from_then_on;
}

} // namespace

row_list operator+(row_list first, const row_list &second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

row_list variations_of_first(row_list rows)
{
    for (row &each : rows) {
        each.variation = &each != &rows.front();
    }
    return rows;
}

row_list unusable_handles(const row &base, const teller_of_row &refuses, const teller_of_row &refuses_record)
{
    const struct {
        const char *label;
        std::function<void(bench &)> arrange;
        bool no_record;
        bool variation;
    } ways[] = {
        {"null handle", [](bench &b) { b.handle = nullptr; }, true, false},
        {"record that is no module's", [](bench &b) { b.handle = &b.foreign; }, true, true},
        {"module that is not initialised",
         [](bench &b) { quiet([&] { return olv_twamp_shutdown(b.module); }); }, false, false},
        {"module whose context has another magic", [](bench &b) { b.set_context_magic(0x18496125); }, false,
         true},
    };
    row_list rows;
    for (const auto &way : ways) {
        row each = base;
        each.label = way.label;
        each.variation = way.variation;
        each.tells = way.no_record && refuses_record ? refuses_record : refuses;
        each.arrange = [first = base.arrange, then = way.arrange](bench &b) {
            if (first) {
                first(b);
            }
            then(b);
        };
        rows.push_back(each);
    }
    return rows;
}

void run_and_sweep(const std::string &name, const row &each)
{
    SCOPED_TRACE(name);
    row without_sequel = each;
    without_sequel.usable_afterwards = false;
    for (const options &setup : at_every_log_word(each)) {
        if (!testing::Test::HasFailure()) {
            run(without_sequel, setup, {.label = "no fault"});
        }
    }
    points swept;
    if (each.faults.empty()) {
        for (const options &setup : settings_of(each)) {
            sweep_at(each, setup, swept);
        }
    } else {
        run(each, each.setup, {.label = "no fault but the row's own"});
    }
    swept.events = sweep(each, each.setup, 1, [](std::uint32_t n) {
        return plan{.label = "event " + std::to_string(n) + " lost", .lost_event = n};
    });
    std::printf("%s, %s: %u calls that can fail; swept %u once, %u from then on, %u pairs, %u lost events\n",
                name.c_str(), each.label.c_str(), swept.calls, swept.once, swept.from_then_on, swept.pairs,
                swept.events);
}

table::table(std::string name, row_list rows) : name_(std::move(name)), rows_(std::move(rows))
{
    registry().push_back(this);
}

void table::run() const
{
    for (const row &each : rows_) {
        run_and_sweep(name_, each);
    }
}

const std::vector<const table *> &all_tables()
{
    return registry();
}

} // namespace olv_test
