#include "apps/common/json_report.hpp"

#include <nlohmann/json.hpp>

#include "net/traffic_class.hpp"

namespace olv_probe {
namespace {

using json = nlohmann::ordered_json;

json microseconds_or_null(const std::optional<std::int64_t> &nanoseconds)
{
    return nanoseconds ? json(microseconds(*nanoseconds)) : json(nullptr);
}

json of_distribution(const distribution &figures)
{
    if (figures.count == 0) {
        return nullptr;
    }
    return {{"count", figures.count},
            {"min", microseconds(figures.minimum)},
            {"mean", figures.mean / 1000},
            {"mean_magnitude", figures.mean_magnitude / 1000},
            {"stddev", figures.standard_deviation / 1000},
            {"p50", microseconds_or_null(figures.percentiles[percentile_50])},
            {"p90", microseconds_or_null(figures.percentiles[percentile_90])},
            {"p95", microseconds_or_null(figures.percentiles[percentile_95])},
            {"p99", microseconds_or_null(figures.percentiles[percentile_99])},
            {"p99_9", microseconds_or_null(figures.percentiles[percentile_99_9])},
            {"max", microseconds(figures.maximum)}};
}

json of_path(const path_figures &figures)
{
    return {{"delay", of_distribution(figures.delay)},
            {"ipdv", of_distribution(figures.variation)},
            {"pdv", of_distribution(figures.above_minimum)}};
}

json of_ttl(const ttl_range &ttl, unsigned initial)
{
    if (ttl.is_empty()) {
        return nullptr;
    }
    return {{"ttl_min", ttl.minimum},
            {"ttl_max", ttl.maximum},
            {"ttl_initial", initial},
            {"min", hops_from(initial, ttl.maximum)},
            {"max", hops_from(initial, ttl.minimum)}};
}

json of_faults(const packet_counts &counts)
{
    json faults = json::object();
    for (std::size_t fault = 0; fault < counts.faults.size(); ++fault) {
        if (counts.faults[fault] != 0) {
            faults[name_of(static_cast<reply_fault>(fault))] = counts.faults[fault];
        }
    }
    return faults;
}

json percent(std::uint64_t part, std::uint64_t whole)
{
    return whole == 0 ? json(nullptr) : json(100.0 * static_cast<double>(part) / static_cast<double>(whole));
}

json of_ways(const way_counts &counts)
{
    return {{"forward", counts.forward}, {"backward", counts.backward}, {"unknown", counts.unknown}};
}

double seconds(std::chrono::nanoseconds duration)
{
    return std::chrono::duration<double>(duration).count();
}

json of_events(const std::vector<session_event> &events)
{
    json list = json::array();
    for (const session_event &event : events) {
        json entry = {
            {"event", name_of(event.what)}, {"sequence", event.sequence}, {"at_s", seconds(event.at)}};
        if (event.what != session_event::kind::reflector_restart) {
            entry["by_us"] = microseconds(event.by.count());
        }
        list.push_back(entry);
    }
    return list;
}

/** Only where there are several: otherwise the one-way delays are those of the whole run. */
json of_periods(const std::vector<period_figures> &periods)
{
    json list = json::array();
    for (const period_figures &period : periods.size() > 1 ? periods : std::vector<period_figures>{}) {
        list.push_back({{"sequence", period.begin},
                        {"at_s", seconds(period.at)},
                        {"forward_us", of_path(period.forward)},
                        {"backward_us", of_path(period.backward)},
                        {"clock_offset_us", microseconds_or_null(period.clock_offset)}});
    }
    return list;
}

/** What the IP headers of replies said. */
json of_traffic_classes(const packet_counts &counts)
{
    json classes = json::array();
    for (std::size_t octet = 0; octet < counts.traffic_classes.size(); ++octet) {
        if (counts.traffic_classes[octet] != 0) {
            const auto value = static_cast<std::uint8_t>(octet);
            classes.push_back({{"dscp", value >> 2},
                               {"dscp_name", olv_net::dscp_name(value)},
                               {"ecn", olv_net::ecn_name(value)},
                               {"replies", counts.traffic_classes[octet]}});
        }
    }
    return classes;
}

json of_counts(const packet_counts &counts, unsigned ttl)
{
    return {{"sent", counts.sent},
            {"received", counts.received},
            {"valid", counts.valid},
            {"odd", counts.odd},
            {"invalid", counts.invalid()},
            {"faults", of_faults(counts)},
            {"measured", counts.measured},
            {"lost", counts.lost()},
            {"lost_percent", percent(counts.lost(), counts.sent)},
            {"duplicates", counts.duplicates},
            {"forgotten", counts.forgotten},
            {"reordered", counts.reordered},
            {"reordered_percent", percent(counts.reordered, counts.answered)},
            {"sender_ttl_changed", counts.other_ttl},
            {"hops_forward", of_ttl(counts.request_ttl, ttl)},
            {"hops_backward", of_ttl(counts.reply_ttl, usual_initial_ttl(counts.reply_ttl.maximum))},
            {"reply_traffic_classes", of_traffic_classes(counts)}};
}

json of_clock(const clock_quality &clock)
{
    if (clock.replies == 0) {
        return nullptr;
    }
    return {{"replies", clock.replies},
            {"synchronized", clock.synchronized},
            {"error_us_min", microseconds(clock.least_error)},
            {"error_us_max", microseconds(clock.greatest_error)}};
}

json of_figures(const probe_figures &figures, unsigned ttl)
{
    static const period_figures none;
    const period_figures *const whole = figures.whole_run();
    json result = of_counts(figures.counts, ttl);
    result["round_trip_us"] = of_path(figures.round_trip);
    result["forward_us"] = of_path(whole != nullptr ? whole->forward : none.forward);
    result["backward_us"] = of_path(whole != nullptr ? whole->backward : none.backward);
    result["clock_offset_us"] =
        microseconds_or_null(whole != nullptr ? whole->clock_offset : none.clock_offset);
    const numbering numbers = figures.numbers.value_or(numbering::unknown);
    result["reflector_numbers"] = numbers == numbering::unknown ? json(nullptr) : json(name_of(numbers));
    result["lost_by_way"] = of_ways(figures.lost);
    result["duplicates_by_way"] = of_ways(figures.duplicates);
    result["reordered_by_way"] = of_ways(figures.reordered);
    result["reflector_restarts"] = figures.counts.restarts;
    const time_scale scale = figures.scale.value_or(time_scale::none);
    result["time_scale"] = scale == time_scale::none ? json(nullptr) : json(name_of(scale));
    result["events"] = of_events(figures.events);
    result["periods"] = of_periods(figures.periods);
    result["reflector_clock"] = of_clock(figures.counts.reflector_clock);
    return result;
}

json of_options(const session_options &options)
{
    json result = {{"reflector", options.reflector.text()},
                   {"packets", options.stamp ? "stamp" : "twamp"},
                   {"size", options.size},
                   {"padding", options.stamp || options.zero_padding ? "zero" : "random"},
                   {"ptp", options.ptp},
                   {"strict", options.strict},
                   {"dscp", options.dscp},
                   {"ecn", olv_net::ecn_name(options.ecn)},
                   {"ttl", options.ttl},
                   {"dont_fragment", options.dont_fragment},
                   {"source", options.source ? json(options.source->text()) : json(nullptr)},
                   {"interface", options.interface.empty() ? json(nullptr) : json(options.interface)},
                   {"timeout_s", seconds(options.timeout)}};
    if (options.window) {
        result["window"] = *options.window;
    } else {
        result["interval_ms"] = std::chrono::duration<double, std::milli>(options.interval).count();
        result["schedule"] = name_of(options.schedule);
    }
    if (options.duration) {
        result["duration_s"] = seconds(*options.duration);
    } else if (options.forever) {
        result["forever"] = true;
        result["kept_packets"] = kept_packets;
    } else {
        result["count"] = options.count;
    }
    return result;
}

} // namespace

std::string interval_json(const interval_figures &figures, std::uint64_t started)
{
    const json line = {{"interval",
                        {{"started", utc_text(started + static_cast<std::uint64_t>(figures.from.count()))},
                         {"from_s", seconds(figures.from)},
                         {"to_s", seconds(figures.to)}}},
                       {"sent", figures.sent},
                       {"valid", figures.valid},
                       {"odd", figures.odd()},
                       {"lost", figures.lost()},
                       {"duplicates", figures.duplicates},
                       {"reordered", figures.reordered},
                       {"round_trip_us", of_distribution(figures.of(path::round_trip))},
                       {"forward_us", of_distribution(figures.of(path::forward))},
                       {"backward_us", of_distribution(figures.of(path::backward))}};
    return line.dump() + '\n';
}

std::string json_report(const run_report &report, bool on_a_line)
{
    json senders = json::array();
    for (const sender_report &sender : report.senders) {
        json entry = {{"address", sender.address}};
        entry.update(of_figures(sender.figures, report.options.ttl));
        senders.push_back(entry);
    }
    const json document = {{"options", of_options(report.options)},
                           {"started", utc_text(report.started)},
                           {"elapsed_s", seconds(report.elapsed)},
                           {"interrupted", report.interrupted},
                           {"refused", report.refused},
                           {"timestamps",
                            {{"source", name_of(report.timestamps)},
                             {"requests", report.stamps.requests},
                             {"replies", report.stamps.replies}}},
                           {"total", of_figures(report.total, report.options.ttl)},
                           {"senders", senders}};
    // The name of a network interface, which an address may contain, can be any octets.
    return document.dump(on_a_line ? -1 : 2, ' ', false, json::error_handler_t::replace) + '\n';
}

} // namespace olv_probe
