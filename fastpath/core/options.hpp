/**
 * @file options.hpp
 * What a fast path is told: which packets it answers, and how.
 */
#ifndef OLV_FASTPATH_OPTIONS_HPP
#define OLV_FASTPATH_OPTIONS_HPP

#include <cstddef>
#include <cstdint>
#include <optional>

#include "fastpath/core/system_clock.hpp"
#include "net/address_prefix.hpp"
#include "net/twamp_wire.hpp"

namespace olv_fastpath {

/** The sequence number of a reply. */
enum class stamp_mode : std::uint8_t {
    stateful, ///< The session's own.
    stateless ///< The request's. There are no sessions, and nothing is kept of a sender.
};

/** What the times of replies follow. */
enum class time_source : std::uint8_t {
    system, ///< The system's clock, as far as the processor's timer runs beside it.
    state   ///< Each responder's state entry and the timer alone.
};

struct fast_path_options {
    static constexpr std::uint32_t most_sessions = 1u << 24;
    static constexpr std::uint32_t most_workers = 64;

    // Replies and sessions.
    stamp_mode mode = stamp_mode::stateful;
    std::uint32_t refwait_seconds = 900;     ///< A session without a packet for so long ends.
    std::uint32_t session_grace_seconds = 5; ///< One without a packet for so long gives way to a new one.
    std::uint32_t session_capacity = 65536;  ///< Of all responders together; at most most_sessions.
    /** Octets; shorter requests are dropped, below 14 is taken as 14. From 41 on no reply is longer than its
     *  request, so that forged requests gain nothing. */
    std::size_t minimum_request = olv_net::sender_packet::header_length;
    time_source clock = time_source::system;
    system_clock_calls clock_calls{}; ///< Tests have clocks of their own.

    // Who is answered.
    olv_net::prefix_list allowed_sources{}; ///< Senders; empty: all.
    /** Well-known services answer at low ports. Nothing: those below 1024 are not answered, but for 862, where
     *  reflectors are. */
    std::optional<std::uint16_t> minimum_source_port{};
    bool answer_groups = false;           ///< What was sent to a group, or to all hosts, as well.
    std::uint32_t packets_per_second = 0; ///< Of each responder, wherever they come in; 0: no limit.
    /** Of a session's requests without a plausible time stamp: within a day of now, or rising. Whatever answers
     *  without being a reflector is slowed by it, and where there are no sessions, an address. 0: no limit. */
    std::uint32_t unstamped_packets_per_second = 100;

    // Sockets.
    std::size_t longest_datagram = 65535; ///< Octets, 44 at least; no UDP payload is longer.
    std::uint32_t workers = 1;            ///< Threads; 0 is taken as 1, more than most_workers as that.
    /** How long a worker looks for the next packet before it sleeps, as long as packets come at such intervals;
     *  0: it sleeps at once. Packets that come more rarely find it asleep, so that a quiet reflector uses no
     *  processor time. The default is about what waking a thread takes. With one core workers sleep at once. */
    std::uint32_t busy_poll_microseconds = 20;
    bool separate_requests = false; ///< Receive requests one by one, even where the system has merged them.
    bool separate_replies = false;  ///< Send replies one by one, not several as one segmented datagram.
};

} // namespace olv_fastpath

#endif
