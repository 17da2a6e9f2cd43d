#include "probe/packet_counts.hpp"

#include <algorithm>

namespace olv_probe {

void ttl_range::add(std::uint8_t ttl)
{
    minimum = std::min(minimum, ttl);
    maximum = std::max(maximum, ttl);
}

void ttl_range::add(const ttl_range &other)
{
    minimum = std::min(minimum, other.minimum);
    maximum = std::max(maximum, other.maximum);
}

void packet_counts::count(fault_set some)
{
    for (std::size_t index = 0; !some.is_empty() && index < faults.size(); ++index) {
        faults[index] += some.has(static_cast<reply_fault>(index)) ? 1 : 0;
    }
}

void packet_counts::add(const packet_counts &other)
{
    sent += other.sent;
    received += other.received;
    valid += other.valid;
    odd += other.odd;
    measured += other.measured;
    answered += other.answered;
    duplicates += other.duplicates;
    reordered += other.reordered;
    other_ttl += other.other_ttl;
    restarts += other.restarts;
    request_ttl.add(other.request_ttl);
    reply_ttl.add(other.reply_ttl);
    forgotten += other.forgotten;
    reflector_clock.add(other.reflector_clock);
    for (std::size_t octet = 0; octet < traffic_classes.size(); ++octet) {
        traffic_classes[octet] += other.traffic_classes[octet];
    }
    for (std::size_t fault = 0; fault < faults.size(); ++fault) {
        faults[fault] += other.faults[fault];
    }
}

void packet_counts::forget_replies()
{
    packet_counts left;
    left.sent = sent;
    left.received = received;
    left.forgotten = forgotten;
    left.faults = faults;
    *this = left;
}

} // namespace olv_probe
