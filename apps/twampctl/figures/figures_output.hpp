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

#include <string>

#include "apps/twampctl/figures/figures.hpp"
#include "apps/twampctl/figures/output_format.hpp"

namespace twampctl {

/** JSON of a member is the value of the field of that name in the whole. Prometheus of everything is without
 * the sessions, each of which would be a time series of its own. */
[[nodiscard]] std::string format(const figures_part &part, output_format as);

} // namespace twampctl

#endif
