/**
 * @file process.hpp
 * What the process has once, and how tests and scripts begin anew.
 */
#ifndef OLV_SIM_PROCESS_HPP
#define OLV_SIM_PROCESS_HPP

#include <optional>

#include "hyx.h"

namespace olv_sim {

/** Make hyx_gettime() return this instant; nothing: the wall clock. */
void set_wall_clock(std::optional<hyx_time> instant);

/** Put back what the process has once: no faults, no record, no violations, no trace sink, the wall clock. */
void reset_process();

} // namespace olv_sim

#endif
