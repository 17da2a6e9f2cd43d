// A namespace: resources that are handed out and returned.
#ifndef OLV_SIM_NAME_SPACE_HPP
#define OLV_SIM_NAME_SPACE_HPP

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "olv_sim/processor.hpp"

namespace olv_sim {

/** Resources in constant time each, with one word for a resource that was ever allocated. */
class name_space {
  public:
    /** Freed resources wait until this many are free, or nothing else is left: a stale value is then not at
     *  once somebody else's. */
    static constexpr std::uint32_t quarantine = 1024;

    explicit name_space(const classifier_program::name_space &description);

    // RTE statuses.
    std::uint32_t allocate(std::uint32_t count, std::uint32_t &resource);
    std::uint32_t release(std::uint32_t resource, std::uint32_t count);

    [[nodiscard]] const std::string &name() const { return name_; }
    [[nodiscard]] bool is_allocated(std::uint32_t resource) const;
    [[nodiscard]] std::size_t allocated() const;
    /** Values from the first to the last, a left out one included. */
    [[nodiscard]] std::uint32_t span() const { return span_; }
    [[nodiscard]] bool contains(std::uint32_t resource) const;
    [[nodiscard]] std::size_t memory_bytes() const;

  private:
    static constexpr std::uint32_t words_in_chunk = 4096;
    static constexpr std::uint32_t allocated_mark = UINT32_MAX;
    static constexpr std::uint32_t no_offset = UINT32_MAX - 1;

    /** A resource's word: allocated_mark, or the next one in the queue of free resources. */
    std::uint32_t &word(std::uint32_t offset);
    /** As word(), without making room. */
    [[nodiscard]] bool marked(std::uint32_t offset) const;
    std::uint32_t allocate_one(std::uint32_t &offset);
    std::uint32_t allocate_run(std::uint32_t count, std::uint32_t &offset);
    void append_free(std::uint32_t offset);
    [[nodiscard]] bool is_left_out(std::uint32_t offset) const { return offset == left_out_; }

    std::string name_;
    std::uint32_t first_;
    std::uint32_t span_;
    std::uint32_t left_out_ = no_offset; // Offset of a value inside that is not handed out.

    mutable std::mutex mutex_;
    std::vector<std::unique_ptr<std::uint32_t[]>> chunks_;
    std::uint32_t fresh_ = 0; // Offsets from here on were never handed out.
    std::uint32_t oldest_free_ = no_offset;
    std::uint32_t newest_free_ = no_offset;
    std::uint32_t free_count_ = 0;
    std::uint32_t allocated_ = 0;
    std::size_t chunk_count_ = 0;
};

} // namespace olv_sim

#endif
