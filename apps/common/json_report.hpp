/**
 * @file json_report.hpp
 * The figures of a run as JSON.
 */
#ifndef OLV_PROBE_JSON_REPORT_HPP
#define OLV_PROBE_JSON_REPORT_HPP

#include <string>

#include "apps/common/run_report.hpp"

namespace olv_probe {

/** One object and a newline. @param on_a_line  Whether all of it stands on a line. */
[[nodiscard]] std::string json_report(const run_report &report, bool on_a_line = false);
/** A line. @param started  When the run began, in nanoseconds since 1970. */
[[nodiscard]] std::string interval_json(const interval_figures &figures, std::uint64_t started);

} // namespace olv_probe

#endif
