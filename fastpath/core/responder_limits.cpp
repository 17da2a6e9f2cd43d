#include "fastpath/core/responder_limits.hpp"

#include "fastpath/core/responders.hpp"

namespace olv_fastpath {

std::shared_ptr<token_bucket> responder_limits::bucket_of(std::uint32_t responder_id)
{
    if (packets_per_second_ == 0) {
        return nullptr;
    }
    const std::lock_guard lock{mutex_};
    std::erase_if(buckets_, [](const auto &each) { return each.second.expired(); });
    std::weak_ptr<token_bucket> &known = buckets_[responder_id & id_mask];
    std::shared_ptr<token_bucket> bucket = known.lock();
    if (bucket == nullptr) {
        bucket = std::make_shared<token_bucket>(packets_per_second_, ticks_per_second_);
        known = bucket;
    }
    return bucket;
}

} // namespace olv_fastpath
