// The platform calls of the library's operations, alone: what an operation cannot do without.
#ifndef OLV_BENCH_PLATFORM_CALLS_HPP
#define OLV_BENCH_PLATFORM_CALLS_HPP

#include "measured_module.hpp"

namespace olv_bench::platform_calls {

// Each makes the platform calls of one operation, those to the tracer included, in the same order and with the
// same arguments, and does nothing else. It stores what a call hands out where later calls need it. It checks
// nothing: a refusal shows in the status.
std::uint32_t create(measured_module &m);
std::uint32_t statistics(measured_module &m);
std::uint32_t remove(measured_module &m);
std::uint32_t bind(measured_module &m);
std::uint32_t lookup(measured_module &m);
std::uint32_t unbind(measured_module &m);

/** In the order of `library::operations`. */
inline constexpr operation operations[] = {
    {"create", create}, {"statistics", statistics}, {"delete", remove},
    {"bind", bind},     {"lookup", lookup},         {"unbind", unbind},
};

} // namespace olv_bench::platform_calls

#endif
