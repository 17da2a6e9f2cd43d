#include "apps/twampctl/figures/figures_output.hpp"

#include "apps/twampctl/figures/figures_formats.hpp"

namespace twampctl {

std::vector<drop_reason> drops_of(const olv_twamp_global_stats &counters)
{
    return {{"no_responder", "no responder", counters.drop_no_responder},
            {"length_check", "length check failed", counters.drop_length_check},
            {"hash_error", "hash error", counters.drop_hash_error},
            {"no_bind", "no output path bound", counters.drop_no_bind}};
}

std::vector<drop_reason> drops_of(const olv_twamp_responder_stats &counters)
{
    return {{"length_check", "length check failed", counters.drop_length_check},
            {"max_sessions", "too many sessions", counters.drop_max_sessions}};
}

std::vector<drop_reason> drops_of(const olv_fastpath::udp_statistics &counters)
{
    return {{"socket_full", "socket buffer full", counters.socket_full},
            {"source_not_allowed", "source not allowed", counters.source_not_allowed},
            {"source_port", "source port too low", counters.source_port},
            {"own_source", "own address as source", counters.own_source},
            {"too_long", "length above the longest", counters.truncated},
            {"answer_to_reply", "answer to a reply", counters.answers},
            {"packet_rate", "packet rate", counters.rate_limited}};
}

std::vector<usage_item> items_of(const platform_usage &usage)
{
    return {{"memory_blocks", "memory blocks", usage.blocks},
            {"responder_ids", "responder IDs", usage.responder_ids},
            {"responder_entries", "responder entries", usage.responder_entries},
            {"bind_entries", "bind entries", usage.bind_entries},
            {"patterns", "patterns", usage.patterns}};
}

std::string shortened(const std::string &name, std::size_t width)
{
    const std::string shown = printable(name);
    return shown.size() <= width ? shown : shown.substr(0, width - 3) + "...";
}

std::string format(const figures_part &part, output_format as)
{
    switch (as) {
    case output_format::json:
        return as_json(part);
    case output_format::prometheus:
        return as_prometheus(part);
    case output_format::text:
        break;
    }
    return as_text(part);
}

} // namespace twampctl
