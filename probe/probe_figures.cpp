#include "probe/probe_figures.hpp"

#include <utility>

namespace olv_probe {
namespace {

using append_samples = void (measurement::*)(path, std::vector<std::int64_t> &) const;

distribution collect(std::span<const measurement *const> sessions, path which, append_samples append)
{
    std::vector<std::int64_t> samples;
    std::size_t most = 0;
    for (const measurement *session : sessions) {
        most += session->counts().valid;
    }
    samples.reserve(most);
    for (const measurement *session : sessions) {
        (session->*append)(which, samples);
    }
    return distribution_of(std::move(samples));
}

std::optional<std::int64_t> estimate_clock_offset(std::span<const measurement *const> sessions)
{
    const packet_record *quickest = nullptr;
    for (const measurement *session : sessions) {
        for (const packet_record &record : session->records()) {
            if (record.is_valid() && (quickest == nullptr || record.round_trip < quickest->round_trip)) {
                quickest = &record;
            }
        }
    }
    if (quickest == nullptr) {
        return std::nullopt;
    }
    return (quickest->delay(path::forward) - quickest->delay(path::backward)) / 2;
}

} // namespace

probe_figures figures_of(std::span<const measurement *const> sessions)
{
    probe_figures result;
    for (const measurement *session : sessions) {
        result.counts.add(session->counts());
    }
    for (std::size_t index = 0; index < path_count; ++index) {
        const auto which = static_cast<path>(index);
        path_figures &figures = result.paths[index];
        figures.delay = collect(sessions, which, &measurement::append_delays);
        figures.variation = collect(sessions, which, &measurement::append_delay_variation);
        figures.above_minimum = collect(sessions, which, &measurement::append_delay_above_minimum);
    }
    result.clock_offset = estimate_clock_offset(sessions);
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
