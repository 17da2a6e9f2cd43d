#include "probe/probe.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace olv_probe {
namespace {

timespec to_timespec(std::chrono::nanoseconds duration)
{
    const auto left = std::max(duration, std::chrono::nanoseconds::zero());
    const auto seconds = std::chrono::floor<std::chrono::seconds>(left);
    return {.tv_sec = static_cast<time_t>(seconds.count()),
            .tv_nsec = static_cast<decltype(timespec::tv_nsec)>((left - seconds).count())};
}

} // namespace

probe::probe(const session_options &options)
    : options_(options), stop_event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    for (unsigned sender = 0; sender < options.senders; ++sender) {
        sessions_.push_back(std::make_unique<test_session>(options, sender));
        results_.push_back(&sessions_.back()->result());
    }
}

void probe::on_progress(std::chrono::nanoseconds pause, std::function<void(const probe_progress &)> show)
{
    pause_ = pause;
    show_ = std::move(show);
}

void probe::on_interval(std::chrono::nanoseconds length, std::function<void(const interval_figures &)> show)
{
    intervals_.emplace(length, sessions_.size());
    show_interval_ = std::move(show);
}

void probe::on_readable(int descriptor, std::function<void()> act)
{
    readers_.emplace_back(descriptor, std::move(act));
}

void probe::end_sending()
{
    const steady_clock::time_point now = steady_clock::now();
    for (const auto &session : sessions_) {
        session->settle(now);
        session->end_sending();
    }
}

bool probe::run(int stop_descriptor)
{
    begin();
    for (;;) {
        receive_all();
        const steady_clock::time_point now = steady_clock::now();
        publish(now);
        const bool finished = is_finished(now);
        show_intervals(now, finished); // may give up the last one that is waited for
        if (finished) {
            return true;
        }
        send_all_due(now);
        if (wait(stop_descriptor)) {
            receive_all();
            publish(steady_clock::now());
            show_intervals(steady_clock::now(), true);
            return false;
        }
    }
}

void probe::begin()
{
    const olv_net::clock_reading now = read_clocks();
    start_ = instant_of(now);
    started_ = now.wall_nanoseconds;
    if (show_) {
        next_show_ = start_ + pause_;
    }
    // Senders take turns instead of sending at the same instant.
    const std::chrono::nanoseconds shift = options_.window ? std::chrono::nanoseconds(0) : options_.interval;
    for (std::size_t index = 0; index < sessions_.size(); ++index) {
        sessions_[index]->begin(start_, shift * static_cast<std::int64_t>(index) /
                                            static_cast<std::int64_t>(sessions_.size()));
    }
}

void probe::receive_all()
{
    for (const auto &session : sessions_) {
        if (const auto round_trip = session->receive()) {
            latest_round_trip_ = *round_trip;
        }
    }
}

bool probe::is_finished(steady_clock::time_point now) const
{
    return std::all_of(sessions_.begin(), sessions_.end(),
                       [now](const auto &session) { return session->is_finished(now); });
}

void probe::send_all_due(steady_clock::time_point now)
{
    for (const auto &session : sessions_) {
        session->send_due(now);
    }
}

bool probe::wait(int stop_descriptor)
{
    const steady_clock::time_point now = steady_clock::now();
    if (is_finished(now)) {
        return false; // nothing would end the wait
    }
    watched_.clear();
    watched_.push_back({.fd = stop_descriptor, .events = POLLIN, .revents = 0});
    watched_.push_back({.fd = stop_event_.number(), .events = POLLIN, .revents = 0});
    for (const auto &[descriptor, act] : readers_) {
        watched_.push_back({.fd = descriptor, .events = POLLIN, .revents = 0});
    }
    steady_clock::time_point until = next_look(now);
    for (const auto &session : sessions_) {
        watched_.push_back({.fd = session->descriptor(), .events = session->awaited_events(now), .revents = 0});
        until = std::min(until, session->next_action(now));
    }
    const timespec limit = to_timespec(until - now);
    if (ppoll(watched_.data(), watched_.size(), &limit, nullptr) < 0 && errno != EINTR) {
        throw std::runtime_error(std::string("cannot wait for replies: ") + std::strerror(errno));
    }
    for (std::size_t index = 0; index < readers_.size(); ++index) {
        if (watched_[2 + index].revents != 0) {
            readers_[index].second();
        }
    }
    return watched_[0].revents != 0 || watched_[1].revents != 0;
}

steady_clock::time_point probe::next_look(steady_clock::time_point now) const
{
    if (!intervals_) {
        return next_show_;
    }
    steady_clock::time_point next = start_ + intervals_->end();
    if (next <= now) { // it waits for the last replies
        next = steady_clock::time_point::max();
        for (const auto &session : sessions_) {
            next = std::min(next, session->next_settling());
        }
    }
    return std::min(next, next_show_);
}

void probe::show_intervals(steady_clock::time_point now, bool ended)
{
    if (!intervals_) {
        return;
    }
    bool sending_over = true;
    for (const auto &session : sessions_) {
        session->settle(now);
        sending_over = sending_over && session->is_sending_over(now);
    }
    while (const auto figures = intervals_->next(results_, now - start_, sending_over, ended)) {
        show_interval_(*figures);
    }
}

void probe::publish(steady_clock::time_point now)
{
    std::uint64_t sent = 0;
    std::uint64_t received = 0;
    std::uint64_t valid = 0;
    for (const auto &session : sessions_) {
        const packet_counts &counts = session->result().counts();
        sent += counts.sent;
        received += counts.received;
        valid += counts.valid;
    }
    elapsed_ = now - start_;
    shared_elapsed_.store(elapsed_.count(), std::memory_order_relaxed);
    shared_sent_.store(sent, std::memory_order_relaxed);
    shared_received_.store(received, std::memory_order_relaxed);
    shared_valid_.store(valid, std::memory_order_relaxed);
    // Last: whoever sees it sees its packet in the counts, too.
    shared_round_trip_.store(latest_round_trip_, std::memory_order_release);
    if (show_ && now >= next_show_) {
        next_show_ = now + pause_;
        show_(progress());
    }
}

void probe::stop() const
{
    const std::uint64_t one = 1;
    (void)write(stop_event_.number(), &one, sizeof one); // fails only when it is set already
}

const std::string &probe::local_address(std::size_t session) const
{
    return sessions_[session]->local_address();
}

probe_progress probe::progress() const
{
    return {.elapsed = std::chrono::nanoseconds(shared_elapsed_.load(std::memory_order_relaxed)),
            .sent = shared_sent_.load(std::memory_order_relaxed),
            .received = shared_received_.load(std::memory_order_relaxed),
            .valid = shared_valid_.load(std::memory_order_relaxed),
            .round_trip = latest_round_trip()};
}

std::optional<std::chrono::nanoseconds> probe::latest_round_trip() const
{
    const std::int64_t latest = shared_round_trip_.load(std::memory_order_acquire);
    return latest == no_round_trip ? std::nullopt : std::optional(std::chrono::nanoseconds(latest));
}

probe_figures probe::figures() const
{
    return figures_of(results_);
}

const measurement &probe::result(std::size_t session) const
{
    return sessions_[session]->result();
}

stamp_counts probe::stamps() const
{
    stamp_counts all;
    for (const auto &session : sessions_) {
        all.requests += session->stamps().counts().requests;
        all.replies += session->stamps().counts().replies;
    }
    return all;
}

int probe::refusal() const
{
    for (const auto &session : sessions_) {
        if (session->refusal() != 0) {
            return session->refusal();
        }
    }
    return 0;
}

} // namespace olv_probe
