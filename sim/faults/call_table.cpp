#include <array>

#include "olv_sim/calls.hpp"
#include "olv_sim/statuses.hpp"

namespace olv_sim {
namespace {

struct call_traits {
    std::string_view name;
    call_kind kind;
    failure fails_by;
};

constexpr std::array<call_traits, call_count> call_table{{
#define OLV_SIM_CALL_TRAITS(name, kind, fails_by) {#name, call_kind::kind, failure::fails_by},
    OLV_SIM_CALLS(OLV_SIM_CALL_TRAITS)
#undef OLV_SIM_CALL_TRAITS
}};

const call_traits &traits(call which)
{
    return call_table.at(static_cast<std::size_t>(which));
}

} // namespace

std::string_view call_name(call which)
{
    return traits(which).name;
}

call_kind kind_of(call which)
{
    return traits(which).kind;
}

failure failure_of(call which)
{
    return traits(which).fails_by;
}

bool can_fail(call which)
{
    return failure_of(which) != failure::never;
}

std::uint32_t usual_code(call which)
{
    switch (failure_of(which)) {
    case failure::rte_status:
        return rte_injected;
    case failure::framework_status:
        return framework_injected;
    default:
        return 0;
    }
}

std::optional<call> call_by_name(std::string_view name)
{
    for (std::size_t index = 0; index < call_count; ++index) {
        if (call_table[index].name == name) {
            return static_cast<call>(index);
        }
    }
    return std::nullopt;
}

} // namespace olv_sim
