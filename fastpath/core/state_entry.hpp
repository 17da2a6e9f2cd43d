/**
 * @file state_entry.hpp
 * The words of state memory that the reflector reads and counts in, and the counting.
 */
#ifndef OLV_FASTPATH_STATE_ENTRY_HPP
#define OLV_FASTPATH_STATE_ENTRY_HPP

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "net/twamp_wire.hpp"
#include "olv_sim/processor.hpp"

namespace olv_fastpath {

/** Words of a responder's state entry, by the byte that they begin at. */
namespace responder_word {
inline constexpr std::size_t flags = 4 / 4; ///< Bit 31: the entry is written.
inline constexpr std::size_t creation_count = 8 / 4;
inline constexpr std::size_t ntp_seconds = 16 / 4;
inline constexpr std::size_t ntp_fraction = 20 / 4;
inline constexpr std::size_t ticks_high = 24 / 4;
inline constexpr std::size_t ticks_low = 28 / 4;
inline constexpr std::size_t received = 32 / 4;
inline constexpr std::size_t transmitted = 36 / 4;
inline constexpr std::size_t active_sessions = 40 / 4;
inline constexpr std::size_t drop_length_check = 44 / 4;
inline constexpr std::size_t drop_max_sessions = 48 / 4;
inline constexpr std::size_t maximum_sessions = 52 / 4; ///< In host order, unlike all others.
} // namespace responder_word

inline constexpr std::uint32_t responder_written = 0x80000000u;
inline constexpr std::size_t responder_words = olv_sim::responder_state_length / 4;

/** Words of the global statistics block. */
namespace global_word {
inline constexpr std::size_t total_rx = 0;
inline constexpr std::size_t total_tx = 1;
inline constexpr std::size_t drop_no_responder = 2;
inline constexpr std::size_t drop_length_check = 3;
inline constexpr std::size_t drop_hash_error = 4;
inline constexpr std::size_t drop_no_bind = 5;
} // namespace global_word

inline constexpr std::size_t global_words = 6;

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
