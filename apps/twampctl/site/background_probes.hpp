/**
 * @file background_probes.hpp
 * Session senders of this process that go on in the background, and the round trips that they measure.
 */
#ifndef OLV_TWAMPCTL_BACKGROUND_PROBES_HPP
#define OLV_TWAMPCTL_BACKGROUND_PROBES_HPP

#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "probe/probe.hpp"

namespace twampctl {

class background_probes {
  public:
    background_probes() = default;
    /** Stops all. */
    ~background_probes();
    background_probes(const background_probes &) = delete;
    background_probes &operator=(const background_probes &) = delete;

    /** Begin to send. @return The sender's address. @throw std::runtime_error  It cannot. */
    std::string start(const olv_probe::session_options &options);
    /** End one, and forget it. @throw std::runtime_error  None has this address. */
    void stop(const std::string &address);
    void stop_all();

    struct status {
        std::string sender;
        std::string reflector;
        bool running = false;
        olv_probe::probe_progress progress;
    };
    [[nodiscard]] std::vector<status> list() const;

    /** Remember what a sender that has ended measured last. */
    void note(const std::string &sender, double round_trip_seconds);
    /** The last round trip of the sender with this address, in seconds; from any thread. */
    [[nodiscard]] std::optional<double> round_trip_of(const std::string &sender) const;

  private:
    struct probe {
        explicit probe(const olv_probe::session_options &options)
            : sender(options), reflector(options.reflector.text())
        {}

        olv_probe::probe sender;
        std::string reflector;
        std::atomic<bool> running{true};
        std::thread thread;
    };

    void end(probe &which);

    mutable std::mutex mutex_; ///< Guards what follows.
    std::list<probe> running_;
    std::map<std::string, double> ended_;
};

} // namespace twampctl

#endif
