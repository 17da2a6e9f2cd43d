// The CPU services of the IPv4 and the IPv6 module.
#ifndef OLV_SIM_ENTRY_POINTS_HPP
#define OLV_SIM_ENTRY_POINTS_HPP

namespace olv_sim::entry_points {

/** Counted: the entries are there while anyone needs them. */
void install();
void remove();

} // namespace olv_sim::entry_points

#endif
