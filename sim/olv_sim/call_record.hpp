/**
 * @file call_record.hpp
 * Platform calls in the order in which they were made.
 */
#ifndef OLV_SIM_CALL_RECORD_HPP
#define OLV_SIM_CALL_RECORD_HPP

#include <cstdint>
#include <string>
#include <vector>

#include "olv_sim/calls.hpp"

namespace olv_sim {

/** A platform call that was made. */
struct recorded_call {
    call which;            ///< The call.
    std::string arguments; ///< As text, comma-separated, such as "rte=1, tree=0x101, key=0x000001/24, ...".
    std::uint32_t result;  ///< Status returned; 0 for calls that return none.
    bool injected;         ///< A fault made it fail.
};

/** The process's call record. */
namespace call_record {

/** Forget what was recorded and record calls of these kinds from now on (a sum of call_kind values). */
void start(unsigned kinds = static_cast<unsigned>(call_kind::service));
/** Record no more; what was recorded stays. */
void stop();
/** The recorded calls, in the order in which they were made. */
[[nodiscard]] std::vector<recorded_call> calls();
/** The recorded names alone, in order. */
[[nodiscard]] std::vector<std::string> names();

} // namespace call_record

} // namespace olv_sim

#endif
