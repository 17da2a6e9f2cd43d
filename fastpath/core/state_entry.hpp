/**
 * @file state_entry.hpp
 * The words of state memory that the reflector reads and counts in, and the counting.
 */
#ifndef OLV_FASTPATH_STATE_ENTRY_HPP
#define OLV_FASTPATH_STATE_ENTRY_HPP

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "fastpath/core/drop_reasons.hpp"
#include "net/twamp_wire.hpp"
#include "olv_sim/processor.hpp"
#include "olv_twamp.h"
#include "twamp_program.h"

namespace olv_fastpath {

/** Words of a responder's state entry. */
namespace responder_word {
inline constexpr std::size_t flags = offsetof(twamp_responder_state, param_b) / 4;
inline constexpr std::size_t creation_count = offsetof(twamp_responder_state, creation_count) / 4;
inline constexpr std::size_t ntp_seconds = offsetof(twamp_responder_state, ntp_seconds) / 4;
inline constexpr std::size_t ntp_fraction = offsetof(twamp_responder_state, ntp_fraction) / 4;
inline constexpr std::size_t ticks_high = offsetof(twamp_responder_state, timer_high) / 4;
inline constexpr std::size_t ticks_low = offsetof(twamp_responder_state, timer_low) / 4;
inline constexpr std::size_t received = offsetof(twamp_responder_state, received) / 4;
inline constexpr std::size_t transmitted = offsetof(twamp_responder_state, transmitted) / 4;
inline constexpr std::size_t active_sessions = offsetof(twamp_responder_state, active_sessions) / 4;
inline constexpr std::size_t maximum_sessions = offsetof(twamp_responder_state, max_sessions) / 4;
} // namespace responder_word

inline constexpr std::size_t responder_words = sizeof(twamp_responder_state) / 4;

/** Words of the module's counters. */
namespace global_word {
inline constexpr std::size_t total_rx = offsetof(olv_twamp_global_stats, total_rx) / 4;
inline constexpr std::size_t total_tx = offsetof(olv_twamp_global_stats, total_tx) / 4;
} // namespace global_word

inline constexpr std::size_t global_words = sizeof(olv_twamp_global_stats) / 4;

/** The word of a record in state memory that counts a reason. */
template <typename Record, drop_reason Reason> [[nodiscard]] constexpr std::size_t drop_word()
{
#define OLV_WORD(name, text, counter)                                                                          \
    if constexpr (Reason == drop_reason::name) {                                                               \
        return offsetof(Record, drop_##name) / 4;                                                              \
    }
    OLV_DROP_REASONS(OLV_WORD)
#undef OLV_WORD
}

[[nodiscard]] inline std::uint32_t read_word(olv_sim::state_words words, std::size_t word)
{
    return olv_net::big_endian(words[word].load(std::memory_order_relaxed));
}

/** Two words, the upper one first. */
[[nodiscard]] inline std::uint64_t read_double_word(olv_sim::state_words words, std::size_t word)
{
    return std::uint64_t{read_word(words, word)} << 32 | read_word(words, word + 1);
}

/** Add; words are big-endian. The control side may clear the word meanwhile: a clear is never undone, hence no
 *  plain store. */
inline void count(olv_sim::state_words words, std::size_t word, std::uint32_t added = 1)
{
    if (added == 0) {
        return;
    }
    std::uint32_t stored = words[word].load(std::memory_order_relaxed);
    while (!words[word].compare_exchange_weak(stored, olv_net::big_endian(olv_net::big_endian(stored) + added),
                                              std::memory_order_relaxed)) {
    }
}

/** Count a packet that was dropped. */
template <typename Record, drop_reason Reason> void count_drop(olv_sim::state_words words)
{
    count(words, drop_word<Record, Reason>());
}

/** Add 1 to a word below a limit. @return Whether it was. */
[[nodiscard]] inline bool count_below(olv_sim::state_words words, std::size_t word, std::uint32_t limit)
{
    std::uint32_t stored = words[word].load(std::memory_order_relaxed);
    while (olv_net::big_endian(stored) < limit) {
        if (words[word].compare_exchange_weak(stored, olv_net::big_endian(olv_net::big_endian(stored) + 1),
                                              std::memory_order_relaxed)) {
            return true;
        }
    }
    return false;
}

/** Subtract 1, except from 0, to which the control side may have cleared the word. */
inline void count_down(olv_sim::state_words words, std::size_t word)
{
    std::uint32_t stored = words[word].load(std::memory_order_relaxed);
    while (stored != 0 &&
           !words[word].compare_exchange_weak(stored, olv_net::big_endian(olv_net::big_endian(stored) - 1),
                                              std::memory_order_relaxed)) {
    }
}

} // namespace olv_fastpath

#endif
