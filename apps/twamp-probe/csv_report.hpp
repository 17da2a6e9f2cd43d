/**
 * @file csv_report.hpp
 * Each packet of a run as a line of CSV.
 */
#ifndef OLV_PROBE_CSV_REPORT_HPP
#define OLV_PROBE_CSV_REPORT_HPP

#include <cstdio>
#include <string>
#include <vector>

#include "probe/measurement.hpp"

namespace olv_probe {

/** A session's packets. */
struct sender_packets {
    std::string address;
    const measurement *result;
};

/** A line of names, and one for each packet sent. */
void write_csv(std::FILE *output, const std::vector<sender_packets> &senders, std::uint64_t started);

} // namespace olv_probe

#endif
