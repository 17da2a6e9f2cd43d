/**
 * @file idle_wait.hpp
 * Whether to look for the next packet before sleeping.
 */
#ifndef OLV_FASTPATH_IDLE_WAIT_HPP
#define OLV_FASTPATH_IDLE_WAIT_HPP

#include <chrono>

namespace olv_fastpath {

/** Looking pays while pauses between packets are shorter than the patience. The last pause tells: a longer one
 * ends the looking, a shorter one begins it again. */
class idle_wait {
  public:
    using clock = std::chrono::steady_clock;

    /** @param patience  Zero: always sleep. */
    explicit idle_wait(std::chrono::nanoseconds patience) : patience_(patience) {}

    [[nodiscard]] bool ever_looks() const { return patience_ > std::chrono::nanoseconds::zero(); }

    /** @param looked  When packets were found. @param served  When they had been dealt with. */
    void note_packets(clock::time_point looked, clock::time_point served)
    {
        looks_ = looked - last_served_ <= patience_;
        last_served_ = served;
    }

    /** @return Whether to look again now rather than to sleep. */
    [[nodiscard]] bool may_look(clock::time_point now) const
    {
        return looks_ && now - last_served_ < patience_;
    }

  private:
    std::chrono::nanoseconds patience_;
    clock::time_point last_served_{};
    bool looks_ = false;
};

} // namespace olv_fastpath

#endif
