#include "fastpath/core/reply.hpp"

namespace olv_fastpath {

namespace {

/** @param departure  As it stands in a packet. @return What was written, as a number. */
std::uint64_t write_departure(std::uint8_t *reply, std::uint64_t departure, bool is_ptp)
{
    // The packet may have arrived ahead of the timer.
    const auto arrival = olv_net::load<std::uint64_t>(reply + olv_net::reflector_packet::receive_timestamp);
    const bool is_ahead = static_cast<std::int64_t>(arrival - departure) > 0;
    const std::uint64_t written = !is_ahead ? departure : is_ptp ? arrival : sent_stamps::marked(arrival);
    olv_net::store(reply + olv_net::reflector_packet::timestamp, written);
    return written;
}

} // namespace

void departing_replies::begin_group(const reply_clock &clock)
{
    if (count_ > 0) {
        earlier_.push_back({.clock = clock_, .end = count_});
    }
    clock_ = clock;
}

void departing_replies::stamp(const processor_clock &clock, std::int32_t tai_ahead, sent_stamps *sent)
{
    if (count_ == 0) {
        return;
    }
    const std::uint64_t now = clock.now();
    std::size_t next = 0;
    std::uint64_t noted = 0;
    const auto stamp_up_to = [&](std::size_t end, const reply_clock &from) {
        const std::uint64_t instant = from.instant_of(now, clock.scale());
        const std::uint64_t departure = sent_stamps::marked(instant);
        for (; next < end; ++next) {
            std::uint8_t *reply = replies_[next];
            const bool is_ptp = olv_net::has_ptp_format(reply + olv_net::reflector_packet::error_estimate);
            const std::uint64_t written =
                write_departure(reply, is_ptp ? ptp_words(instant, tai_ahead) : departure, is_ptp);
            if (written != noted && sent != nullptr) {
                sent->note(written);
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
