// What statistics are made of: the delays of a range of packets, and their variation.

#include "probe/measurement.hpp"

#include <algorithm>

namespace olv_probe {

packet_records measurement::records(packet_range of) const
{
    const auto end = static_cast<std::ptrdiff_t>(std::min(of.end, records_.size()));
    return {records_.begin() + std::min(static_cast<std::ptrdiff_t>(of.begin), end), records_.begin() + end};
}

void measurement::append_delays(path which, packet_range of, std::vector<std::int64_t> &samples) const
{
    for (const packet_record &record : records(of)) {
        if (record.has(which)) {
            samples.push_back(record.delay(which));
        }
    }
}

void measurement::append_delay_variation(path which, packet_range of, std::vector<std::int64_t> &samples) const
{
    const packet_record *before = nullptr;
    for (const packet_record &record : records(of)) {
        if (before != nullptr && before->has(which) && record.has(which)) {
            samples.push_back(record.delay(which) - before->delay(which));
        }
        before = &record;
    }
}

void measurement::append_delay_above_minimum(path which, packet_range of,
                                             std::vector<std::int64_t> &samples) const
{
    const std::size_t own = samples.size();
    append_delays(which, of, samples);
    const auto begin = samples.begin() + static_cast<std::ptrdiff_t>(own);
    if (begin == samples.end()) {
        return;
    }
    const std::int64_t shortest = *std::min_element(begin, samples.end());
    std::for_each(begin, samples.end(), [shortest](std::int64_t &sample) { sample -= shortest; });
}

} // namespace olv_probe
