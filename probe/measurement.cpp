#include "probe/measurement.hpp"

#include <algorithm>

namespace olv_probe {
namespace {

namespace wire = olv_net;
namespace reply_field = olv_net::reflector_packet;
using std::chrono::nanoseconds;

/** What the reflector says about its clock, up to the resolution of coarse ones. */
nanoseconds resolution_of(std::span<const std::uint8_t> reply)
{
    constexpr double coarsest = 10e6;
    const double error = clock_quality::nanoseconds_of(wire::load_16(&reply[reply_field::error_estimate]));
    return nanoseconds(static_cast<std::int64_t>(std::min(coarsest, error)));
}

} // namespace

// ---------------------------------------------------------------------------------------------------------
// Requests
// ---------------------------------------------------------------------------------------------------------

void measurement::request_sent(wire::ntp_time departure, steady_clock::time_point instant)
{
    if (records_.size() >= to_keep_) {
        forget_oldest();
    }
    packet_record &record = records_.emplace_back();
    record.departure = departure.units();
    record.sent_at = nanoseconds(instant - start_).count();
    first_departure_ = first_departure_.value_or(departure);
    watch_sender_clock(departure, nanoseconds(record.sent_at));
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
    const packet_record *const record = find(sequence);
    return record == nullptr ? std::nullopt : std::optional(start_ + nanoseconds(record->sent_at));
}

void measurement::correct_departure(std::uint32_t sequence, nanoseconds later)
{
    packet_record &record = *find(sequence);
    record.sent_at += later.count();
    record.forward += -later.count();
    record.round_trip += record.measured ? -later.count() : 0;
}

/** Compares the wall clock with the monotonic one. */
void measurement::watch_sender_clock(wire::ntp_time departure, nanoseconds sent_at)
{
    const nanoseconds ahead = nanoseconds(wire::nanoseconds_between(*first_departure_, departure)) - sent_at;
    const clock_watch::finding found = sender_clock_.observe(
        {.sequence = counts_.sent, .at = sent_at, .ahead = {.low = ahead, .high = ahead}});
    if (found.set) {
        note(session_event::kind::sender_clock_set, found.set->sequence, found.by);
    }
}

void measurement::expire(steady_clock::time_point instant)
{
    const std::int64_t limit = nanoseconds(instant - start_).count();
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
    return start_ + nanoseconds(records_[oldest_ - forgotten_].sent_at);
}

// ---------------------------------------------------------------------------------------------------------
// Replies
// ---------------------------------------------------------------------------------------------------------

std::optional<std::int64_t> measurement::reply_received(const received_reply &reply)
{
    ++counts_.received;
    packet_record *const record = match(reply.octets);
    if (record == nullptr) {
        return std::nullopt;
    }
    const std::uint32_t sequence = wire::load_32(&reply.octets[reply_field::sender_sequence_number]);
    const reflector_numbers::pair given{.sequence = number_of(sequence),
                                        .number = wire::load_32(&reply.octets[reply_field::sequence_number])};
    if (record->answered) {
        count_duplicate(given.number, *record);
        return std::nullopt;
    }
    record->answered = true;
    ++counts_.answered;
    expired_ -= record->expired;
    record->late = order_.is_late(sequence);
    counts_.reordered += record->late;
    record->reflector_number = given.number;
    const wire::ntp_time departure = wire::ntp_time::from_units(record->departure);
    const nanoseconds away = reply.instant - start_ - nanoseconds(record->sent_at);
    const reflector_times times = times_.read(reply.octets, {.departure = departure, .away = away});
    fault_set faults = format_.check(reply.octets, sequence, departure);
    faults.add(times.faults);
    faults.add(note_number(given));
    record->set_faults(faults);
    counts_.count(faults);
    if (!faults.is_empty() && judged_ == judging::strict) {
        return std::nullopt;
    }
    accept(reply, *record);
    if (faults.prevents_delays()) {
        return std::nullopt;
    }
    measure(reply, times, *record);
    return record->round_trip;
}

/** @return The request that this answers, if any. */
packet_record *measurement::match(std::span<const std::uint8_t> reply)
{
    if (is_echo(reply)) {
        counts_.count(reply_fault::echo);
        return nullptr;
    }
    if (reply.size() < reply_field::sender_timestamp) {
        counts_.count(reply_fault::too_short);
        return nullptr;
    }
    const std::uint32_t sequence = wire::load_32(&reply[reply_field::sender_sequence_number]);
    packet_record *const record = find(sequence);
    if (record == nullptr) {
        count_unknown(sequence);
        return nullptr;
    }
    // Sequence numbers can be guessed, time stamps cannot. A reflector that returned the stamp of one request
    // is held to it, and what was taken for its replies before is none of them.
    switch (format_.echo_of(reply, wire::ntp_time::from_units(record->departure))) {
    case stamp_echo::exact:
        if (!stamps_return_ && matched_by_number_) {
            forget_replies();
        }
        stamps_return_ = true;
        return record;
    case stamp_echo::near:
        return record;
    default:
        if (stamps_return_) {
            counts_.count(reply_fault::sender_timestamp);
            return nullptr;
        }
        matched_by_number_ = true;
        return record;
    }
}

/** A host that returns datagrams as they are, like an echo server. */
bool measurement::is_echo(std::span<const std::uint8_t> octets) const
{
    if (octets.size() < wire::sender_packet::padding) {
        return false;
    }
    const std::uint32_t sequence = wire::load_32(&octets[wire::sender_packet::sequence_number]);
    const packet_record *const record = find(sequence);
    return record != nullptr &&
           format_.is_request(octets, sequence, wire::ntp_time::from_units(record->departure));
}

/** What is far behind the next number was sent, and what is ahead of it never was. */
void measurement::count_unknown(std::uint32_t sequence)
{
    if (is_above(sent(), sequence) && counts_.sent >= sent() - sequence) {
        ++counts_.forgotten;
    } else {
        counts_.count(reply_fault::sender_sequence);
    }
}

void measurement::count_duplicate(std::uint32_t number, packet_record &record)
{
    ++counts_.duplicates;
    record.duplicates = static_cast<std::uint16_t>(std::min(record.duplicates + 1, UINT16_MAX));
    numbers_.duplicate(number);
}

void measurement::forget_replies()
{
    expired_ = 0;
    std::uint64_t number = forgotten_;
    for (packet_record &record : records_) {
        packet_record kept;
        kept.departure = record.departure;
        kept.sent_at = record.sent_at;
        kept.forward = record.measured ? short_delay{} : record.forward; // of its departure
        // The window went on without it.
        kept.expired = record.expired || number < oldest_;
        ++number;
        expired_ += kept.expired;
        record = kept;
    }
    counts_.forget_replies();
    order_ = {};
    numbers_ = {};
    times_ = reflector_clock_reader{format_.stamps()};
    scale_ = time_scale::none;
    reflector_clock_ = {};
    watched_ = 0;
    std::erase_if(events_, [](const session_event &event) {
        return event.what != session_event::kind::sender_clock_set;
    });
}

fault_set measurement::note_number(reflector_numbers::pair given)
{
    const reflector_numbers::finding found = numbers_.reply(given, counts_.sent);
    if (found.began_anew) {
        ++counts_.restarts;
        if (packet_record *const first = request(*found.began_anew)) {
            first->began_anew = 1;
        }
        note(session_event::kind::reflector_restart, *found.began_anew, nanoseconds(0));
    }
    if (found.repeated_before) {
        add_fault(*found.repeated_before, reply_fault::reflector_sequence);
    }
    fault_set faults;
    if (found.is_repeated) {
        faults.add(reply_fault::reflector_sequence);
    }
    return faults;
}

/** A reply that seemed good when it came. */
void measurement::add_fault(std::uint64_t number, reply_fault fault)
{
    packet_record *const record = request(number);
    if (record == nullptr) {
        return;
    }
    fault_set faults = record->faults();
    const bool was_valid = faults.is_empty();
    faults.add(fault);
    record->set_faults(faults);
    counts_.count(fault);
    if (!was_valid) {
        return;
    }
    --counts_.valid;
    if (judged_ == judging::lenient) {
        ++counts_.odd;
    } else if (record->measured) {
        --counts_.measured;
        record->measured = false;
        record->one_way_measured = false;
    }
}

void measurement::accept(const received_reply &reply, packet_record &record)
{
    ++(record.is_valid() ? counts_.valid : counts_.odd);
    // Where other fields are not as they have to be, this octet may be anything.
    if (reply.octets.size() >= reply_field::header_length && !record.faults().has(reply_fault::must_be_zero)) {
        record.request_ttl = reply.octets[reply_field::sender_ttl];
    }
    record.reply_ttl = reply.ttl;
    record.reply_traffic_class = reply.traffic_class;
    ++counts_.traffic_classes[reply.traffic_class];
    if (record.request_ttl != 0) {
        counts_.other_ttl += record.request_ttl != ttl_ ? 1 : 0;
        counts_.request_ttl.add(record.request_ttl);
    }
    if (reply.ttl != 0) {
        counts_.reply_ttl.add(reply.ttl);
    }
}

void measurement::measure(const received_reply &reply, const reflector_times &times, packet_record &record)
{
    const std::int64_t away = nanoseconds(reply.instant - start_).count() - record.sent_at;
    record.round_trip = away - wire::nanoseconds_between(times.received, times.sent_back);
    record.forward += wire::nanoseconds_between(wire::ntp_time::from_units(record.departure), times.received);
    record.measured = true;
    record.one_way_measured = true;
    ++counts_.measured;
    if (!record.faults().has(reply_fault::error_estimate)) {
        counts_.reflector_clock.add(wire::load_16(&reply.octets[reply_field::error_estimate]));
    }
    scale_ = times.scale;
    watch_reflector_clock(reply, times, record);
}

// ---------------------------------------------------------------------------------------------------------
// Events
// ---------------------------------------------------------------------------------------------------------

/** Compares with what the sender's clock would say if nobody had set it: the arrival can be no earlier than the
 *  request left, and no later than its reply came. */
void measurement::watch_reflector_clock(const received_reply &reply, const reflector_times &times,
                                        packet_record &record)
{
    const std::uint64_t number = number_of(wire::load_32(&reply.octets[reply_field::sender_sequence_number]));
    if (number < watched_) {
        return; // late
    }
    watched_ = number + 1;
    const nanoseconds sent_at{record.sent_at};
    const nanoseconds high =
        nanoseconds(wire::nanoseconds_between(*first_departure_, times.received)) - sent_at;
    const clock_watch::finding found =
        reflector_clock_.observe({.sequence = number,
                                  .at = sent_at,
                                  .ahead = {.low = high - nanoseconds(record.round_trip), .high = high},
                                  .resolution = resolution_of(reply.octets)});
    record.one_way_measured = !found.is_open;
    if (found.set) {
        if (packet_record *const first = request(found.set->sequence)) {
            first->one_way_measured = first->measured;
        }
        note(session_event::kind::reflector_clock_set, found.set->sequence, found.by);
    }
    if (found.stray) {
        add_fault(found.stray->sequence, reply_fault::clock_jump);
    }
}

void measurement::note(session_event::kind what, std::uint64_t number, nanoseconds by)
{
    const packet_record *const first = request(number);
    if (first != nullptr && events_.size() < maximum_events) {
        events_.push_back({.what = what, .sequence = number, .at = nanoseconds(first->sent_at), .by = by});
    }
}

std::vector<packet_range> measurement::periods() const
{
    std::vector<std::size_t> begins{0};
    for (const session_event &event : events_) {
        const std::uint64_t place = event.sequence - forgotten_;
        if (event.what != session_event::kind::reflector_restart && place < records_.size()) {
            begins.push_back(place);
        }
    }
    std::sort(begins.begin(), begins.end());
    begins.erase(std::unique(begins.begin(), begins.end()), begins.end());
    std::vector<packet_range> ranges;
    for (std::size_t index = 0; index < begins.size(); ++index) {
        ranges.push_back(
            {.begin = begins[index], .end = index + 1 < begins.size() ? begins[index + 1] : records_.size()});
    }
    return ranges;
}

/** One that has a higher number than the reply to any later request. */
std::uint64_t measurement::overtaken_forward() const
{
    const packet_record *const undecided =
        numbers_.candidate() ? request(numbers_.candidate()->sequence) : nullptr;
    std::uint64_t overtaken = 0;
    std::optional<std::uint32_t> lowest;
    for (std::size_t place = records_.size(); place-- > 0;) {
        const packet_record &record = records_[place];
        if (record.answered && &record != undecided && !record.faults().has(reply_fault::reflector_sequence)) {
            const bool above = lowest && is_above(record.reflector_number, *lowest);
            overtaken += above ? 1 : 0;
            lowest = above ? lowest : record.reflector_number;
        }
        if (record.began_anew) {
            lowest.reset();
        }
    }
    return overtaken;
}

} // namespace olv_probe
