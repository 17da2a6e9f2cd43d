// The records that living frameworks have made.
#ifndef OLV_SIM_RECORDS_HPP
#define OLV_SIM_RECORDS_HPP

#include <string>

namespace olv_sim {

/** The log name of a module or system record; empty where no framework has made the record. */
[[nodiscard]] std::string log_name_of(const void *record);

} // namespace olv_sim

#endif
