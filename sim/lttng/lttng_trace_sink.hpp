// What libolv-sim-lttng.so gives to libolv-sim.so, which loads it.
#ifndef OLV_SIM_LTTNG_TRACE_SINK_HPP
#define OLV_SIM_LTTNG_TRACE_SINK_HPP

#include "olv_sim/tracer.hpp"

namespace olv_sim::lttng {

inline constexpr const char *provider_file = "libolv-sim-lttng.so";
inline constexpr const char *make_sink_symbol = "olv_sim_lttng_make_sink";

/** The function behind make_sink_symbol. @return A new sink, the caller's to delete. */
using make_sink = trace_sink *();

} // namespace olv_sim::lttng

#endif
