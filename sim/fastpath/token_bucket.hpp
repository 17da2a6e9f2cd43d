/**
 * @file token_bucket.hpp
 * A limit of packets per second, measured by the time stamps of the packets.
 */
#ifndef OLV_FASTPATH_TOKEN_BUCKET_HPP
#define OLV_FASTPATH_TOKEN_BUCKET_HPP

#include <algorithm>
#include <cstdint>

namespace olv_fastpath {

/**
 * Lets so many packets a second pass, on average. After a quiet second it is full and lets a second's packets
 * pass at once: not more than twice the limit in any second.
 */
class token_bucket {
  public:
    /** @param ticks_per_second  Not 0. A product of both that is too large lowers the limit. */
    token_bucket(std::uint32_t packets_per_second, std::uint64_t ticks_per_second)
        : rate_(std::min<std::uint64_t>(packets_per_second, UINT64_MAX / 2 / ticks_per_second)),
          ticks_per_second_(ticks_per_second),
          credit_(rate_ * ticks_per_second)
    {}

    /** @param now  Ticks of a clock that does not run backwards; one that does earns nothing.
     *  @return Whether a packet that arrives now may pass. */
    [[nodiscard]] bool take(std::uint64_t now)
    {
        const std::uint64_t elapsed = now > last_ ? std::min(now - last_, ticks_per_second_) : 0;
        last_ = now;
        credit_ = std::min(credit_ + elapsed * rate_, rate_ * ticks_per_second_);
        if (credit_ < ticks_per_second_) {
            return false;
        }
        credit_ -= ticks_per_second_;
        return true;
    }

  private:
    std::uint64_t rate_;
    std::uint64_t ticks_per_second_; ///< And what a packet costs: each tick earns the rate.
    std::uint64_t credit_;
    std::uint64_t last_ = 0;
};

} // namespace olv_fastpath

#endif
