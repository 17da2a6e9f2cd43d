#include <array>

#include "olv_sim/calls.hpp"

namespace olv_sim {
namespace {

struct call_traits {
    std::string_view name;
    call_kind kind;
    bool can_fail;
};

constexpr std::array<call_traits, call_count> call_table{{
#define OLV_SIM_CALL_TRAITS(name, kind, can_fail) {#name, call_kind::kind, can_fail},
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

bool can_fail(call which)
{
    return traits(which).can_fail;
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
