/**
 * @file station.hpp
 * A processor with everything at work on it: control application, fast path on UDP sockets, senders.
 */
#ifndef OLV_TWAMP_SOAK_STATION_HPP
#define OLV_TWAMP_SOAK_STATION_HPP

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <thread>

#include "control.hpp"
#include "fastpath/udp/udp_server.hpp"
#include "senders.hpp"

namespace olv_soak {

class station {
  public:
    station(olv_sim::framework &framework, std::uint32_t responders, std::uint64_t seed);
    ~station();
    station(const station &) = delete;
    station &operator=(const station &) = delete;

    /** Let packets flow and operations follow each other in a thread of their own. */
    void start();
    /** Whether the operations still follow each other. */
    [[nodiscard]] bool good() const { return !failed_; }
    /** End the operations, and with them the faults. @throw wrong  What ended them before. */
    void stop_operations();
    /** Let the packets run out, add everything up and take everything down. No station operates any more.
     *  @throw wrong */
    void finish();

    [[nodiscard]] std::uint64_t operations() const { return control_.operations(); }
    [[nodiscard]] std::uint64_t failures() const { return control_.failures(); }
    [[nodiscard]] std::size_t distinct_statuses() const { return control_.statuses().size(); }
    [[nodiscard]] std::uint64_t sent() const;
    [[nodiscard]] std::uint64_t replies() const;

  private:
    void work();
    void wait_for_the_last_packets() const;
    void expect_exact_counters() const;
    void expect_sessions_to_end();

    static constexpr std::uint32_t session_capacity = 4096;

    olv_sim::processor processor_;
    control control_;
    olv_fastpath::reflector reflector_;
    olv_fastpath::udp_server server_;
    std::size_t wandering_ = 0; ///< Socket whose packets change their responder.
    std::deque<sender> senders_;
    std::minstd_rand random_;
    std::atomic<bool> stopping_{false};
    std::atomic<bool> failed_{false};
    std::string failure_; ///< What was wrong, once the thread has ended.
    std::thread worker_;
};

} // namespace olv_soak

#endif
