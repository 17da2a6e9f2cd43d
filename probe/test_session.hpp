/**
 * @file test_session.hpp
 * One session: its socket, when it sends, what comes back.
 */
#ifndef OLV_PROBE_TEST_SESSION_HPP
#define OLV_PROBE_TEST_SESSION_HPP

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "net/descriptor.hpp"
#include "probe/measurement.hpp"
#include "probe/packet_stamps.hpp"
#include "probe/packet_times.hpp"
#include "probe/session_options.hpp"

namespace olv_probe {

/** Never waits: whoever runs it polls its socket. */
class test_session {
  public:
    /** @param sender  Which of several.
     *  @throw std::runtime_error  One line: there is no socket to be had, or no way to the reflector. */
    test_session(const session_options &options, unsigned sender);

    /** @param shift  How much later than @p start the first packet leaves. */
    void begin(steady_clock::time_point start, std::chrono::nanoseconds shift);
    /** Take what has come. @return Nanoseconds of the last valid reply among it.
     *  @throw std::runtime_error  One line: the system refuses. */
    std::optional<std::int64_t> receive();
    /** Send the packets whose time has come. @throw std::runtime_error  One line: the system refuses. */
    void send_due(steady_clock::time_point now);
    /** Nothing to send is left, and nothing to wait for. */
    [[nodiscard]] bool is_finished(steady_clock::time_point now) const;

    [[nodiscard]] int descriptor() const { return socket_.number(); }
    /** What to poll the socket for. */
    [[nodiscard]] short awaited_events(steady_clock::time_point now) const;
    /** When to look again although nothing came; never, once it is finished. */
    [[nodiscard]] steady_clock::time_point next_action(steady_clock::time_point now) const;
    /** Give up on the requests that were sent so long ago that none is waited for. */
    void settle(steady_clock::time_point now) { measurement_.expire(now - options_.timeout); }
    /** When the next request is given up, unless it is answered; call settle() before. */
    [[nodiscard]] steady_clock::time_point next_settling() const;
    /** Send no more, and wait for the replies. */
    void end_sending() { sending_ended_ = true; }
    [[nodiscard]] bool is_sending_over(steady_clock::time_point now) const;

    [[nodiscard]] const measurement &result() const { return measurement_; }
    /** "127.0.0.1:40000", "[::1]:40000". */
    [[nodiscard]] const std::string &local_address() const { return local_address_; }
    /** What a host on the way answered instead of the reflector, as errno; 0: nothing. */
    [[nodiscard]] int refusal() const { return refusal_; }
    [[nodiscard]] const packet_stamps &stamps() const { return stamps_; }

  private:
    [[nodiscard]] bool is_due(steady_clock::time_point now) const;
    [[nodiscard]] bool is_window_full() const;
    [[nodiscard]] bool try_to_send();
    [[nodiscard]] std::runtime_error refused(const char *what) const;
    void note_stall(steady_clock::time_point now);

    const session_options options_;
    const test_packet_format format_;
    measurement measurement_;
    std::vector<std::uint8_t> request_;
    std::vector<std::uint8_t> reply_;
    std::string local_address_;
    steady_clock::time_point start_;
    steady_clock::time_point next_departure_;
    steady_clock::time_point last_departure_;
    std::optional<steady_clock::time_point> stalled_since_; ///< The system takes no packets since then.
    olv_net::descriptor socket_;
    packet_stamps stamps_;
    packet_times times_;
    int refusal_ = 0;
    bool socket_full_ = false;
    bool sending_ended_ = false;
    bool given_up_ = false; ///< The system took no packets for the whole time-out.
};

} // namespace olv_probe

#endif
