#include "apps/common/text_report.hpp"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <optional>

#include "apps/common/formatted.hpp"
#include "apps/common/text_summary.hpp"
#include "net/traffic_class.hpp"

namespace olv_probe {
namespace {

using olv_apps::append;
using olv_apps::formatted;

void append_faults(std::string &text, const packet_counts &counts)
{
    const auto is_zero = [](std::uint64_t count) { return count == 0; };
    if (std::all_of(counts.faults.begin(), counts.faults.end(), is_zero)) {
        return;
    }
    text += "odd and invalid replies:\n";
    for (std::size_t fault = 0; fault < counts.faults.size(); ++fault) {
        if (counts.faults[fault] != 0) {
            append(text, "  %s: %" PRIu64 "\n", text_of(static_cast<reply_fault>(fault)), counts.faults[fault]);
        }
    }
}

/** Why some ways are not known. */
void append_numbering(std::string &text, const probe_figures &figures)
{
    const bool open =
        figures.lost.unknown != 0 || figures.duplicates.unknown != 0 || figures.reordered.unknown != 0;
    if (!open || !figures.numbers || *figures.numbers == numbering::unknown) {
        return;
    }
    if (*figures.numbers == numbering::by_session) {
        text += "ways not known: of packets after which nothing came back\n";
    } else {
        append(text, "ways not known: %s\n", text_of(*figures.numbers));
    }
}

void append_scale(std::string &text, const probe_figures &figures)
{
    if (figures.scale == time_scale::ptp_utc || figures.scale == time_scale::ptp_tai) {
        append(text, "reflector's timestamps: %s\n", text_of(*figures.scale));
    }
}

void append_events(std::string &text, const std::vector<session_event> &events)
{
    for (const session_event &event : events) {
        append(text, "at %.3f s, packet %" PRIu64 ": %s", std::chrono::duration<double>(event.at).count(),
               event.sequence, text_of(event.what));
        if (event.what != session_event::kind::reflector_restart) {
            const auto by = static_cast<double>(event.by.count());
            append(text, " %s by %s", by < 0 ? "back" : "forward", duration_text(std::abs(by)).c_str());
        }
        text += '\n';
    }
}

/** The fewest hops belong to the largest TTL. */
void append_hops(std::string &text, const char *way, const ttl_range &ttl, unsigned initial, const char *of)
{
    if (ttl.is_empty()) {
        return;
    }
    append(text, "hops %s: min %u, max %u (TTL %u to %u, %s %u)\n", way, hops_from(initial, ttl.maximum),
           hops_from(initial, ttl.minimum), unsigned{ttl.minimum}, unsigned{ttl.maximum}, of, initial);
}

/** "time stamps: kernel". What has none is measured by the program's clock. */
void append_stamps(std::string &text, const run_report &report)
{
    append(text, "time stamps: %s", name_of(report.timestamps));
    const packet_counts &counts = report.total.counts;
    if (report.timestamps != timestamp_source::user &&
        (report.stamps.requests < counts.sent || report.stamps.replies < counts.received)) {
        append(text, " (of %" PRIu64 " requests and %" PRIu64 " replies)", report.stamps.requests,
               report.stamps.replies);
    }
    text += '\n';
}

/** "replies with DSCP EF and ECN ect0: 98". */
void append_traffic_classes(std::string &text, const packet_counts &counts)
{
    for (std::size_t octet = 0; octet < counts.traffic_classes.size(); ++octet) {
        if (counts.traffic_classes[octet] != 0) {
            const auto value = static_cast<std::uint8_t>(octet);
            append(text, "replies with DSCP %s and ECN %s: %" PRIu64 "\n", olv_net::dscp_name(value).c_str(),
                   olv_net::ecn_name(value), counts.traffic_classes[octet]);
        }
    }
}

/** What the packets had on their way, and whose times are measured. */
void append_packets(std::string &text, const run_report &report)
{
    const packet_counts &counts = report.total.counts;
    append_stamps(text, report);
    append_scale(text, report.total);
    if (report.options.forever && counts.sent > kept_packets) {
        append(text, "delays: of the last %" PRIu32 " packets\n", kept_packets);
    }
    if (counts.forgotten != 0) {
        append(text, "replies to packets that are kept no longer: %" PRIu64 "\n", counts.forgotten);
    }
    append_traffic_classes(text, counts);
    append_hops(text, "forward", counts.request_ttl, report.options.ttl, "sent with");
    append_hops(text, "backward", counts.reply_ttl, usual_initial_ttl(counts.reply_ttl.maximum), "assumed");
    if (counts.other_ttl != 0) {
        append(text, "sender TTL not %u: %" PRIu64 "\n", unsigned{report.options.ttl}, counts.other_ttl);
    }
}

using figure = std::optional<double>;

struct figure_row {
    const char *name;
    figure (*value)(const path_figures &); ///< Nanoseconds, where there are samples enough.
};

template <distribution path_figures::*samples, auto member> figure of(const path_figures &figures)
{
    const distribution &all = figures.*samples;
    return all.count == 0 ? figure{} : static_cast<double>(all.*member);
}

template <distribution path_figures::*samples, percentile rank>
figure percentile_of(const path_figures &figures)
{
    const std::optional<std::int64_t> &value = (figures.*samples).percentiles[rank];
    return value ? figure(static_cast<double>(*value)) : figure{};
}

constexpr auto delays = &path_figures::delay;
constexpr auto variations = &path_figures::variation;
constexpr auto above_minimum = &path_figures::above_minimum;

constexpr figure_row rows[] = {
    {"min", of<delays, &distribution::minimum>},
    {"mean", of<delays, &distribution::mean>},
    {"stddev", of<delays, &distribution::standard_deviation>},
    {"p50", percentile_of<delays, percentile_50>},
    {"p90", percentile_of<delays, percentile_90>},
    {"p95", percentile_of<delays, percentile_95>},
    {"p99", percentile_of<delays, percentile_99>},
    {"p99.9", percentile_of<delays, percentile_99_9>},
    {"max", of<delays, &distribution::maximum>},
    {"IPDV min", of<variations, &distribution::minimum>},
    {"IPDV mean magnitude", of<variations, &distribution::mean_magnitude>},
    {"IPDV max", of<variations, &distribution::maximum>},
    {"PDV p50", percentile_of<above_minimum, percentile_50>},
    {"PDV p99", percentile_of<above_minimum, percentile_99>},
    {"PDV p99.9", percentile_of<above_minimum, percentile_99_9>},
};

/** There are no more samples of the one-way delays than of the round trips. */
void append_row(std::string &text, const figure_row &row, const std::vector<const path_figures *> &paths)
{
    if (!row.value(*paths.front())) {
        return;
    }
    append(text, "%-20s", row.name);
    for (const path_figures *const path : paths) {
        const figure value = row.value(*path);
        append(text, " %18s", value ? formatted("%.1f", microseconds(*value)).c_str() : "-");
    }
    text += '\n';
}

/** One-way delays of the whole run have no column when a clock was set meanwhile. */
void append_table(std::string &text, const probe_figures &figures)
{
    const period_figures *const whole = figures.whole_run();
    std::vector<const path_figures *> paths{&figures.round_trip};
    append(text, "%-20s %18s", "microseconds", "round trip");
    if (whole != nullptr) {
        paths.insert(paths.end(), {&whole->forward, &whole->backward});
        append(text, " %18s %18s", "forward", "backward");
    }
    text += '\n';
    for (const figure_row &row : rows) {
        append_row(text, row, paths);
    }
    if (whole != nullptr) {
        text += "forward and backward contain the difference of the two clocks\n";
    }
}

void append_one_way(std::string &text, const char *way, const distribution &delay)
{
    append(text, "  %s min %.1f, median %.1f, max %.1f\n", way, microseconds(delay.minimum),
           microseconds(delay.median()), microseconds(delay.maximum));
}

/** Before and after each setting of a clock. */
void append_periods(std::string &text, const std::vector<period_figures> &periods)
{
    if (periods.size() < 2) {
        return;
    }
    for (const period_figures &period : periods) {
        append(text, "one-way delays in microseconds from packet %" PRIu64 " on:", period.begin);
        if (!period.clock_offset) {
            text += " not measured\n";
            continue;
        }
        text += '\n';
        append_one_way(text, "forward", period.forward.delay);
        append_one_way(text, "backward", period.backward.delay);
        append(text, "  %s\n", clock_offset_text(*period.clock_offset).c_str());
    }
}

void append_senders(std::string &text, const std::vector<sender_report> &senders)
{
    if (senders.size() < 2) {
        return;
    }
    for (const sender_report &sender : senders) {
        const packet_counts &counts = sender.figures.counts;
        const distribution &round_trip = sender.figures.round_trip.delay;
        append(text, "sender %s:\n  %s\n", sender.address.c_str(), counts_text(counts).c_str());
        append(text, "  lost %" PRIu64 ", duplicates %" PRIu64 ", reordered %" PRIu64 "\n", counts.lost(),
               counts.duplicates, counts.reordered);
        if (round_trip.count != 0) {
            append(text, "  round trip min %.1f, median %.1f, max %.1f us\n", microseconds(round_trip.minimum),
                   microseconds(round_trip.median()), microseconds(round_trip.maximum));
        }
        append_events(text, sender.figures.events);
    }
}

} // namespace

std::string announcement(const session_options &options)
{
    std::string text;
    if (!options.duration && !options.forever) {
        append(text, "%u ", options.count);
    }
    append(text, "packets of %zu octets to %s", options.size, options.reflector.text().c_str());
    if (options.senders > 1) {
        append(text, " from each of %u senders", options.senders);
    }
    if (options.duration) {
        append(text, " for %g s", std::chrono::duration<double>(*options.duration).count());
    }
    if (options.forever) {
        text += " until stopped";
    }
    text += '\n';
    return text;
}

std::string interval_text(const interval_figures &figures)
{
    using seconds = std::chrono::duration<double>;
    std::string text;
    append(text, "%.2f to %.2f s: sent %" PRIu64 " lost %" PRIu64, seconds(figures.from).count(),
           seconds(figures.to).count(), figures.sent, figures.lost());
    if (figures.odd() != 0) {
        append(text, " odd %" PRIu64, figures.odd());
    }
    if (const distribution &round_trip = figures.of(path::round_trip); round_trip.count != 0) {
        const std::optional<std::int64_t> p99 = round_trip.percentiles[percentile_99];
        append(text, ", min %.1f median %.1f p99 %s max %.1f us", microseconds(round_trip.minimum),
               microseconds(round_trip.median()), p99 ? formatted("%.1f", microseconds(*p99)).c_str() : "-",
               microseconds(round_trip.maximum));
    }
    return text + '\n';
}

/** The stranger something is, the nearer it stands to the summary. */
std::string text_report(const run_report &report, const std::string &picture)
{
    std::string text;
    if (report.total.counts.measured != 0) {
        append_table(text, report.total);
    }
    append_senders(text, report.senders);
    append_packets(text, report);
    append_faults(text, report.total.counts);
    append_numbering(text, report.total);
    append_events(text, report.total.events);
    append_periods(text, report.total.periods);
    return text + picture + '\n' + text_summary(report);
}

} // namespace olv_probe
