#include "apps/twampctl/site/platform_names.hpp"

#include "olv_sim/calls.hpp"
#include "olv_sim/processor.hpp"

namespace twampctl {

std::vector<std::string> tree_functions()
{
    std::vector<std::string> names;
    for (const auto &each : olv_sim::classifier_program::twamp(1).tree_functions) {
        names.push_back(each.name);
    }
    return names;
}

std::vector<std::string> failing_calls()
{
    std::vector<std::string> names;
    for (std::size_t index = 0; index < olv_sim::call_count; ++index) {
        const auto which = static_cast<olv_sim::call>(index);
        if (olv_sim::can_fail(which)) {
            names.emplace_back(olv_sim::call_name(which));
        }
    }
    return names;
}

} // namespace twampctl
