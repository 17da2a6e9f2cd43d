#include "sim/rte/name_space.hpp"

#include "olv_sim/processor.hpp"
#include "olv_sim/statuses.hpp"
#include "olv_sim/violations.hpp"
#include "sim/faults/report_violation.hpp"
#include "twamp_program.h"

namespace olv_sim {

std::uint32_t classifier_program::name_space::values() const
{
    // Resources with state share the namespace IDs of state memory with the global statistics block.
    const bool reaches_over_it =
        state_length > 0 && GLOBAL_STATS_NS_ID >= first && GLOBAL_STATS_NS_ID - first < capacity;
    return capacity + (reaches_over_it ? 1 : 0);
}

name_space::name_space(const classifier_program::name_space &description)
    : name_(description.name), first_(description.first), span_(description.values())
{
    if (span_ != description.capacity) {
        left_out_ = GLOBAL_STATS_NS_ID - first_;
    }
    chunks_.resize((std::size_t{span_} + words_in_chunk - 1) / words_in_chunk);
}

bool name_space::contains(std::uint32_t resource) const
{
    return resource >= first_ && resource - first_ < span_;
}

std::uint32_t &name_space::word(std::uint32_t offset)
{
    auto &chunk = chunks_[offset / words_in_chunk];
    if (chunk == nullptr) {
        chunk = std::make_unique<std::uint32_t[]>(words_in_chunk);
        ++chunk_count_;
    }
    return chunk[offset % words_in_chunk];
}

bool name_space::marked(std::uint32_t offset) const
{
    const auto &chunk = chunks_[offset / words_in_chunk];
    return chunk != nullptr && chunk[offset % words_in_chunk] == allocated_mark;
}

void name_space::append_free(std::uint32_t offset)
{
    word(offset) = no_offset;
    if (free_count_++ == 0) {
        oldest_free_ = offset;
    } else {
        word(newest_free_) = offset;
    }
    newest_free_ = offset;
}

std::uint32_t name_space::allocate_one(std::uint32_t &offset)
{
    if (is_left_out(fresh_)) {
        ++fresh_;
    }
    const bool exhausted = fresh_ >= span_;
    if (exhausted && free_count_ == 0) {
        return rte_namespace_exhausted;
    }
    if (exhausted || free_count_ >= quarantine) {
        offset = oldest_free_;
        oldest_free_ = word(offset);
        --free_count_;
    } else {
        offset = fresh_++;
    }
    word(offset) = allocated_mark;
    return rte_ok;
}

/** Runs come from the values that were never handed out: free ones need not be neighbours. */
std::uint32_t name_space::allocate_run(std::uint32_t count, std::uint32_t &offset)
{
    const bool crosses = left_out_ != no_offset && fresh_ <= left_out_ && count > left_out_ - fresh_;
    const std::uint32_t start = crosses ? left_out_ + 1 : fresh_;
    if (start >= span_ || count > span_ - start) {
        return rte_namespace_exhausted;
    }
    for (; fresh_ < start; ++fresh_) {
        if (!is_left_out(fresh_)) {
            append_free(fresh_);
        }
    }
    offset = start;
    for (std::uint32_t index = 0; index < count; ++index) {
        word(fresh_++) = allocated_mark;
    }
    return rte_ok;
}

std::uint32_t name_space::allocate(std::uint32_t count, std::uint32_t &resource)
{
    if (count == 0) {
        return rte_invalid_count;
    }
    const std::lock_guard lock{mutex_};
    std::uint32_t offset = 0;
    const std::uint32_t status = count == 1 ? allocate_one(offset) : allocate_run(count, offset);
    if (status == rte_ok) {
        allocated_ += count;
        resource = first_ + offset;
    }
    return status;
}

std::uint32_t name_space::release(std::uint32_t resource, std::uint32_t count)
{
    if (count == 0) {
        return rte_invalid_count;
    }
    const std::lock_guard lock{mutex_};
    bool known = contains(resource) && count <= span_ - (resource - first_);
    const std::uint32_t offset = resource - first_;
    for (std::uint32_t index = 0; known && index < count; ++index) {
        known = marked(offset + index);
    }
    if (!known) {
        violations::report("hyx_rsrc_free: " + name_ + " " + std::to_string(resource) + " is not allocated");
        return rte_resource_not_allocated;
    }
    for (std::uint32_t index = 0; index < count; ++index) {
        append_free(offset + index);
    }
    allocated_ -= count;
    return rte_ok;
}

bool name_space::is_allocated(std::uint32_t resource) const
{
    const std::lock_guard lock{mutex_};
    return contains(resource) && marked(resource - first_);
}

std::size_t name_space::allocated() const
{
    const std::lock_guard lock{mutex_};
    return allocated_;
}

std::size_t name_space::memory_bytes() const
{
    const std::lock_guard lock{mutex_};
    return chunks_.size() * sizeof chunks_.front() +
           chunk_count_ * std::size_t{words_in_chunk} * sizeof(std::uint32_t);
}

} // namespace olv_sim
