/**
 * @file twamp_program.h
 * What the module's classifier program provides on a processor, and how its state memory is laid out: the
 * names, numbers and records on which the library, the platform and a fast path have to agree. C11 and C++;
 * nothing but types and constants, so that a fast path's own program can include it.
 */
#ifndef TWAMP_PROGRAM_H
#define TWAMP_PROGRAM_H

#include <stdint.h>

/** Namespace of responder IDs, for hyx_rsrc_find(). An ID also addresses its responder's state entry. */
#define TWAMP_RESPONDER_NAMESPACE "twamp_responder"
/** Namespace of reflector sessions. */
#define TWAMP_REFLECTOR_SESSION_NAMESPACE "twamp_reflector_session"

/** Tree function through which the module calls the IPv4 and the IPv6 module, for hyx_ptn_symbol_get_id(). */
#define TWAMP_TO_IP_DIRECT_IMC_FUNCTION "olv_twamp.twamp_to_ip_direct_imc"
/** Tree function of the indirect call to the IPv6 module. */
#define TWAMP_TO_IPV6_INDIRECT_IMC_FUNCTION "olv_twamp.twamp_to_ipv6_indirect_imc"
/** Tree function whose ID the framework gets with the module's service functions. */
#define TWAMP_LLI_PROCESSING_FUNCTION "olv_twamp.twamp_lli_processing"
/** Classifier tree of the responders: an entry's key is a responder ID. */
#define TWAMP_RESPONDER_LOOKUP_FUNCTION "olv_twamp.twamp_responder_lookup"
/** Classifier tree of the bindings: an entry's key is a bind key. */
#define TWAMP_BIND_TO_NEXT_MODULE_FUNCTION "olv_twamp.twamp_bind_to_next_module"

/** Key width of both classifier trees, in bits. */
#define TWAMP_KEY_BITS 24u

/** Return value, word 0 of the action, of a responder's entry: the responder is defined. */
#define TWAMP_ACTION_DEFINED 0u
/** Bits of that value that tell; bit 2 makes no difference. */
#define TWAMP_ACTION_DEFINED_MASK (~4u)
/** Return value of an entry that says that there is no such responder. */
#define TWAMP_ACTION_NOT_DEFINED 1u
/** Return value of a binding's entry: hand on to the entry point in word 1. */
#define TWAMP_ACTION_BOUND 1u

/** Namespace ID of the module's counters in state memory, where they begin with the words of
 *  olv_twamp_global_stats, big-endian. */
#define GLOBAL_STATS_NS_ID 0x7008C1u
/** Their index. */
#define GLOBAL_STATS_INDEX 0u
/** Their length in bytes. */
#define GLOBAL_STATS_LENGTH 128u

/**
 * State entry of a responder, 60 bytes. Every field is big-endian except `max_sessions`. Fields named reserved
 * are zero. The library writes the entry whole, at creation and deletion; in between the fast path counts.
 */
typedef struct twamp_responder_state {
    uint16_t param_a;           /**< 0: of olv_twamp_responder_info. */
    uint16_t constant_two;      /**< 2: #TWAMP_STATE_CONSTANT. */
    uint32_t param_b;           /**< 4: of olv_twamp_responder_info, with #TWAMP_STATE_WRITTEN. */
    uint32_t creation_count;    /**< 8: of the module, with this creation. */
    uint32_t reserved_12;       /**< 12 */
    uint32_t ntp_seconds;       /**< 16: wall clock of the creation, NTP format (RFC 5905 section 6). */
    uint32_t ntp_fraction;      /**< 20: in units of about 2^-32 seconds. */
    uint32_t timer_high;        /**< 24: timer reading taken right after that instant. */
    uint32_t timer_low;         /**< 28 */
    uint32_t received;          /**< 32: packets received. The fast path counts 32 to 48. */
    uint32_t transmitted;       /**< 36: packets reflected. */
    uint32_t active_sessions;   /**< 40: sessions at this moment. */
    uint32_t drop_length_check; /**< 44: packets dropped because the length check failed. */
    uint32_t drop_max_sessions; /**< 48: packets dropped because the maximum number of sessions was reached. */
    uint32_t max_sessions;      /**< 52: in the control processor's own byte order. */
    uint32_t reserved_56;       /**< 56 */
} twamp_responder_state;

/** Value of twamp_responder_state::constant_two. */
#define TWAMP_STATE_CONSTANT 2u
/** Bit 31 of twamp_responder_state::param_b: the entry is written. */
#define TWAMP_STATE_WRITTEN 0x80000000u
/** Value of twamp_responder_state::max_sessions at creation. */
#define TWAMP_DEFAULT_MAX_SESSIONS 32u
/** Seconds from 1900, where NTP counts from, to 1970. */
#define TWAMP_NTP_UNIX_OFFSET 2208988800u

#endif
