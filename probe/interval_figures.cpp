#include "probe/interval_figures.hpp"

#include <algorithm>
#include <utility>

namespace olv_probe {
namespace {

using delay_samples = std::array<std::vector<std::int64_t>, path_count>;

void add(const packet_record &record, interval_figures &figures, delay_samples &samples)
{
    ++figures.sent;
    figures.answered += record.answered ? 1 : 0;
    figures.duplicates += record.duplicates;
    figures.reordered += record.late ? 1 : 0;
    figures.valid += record.is_valid() ? 1 : 0;
    for (const path which : {path::round_trip, path::forward, path::backward}) {
        if (record.has(which)) {
            samples[static_cast<std::size_t>(which)].push_back(record.delay(which));
        }
    }
}

} // namespace

std::optional<interval_figures> interval_sequence::next(std::span<const measurement *const> sessions,
                                                        std::chrono::nanoseconds now, bool sending_over,
                                                        bool ended)
{
    if (!ended && now < end()) {
        return std::nullopt;
    }
    if ((sending_over || ended) && !has_packets_left(sessions)) {
        return std::nullopt;
    }
    find_packets(sessions);
    if (!ended && !is_settled(sessions)) {
        return std::nullopt;
    }
    interval_figures figures;
    figures.from = from_;
    figures.to = ended ? std::min(end(), std::max(now, from_)) : end();
    delay_samples samples;
    for (std::size_t index = 0; index < sessions.size(); ++index) {
        const measurement &session = *sessions[index];
        for (std::uint64_t number = first_[index]; number < behind_[index]; ++number) {
            add(session.records()[number - session.forgotten()], figures, samples);
        }
    }
    for (std::size_t which = 0; which < path_count; ++which) {
        figures.delays[which] = distribution_of(std::move(samples[which]));
    }
    first_ = behind_;
    from_ = end();
    return figures;
}

/** What is kept no longer counts in no interval. */
void interval_sequence::find_packets(std::span<const measurement *const> sessions)
{
    const std::int64_t limit = end().count();
    for (std::size_t index = 0; index < sessions.size(); ++index) {
        const measurement &session = *sessions[index];
        first_[index] = std::max(first_[index], session.forgotten());
        behind_[index] = std::max(behind_[index], first_[index]);
        while (behind_[index] < session.counts().sent &&
               session.records()[behind_[index] - session.forgotten()].sent_at < limit) {
            ++behind_[index];
        }
    }
}

bool interval_sequence::has_packets_left(std::span<const measurement *const> sessions) const
{
    for (std::size_t index = 0; index < sessions.size(); ++index) {
        if (first_[index] < sessions[index]->counts().sent) {
            return true;
        }
    }
    return false;
}

bool interval_sequence::is_settled(std::span<const measurement *const> sessions) const
{
    for (std::size_t index = 0; index < sessions.size(); ++index) {
        if (sessions[index]->settled() < behind_[index]) {
            return false;
        }
    }
    return true;
}

} // namespace olv_probe
