#include "probe/probe_figures.hpp"

#include <algorithm>
#include <utility>

namespace olv_probe {
namespace {

/** A session's packets that figures are made of. */
struct part {
    const measurement *session;
    packet_range range;
};

using append_samples = void (measurement::*)(path, packet_range, std::vector<std::int64_t> &) const;

distribution collect(const std::vector<part> &parts, path which, append_samples append)
{
    std::vector<std::int64_t> samples;
    std::size_t most = 0;
    for (const part &each : parts) {
        most += std::min<std::size_t>(each.session->counts().measured, each.range.end - each.range.begin);
    }
    samples.reserve(most);
    for (const part &each : parts) {
        (each.session->*append)(which, each.range, samples);
    }
    return distribution_of(std::move(samples));
}

path_figures figures_of_path(const std::vector<part> &parts, path which)
{
    return {.delay = collect(parts, which, &measurement::append_delays),
            .variation = collect(parts, which, &measurement::append_delay_variation),
            .above_minimum = collect(parts, which, &measurement::append_delay_above_minimum)};
}

std::optional<std::int64_t> estimate_clock_offset(const std::vector<part> &parts)
{
    const packet_record *quickest = nullptr;
    for (const part &each : parts) {
        for (const packet_record &record : each.session->records(each.range)) {
            if (record.has(path::forward) &&
                (quickest == nullptr || record.round_trip < quickest->round_trip)) {
                quickest = &record;
            }
        }
    }
    if (quickest == nullptr) {
        return std::nullopt;
    }
    return (quickest->delay(path::forward) - quickest->delay(path::backward)) / 2;
}

/** All sessions have the same two clocks: what one session saw between two settings goes with what the others
 * saw between the same two. */
std::vector<period_figures> figures_of_periods(std::span<const measurement *const> sessions)
{
    std::vector<std::vector<part>> periods;
    for (const measurement *session : sessions) {
        const std::vector<packet_range> ranges = session->periods();
        if (periods.empty()) {
            periods.resize(ranges.size());
        } else if (periods.size() != ranges.size()) {
            return {};
        }
        for (std::size_t index = 0; index < ranges.size(); ++index) {
            periods[index].push_back({.session = session, .range = ranges[index]});
        }
    }
    std::vector<period_figures> figures;
    for (const std::vector<part> &parts : periods) {
        const part &first = parts.front();
        const packet_records records = first.session->records(first.range);
        figures.push_back(
            {.begin = first.session->forgotten() + first.range.begin,
             .at = std::chrono::nanoseconds(records.begin() == records.end() ? 0 : records.begin()->sent_at),
             .forward = figures_of_path(parts, path::forward),
             .backward = figures_of_path(parts, path::backward),
             .clock_offset = estimate_clock_offset(parts)});
    }
    return figures;
}

void add_ways(const measurement &session, probe_figures &result)
{
    const packet_counts &counts = session.counts();
    const reflector_numbers &numbers = session.numbers();
    result.lost.add(numbers.losses(counts.lost()));
    result.duplicates.add(numbers.duplicates());
    if (numbers.tell_order()) {
        result.reordered.add(
            {.forward = session.overtaken_forward(), .backward = numbers.overtaken_backward()});
    } else {
        result.reordered.add({.unknown = counts.reordered});
    }
}

/** What all sessions have in common, if they do. */
template <typename Value, typename Get>
std::optional<Value> common(std::span<const measurement *const> sessions, Get get)
{
    std::optional<Value> value;
    for (const measurement *session : sessions) {
        if (value && *value != get(*session)) {
            return std::nullopt;
        }
        value = get(*session);
    }
    return value;
}

} // namespace

probe_figures figures_of(std::span<const measurement *const> sessions)
{
    probe_figures result;
    std::vector<part> whole;
    for (const measurement *session : sessions) {
        result.counts.add(session->counts());
        add_ways(*session, result);
        whole.push_back({.session = session, .range = {.begin = 0, .end = session->records().size()}});
    }
    result.round_trip = figures_of_path(whole, path::round_trip);
    result.periods = figures_of_periods(sessions);
    if (sessions.size() == 1) {
        result.events = sessions[0]->events();
    }
    result.numbers = common<numbering>(sessions, [](const measurement &of) { return of.numbers().how(); });
    result.scale = common<time_scale>(sessions, [](const measurement &of) { return of.reflector_scale(); });
    return result;
}

unsigned hops_from(unsigned initial, unsigned ttl)
{
    return initial > ttl ? initial - ttl : 0;
}

unsigned usual_initial_ttl(unsigned ttl)
{
    if (ttl <= 64) {
        return 64;
    }
    return ttl <= 128 ? 128 : 255;
}

} // namespace olv_probe
