#include "probe/clock_watch.hpp"

#include <algorithm>

namespace olv_probe {
namespace {

using std::chrono::nanoseconds;

constexpr nanoseconds tolerance = std::chrono::milliseconds(1);
/** The share of the time by which a clock may be slowed down or sped up. */
constexpr int slew_share = 10;

/** By how much the readings' bounds miss each other. */
nanoseconds gap_between(const offset_bounds &one, const offset_bounds &other)
{
    return std::max({nanoseconds(0), other.low - one.high, one.low - other.high});
}

/** Where a clock may be now that was between these bounds for some time. */
offset_bounds drifted(const clock_reading &before, nanoseconds now)
{
    const nanoseconds slew = std::max(nanoseconds(0), now - before.at) / slew_share;
    return {.low = before.ahead.low - slew, .high = before.ahead.high + slew};
}

/** What both allow, or the later one where they miss each other. */
offset_bounds both(const offset_bounds &before, const offset_bounds &now)
{
    const offset_bounds common{.low = std::max(before.low, now.low), .high = std::min(before.high, now.high)};
    return common.low <= common.high ? common : now;
}

} // namespace

clock_watch::finding clock_watch::observe(const clock_reading &reading)
{
    if (!current_) {
        current_ = reading;
        return {};
    }
    const nanoseconds allowed = tolerance + reading.resolution + unrest_;
    const offset_bounds expected = drifted(*current_, reading.at);
    if (gap_between(expected, reading.ahead) <= allowed) {
        finding found = follow(reading);
        current_ = reading;
        current_->ahead = both(expected, reading.ahead);
        return found;
    }
    if (elsewhere_ && gap_between(drifted(*elsewhere_, reading.at), reading.ahead) <= allowed) {
        finding found;
        found.set = elsewhere_;
        found.by = elsewhere_->ahead.middle() - current_->ahead.middle();
        current_ = reading;
        elsewhere_.reset();
        return found;
    }
    finding found = follow(reading);
    found.is_open = true;
    elsewhere_ = reading;
    return found;
}

/** What was elsewhere before this reading did not stay there. */
clock_watch::finding clock_watch::follow(const clock_reading &reading)
{
    finding found;
    if (elsewhere_) {
        found.stray = elsewhere_;
        const nanoseconds off = gap_between(drifted(*current_, elsewhere_->at), elsewhere_->ahead);
        unrest_ = std::max(unrest_, std::min<nanoseconds>(off, reading.resolution + tolerance * slew_share));
        elsewhere_.reset();
    }
    return found;
}

} // namespace olv_probe
