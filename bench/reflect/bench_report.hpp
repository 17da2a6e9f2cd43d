/**
 * @file bench_report.hpp
 * What was measured, as a table and as JSON.
 */
#ifndef REFLECT_BENCH_BENCH_REPORT_HPP
#define REFLECT_BENCH_BENCH_REPORT_HPP

#include <ostream>
#include <vector>

#include "comparison.hpp"
#include "scaling.hpp"

namespace reflect_bench {

void write_heading(std::ostream &out, const bench_options &options, const core_choice &cores);
/** A line for each server, and one for each target. */
void write_case(std::ostream &out, const case_figures &figures);
void write_json(std::ostream &out, const std::vector<case_figures> &cases, const bench_options &options,
                const core_choice &cores);

/** A line for each crew, the ratios, the targets. */
void write_scaling(std::ostream &out, const scaling_figures &figures, std::size_t cores);
void write_scaling_json(std::ostream &out, const scaling_figures &figures, std::size_t cores);

} // namespace reflect_bench

#endif
