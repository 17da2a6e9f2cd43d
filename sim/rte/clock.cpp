// hyx_gettime, hyx_timer_get_timestamp.
#include <ctime>

#include "olv_sim/calls.hpp"
#include "olv_sim/process.hpp"
#include "olv_sim/statuses.hpp"
#include "sim/faults/platform_call.hpp"
#include "sim/process_wide.hpp"
#include "sim/rte/processor_model.hpp"

namespace olv_sim {
namespace {

struct wall_clock {
    std::optional<hyx_time> stands_at;
};

hyx_time wall_time()
{
    if (const std::optional<hyx_time> instant = locked<wall_clock>()->stands_at) {
        return *instant;
    }
    std::timespec now{};
    (void)clock_gettime(CLOCK_REALTIME, &now); // Cannot fail: the clock exists.
    return {static_cast<unsigned long>(now.tv_sec), static_cast<unsigned long>(now.tv_nsec) / 1000};
}

std::uint32_t read_timer(std::uint32_t rte_handle, std::uint32_t timer, std::uint64_t *timestamp)
{
    const processors::model *owner = processors::find(rte_handle, "hyx_timer_get_timestamp");
    if (owner == nullptr) {
        return rte_invalid_instance;
    }
    if (timestamp == nullptr) {
        return rte_null_pointer;
    }
    if (timer != 0) {
        return rte_invalid_timer;
    }
    *timestamp = owner->timer_now();
    return rte_ok;
}

} // namespace

void set_wall_clock(std::optional<hyx_time> instant)
{
    locked<wall_clock>()->stands_at = instant;
}

} // namespace olv_sim

using namespace olv_sim;

void hyx_gettime(hyx_time *now)
{
    plain_call(
        call::hyx_gettime, [](argument_text &) {},
        [&] {
            if (now != nullptr) {
                *now = wall_time();
            }
        });
}

std::uint32_t hyx_timer_get_timestamp(std::uint32_t rte_handle, std::uint32_t timer, std::uint64_t *timestamp)
{
    return status_call(
        call::hyx_timer_get_timestamp,
        [&](argument_text &text) { text.number("rte", rte_handle).number("timer", timer); },
        [&] { return read_timer(rte_handle, timer, timestamp); });
}
