// Objects that a process has once.
#ifndef OLV_SIM_PROCESS_WIDE_HPP
#define OLV_SIM_PROCESS_WIDE_HPP

namespace olv_sim {

/** The process's object of a type, made when it is first asked for. It is never destroyed: processors and
 *  frameworks with static storage go when the process ends, after whatever was made later than they. */
template <typename Object> Object &process_wide()
{
    static auto *const one = new Object;
    return *one;
}

} // namespace olv_sim

#endif
