/**
 * @file json_report.hpp
 * The figures of a run as JSON.
 */
#ifndef OLV_PROBE_JSON_REPORT_HPP
#define OLV_PROBE_JSON_REPORT_HPP

#include <string>

#include "apps/common/run_report.hpp"

namespace olv_probe {

/** One object and a newline. */
[[nodiscard]] std::string json_report(const run_report &report);

} // namespace olv_probe

#endif
