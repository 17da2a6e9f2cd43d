#include "sim/rte/state_memory.hpp"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace olv_sim {

state_memory::state_memory(const classifier_program::name_space &description)
    : first_(description.first),
      span_(description.values()),
      length_(description.state_length),
      lines_in_entry_((length_ + words_in_line * 4 - 1) / (words_in_line * 4)),
      chunks_((std::size_t{span_} + entries_in_chunk - 1) / entries_in_chunk)
{}

state_memory::state_memory(const classifier_program::name_space &description, const provided_entries &provided)
    : first_(description.first),
      span_(description.values()),
      length_(description.state_length),
      provided_(provided.words),
      stride_(provided.stride)
{
    if (stride_ < words_in_entry()) {
        throw std::invalid_argument("provided state of " + description.name + ": the stride is too small");
    }
    if (provided_.size() < words_in_entry() || (provided_.size() - words_in_entry()) / stride_ + 1 < span_) {
        throw std::invalid_argument("provided state of " + description.name + ": too few words");
    }
}

state_words state_memory::words_in(line *chunk, std::uint32_t offset) const
{
    const std::size_t position = std::size_t{offset % entries_in_chunk} * lines_in_entry_;
    return {chunk[position].word, words_in_entry()};
}

state_memory::line *state_memory::make_chunk(std::uint32_t number)
{
    const std::lock_guard lock{mutex_};
    line *chunk = chunks_[number].load(std::memory_order_relaxed);
    if (chunk == nullptr) {
        const std::size_t lines = std::size_t{entries_in_chunk} * lines_in_entry_;
        owned_.push_back(std::make_unique<line[]>(lines));
        chunk = owned_.back().get();
        bytes_ += lines * sizeof(line);
        chunks_[number].store(chunk, std::memory_order_release);
    }
    return chunk;
}

state_words state_memory::reach(std::uint32_t value)
{
    const std::uint32_t offset = value - first_;
    if (!provided_.empty()) {
        return provided_.subspan(offset * stride_, words_in_entry());
    }
    line *chunk = chunks_[offset / entries_in_chunk].load(std::memory_order_acquire);
    if (chunk == nullptr) {
        chunk = make_chunk(offset / entries_in_chunk);
    }
    return words_in(chunk, offset);
}

state_words state_memory::peek(std::uint32_t value) const
{
    const std::uint32_t offset = value - first_;
    if (!provided_.empty()) {
        return provided_.subspan(offset * stride_, words_in_entry());
    }
    line *chunk = chunks_[offset / entries_in_chunk].load(std::memory_order_acquire);
    return chunk == nullptr ? state_words{} : words_in(chunk, offset);
}

bool any_bit_set(state_words words)
{
    return std::any_of(words.begin(), words.end(),
                       [](const auto &word) { return word.load(std::memory_order_relaxed) != 0; });
}

void state_memory::tell_of_written(processor_observer &observer) const
{
    std::uint32_t first_of_chunk = first_;
    for (const std::atomic<line *> &chunk : chunks_) {
        line *entries = chunk.load(std::memory_order_acquire);
        for (std::uint32_t index = 0; entries != nullptr && index < entries_in_chunk; ++index) {
            const state_words words = words_in(entries, index);
            if (any_bit_set(words)) {
                observer.state_written(first_of_chunk + index, 0, words);
            }
        }
        first_of_chunk += entries_in_chunk;
    }
}

std::size_t state_memory::memory_bytes() const
{
    return chunks_.size() * sizeof(std::atomic<line *>) + bytes_.load();
}

void write_words(state_words words, const void *bytes, std::uint32_t length)
{
    const auto *from = static_cast<const unsigned char *>(bytes);
    const std::uint32_t whole = length / 4;
    for (std::uint32_t index = 0; index < whole; ++index) {
        std::uint32_t word = 0;
        std::memcpy(&word, from + std::size_t{index} * 4, 4);
        words[index].store(word, std::memory_order_relaxed);
    }
    if (length % 4 == 0) {
        return;
    }
    // The rest of the last word may change meanwhile.
    std::uint32_t old = words[whole].load(std::memory_order_relaxed);
    std::uint32_t changed = old;
    do {
        changed = old;
        std::memcpy(&changed, from + std::size_t{whole} * 4, length % 4);
    } while (!words[whole].compare_exchange_weak(old, changed, std::memory_order_relaxed));
}

void read_words(state_words words, void *bytes, std::uint32_t length)
{
    auto *to = static_cast<unsigned char *>(bytes);
    for (std::uint32_t done = 0; done < length; done += 4) {
        const std::uint32_t word = words[done / 4].load(std::memory_order_relaxed);
        std::memcpy(to + done, &word, length - done < 4 ? length - done : 4);
    }
}

} // namespace olv_sim
