// Reporting of contract breaches from inside the platform.
#ifndef OLV_SIM_REPORT_VIOLATION_HPP
#define OLV_SIM_REPORT_VIOLATION_HPP

#include <string>

namespace olv_sim::violations {

void report(std::string breach);

} // namespace olv_sim::violations

#endif
