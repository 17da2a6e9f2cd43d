/**
 * @file session_sender.hpp
 * Sends a session's requests and receives its replies, in one thread.
 */
#ifndef OLV_PROBE_SESSION_SENDER_HPP
#define OLV_PROBE_SESSION_SENDER_HPP

#include <cstdint>
#include <vector>

#include "measurement.hpp"
#include "probe_options.hpp"
#include "signal_watch.hpp"

namespace olv_probe {

class session_sender {
  public:
    /** @throw std::runtime_error  One line: there is no socket to be had, or no way to the reflector. */
    explicit session_sender(const probe_options &options);
    ~session_sender();
    session_sender(const session_sender &) = delete;
    session_sender &operator=(const session_sender &) = delete;

    /**
     * Send everything and wait for the replies; ends after count * interval + timeout at the latest.
     * @return Whether it ran to its end; false: a signal ended it.
     * @throw std::runtime_error  One line: the system refuses to send or receive.
     */
    bool run(const olv_apps::signal_watch &signals);

    [[nodiscard]] const measurement &result() const { return measurement_; }
    /** The reflector's host answered that nobody listens on the port. */
    [[nodiscard]] bool was_refused() const { return refused_; }

  private:
    void configure_socket() const;
    [[nodiscard]] bool is_finished(steady_clock::time_point now) const;
    void send_if_due(steady_clock::time_point now);
    void receive_all();
    /** @return Whether a signal came. */
    [[nodiscard]] bool wait(const olv_apps::signal_watch &signals) const;
    [[nodiscard]] steady_clock::time_point next_departure() const;

    const probe_options options_;
    const test_packet_format format_;
    measurement measurement_;
    std::vector<std::uint8_t> request_;
    std::vector<std::uint8_t> reply_;
    steady_clock::time_point start_;
    steady_clock::time_point end_;
    int socket_;
    bool socket_full_ = false;
    bool refused_ = false;
};

} // namespace olv_probe

#endif
