/**
 * @file text_report.hpp
 * The figures of a run as text for people.
 */
#ifndef OLV_PROBE_TEXT_REPORT_HPP
#define OLV_PROBE_TEXT_REPORT_HPP

#include <string>

#include "apps/common/run_report.hpp"

namespace olv_probe {

/** "100 packets of 41 octets to 127.0.0.1:8620", with its newline: said before measuring. */
[[nodiscard]] std::string announcement(const session_options &options);
/** A line: what happened to the packets of an interval. */
[[nodiscard]] std::string interval_text(const interval_figures &figures);
/** What is rarely needed, and the summary last.
 *  @param picture  Lines between the two. */
[[nodiscard]] std::string text_report(const run_report &report, const std::string &picture = "");

} // namespace olv_probe

#endif
