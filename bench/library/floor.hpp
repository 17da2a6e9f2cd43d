// What the library's operations cannot do without: their platform calls.
#ifndef OLV_TWAMP_BENCH_LIBRARY_FLOOR_HPP
#define OLV_TWAMP_BENCH_LIBRARY_FLOOR_HPP

#include "bed.hpp"

namespace olv_bench::floors {

// Each makes the platform calls of an operation, in their order and with the same arguments, tracer included,
// and nothing else. What a call hands out goes where a later one needs it. Nothing is checked: any refusal is
// in the status.

std::uint32_t create(bed &b);
std::uint32_t statistics(bed &b);
std::uint32_t remove(bed &b);
std::uint32_t bind(bed &b);
std::uint32_t lookup(bed &b);
std::uint32_t unbind(bed &b);

} // namespace olv_bench::floors

namespace olv_bench {

/** The floor of each of `operations`. */
inline constexpr operation operation_floors[] = {
    {"create", floors::create}, {"statistics", floors::statistics}, {"delete", floors::remove},
    {"bind", floors::bind},     {"lookup", floors::lookup},         {"unbind", floors::unbind},
};

} // namespace olv_bench

#endif
