#include "apps/common/text_report.hpp"

#include <cinttypes>

#include "apps/common/formatted.hpp"
#include "net/traffic_class.hpp"

namespace olv_probe {
namespace {

using olv_apps::append;

double share(std::uint64_t part, std::uint64_t whole)
{
    return whole == 0 ? 0 : 100.0 * static_cast<double>(part) / static_cast<double>(whole);
}

void append_faults(std::string &text, const packet_counts &counts)
{
    for (std::size_t fault = 0; fault < counts.faults.size(); ++fault) {
        if (counts.faults[fault] != 0) {
            append(text, "  %s: %" PRIu64 "\n", text_of(static_cast<reply_fault>(fault)), counts.faults[fault]);
        }
    }
}

/** On which way, where that is known of some. */
void append_ways(std::string &text, const way_counts &counts)
{
    if (counts.forward == 0 && counts.backward == 0) {
        return;
    }
    append(text, "  forward: %" PRIu64 ", backward: %" PRIu64, counts.forward, counts.backward);
    if (counts.unknown != 0) {
        append(text, ", not known: %" PRIu64, counts.unknown);
    }
    text += '\n';
}

void append_counts(std::string &text, const run_report &report)
{
    const packet_counts &counts = report.total.counts;
    append(text, "sent: %" PRIu64 "\n", counts.sent);
    append(text, "received: %" PRIu64 "\n", counts.received);
    append(text, "valid: %" PRIu64 "\n", counts.valid);
    if (counts.odd != 0) {
        append(text, "odd: %" PRIu64 "\n", counts.odd);
    }
    append(text, "invalid: %" PRIu64 "\n", counts.invalid());
    append_faults(text, counts);
    if (counts.valid + counts.odd != counts.measured) {
        append(text, "not measured: %" PRIu64 "\n", counts.valid + counts.odd - counts.measured);
    }
    append(text, "lost: %" PRIu64 " (%.2f %%)\n", counts.lost(), share(counts.lost(), counts.sent));
    append_ways(text, report.total.lost);
    append(text, "duplicates: %" PRIu64 "\n", counts.duplicates);
    append_ways(text, report.total.duplicates);
    if (counts.forgotten != 0) {
        append(text, "replies to packets that are kept no longer: %" PRIu64 "\n", counts.forgotten);
    }
    if (counts.other_ttl != 0) {
        append(text, "sender TTL not %u: %" PRIu64 "\n", unsigned{report.options.ttl}, counts.other_ttl);
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
        append(text, "at %.3f s, packet %u: %s", std::chrono::duration<double>(event.at).count(),
               event.sequence, text_of(event.what));
        if (event.what != session_event::kind::reflector_restart) {
            append(text, " by %+.1f microseconds", microseconds(event.by.count()));
        }
        text += '\n';
    }
}

void append_round_trip(std::string &text, const distribution &round_trip)
{
    if (round_trip.count == 0) {
        text += "round trip: not measured\n";
        return;
    }
    append(text, "round trip in microseconds: min %.1f, median %.1f, p99 %.1f, max %.1f\n",
           microseconds(round_trip.minimum), microseconds(round_trip.percentiles[percentile_50]),
           microseconds(round_trip.percentiles[percentile_99]), microseconds(round_trip.maximum));
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

/** How far its one-way delays can be trusted, as the reflector says. */
void append_clock(std::string &text, const clock_quality &clock)
{
    const char *state = "not synchronised";
    if (clock.synchronized == clock.replies) {
        state = "synchronised";
    } else if (clock.synchronized != 0) {
        state = "synchronised at times";
    }
    append(text, "the reflector calls its clock %s, wrong by at most %.1f microseconds\n", state,
           microseconds(clock.greatest_error));
}

using figure = double (*)(const path_figures &);

struct figure_row {
    const char *name;
    figure value; ///< Nanoseconds.
};

template <std::size_t rank> double delay_percentile(const path_figures &figures)
{
    return static_cast<double>(figures.delay.percentiles[rank]);
}

template <std::size_t rank> double above_minimum_percentile(const path_figures &figures)
{
    return static_cast<double>(figures.above_minimum.percentiles[rank]);
}

constexpr figure_row rows[] = {
    {"min", [](const path_figures &figures) { return static_cast<double>(figures.delay.minimum); }},
    {"mean", [](const path_figures &figures) { return figures.delay.mean; }},
    {"stddev", [](const path_figures &figures) { return figures.delay.standard_deviation; }},
    {"p50", delay_percentile<percentile_50>},
    {"p90", delay_percentile<percentile_90>},
    {"p95", delay_percentile<percentile_95>},
    {"p99", delay_percentile<percentile_99>},
    {"p99.9", delay_percentile<percentile_99_9>},
    {"max", [](const path_figures &figures) { return static_cast<double>(figures.delay.maximum); }},
    {"IPDV min", [](const path_figures &figures) { return static_cast<double>(figures.variation.minimum); }},
    {"IPDV mean magnitude", [](const path_figures &figures) { return figures.variation.mean_magnitude; }},
    {"IPDV max", [](const path_figures &figures) { return static_cast<double>(figures.variation.maximum); }},
    {"PDV p50", above_minimum_percentile<percentile_50>},
    {"PDV p99", above_minimum_percentile<percentile_99>},
    {"PDV p99.9", above_minimum_percentile<percentile_99_9>},
};

/** One-way delays of the whole run have no column when a clock was set meanwhile. */
void append_table(std::string &text, const probe_figures &figures)
{
    const period_figures *const whole = figures.whole_run();
    std::vector<const path_figures *> columns{&figures.round_trip};
    append(text, "\n%-20s %18s", "microseconds", "round trip");
    if (whole != nullptr) {
        columns.insert(columns.end(), {&whole->forward, &whole->backward});
        append(text, " %18s %18s", "forward", "backward");
    }
    text += '\n';
    for (const figure_row &row : rows) {
        append(text, "%-20s", row.name);
        for (const path_figures *const column : columns) {
            append(text, " %18.1f", microseconds(row.value(*column)));
        }
        text += '\n';
    }
    if (whole != nullptr) {
        append(text,
               "forward and backward contain the difference of the two clocks; if both ways\n"
               "take equally long, the reflector's is ahead by %.1f microseconds\n",
               microseconds(whole->clock_offset.value_or(0)));
        append_clock(text, figures.counts.reflector_clock);
    }
}

void append_one_way(std::string &text, const char *way, const distribution &delay)
{
    append(text, "  %s min %.1f, median %.1f, max %.1f\n", way, microseconds(delay.minimum),
           microseconds(delay.percentiles[percentile_50]), microseconds(delay.maximum));
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
        append(text, "  the reflector's clock is ahead by %.1f if both ways take equally long\n",
               microseconds(*period.clock_offset));
    }
}

void append_senders(std::string &text, const std::vector<sender_report> &senders)
{
    if (senders.size() < 2) {
        return;
    }
    text += '\n';
    for (const sender_report &sender : senders) {
        const packet_counts &counts = sender.figures.counts;
        const distribution &round_trip = sender.figures.round_trip.delay;
        append(text, "sender %s:\n  sent %" PRIu64 ", valid %" PRIu64, sender.address.c_str(), counts.sent,
               counts.valid);
        if (counts.odd != 0) {
            append(text, ", odd %" PRIu64, counts.odd);
        }
        append(text, ", invalid %" PRIu64 ", lost %" PRIu64 ", duplicates %" PRIu64 ", reordered %" PRIu64,
               counts.invalid(), counts.lost(), counts.duplicates, counts.reordered);
        if (round_trip.count != 0) {
            append(text, "\n  round trip min %.1f, median %.1f, max %.1f", microseconds(round_trip.minimum),
                   microseconds(round_trip.percentiles[percentile_50]), microseconds(round_trip.maximum));
        }
        text += '\n';
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
    if (figures.answered != figures.valid) {
        append(text, " invalid %" PRIu64, figures.answered - figures.valid);
    }
    if (const distribution &round_trip = figures.of(path::round_trip); round_trip.count != 0) {
        append(text, ", min %.1f median %.1f p99 %.1f max %.1f us", microseconds(round_trip.minimum),
               microseconds(round_trip.percentiles[percentile_50]),
               microseconds(round_trip.percentiles[percentile_99]), microseconds(round_trip.maximum));
    }
    return text + '\n';
}

std::string text_report(const run_report &report)
{
    const packet_counts &counts = report.total.counts;
    std::string text;
    append_counts(text, report);
    append_round_trip(text, report.total.round_trip.delay);
    append(text, "reordered: %" PRIu64 " (%.2f %%)\n", counts.reordered,
           share(counts.reordered, counts.answered));
    append_ways(text, report.total.reordered);
    append_numbering(text, report.total);
    append_scale(text, report.total);
    append_events(text, report.total.events);
    append_hops(text, "forward", counts.request_ttl, report.options.ttl, "sent with");
    append_hops(text, "backward", counts.reply_ttl, usual_initial_ttl(counts.reply_ttl.maximum), "assumed");
    append_traffic_classes(text, counts);
    append_stamps(text, report);
    if (report.options.forever && counts.sent > kept_packets) {
        append(text, "delays: of the last %" PRIu32 " packets\n", kept_packets);
    }
    if (counts.measured != 0) {
        append_table(text, report.total);
        append_periods(text, report.total.periods);
    }
    append_senders(text, report.senders);
    return text;
}

} // namespace olv_probe
