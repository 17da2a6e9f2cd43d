#include "probe/reflector_times.hpp"

#include <array>

#include "probe/name_and_text.hpp"

namespace olv_probe {
namespace {

namespace wire = olv_net;
namespace reply_field = olv_net::reflector_packet;
using std::chrono::nanoseconds;

constexpr std::int64_t day = nanoseconds(std::chrono::hours(24)).count();
/** Of TAI before UTC since 2017. */
constexpr std::int32_t tai_seconds = 37;
/** A reflector's clock may be a thousandth faster than the sender's, and each reading may be rounded. */
constexpr std::int64_t rate_share = 1000;
constexpr std::int64_t rounding = 1000;

constexpr std::array<name_and_text, 4> scales = {
    {{"none", "none"}, {"ntp", "NTP"}, {"ptp_utc", "PTP (UTC)"}, {"ptp_tai", "PTP (TAI)"}}};

bool is_far(wire::ntp_time time, const way_there_and_back &way)
{
    const std::int64_t apart = wire::nanoseconds_between(way.departure, time);
    return apart > day || apart < -day;
}

fault_set check_times(const reflector_times &times, const way_there_and_back &way)
{
    fault_set faults;
    if (is_far(times.received, way) || is_far(times.sent_back, way) || way.away.count() > day) {
        faults.add(reply_fault::far_timestamp);
        return faults;
    }
    const std::int64_t kept = wire::nanoseconds_between(times.received, times.sent_back);
    if (static_cast<std::int64_t>(times.sent_back.units() - times.received.units()) < 0) {
        faults.add(reply_fault::timestamps);
    } else if (kept > way.away.count() + way.away.count() / rate_share + rounding) {
        faults.add(reply_fault::reflector_time);
    }
    return faults;
}

reflector_times read_ntp(std::span<const std::uint8_t> reply)
{
    return {.received = wire::load_ntp(&reply[reply_field::receive_timestamp]),
            .sent_back = wire::load_ntp(&reply[reply_field::timestamp]),
            .scale = time_scale::ntp,
            .faults = {}};
}

/** By how much the reflector's clock seems to be ahead, in seconds: the middle of what the round trip allows.
 */
double seconds_ahead(wire::ntp_time received, wire::ntp_time sent_back, const way_there_and_back &way)
{
    const std::int64_t forward = wire::nanoseconds_between(way.departure, received);
    const std::int64_t behind = wire::nanoseconds_between(way.departure, sent_back) - way.away.count();
    return static_cast<double>(forward + behind) / 2e9;
}

} // namespace

const char *text_of(time_scale scale)
{
    return scales[static_cast<std::size_t>(scale)].text;
}

const char *name_of(time_scale scale)
{
    return scales[static_cast<std::size_t>(scale)].name;
}

std::optional<reflector_times> reflector_clock_reader::read_ptp(std::span<const std::uint8_t> reply,
                                                                const way_there_and_back &way)
{
    const wire::ptp_time received = wire::load_ptp(&reply[reply_field::receive_timestamp]);
    const wire::ptp_time sent_back = wire::load_ptp(&reply[reply_field::timestamp]);
    if (!received.is_valid() || !sent_back.is_valid() || is_far(received.to_ntp(0), way) ||
        is_far(sent_back.to_ntp(0), way)) {
        return std::nullopt;
    }
    if (!tai_ahead_) {
        const double ahead = seconds_ahead(received.to_ntp(0), sent_back.to_ntp(0), way);
        const bool tai = ahead > tai_seconds / 2.0 && ahead < tai_seconds * 1.5;
        tai_ahead_ = tai ? tai_seconds : 0;
    }
    return reflector_times{.received = received.to_ntp(*tai_ahead_),
                           .sent_back = sent_back.to_ntp(*tai_ahead_),
                           .scale = *tai_ahead_ == 0 ? time_scale::ptp_utc : time_scale::ptp_tai,
                           .faults = {}};
}

reflector_times reflector_clock_reader::read(std::span<const std::uint8_t> reply, const way_there_and_back &way)
{
    const bool marked_ptp = wire::has_ptp_format(&reply[reply_field::error_estimate]);
    reflector_times times = read_ntp(reply);
    if (times.received.units() == 0 || times.sent_back.units() == 0) { // in either format
        times.faults.add(reply_fault::zero_timestamp);
        return times;
    }
    // What the mark says is tried first; seconds since 1900 and since 1970 are seventy years apart.
    const bool plausible_ntp = !check_times(times, way).has(reply_fault::far_timestamp);
    if (marked_ptp || !plausible_ntp) {
        times = read_ptp(reply, way).value_or(times);
    }
    times.faults = check_times(times, way);
    if (times.faults.has(reply_fault::far_timestamp)) {
        return times;
    }
    const bool is_ptp = times.scale != time_scale::ntp;
    if (is_ptp != marked_ptp) {
        times.faults.add(reply_fault::format_mark);
    }
    if (is_ptp != (sent_ == stamp_format::ptp)) {
        times.faults.add(reply_fault::other_format);
    }
    return times;
}

} // namespace olv_probe
