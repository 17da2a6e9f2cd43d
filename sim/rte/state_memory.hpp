// State memory of the resources of one namespace.
#ifndef OLV_SIM_STATE_MEMORY_HPP
#define OLV_SIM_STATE_MEMORY_HPP

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "olv_sim/fast_path_seam.hpp"
#include "olv_sim/processor.hpp"

namespace olv_sim {

/** One entry for each resource value: on cache lines of its own, in memory that comes when an entry is first
 *  reached, or in memory that was provided. An entry that was not written reads as zeros. */
class state_memory {
  public:
    explicit state_memory(const classifier_program::name_space &description);
    /** @throw std::invalid_argument  The entries do not fit the memory. */
    state_memory(const classifier_program::name_space &description, const provided_entries &provided);

    [[nodiscard]] std::uint32_t length() const { return length_; }
    [[nodiscard]] bool contains(std::uint32_t value) const { return value >= first_ && value - first_ < span_; }
    /** The entry's words. Takes a lock only to make room. */
    [[nodiscard]] state_words reach(std::uint32_t value);
    /** The entry's words; empty where nothing has made room for them. */
    [[nodiscard]] state_words peek(std::uint32_t value) const;
    [[nodiscard]] std::size_t memory_bytes() const;

    /** Tell of each entry that is not all zeros. Of none in provided memory: whoever provided it has them. */
    void tell_of_written(processor_observer &observer) const;

  private:
    static constexpr std::uint32_t words_in_line = 16;
    static constexpr std::uint32_t entries_in_chunk = 1024;

    struct alignas(64) line {
        std::atomic<std::uint32_t> word[words_in_line];
    };

    [[nodiscard]] std::size_t words_in_entry() const { return (length_ + 3) / 4; }
    [[nodiscard]] state_words words_in(line *chunk, std::uint32_t offset) const;
    line *make_chunk(std::uint32_t number);

    std::uint32_t first_;
    std::uint32_t span_;
    std::uint32_t length_;
    state_words provided_; // Empty: the chunks hold the entries.
    std::size_t stride_ = 0;
    std::uint32_t lines_in_entry_ = 0;
    std::vector<std::atomic<line *>> chunks_;
    std::mutex mutex_;
    std::vector<std::unique_ptr<line[]>> owned_;
    std::atomic<std::size_t> bytes_{0};
};

[[nodiscard]] bool any_bit_set(state_words words);

/** Copy bytes to or from the start of an entry, each word in one piece. @p length is inside the entry. */
void write_words(state_words words, const void *bytes, std::uint32_t length);
void read_words(state_words words, void *bytes, std::uint32_t length);

} // namespace olv_sim

#endif
