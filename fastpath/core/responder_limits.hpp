/**
 * @file responder_limits.hpp
 * The limit of packets of each responder, wherever its packets come in.
 */
#ifndef OLV_FASTPATH_RESPONDER_LIMITS_HPP
#define OLV_FASTPATH_RESPONDER_LIMITS_HPP

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

#include "fastpath/core/token_bucket.hpp"

namespace olv_fastpath {

/** Hands out buckets. Any thread may ask for one. */
class responder_limits {
  public:
    /** @param packets_per_second  0: no limit. @param ticks_per_second  Of the clock of arrivals; not 0. */
    responder_limits(std::uint32_t packets_per_second, std::uint64_t ticks_per_second)
        : packets_per_second_(packets_per_second), ticks_per_second_(ticks_per_second)
    {}

    /** The bucket of a responder. All who ask get the same one, as long as somebody has it.
     *  @param responder_id  Its low 24 bits count. @return NULL when there is no limit. */
    [[nodiscard]] std::shared_ptr<token_bucket> bucket_of(std::uint32_t responder_id);

  private:
    std::uint32_t packets_per_second_;
    std::uint64_t ticks_per_second_;
    std::mutex mutex_; ///< Guards the list; buckets need no lock.
    std::map<std::uint32_t, std::weak_ptr<token_bucket>> buckets_;
};

} // namespace olv_fastpath

#endif
