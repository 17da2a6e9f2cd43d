#include "fastpath/udp/clock_reader.hpp"

#include <algorithm>

#include <sys/timex.h>

#include "net/wall_clock.hpp"

namespace olv_fastpath {

namespace {

/** The part of a second that reading both clocks takes at most: a microsecond. */
constexpr std::uint64_t clocks_apart = 1'000'000;

std::uint64_t system_nanoseconds()
{
    return olv_net::nanoseconds_of(olv_net::wall_time());
}

system_clock_calls complete(system_clock_calls calls)
{
    return {.nanoseconds = calls.nanoseconds != nullptr ? calls.nanoseconds : system_nanoseconds,
            .state = calls.state != nullptr ? calls.state : system_clock_state};
}

} // namespace

clock_state system_clock_state()
{
    timex kernel{}; // no modes: nothing is changed
    const int state = adjtimex(&kernel);
    if (state < 0) {
        return {}; // a sandbox may forbid it
    }
    return {.synchronized = state != TIME_ERROR && (kernel.status & STA_UNSYNC) == 0,
            .maximum_error_microseconds =
                static_cast<std::uint64_t>(std::max<std::int64_t>(kernel.maxerror, 0)),
            .tai_ahead = kernel.tai};
}

clock_reader::clock_reader(const processor_clock &timer, const fast_path_options &options)
    : timer_(timer), source_(options.clock), calls_(complete(options.clock_calls))
{}

clock_reader::batch_time clock_reader::read()
{
    if (!timer_.runs()) {
        return {arrival_clock{timer_.now()}, {}};
    }
    const clock_reading now = read_together([this] { return timer_.now(); }, calls_.nanoseconds,
                                            timer_.ticks_per_second() / clocks_apart);
    const arrival_clock arrivals{now, timer_.scale(), settings_.note(now, timer_.scale())};
    if (source_ == time_source::state) {
        return {arrivals, {}};
    }
    if (!state_read_ || now.timer - *state_read_ >= timer_.ticks_per_second()) {
        read_state(now.timer);
    }
    return {
        arrivals,
        {.system = clock_at(now, timer_.scale()), .error_estimate = error_estimate_, .tai_ahead = tai_ahead_}};
}

void clock_reader::read_state(std::uint64_t now)
{
    const clock_state state = calls_.state();
    error_estimate_ = error_estimate_of(state);
    tai_ahead_ = state.tai_ahead;
    state_read_ = now;
}

} // namespace olv_fastpath
