#include "fastpath/core/reply.hpp"

namespace olv_fastpath {

namespace {

/** @return What was written, as a number. */
std::uint64_t write_departure(std::uint8_t *reply, std::uint64_t departure)
{
    // The packet may have arrived ahead of the timer.
    const auto arrival = olv_net::load<std::uint64_t>(reply + olv_net::reflector_packet::receive_timestamp);
    const bool is_ahead = static_cast<std::int64_t>(arrival - departure) > 0;
    const std::uint64_t written = is_ahead ? sent_stamps::marked(arrival) : departure;
    olv_net::store(reply + olv_net::reflector_packet::timestamp, written);
    return written;
}

} // namespace

void departing_replies::begin_group(const responder_clock &clock)
{
    if (count_ > 0) {
        earlier_.push_back({.clock = clock_, .end = count_});
    }
    clock_ = clock;
}

void departing_replies::stamp(const processor_clock &clock)
{
    if (count_ == 0) {
        return;
    }
    const std::uint64_t now = clock.now();
    std::size_t next = 0;
    std::uint64_t noted = 0;
    const auto stamp_up_to = [&](std::size_t end, const responder_clock &from) {
        const std::uint64_t departure = sent_stamps::marked(from.instant_of(now, clock.scale()));
        for (; next < end; ++next) {
            const std::uint64_t written = write_departure(replies_[next], departure);
            if (written != noted && sent_ != nullptr) {
                sent_->note(written);
                noted = written;
            }
        }
    };
    for (const earlier_group &each : earlier_) {
        stamp_up_to(each.end, each.clock);
    }
    stamp_up_to(count_, clock_);
    count_ = 0;
    earlier_.clear();
}

} // namespace olv_fastpath
