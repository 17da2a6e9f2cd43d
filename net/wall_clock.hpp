/**
 * @file wall_clock.hpp
 * The system's time of day.
 */
#ifndef OLV_NET_WALL_CLOCK_HPP
#define OLV_NET_WALL_CLOCK_HPP

#include <cstdint>
#include <ctime>

#include "net/twamp_wire.hpp"

namespace olv_net {

[[nodiscard]] inline timespec wall_time()
{
    timespec now{};
    (void)clock_gettime(CLOCK_REALTIME, &now); // cannot fail for this clock
    return now;
}

/** Nanoseconds since 1970. */
[[nodiscard]] inline std::uint64_t nanoseconds_of(const timespec &time)
{
    return static_cast<std::uint64_t>(time.tv_sec) * 1000000000u + static_cast<std::uint64_t>(time.tv_nsec);
}

[[nodiscard]] inline ntp_time ntp_time_of(const timespec &time)
{
    return ntp_time::from_unix(static_cast<std::uint64_t>(time.tv_sec),
                               static_cast<std::uint32_t>(time.tv_nsec));
}

/** @param nanoseconds  Since 1970. */
[[nodiscard]] inline ntp_time ntp_time_of(std::uint64_t nanoseconds)
{
    return ntp_time::from_unix(nanoseconds / 1000000000u,
                               static_cast<std::uint32_t>(nanoseconds % 1000000000u));
}

} // namespace olv_net

#endif
