#include <array>
#include <mutex>
#include <vector>

#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "sim/faults/platform_call.hpp"
#include "sim/process_wide.hpp"

namespace olv_sim {

std::atomic<std::uint32_t> call_switches{0};

namespace faults {
namespace {

/** A fault as it was planned and how far it has come. */
struct progress {
    std::optional<fault> plan;
    std::uint32_t to_skip = 0;
    std::uint32_t to_fail = 0;
    std::uint32_t hits = 0;
    std::uint32_t calls = 0;

    void start(const fault &planned_fault)
    {
        *this = {.plan = planned_fault, .to_skip = planned_fault.skip, .to_fail = planned_fault.count};
    }

    bool fires()
    {
        if (!plan) {
            return false;
        }
        ++calls;
        if (to_skip > 0) {
            --to_skip;
            return false;
        }
        if (to_fail == 0) {
            return false;
        }
        if (to_fail != fault::forever) {
            --to_fail;
        }
        ++hits;
        return true;
    }
};

struct fault_plan {
    std::mutex mutex;
    std::array<progress, call_count> single;
    std::vector<progress> any;
};

fault_plan &the_plan()
{
    return process_wide<fault_plan>();
}

progress &single(fault_plan &plan, call which)
{
    return plan.single.at(static_cast<std::size_t>(which));
}

/** Lock held. */
void switch_faults(const fault_plan &plan)
{
    bool on = !plan.any.empty();
    for (const progress &one : plan.single) {
        on = on || one.plan.has_value();
    }
    if (on) {
        call_switches.fetch_or(faults_on);
    } else {
        call_switches.fetch_and(~faults_on);
    }
}

/** Let every fault of whatever call count this one. @return The first that fires, NULL if none does. */
const fault *fires_for_any(fault_plan &plan)
{
    const fault *firing = nullptr;
    for (progress &one : plan.any) {
        if (one.fires() && firing == nullptr) {
            firing = &*one.plan;
        }
    }
    return firing;
}

std::uint32_t code_of(call which, const fault &planned_fault)
{
    return planned_fault.code != 0 ? planned_fault.code : usual_code(which);
}

} // namespace

std::optional<std::uint32_t> injected(call which)
{
    fault_plan &plan = the_plan();
    const std::lock_guard lock{plan.mutex};
    // Tracer look-ups come with every message and their failure has no effect worth sweeping over.
    const fault *any = which != call::olv_lttng_fn_ptr_get ? fires_for_any(plan) : nullptr;
    progress &own = single(plan, which);
    if (own.fires()) {
        return code_of(which, *own.plan);
    }
    if (any != nullptr) {
        return code_of(which, *any);
    }
    return std::nullopt;
}

bool set(call which, const fault &plan)
{
    if (!can_fail(which)) {
        return false;
    }
    fault_plan &current = the_plan();
    const std::lock_guard lock{current.mutex};
    single(current, which).start(plan);
    switch_faults(current);
    return true;
}

void set_any(const fault &plan)
{
    fault_plan &current = the_plan();
    const std::lock_guard lock{current.mutex};
    current.any.assign(1, {});
    current.any.front().start(plan);
    switch_faults(current);
}

void add_any(const fault &plan)
{
    fault_plan &current = the_plan();
    const std::lock_guard lock{current.mutex};
    current.any.emplace_back().start(plan);
    switch_faults(current);
}

void clear(call which)
{
    fault_plan &current = the_plan();
    const std::lock_guard lock{current.mutex};
    single(current, which) = {};
    switch_faults(current);
}

void clear_all()
{
    fault_plan &current = the_plan();
    const std::lock_guard lock{current.mutex};
    current.single.fill({});
    current.any.clear();
    switch_faults(current);
}

std::optional<fault> planned(call which)
{
    fault_plan &current = the_plan();
    const std::lock_guard lock{current.mutex};
    return single(current, which).plan;
}

std::uint32_t hits(call which)
{
    fault_plan &current = the_plan();
    const std::lock_guard lock{current.mutex};
    return single(current, which).hits;
}

std::uint32_t hits_of_any()
{
    fault_plan &current = the_plan();
    const std::lock_guard lock{current.mutex};
    std::uint32_t hits = 0;
    for (const progress &one : current.any) {
        hits += one.hits;
    }
    return hits;
}

std::uint32_t calls_of_any()
{
    fault_plan &current = the_plan();
    const std::lock_guard lock{current.mutex};
    return current.any.empty() ? 0 : current.any.front().calls;
}

} // namespace faults
} // namespace olv_sim
