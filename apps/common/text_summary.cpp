#include "apps/common/text_summary.hpp"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cmath>
#include <optional>

#include "apps/common/formatted.hpp"

namespace olv_probe {
namespace {

using olv_apps::append;
using olv_apps::formatted;

constexpr std::size_t columns = 80;
constexpr std::ptrdiff_t most_lines = 12;

double share(std::uint64_t part, std::uint64_t whole)
{
    return whole == 0 ? 0 : 100.0 * static_cast<double>(part) / static_cast<double>(whole);
}

/** A long address leaves room for the time alone. */
void append_head(std::string &text, const run_report &report)
{
    const std::string reflector = report.options.reflector.text();
    const double elapsed = std::chrono::duration<double>(report.elapsed).count();
    const std::string time = formatted(elapsed < 10 ? "%.2f s" : "%.1f s", elapsed);
    const std::uint64_t sent = report.total.counts.sent;
    std::string head = formatted("%s: %" PRIu64 " packet%s of %zu octets", reflector.c_str(), sent,
                                 sent == 1 ? "" : "s", report.options.size);
    if (report.options.senders > 1) {
        append(head, " from %u senders", report.options.senders);
    }
    append(head, " in %s", time.c_str());
    text += (head.size() <= columns ? head : reflector + ": " + time) + '\n';
}

/** On which way, where that is known of some. Of an endless run, the rest may not fit on the line. */
void append_ways(std::string &text, const way_counts &counts)
{
    if (counts.forward != 0 || counts.backward != 0) {
        append(text, ": forward %" PRIu64 ", backward %" PRIu64, counts.forward, counts.backward);
        const std::string rest = formatted(", unknown %" PRIu64, counts.unknown);
        const std::size_t begin = text.rfind('\n') + 1;
        if (counts.unknown != 0 && text.size() - begin + rest.size() <= columns) {
            text += rest;
        }
    }
    text += '\n';
}

void append_faults_of_the_way(std::string &text, const probe_figures &figures)
{
    const packet_counts &counts = figures.counts;
    append(text, "lost %" PRIu64 " (%.2f %%)", counts.lost(), share(counts.lost(), counts.sent));
    append_ways(text, figures.lost);
    append(text, "duplicates %" PRIu64, counts.duplicates);
    append_ways(text, figures.duplicates);
    append(text, "reordered %" PRIu64 " (%.2f %%)", counts.reordered, share(counts.reordered, counts.answered));
    append_ways(text, figures.reordered);
}

/** Microseconds; seconds where they are too many for a column. */
std::string cell(std::int64_t nanoseconds)
{
    constexpr std::size_t widest = 12;
    const std::string text = formatted("%.1f", microseconds(nanoseconds));
    return text.size() <= widest ? text : formatted("%.2f s", static_cast<double>(nanoseconds) / 1e9);
}

struct column {
    const char *name;
    std::optional<std::int64_t> (*value)(const distribution &);
};

template <std::size_t rank> std::optional<std::int64_t> percentile_of(const distribution &figures)
{
    return figures.percentiles[rank];
}

constexpr std::array<column, 5> delay_columns{{
    {"min", [](const distribution &figures) { return std::optional(figures.minimum); }},
    {"median", percentile_of<percentile_50>},
    {"p95", percentile_of<percentile_95>},
    {"p99", percentile_of<percentile_99>},
    {"max", [](const distribution &figures) { return std::optional(figures.maximum); }},
}};

/** What the round trips do not carry, the one-way delays do not either: there are no more of them. */
void append_row(std::string &text, const char *name, const distribution &delay, const distribution &round_trip)
{
    append(text, "%-12s", name);
    for (const column &each : delay_columns) {
        if (each.value(round_trip)) {
            const std::optional<std::int64_t> value = each.value(delay);
            append(text, " %12s", value ? cell(*value).c_str() : "-");
        }
    }
    text += '\n';
}

void append_delays(std::string &text, const probe_figures &figures)
{
    const distribution &round_trip = figures.round_trip.delay;
    text += "microseconds";
    for (const column &each : delay_columns) {
        if (each.value(round_trip)) {
            append(text, " %12s", each.name);
        }
    }
    text += '\n';
    append_row(text, "round trip", round_trip, round_trip);
    if (const period_figures *const whole = figures.whole_run(); whole != nullptr && whole->clock_offset) {
        append_row(text, "forward", whole->forward.delay, round_trip);
        append_row(text, "backward", whole->backward.delay, round_trip);
    }
}

/** How far the one-way delays can be trusted. */
void append_clocks(std::string &text, const probe_figures &figures)
{
    if (const period_figures *const whole = figures.whole_run()) {
        text += whole->clock_offset ? clock_offset_text(*whole->clock_offset) : "no one-way delays";
    } else if (figures.periods.empty()) {
        text += "clocks were set, and not all senders saw the same: no one-way delays";
    } else {
        text += "a clock was set: the one-way delays before and after stand above";
    }
    text += '\n';
    const clock_quality &clock = figures.counts.reflector_clock;
    if (clock.replies == 0) {
        return;
    }
    const char *state = "not synchronised";
    if (clock.synchronized == clock.replies) {
        state = "synchronised";
    } else if (clock.synchronized != 0) {
        state = "synchronised at times";
    }
    append(text, "the reflector calls its clock %s, wrong by up to %s\n", state,
           duration_text(clock.greatest_error).c_str());
}

std::string hops(const ttl_range &ttl, unsigned initial)
{
    const unsigned fewest = hops_from(initial, ttl.maximum); // with the largest TTL
    const unsigned most = hops_from(initial, ttl.minimum);
    return fewest == most ? std::to_string(most) : formatted("%u to %u", fewest, most);
}

void append_hops(std::string &text, const run_report &report)
{
    const packet_counts &counts = report.total.counts;
    std::string ways;
    if (!counts.request_ttl.is_empty()) {
        ways = " forward " + hops(counts.request_ttl, report.options.ttl);
    }
    if (!counts.reply_ttl.is_empty()) {
        ways += ways.empty() ? "" : ",";
        ways += " backward " + hops(counts.reply_ttl, usual_initial_ttl(counts.reply_ttl.maximum));
    }
    if (!ways.empty()) {
        text += "hops" + ways + '\n';
    }
}

} // namespace

std::string duration_text(double nanoseconds)
{
    constexpr double day = 86400e9;
    const double size = std::abs(nanoseconds);
    if (size < 10e6) {
        return formatted("%.1f us", nanoseconds / 1e3);
    }
    if (size < 1e9) {
        return formatted("%.3f ms", nanoseconds / 1e6);
    }
    return size < 10 * day ? formatted("%.3f s", nanoseconds / 1e9) : formatted("%.0f days", nanoseconds / day);
}

std::string counts_text(const packet_counts &counts)
{
    const struct {
        const char *name;
        std::uint64_t count;
        bool always;
    } parts[] = {{"sent", counts.sent, true},
                 {"received", counts.received, true},
                 {"valid", counts.valid, true},
                 {"odd", counts.odd, false},
                 {"invalid", counts.invalid(), false},
                 {"not measured", counts.valid + counts.odd - counts.measured, false}};
    std::string text;
    std::size_t begin = 0; // of the line
    for (const auto &part : parts) {
        if (part.count == 0 && !part.always) {
            continue;
        }
        const std::string word = formatted("%s %" PRIu64, part.name, part.count);
        if (text.size() - begin + word.size() + 3 > columns) { // a comma before it and one behind
            text += ",\n";
            begin = text.size();
        } else if (!text.empty()) {
            text += ", ";
        }
        text += word;
    }
    return text;
}

std::string clock_offset_text(std::int64_t nanoseconds_ahead)
{
    const double ahead = static_cast<double>(nanoseconds_ahead);
    return formatted("the reflector's clock is %s %s, if both ways take equally long",
                     duration_text(std::abs(ahead)).c_str(), ahead < 0 ? "behind" : "ahead");
}

std::string text_summary(const run_report &report)
{
    std::string text;
    append_head(text, report);
    text += counts_text(report.total.counts) + '\n';
    append_faults_of_the_way(text, report.total);
    if (report.total.round_trip.delay.count == 0) {
        text += "round trip not measured\n";
    } else {
        append_delays(text, report.total);
        append_clocks(text, report.total);
    }
    if (std::count(text.begin(), text.end(), '\n') < most_lines) { // the details have them, too
        append_hops(text, report);
    }
    return text;
}

} // namespace olv_probe
