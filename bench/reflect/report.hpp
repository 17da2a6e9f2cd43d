/**
 * @file report.hpp
 * What was measured, in the form of Google Benchmark's reports: bench/report.py reads both.
 */
#ifndef OLV_BENCH_REPORT_HPP
#define OLV_BENCH_REPORT_HPP

#include <map>
#include <string>
#include <vector>

namespace olv_bench {

/** One measurement. */
struct run {
    std::string name;                      ///< What was measured, in words with "/" between them.
    std::map<std::string, double> figures; ///< By name.
};

/** Runs with the same name are repetitions. @param quick  The figures say nothing. */
[[nodiscard]] std::string report_text(const std::vector<run> &runs, bool quick);
/** @param file  Its name; empty: standard output, which is closed then. @throw std::runtime_error  It cannot be
 * written. */
void write_report(const std::string &file, const std::vector<run> &runs, bool quick);

} // namespace olv_bench

#endif
