/**
 * @file faults.hpp
 * Platform calls that fail when they are told to.
 */
#ifndef OLV_SIM_FAULTS_HPP
#define OLV_SIM_FAULTS_HPP

#include <cstdint>
#include <optional>

#include "olv_sim/calls.hpp"

namespace olv_sim {

/** When and how a call fails. */
struct fault {
    static constexpr std::uint32_t forever = UINT32_MAX; ///< `count` of a fault that does not end.

    std::uint32_t code = 0;  ///< What a call that returns a status returns; 0: its usual_code().
    std::uint32_t skip = 0;  ///< Calls that succeed first.
    std::uint32_t count = 1; ///< Calls that fail then, or `forever`.
};

/** The process's fault plan. Off, a call pays one relaxed load for it and the call record together. */
namespace faults {

/** Plan a fault for one call, replacing the one it had. @return false when the call cannot fail. */
bool set(call which, const fault &plan);
/**
 * Plan a fault for whatever call comes: calls that can fail are counted together, in the order in which
 * they are made. olv_lttng_fn_ptr_get, which comes with every message, is left out. Beside it, faults of single
 * calls stay in force.
 */
void set_any(const fault &plan);
/** A further fault beside that of set_any(), with a count of its own over the same calls. */
void add_any(const fault &plan);
/** Take one call's fault out of the plan. */
void clear(call which);
/** Take every fault out of the plan. */
void clear_all();
/** The planned fault as it was set. */
[[nodiscard]] std::optional<fault> planned(call which);
/** How often the fault of this call has fired since it was set. */
[[nodiscard]] std::uint32_t hits(call which);
/** How often the faults of set_any() and add_any() have fired since the first of them was set. */
[[nodiscard]] std::uint32_t hits_of_any();
/** How many calls the fault of set_any() has counted since it was set. */
[[nodiscard]] std::uint32_t calls_of_any();

} // namespace faults

} // namespace olv_sim

#endif
