/**
 * @file figures_output.hpp
 * Figures as text for people, as JSON, and in Prometheus' text format. docs/metrics.md lists every field and
 * metric.
 *
 * The text is at most 80 columns wide; only the name of a single responder, printed whole, can make a line
 * longer. Names are the user's: they are escaped in every format, and what is not UTF-8 in them is replaced by
 * U+FFFD.
 */
#ifndef OLV_TWAMPCTL_FIGURES_OUTPUT_HPP
#define OLV_TWAMPCTL_FIGURES_OUTPUT_HPP

#include <optional>
#include <string>
#include <vector>

#include "apps/twampctl/figures/figures.hpp"
#include "apps/twampctl/figures/output_format.hpp"

namespace twampctl {

/** Everything. Prometheus: without the sessions, each of which would be a time series of its own. */
[[nodiscard]] std::string format(const figures &all, output_format as);

// What single commands print: in JSON, the value of the field of that name in the whole.
[[nodiscard]] std::string format(const std::optional<olv_twamp_global_stats> &module, output_format as);
[[nodiscard]] std::string format(const responder_figures &responder, output_format as);
[[nodiscard]] std::string format(const std::vector<responder_figures> &responders, output_format as);
[[nodiscard]] std::string format(const std::vector<listener_figures> &listeners, output_format as);
[[nodiscard]] std::string format(const std::vector<session_figures> &sessions, output_format as);
[[nodiscard]] std::string format(const platform_usage &usage, output_format as);

} // namespace twampctl

#endif
