/**
 * @file clock_reading.hpp
 * Two clocks read at one instant.
 */
#ifndef OLV_NET_CLOCK_READING_HPP
#define OLV_NET_CLOCK_READING_HPP

#include <cstdint>

namespace olv_net {

/** What a timer said, and the wall clock just before it. */
struct clock_reading {
    std::uint64_t timer = 0;
    std::uint64_t wall_nanoseconds = 0;
};

/**
 * Read the wall clock between two readings of the timer. Where these are more than @p apart, the thread may
 * have lost its core in between, and what is read does not belong together: it is read again, five times at
 * most. The readings that were closest to each other count.
 */
template <typename Timer, typename Wall>
clock_reading read_together(const Timer &timer, const Wall &wall_nanoseconds, std::uint64_t apart)
{
    constexpr int attempts = 5;
    clock_reading best;
    std::uint64_t least = UINT64_MAX;
    std::uint64_t before = timer();
    for (int attempt = 0; attempt < attempts && least > apart; ++attempt) {
        const std::uint64_t wall = wall_nanoseconds();
        const std::uint64_t after = timer();
        if (after - before <= least) {
            least = after - before;
            best = {after, wall};
        }
        before = after;
    }
    return best;
}

} // namespace olv_net

#endif
