/**
 * @file probe.hpp
 * Measures: runs one or several sender sessions with a reflector.
 *
 *     olv_probe::session_options options;
 *     options.reflector = olv_net::parse_socket_address("127.0.0.1:8620");
 *     olv_probe::probe sender{options};
 *     const bool complete = sender.run(); // in a thread of its own, if others go on meanwhile
 *     const olv_probe::probe_figures figures = sender.figures();
 */
#ifndef OLV_PROBE_PROBE_HPP
#define OLV_PROBE_PROBE_HPP

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <poll.h>

#include "net/descriptor.hpp"
#include "probe/interval_figures.hpp"
#include "probe/probe_figures.hpp"
#include "probe/session_options.hpp"
#include "probe/test_session.hpp"

namespace olv_probe {

/** How far a run is. */
struct probe_progress {
    std::chrono::nanoseconds elapsed{0};
    std::uint64_t sent = 0;
    std::uint64_t received = 0;
    std::uint64_t valid = 0;
    std::optional<std::chrono::nanoseconds> round_trip; ///< The latest.
};

/** One thread runs it, once. Meanwhile other threads may call what is marked so, and nothing else. */
class probe {
  public:
    /** @throw std::runtime_error  One line: there is no socket to be had, or no way to the reflector. */
    explicit probe(const session_options &options);

    /** Have run() call this, in its thread, about as often as @p pause says. */
    void on_progress(std::chrono::nanoseconds pause, std::function<void(const probe_progress &)> show);

    /** Have run() call this, in its thread, for each interval of this length: see interval_sequence. */
    void on_interval(std::chrono::nanoseconds length, std::function<void(const interval_figures &)> show);
    /** Have run() call this, in its thread, each time that there is something to read. */
    void on_readable(int descriptor, std::function<void()> act);

    /**
     * Send everything and wait for the replies, until the time-out after the last packet at the latest.
     * @param stop_descriptor  Something to poll: ends the run once it is readable; -1: nothing.
     * @return Whether it ran to its end; false: stop() or the descriptor ended it.
     * @throw std::runtime_error  One line: the system refuses to send or receive. What was measured before is
     * there.
     */
    bool run(int stop_descriptor = -1);
    /** End run(), from any thread or signal handler, also before it begins. */
    void stop() const;
    /** From what run() calls: send no more, but wait for the replies as if all had been sent. */
    void end_sending();

    /** Sessions, with their sockets' addresses as "127.0.0.1:40000" or "[::1]:40000"; from any thread. */
    [[nodiscard]] std::size_t session_count() const { return sessions_.size(); }
    [[nodiscard]] const std::string &local_address(std::size_t session = 0) const;
    /** From any thread. */
    [[nodiscard]] probe_progress progress() const;
    /** The latest of all sessions, without the reflector's share; from any thread. progress() then counts its
     *  packet. */
    [[nodiscard]] std::optional<std::chrono::nanoseconds> latest_round_trip() const;

    /** After run(): all sessions together, one of them, or each. */
    [[nodiscard]] probe_figures figures() const;
    [[nodiscard]] const measurement &result(std::size_t session = 0) const;
    [[nodiscard]] const std::vector<const measurement *> &results() const { return results_; }
    /** After run(): what a host on the way answered instead of the reflector, as errno; 0: nothing. */
    [[nodiscard]] int refusal() const;
    [[nodiscard]] std::chrono::nanoseconds elapsed() const { return elapsed_; }
    /** When it began: nanoseconds since 1970. */
    [[nodiscard]] std::uint64_t started() const { return started_; }
    /** Who takes the times, and of how many packets of all sessions. */
    [[nodiscard]] timestamp_source timestamps() const { return sessions_.front()->stamps().source(); }
    [[nodiscard]] stamp_counts stamps() const;

  private:
    void begin();
    void receive_all();
    [[nodiscard]] bool is_finished(steady_clock::time_point now) const;
    void send_all_due(steady_clock::time_point now);
    /** @return Whether to stop. */
    [[nodiscard]] bool wait(int stop_descriptor);
    [[nodiscard]] steady_clock::time_point next_look(steady_clock::time_point now) const;
    void show_intervals(steady_clock::time_point now, bool ended);
    void publish(steady_clock::time_point now);

    static constexpr std::int64_t no_round_trip = INT64_MIN;

    const session_options options_;
    std::vector<std::unique_ptr<test_session>> sessions_;
    std::vector<pollfd> watched_;
    std::vector<const measurement *> results_; ///< Of the sessions.
    std::optional<interval_sequence> intervals_;
    std::function<void(const interval_figures &)> show_interval_;
    std::vector<std::pair<int, std::function<void()>>> readers_;
    std::function<void(const probe_progress &)> show_;
    std::chrono::nanoseconds pause_{0};
    steady_clock::time_point next_show_ = steady_clock::time_point::max();
    steady_clock::time_point start_;
    std::uint64_t started_ = 0;
    std::chrono::nanoseconds elapsed_{0};
    std::int64_t latest_round_trip_ = no_round_trip;
    olv_net::descriptor stop_event_;
    std::atomic<std::int64_t> shared_elapsed_{0};
    std::atomic<std::uint64_t> shared_sent_{0};
    std::atomic<std::uint64_t> shared_received_{0};
    std::atomic<std::uint64_t> shared_valid_{0};
    std::atomic<std::int64_t> shared_round_trip_{no_round_trip};
};

} // namespace olv_probe

#endif
