#include "apps/twampctl/figures/figures_output.hpp"

#include "apps/twampctl/figures/figures_formats.hpp"

namespace twampctl {
namespace {

/** Of the reasons that somebody counts. */
std::vector<drop_figure> figures_of(const olv_fastpath::drop_counts &counts, olv_fastpath::drop_counter who)
{
    std::vector<drop_figure> figures;
    for (const olv_fastpath::drop_reason_entry &each : olv_fastpath::drop_reasons) {
        if (each.is_counted_by(who)) {
            figures.push_back({.name = each.name, .text = each.text, .packets = counts[each.reason]});
        }
    }
    return figures;
}

} // namespace

std::vector<drop_figure> drops_of(const olv_twamp_global_stats &counters)
{
    return figures_of(olv_fastpath::drops_in(counters), olv_fastpath::drop_counter::module);
}

std::vector<drop_figure> drops_of(const olv_twamp_responder_stats &counters)
{
    return figures_of(olv_fastpath::drops_in(counters), olv_fastpath::drop_counter::responder);
}

std::vector<drop_figure> drops_of(const olv_fastpath::listener_statistics &counters)
{
    return figures_of(counters.dropped_packets, olv_fastpath::drop_counter::listener);
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
