// The 60-byte state entry of a responder, as the fast path reads it.
#ifndef TWAMP_RESPONDER_STATE_HPP
#define TWAMP_RESPONDER_STATE_HPP

#include <cstddef>
#include <cstdint>

namespace twamp {

/** Every field is big-endian except `max_sessions`. Fields named reserved are zero. */
struct responder_state {
    uint16_t param_a;
    uint16_t constant_two;
    uint32_t param_b; ///< Bit 31 is set.
    uint32_t creation_count;
    uint32_t reserved_12;
    uint32_t ntp_seconds; ///< Wall clock of the creation, NTP format.
    uint32_t ntp_fraction;
    uint32_t timer_high; ///< Timer reading taken right after that instant.
    uint32_t timer_low;
    uint32_t received; ///< From here to `drop_max_sessions`: counted by the fast path.
    uint32_t transmitted;
    uint32_t active_sessions;
    uint32_t drop_length_check;
    uint32_t drop_max_sessions;
    uint32_t max_sessions; ///< In the host's own byte order: the fast path's program reads it so.
    uint32_t reserved_56;
};

static_assert(sizeof(responder_state) == 60);
static_assert(offsetof(responder_state, param_b) == 4);
static_assert(offsetof(responder_state, ntp_seconds) == 16);
static_assert(offsetof(responder_state, received) == 32);
static_assert(offsetof(responder_state, max_sessions) == 52);

inline constexpr uint16_t state_constant = 2;
inline constexpr uint32_t param_b_flag = 0x80000000;
inline constexpr uint32_t default_max_sessions = 32;

/** Seconds from 1900, where NTP counts from, to 1970. */
inline constexpr uint32_t ntp_epoch_offset = 2208988800;

/** NTP fraction of a second. Scale (2^32 - 1) and order of the products are fixed: others give other low bits.
 */
inline uint32_t ntp_fraction(long microseconds)
{
    return static_cast<uint32_t>(static_cast<double>(microseconds) * 1e-6 * 4294967295.0);
}

} // namespace twamp

#endif
