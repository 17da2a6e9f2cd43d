/**
 * @file statuses.hpp
 * What the software platform itself returns.
 */
#ifndef OLV_SIM_STATUSES_HPP
#define OLV_SIM_STATUSES_HPP

#include <cstdint>

namespace olv_sim {

/** Error codes of the software runtime environment; hyx_status_get() has a text for each. */
enum rte_status : std::uint32_t {
    rte_ok = 0,                         ///< Success.
    rte_invalid_instance = 0x101,       ///< No processor has this rte_handle.
    rte_null_pointer = 0x102,           ///< A required pointer is NULL.
    rte_invalid_semaphore = 0x103,      ///< No semaphore has this handle.
    rte_semaphore_not_held = 0x104,     ///< Post without a wait.
    rte_invalid_timer = 0x105,          ///< No timer has this number.
    rte_no_such_namespace = 0x106,      ///< No namespace has this name or handle.
    rte_namespace_exhausted = 0x107,    ///< Not so many resources left, in a row.
    rte_resource_not_allocated = 0x108, ///< Not all of the resources are allocated.
    rte_no_such_tree = 0x109,           ///< No tree has this name or ID.
    rte_invalid_pattern = 0x10A,        ///< Freed or foreign pattern, or not of the tree's key width.
    rte_duplicate_entry = 0x10B,        ///< The tree has an entry of this key.
    rte_no_such_entry = 0x10C,          ///< The tree has no entry of this key.
    rte_no_such_state = 0x10D,          ///< No state entry at this namespace ID and index.
    rte_state_length = 0x10E,           ///< Longer than the state entry, or 0.
    rte_invalid_count = 0x10F,          ///< A count that the call does not take.
    rte_injected = 0x1FF                ///< Default code of a planned fault.
};

/** Framework statuses of the software framework's own services (module number 2). */
enum framework_status : std::uint32_t {
    framework_invalid_handle = 0x20001,   ///< Not a module or system record of a framework.
    framework_null_pointer = 0x20002,     ///< A required pointer is NULL.
    framework_not_registered = 0x20003,   ///< Update or use of service functions that are not there.
    framework_invalid_width = 0x20004,    ///< Pattern or field width 0 or too large.
    framework_pattern_overflow = 0x20005, ///< Extended beyond the pattern's width.
    framework_invalid_pattern = 0x20006,  ///< Freed or foreign pattern.
    framework_no_pattern = 0x20007,       ///< No pattern left.
    framework_injected = 0x201FF          ///< Default code of a planned fault.
};

} // namespace olv_sim

#endif
