/**
 * @file clock_watch.hpp
 * Notices that a clock was set.
 */
#ifndef OLV_PROBE_CLOCK_WATCH_HPP
#define OLV_PROBE_CLOCK_WATCH_HPP

#include <chrono>
#include <cstdint>
#include <optional>

namespace olv_probe {

/** Between which limits a clock is ahead of another. */
struct offset_bounds {
    std::chrono::nanoseconds low{0};
    std::chrono::nanoseconds high{0};

    [[nodiscard]] std::chrono::nanoseconds middle() const { return low + (high - low) / 2; }
};

/** A reading of the two clocks. */
struct clock_reading {
    std::uint64_t sequence = 0; ///< Of the packet that it belongs to.
    std::chrono::nanoseconds at{0};
    offset_bounds ahead;
    /** By how much more the clock may be off by its own resolution. */
    std::chrono::nanoseconds resolution{0};
};

/** Follows how far a clock is ahead of another. A clock that is adjusted slowly, by up to a tenth of the time
 * that passes, is not set. One reading alone says nothing: it takes a second one that agrees with it. */
class clock_watch {
  public:
    struct finding {
        /** This reading was the first after the clock was set; by so much. */
        std::optional<clock_reading> set;
        std::chrono::nanoseconds by{0};
        /** This reading was of a moment when the clock was elsewhere. */
        std::optional<clock_reading> stray;
        /** This one is elsewhere, and the next will tell. */
        bool is_open = false;
    };

    [[nodiscard]] finding observe(const clock_reading &reading);

  private:
    [[nodiscard]] finding follow(const clock_reading &reading);

    std::optional<clock_reading> current_;
    std::optional<clock_reading> elsewhere_;
    std::chrono::nanoseconds unrest_{0}; ///< The farthest that a stray reading was off.
};

} // namespace olv_probe

#endif
