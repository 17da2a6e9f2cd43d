#include "probe/measurement.hpp"

#include <algorithm>

namespace olv_probe {
namespace {

namespace wire = olv_net;
namespace reply_field = olv_net::reflector_packet;

} // namespace

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

void packet_counts::add(const packet_counts &other)
{
    sent += other.sent;
    received += other.received;
    valid += other.valid;
    answered += other.answered;
    duplicates += other.duplicates;
    reordered += other.reordered;
    other_ttl += other.other_ttl;
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

std::int64_t packet_record::delay(path which) const
{
    switch (which) {
    case path::forward:
        return forward;
    case path::backward:
        return round_trip - forward;
    default:
        return round_trip;
    }
}

void measurement::request_sent(wire::ntp_time departure, steady_clock::time_point instant)
{
    if (records_.size() >= to_keep_) {
        forget_oldest();
    }
    packet_record &record = records_.emplace_back();
    record.departure = departure.units();
    record.sent_at = std::chrono::nanoseconds(instant - start_).count();
    ++counts_.sent;
}

void measurement::forget_oldest()
{
    const packet_record &oldest = records_.front();
    expired_ += oldest.answered || oldest.expired ? 0 : 1;
    records_.pop_front();
    ++forgotten_;
    oldest_ = std::max(oldest_, forgotten_);
}

std::optional<steady_clock::time_point> measurement::departure_of(std::uint32_t sequence) const
{
    const std::size_t place = place_of(sequence);
    if (place >= records_.size()) {
        return std::nullopt;
    }
    return start_ + std::chrono::nanoseconds(records_[place].sent_at);
}

void measurement::correct_departure(std::uint32_t sequence, std::chrono::nanoseconds later)
{
    packet_record &record = records_[place_of(sequence)];
    record.sent_at += later.count();
    record.forward -= later.count();
    record.round_trip -= record.is_valid() ? later.count() : 0;
}

std::optional<std::int64_t> measurement::reply_received(const received_reply &reply)
{
    ++counts_.received;
    if (const reply_fault fault = format_.check_form(reply.octets); fault != reply_fault::none) {
        count_fault(fault);
        return std::nullopt;
    }
    const std::uint32_t sequence = wire::load_32(&reply.octets[reply_field::sender_sequence_number]);
    const std::size_t place = place_of(sequence);
    if (place >= records_.size()) {
        // What is far behind the next number was sent, and what is ahead of it never was.
        if (static_cast<std::int32_t>(sequence - sent()) < 0 && counts_.sent >= sent() - sequence) {
            ++counts_.forgotten;
        } else {
            count_fault(reply_fault::sender_sequence);
        }
        return std::nullopt;
    }
    packet_record &record = records_[place];
    if (record.answered) {
        ++counts_.duplicates;
        record.duplicates = static_cast<std::uint16_t>(std::min(record.duplicates + 1, UINT16_MAX));
        return std::nullopt;
    }
    record.answered = true;
    ++counts_.answered;
    expired_ -= record.expired ? 1 : 0;
    record.late = order_.is_late(sequence);
    counts_.reordered += record.late ? 1 : 0;
    record.fault = judge(reply.octets, sequence, record);
    if (record.fault != reply_fault::none) {
        count_fault(record.fault);
        return std::nullopt;
    }
    measure(reply, record);
    return record.round_trip;
}

reply_fault measurement::judge(std::span<const std::uint8_t> reply, std::uint32_t sequence,
                               const packet_record &record)
{
    // A reply that was overtaken on its way back has a number below; a reflector that counts never uses one
    // twice.
    const std::uint32_t number = wire::load_32(&reply[reply_field::sequence_number]);
    const bool repeated = reflector_numbers_.is_repeated(number);
    const wire::ntp_time departure = wire::ntp_time::from_units(record.departure);
    const reply_fault fault = format_.check_echo(reply, sequence, departure);
    if (fault != reply_fault::none) {
        return fault;
    }
    return repeated ? reply_fault::reflector_sequence : reply_fault::none;
}

void measurement::measure(const received_reply &reply, packet_record &record)
{
    ++counts_.valid;
    const wire::ntp_time departure = wire::ntp_time::from_units(record.departure);
    const wire::ntp_time arrival = wire::load_ntp(&reply.octets[reply_field::receive_timestamp]);
    const wire::ntp_time sent_back = wire::load_ntp(&reply.octets[reply_field::timestamp]);
    const std::int64_t away = std::chrono::nanoseconds(reply.instant - start_).count() - record.sent_at;
    record.round_trip = away - wire::nanoseconds_between(arrival, sent_back);
    record.forward += wire::nanoseconds_between(departure, arrival);
    record.request_ttl = reply.octets[reply_field::sender_ttl];
    record.reply_ttl = reply.ttl;
    record.reply_traffic_class = reply.traffic_class;
    ++counts_.traffic_classes[reply.traffic_class];
    counts_.reflector_clock.add(wire::load_16(&reply.octets[reply_field::error_estimate]));
    counts_.other_ttl += record.request_ttl != ttl_ ? 1 : 0;
    counts_.request_ttl.add(record.request_ttl);
    if (reply.ttl != 0) {
        counts_.reply_ttl.add(reply.ttl);
    }
}

void measurement::expire(steady_clock::time_point instant)
{
    const std::int64_t limit = std::chrono::nanoseconds(instant - start_).count();
    for (; oldest_ < counts_.sent; ++oldest_) {
        packet_record &record = records_[oldest_ - forgotten_];
        if (record.answered) {
            continue;
        }
        if (record.sent_at > limit) {
            return;
        }
        record.expired = true;
        ++expired_;
    }
}

steady_clock::time_point measurement::oldest_departure() const
{
    return start_ + std::chrono::nanoseconds(records_[oldest_ - forgotten_].sent_at);
}

void measurement::append_delays(path which, std::vector<std::int64_t> &samples) const
{
    for (const packet_record &record : records_) {
        if (record.is_valid()) {
            samples.push_back(record.delay(which));
        }
    }
}

void measurement::append_delay_variation(path which, std::vector<std::int64_t> &samples) const
{
    const packet_record *before = nullptr;
    for (const packet_record &record : records_) {
        if (before != nullptr && before->is_valid() && record.is_valid()) {
            samples.push_back(record.delay(which) - before->delay(which));
        }
        before = &record;
    }
}

void measurement::append_delay_above_minimum(path which, std::vector<std::int64_t> &samples) const
{
    const std::size_t own = samples.size();
    append_delays(which, samples);
    const auto begin = samples.begin() + static_cast<std::ptrdiff_t>(own);
    if (begin == samples.end()) {
        return;
    }
    const std::int64_t shortest = *std::min_element(begin, samples.end());
    std::for_each(begin, samples.end(), [shortest](std::int64_t &sample) { sample -= shortest; });
}

} // namespace olv_probe
