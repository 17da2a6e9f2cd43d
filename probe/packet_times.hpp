/**
 * @file packet_times.hpp
 * How long from a packet to the next.
 */
#ifndef OLV_PROBE_PACKET_TIMES_HPP
#define OLV_PROBE_PACKET_TIMES_HPP

#include <chrono>
#include <cstdint>
#include <random>

#include "probe/session_options.hpp"

namespace olv_probe {

class packet_times {
  public:
    packet_times(packet_schedule schedule, std::chrono::nanoseconds interval, std::uint64_t seed)
        : schedule_(schedule), interval_(interval), random_(seed)
    {}

    [[nodiscard]] std::chrono::nanoseconds next()
    {
        if (schedule_ == packet_schedule::periodic) {
            return interval_;
        }
        std::exponential_distribution<double> share{1};
        return std::chrono::nanoseconds(
            static_cast<std::int64_t>(share(random_) * static_cast<double>(interval_.count())));
    }

  private:
    packet_schedule schedule_;
    std::chrono::nanoseconds interval_;
    std::mt19937_64 random_;
};

} // namespace olv_probe

#endif
