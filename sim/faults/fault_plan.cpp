#include <algorithm>
#include <array>
#include <numeric>
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
    std::array<progress, call_count> single;
    std::vector<progress> any;

    [[nodiscard]] progress &of(call which) { return single.at(static_cast<std::size_t>(which)); }
};

void switch_faults(const fault_plan &plan)
{
    const bool on = !plan.any.empty() || std::any_of(plan.single.begin(), plan.single.end(),
                                                     [](const progress &one) { return one.plan.has_value(); });
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
    const locked<fault_plan> plan;
    // Tracer look-ups come with every message and their failure has no effect worth sweeping over.
    const fault *any = which != call::olv_lttng_fn_ptr_get ? fires_for_any(*plan) : nullptr;
    progress &own = plan->of(which);
    if (own.fires()) {
        return code_of(which, *own.plan);
    }
    return any != nullptr ? std::optional{code_of(which, *any)} : std::nullopt;
}

bool set(call which, const fault &planned_fault)
{
    if (!can_fail(which)) {
        return false;
    }
    const locked<fault_plan> plan;
    plan->of(which).start(planned_fault);
    switch_faults(*plan);
    return true;
}

void set_any(const fault &planned_fault)
{
    const locked<fault_plan> plan;
    plan->any.assign(1, {});
    plan->any.front().start(planned_fault);
    switch_faults(*plan);
}

void add_any(const fault &planned_fault)
{
    const locked<fault_plan> plan;
    plan->any.emplace_back().start(planned_fault);
    switch_faults(*plan);
}

void clear(call which)
{
    const locked<fault_plan> plan;
    plan->of(which) = {};
    switch_faults(*plan);
}

void clear_all()
{
    const locked<fault_plan> plan;
    *plan = {};
    switch_faults(*plan);
}

std::optional<fault> planned(call which)
{
    return locked<fault_plan>()->of(which).plan;
}

std::uint32_t hits(call which)
{
    return locked<fault_plan>()->of(which).hits;
}

std::uint32_t hits_of_any()
{
    const locked<fault_plan> plan;
    return std::accumulate(plan->any.begin(), plan->any.end(), 0u,
                           [](std::uint32_t sum, const progress &one) { return sum + one.hits; });
}

std::uint32_t calls_of_any()
{
    const locked<fault_plan> plan;
    return plan->any.empty() ? 0 : plan->any.front().calls;
}

} // namespace faults
} // namespace olv_sim
