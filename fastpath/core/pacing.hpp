/**
 * @file pacing.hpp
 * A limit of packets per second for very many senders: a number for each.
 */
#ifndef OLV_FASTPATH_PACING_HPP
#define OLV_FASTPATH_PACING_HPP

#include <cstdint>

namespace olv_fastpath {

/**
 * Lets so many packets a second pass, on average; after a quiet second, a second's packets at once. Of a sender
 * it has to be known only up to when its packets are paid for.
 */
class pacing {
  public:
    /** @param packets_per_second  0, or more than the clock has ticks: no limit. */
    pacing(std::uint32_t packets_per_second, std::uint64_t ticks_per_second)
        : each_(packets_per_second == 0 ? 0 : ticks_per_second / packets_per_second),
          most_(static_cast<std::int64_t>(ticks_per_second - each_))
    {}

    /** @param paid  The sender's, any time that is not later than now at first.
     *  @return Whether a packet that arrives now may pass. */
    [[nodiscard]] bool take(std::uint64_t &paid, std::uint64_t now) const
    {
        const auto ahead = static_cast<std::int64_t>(paid - now);
        if (each_ != 0 && ahead > most_) {
            return false;
        }
        paid = (ahead > 0 ? paid : now) + each_;
        return true;
    }

  private:
    std::uint64_t each_; ///< Ticks that a packet takes; 0: none.
    std::int64_t most_;  ///< Ticks that a sender may be ahead of the clock.
};

} // namespace olv_fastpath

#endif
