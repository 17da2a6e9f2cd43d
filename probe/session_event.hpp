/**
 * @file session_event.hpp
 * What happened to the clocks or to the reflector during a run.
 */
#ifndef OLV_PROBE_SESSION_EVENT_HPP
#define OLV_PROBE_SESSION_EVENT_HPP

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace olv_probe {

/** What is noticed once and divides a run. */
struct session_event {
    enum class kind : std::uint8_t {
        sender_clock_set,    ///< By comparison of the wall clock and the monotonic one.
        reflector_clock_set, ///< By more than round trips allow.
        reflector_restart    ///< Its numbers began anew.
    };
    kind what;
    std::uint64_t sequence = 0;  ///< Of the first request after it.
    std::chrono::nanoseconds at; ///< When that was sent, since the run began.
    std::chrono::nanoseconds by; ///< How much a clock was set forward.
};

/** So many are kept of a session, the first ones. */
inline constexpr std::size_t maximum_events = 32;

/** As text for people: "this host's clock was set". */
[[nodiscard]] const char *text_of(session_event::kind what);
/** As a name for programs: "sender_clock_set". */
[[nodiscard]] const char *name_of(session_event::kind what);

} // namespace olv_probe

#endif
