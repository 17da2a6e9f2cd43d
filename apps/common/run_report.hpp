/**
 * @file run_report.hpp
 * The figures of a run, for the reports. docs/probe.md says what each of them means.
 */
#ifndef OLV_PROBE_RUN_REPORT_HPP
#define OLV_PROBE_RUN_REPORT_HPP

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "probe/interval_figures.hpp"
#include "probe/packet_stamps.hpp"
#include "probe/probe_figures.hpp"
#include "probe/session_options.hpp"

namespace olv_probe {

class probe;

struct sender_report {
    std::string address;
    probe_figures figures;
};

struct run_report {
    session_options options;
    std::uint64_t started = 0; ///< Nanoseconds since 1970.
    std::chrono::nanoseconds elapsed{0};
    timestamp_source timestamps = timestamp_source::user;
    stamp_counts stamps; ///< Of all senders.
    bool interrupted = false;
    bool refused = false; ///< A host on the way answered instead of the reflector.
    probe_figures total;
    std::vector<sender_report> senders;
};

/** After its run. */
[[nodiscard]] run_report report_of(const probe &sender, const session_options &options, bool complete);

/** Whether every packet sent came back and was measured; with strict judging, whether all that came was valid.
 */
[[nodiscard]] bool is_complete(const run_report &report);
/** "2026-11-22T22:35:01.123456Z". @param nanoseconds  Since 1970. */
[[nodiscard]] std::string utc_text(std::uint64_t nanoseconds);
/** "kernel". */
[[nodiscard]] const char *name_of(timestamp_source source);
[[nodiscard]] const char *name_of(packet_schedule schedule);

/** Reports are in microseconds. */
[[nodiscard]] inline double microseconds(double nanoseconds)
{
    return nanoseconds / 1000;
}
[[nodiscard]] inline double microseconds(std::int64_t nanoseconds)
{
    return microseconds(static_cast<double>(nanoseconds));
}

} // namespace olv_probe

#endif
