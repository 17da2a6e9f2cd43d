#include "sim/faults/platform_call.hpp"
#include "sim/process_wide.hpp"

namespace olv_sim::call_record {
namespace {

struct record {
    std::vector<recorded_call> calls;
    std::uint32_t generation = 0;
};

std::atomic<unsigned> wanted_kinds{0};

} // namespace

bool wants(call which)
{
    return (wanted_kinds.load(std::memory_order_relaxed) & static_cast<unsigned>(kind_of(which))) != 0;
}

ticket note(call which, std::string arguments)
{
    const locked<record> current;
    current->calls.push_back({which, std::move(arguments), 0, false});
    return {current->generation, current->calls.size() - 1};
}

void finish(const ticket &open, std::uint32_t result, bool injected)
{
    const locked<record> current;
    if (open.generation == current->generation) {
        current->calls[open.position].result = result;
        current->calls[open.position].injected = injected;
    }
}

void start(unsigned kinds)
{
    const locked<record> current;
    current->calls.clear();
    ++current->generation;
    wanted_kinds = kinds;
    call_switches.fetch_or(record_on);
}

void stop()
{
    call_switches.fetch_and(~record_on);
    wanted_kinds = 0;
}

std::vector<recorded_call> calls()
{
    return locked<record>()->calls;
}

std::vector<std::string> names()
{
    std::vector<std::string> result;
    for (const recorded_call &one : calls()) {
        result.emplace_back(call_name(one.which));
    }
    return result;
}

} // namespace olv_sim::call_record
