/**
 * @file token_bucket.hpp
 * A limit of packets per second, measured by the time stamps of the packets.
 */
#ifndef OLV_FASTPATH_TOKEN_BUCKET_HPP
#define OLV_FASTPATH_TOKEN_BUCKET_HPP

#include <algorithm>
#include <atomic>
#include <cstdint>

namespace olv_fastpath {

/**
 * Lets so many packets a second pass, on average. After a quiet second it is full and lets a second's packets
 * pass at once: not more than twice the limit in any second. Packets are earned at the clock's multiples of the
 * time that one takes at this rate, so the next may pass right after a full bucket was emptied.
 *
 * Any number of threads may share one: together they let pass what one thread would, as long as their clocks
 * are less than a second apart. There is no lock in it, and its words have 32 bits, which every processor
 * changes whole.
 */
class token_bucket {
  public:
    /** @param ticks_per_second  Not 0. A product of both that is too large lowers the limit. */
    token_bucket(std::uint32_t packets_per_second, std::uint64_t ticks_per_second)
        : rate_(static_cast<std::uint32_t>(
              std::min<std::uint64_t>({packets_per_second, highest_rate, UINT64_MAX / 2 / ticks_per_second}))),
          ticks_per_second_(ticks_per_second),
          credit_(rate_)
    {}

    /** @param now  Ticks of a clock that does not run backwards; one that does earns nothing.
     *  @return Whether a packet that arrives now may pass. */
    [[nodiscard]] bool take(std::uint64_t now)
    {
        add_credit(earn_until(earned_at(now)));
        return spend();
    }

  private:
    /** Numbers of packets earned wrap. Up to this difference it is known which of two is the later one. */
    static constexpr std::uint32_t highest_rate = INT32_MAX;

    /** Packets earned since the clock's beginning; their number wraps. */
    [[nodiscard]] std::uint32_t earned_at(std::uint64_t now) const
    {
        return static_cast<std::uint32_t>(now / ticks_per_second_ * rate_ +
                                          now % ticks_per_second_ * rate_ / ticks_per_second_);
    }

    /** @return Packets earned since the last call, of which one thread alone is told. */
    std::uint32_t earn_until(std::uint32_t earned)
    {
        std::uint32_t before = earned_.load(std::memory_order_relaxed);
        while (before != earned) {
            const std::uint32_t more = earned - before;
            const bool is_later = more <= highest_rate;
            if (!is_later && before - earned <= rate_) {
                return 0; // another thread's clock is a little ahead
            }
            if (earned_.compare_exchange_weak(before, earned, std::memory_order_relaxed)) {
                return is_later ? more : 0;
            }
        }
        return 0;
    }

    void add_credit(std::uint32_t earned)
    {
        std::uint32_t credit = credit_.load(std::memory_order_relaxed);
        while (earned > 0 && credit < rate_ &&
               !credit_.compare_exchange_weak(credit, credit + std::min(earned, rate_ - credit),
                                              std::memory_order_relaxed)) {
        }
    }

    /** @return Whether there was credit for a packet. */
    bool spend()
    {
        std::uint32_t credit = credit_.load(std::memory_order_relaxed);
        while (credit > 0) {
            if (credit_.compare_exchange_weak(credit, credit - 1, std::memory_order_relaxed)) {
                return true;
            }
        }
        return false;
    }

    std::uint32_t rate_;
    std::uint64_t ticks_per_second_;
    std::atomic<std::uint32_t> credit_;    ///< Packets.
    std::atomic<std::uint32_t> earned_{0}; ///< Of which the credit has been told.
};

} // namespace olv_fastpath

#endif
