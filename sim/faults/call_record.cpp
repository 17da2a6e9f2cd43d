#include <mutex>

#include "sim/faults/platform_call.hpp"
#include "sim/process_wide.hpp"

namespace olv_sim::call_record {
namespace {

struct record {
    std::mutex mutex;
    std::vector<recorded_call> calls;
    std::uint32_t generation = 0;
};

std::atomic<unsigned> wanted_kinds{0};

record &the_record()
{
    return process_wide<record>();
}

} // namespace

bool wants(call which)
{
    return (wanted_kinds.load(std::memory_order_relaxed) & static_cast<unsigned>(kind_of(which))) != 0;
}

ticket note(call which, std::string arguments)
{
    record &current = the_record();
    const std::lock_guard lock{current.mutex};
    current.calls.push_back({which, std::move(arguments), 0, false});
    return {current.generation, current.calls.size() - 1};
}

void finish(const ticket &open, std::uint32_t result, bool injected)
{
    record &current = the_record();
    const std::lock_guard lock{current.mutex};
    if (open.generation == current.generation) {
        current.calls[open.position].result = result;
        current.calls[open.position].injected = injected;
    }
}

void start(unsigned kinds)
{
    record &current = the_record();
    const std::lock_guard lock{current.mutex};
    current.calls.clear();
    ++current.generation;
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
    record &current = the_record();
    const std::lock_guard lock{current.mutex};
    return current.calls;
}

std::vector<std::string> names()
{
    record &current = the_record();
    const std::lock_guard lock{current.mutex};
    std::vector<std::string> result;
    for (const recorded_call &one : current.calls) {
        result.emplace_back(call_name(one.which));
    }
    return result;
}

} // namespace olv_sim::call_record
