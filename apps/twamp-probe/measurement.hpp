/**
 * @file measurement.hpp
 * What was sent, what came back, and what that says.
 */
#ifndef OLV_PROBE_MEASUREMENT_HPP
#define OLV_PROBE_MEASUREMENT_HPP

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "test_packet.hpp"

namespace olv_probe {

using steady_clock = std::chrono::steady_clock;

/** Requests by sequence number, and counts of replies. */
class measurement {
  public:
    explicit measurement(const test_packet_format &format) : format_(format) {}

    /** The next request, numbered by sent(), left at @p departure on the wall clock and @p instant. */
    void request_sent(olv_fastpath::ntp_time departure, steady_clock::time_point instant);
    void reply_received(std::span<const std::uint8_t> reply, steady_clock::time_point instant);

    [[nodiscard]] std::uint32_t sent() const { return static_cast<std::uint32_t>(requests_.size()); }
    [[nodiscard]] std::uint32_t received() const { return received_; }
    [[nodiscard]] std::uint32_t valid() const { return valid_; }
    [[nodiscard]] std::uint32_t invalid() const { return received_ - valid_ - duplicates_; }
    /** Requests to which no reply came. */
    [[nodiscard]] std::uint32_t outstanding() const { return sent() - answered_; }

    /** To standard output. */
    void print() const;

  private:
    struct request {
        olv_fastpath::ntp_time departure;
        steady_clock::time_point instant;
        bool answered = false;
    };

    [[nodiscard]] reply_fault judge(std::span<const std::uint8_t> reply, std::uint32_t sequence);
    void count_fault(reply_fault fault) { ++faults_[static_cast<std::size_t>(fault)]; }
    void print_round_trips() const;

    test_packet_format format_;
    std::vector<request> requests_;
    std::vector<double> round_trips_; ///< Microseconds, of valid replies.
    std::optional<std::uint32_t> last_reflector_sequence_;
    std::array<std::uint32_t, reply_fault_count> faults_{};
    std::uint32_t received_ = 0;
    std::uint32_t valid_ = 0;
    std::uint32_t answered_ = 0;
    std::uint32_t duplicates_ = 0;
    std::uint32_t other_ttl_ = 0; ///< Valid replies whose request did not arrive with TTL 255.
};

} // namespace olv_probe

#endif
