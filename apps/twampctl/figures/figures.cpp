#include "apps/twampctl/figures/figures.hpp"

namespace twampctl {

bool platform_usage::is_empty() const
{
    return blocks == 0 && responder_ids == 0 && responder_entries == 0 && bind_entries == 0 && patterns == 0 &&
           violations == 0;
}

std::string text_of(const platform_usage &usage)
{
    return std::to_string(usage.blocks) + " blocks, " + std::to_string(usage.responder_ids) +
           " responder IDs, " + std::to_string(usage.responder_entries) + " responder entries, " +
           std::to_string(usage.bind_entries) + " bind entries, " + std::to_string(usage.patterns) +
           " patterns, " + std::to_string(usage.violations) + " violations";
}

} // namespace twampctl
