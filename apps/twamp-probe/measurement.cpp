#include "measurement.hpp"

#include <algorithm>
#include <cstdio>

namespace olv_probe {
namespace {

namespace wire = olv_fastpath;
namespace reply_field = olv_fastpath::reflector_packet;

constexpr std::uint8_t full_ttl = 255;

double microseconds(std::chrono::nanoseconds duration)
{
    return static_cast<double>(duration.count()) / 1000;
}

/** Nearest rank. */
double percentile(const std::vector<double> &sorted, std::size_t percent)
{
    const std::size_t rank = (sorted.size() * percent + 99) / 100;
    return sorted[std::max<std::size_t>(rank, 1) - 1];
}

} // namespace

void measurement::request_sent(wire::ntp_time departure, steady_clock::time_point instant)
{
    requests_.push_back({.departure = departure, .instant = instant});
}

void measurement::reply_received(std::span<const std::uint8_t> reply, steady_clock::time_point instant)
{
    ++received_;
    if (const reply_fault fault = format_.check_form(reply); fault != reply_fault::none) {
        count_fault(fault);
        return;
    }
    const std::uint32_t sequence = wire::load_32(&reply[reply_field::sender_sequence_number]);
    if (sequence >= sent()) {
        count_fault(reply_fault::sender_sequence);
        return;
    }
    request &asked = requests_[sequence];
    if (asked.answered) {
        ++duplicates_;
        return;
    }
    asked.answered = true;
    ++answered_;
    if (const reply_fault fault = judge(reply, sequence); fault != reply_fault::none) {
        count_fault(fault);
        return;
    }
    ++valid_;
    other_ttl_ += reply[reply_field::sender_ttl] != full_ttl ? 1 : 0;
    const std::chrono::nanoseconds in_reflector{
        wire::nanoseconds_between(wire::load_ntp(&reply[reply_field::receive_timestamp]),
                                  wire::load_ntp(&reply[reply_field::timestamp]))};
    round_trips_.push_back(microseconds(instant - asked.instant - in_reflector));
}

reply_fault measurement::judge(std::span<const std::uint8_t> reply, std::uint32_t sequence)
{
    // Numbers wrap at 2^32: above means less than half the circle ahead.
    const std::uint32_t number = wire::load_32(&reply[reply_field::sequence_number]);
    const bool rising = !last_reflector_sequence_ || (number - *last_reflector_sequence_ - 1) < std::uint32_t{1}
                                                                                                    << 31;
    if (rising) {
        last_reflector_sequence_ = number;
    }
    const reply_fault fault = format_.check_echo(reply, sequence, requests_[sequence].departure);
    if (fault != reply_fault::none) {
        return fault;
    }
    return rising ? reply_fault::none : reply_fault::reflector_sequence;
}

void measurement::print() const
{
    const double share = sent() == 0 ? 0 : 100.0 * outstanding() / sent();
    std::printf("sent: %u\n", sent());
    std::printf("received: %u\n", received_);
    std::printf("valid: %u\n", valid_);
    std::printf("invalid: %u\n", invalid());
    for (std::size_t fault = 1; fault < faults_.size(); ++fault) {
        if (faults_[fault] != 0) {
            std::printf("  %s: %u\n", text_of(static_cast<reply_fault>(fault)), faults_[fault]);
        }
    }
    std::printf("lost: %u (%.2f %%)\n", outstanding(), share);
    std::printf("duplicates: %u\n", duplicates_);
    if (other_ttl_ != 0) {
        std::printf("sender TTL not 255: %u\n", other_ttl_);
    }
    print_round_trips();
}

void measurement::print_round_trips() const
{
    if (round_trips_.empty()) {
        std::printf("round trip: not measured\n");
        return;
    }
    std::vector<double> sorted = round_trips_;
    std::sort(sorted.begin(), sorted.end());
    std::printf("round trip in microseconds: min %.1f, median %.1f, p99 %.1f, max %.1f\n", sorted.front(),
                percentile(sorted, 50), percentile(sorted, 99), sorted.back());
}

} // namespace olv_probe
