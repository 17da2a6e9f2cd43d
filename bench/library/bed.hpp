// What is measured: the library's operations on a module of the software platform, with the console off and
// nobody listening to the tracer.
#ifndef OLV_TWAMP_BENCH_LIBRARY_BED_HPP
#define OLV_TWAMP_BENCH_LIBRARY_BED_HPP

#include <cstdint>

#include "olv_sim.hpp"
#include "olv_twamp.h"

namespace olv_bench {

/** A processor, a framework and an initialised module. The members below the module are what the operations are
 *  called with. */
class bed {
  public:
    /** @param responders  How many can be there at the same time. */
    explicit bed(std::uint32_t responders);
    ~bed();
    bed(const bed &) = delete;
    bed &operator=(const bed &) = delete;

    olv_sim::processor processor;
    olv_sim::framework framework;
    olv_module_handle *const module;

    const olv_twamp_responder_info info{0x1234, 0x5678};
    twamp_responder_handle *responder = nullptr;
    olv_twamp_responder_stats stats{};
    const std::uint32_t bind_key = 0x00ABCDEF;
    const olv_bind_info request;
    std::uint32_t imc = 0;
};

/** An operation of the library with the arguments of a bed. */
struct operation {
    const char *name;
    std::uint32_t (*run)(bed &);
};

/** In an order in which each finds what it needs: a responder before its deletion, a bind before its removal.
 * The deletion leaves the record, which is its caller's. */
inline constexpr operation operations[] = {
    {"create", [](bed &b) { return olv_twamp_responder_create(b.module, &b.info, &b.responder); }},
    {"statistics", [](bed &b) { return olv_twamp_responder_stats_get(b.module, b.responder, &b.stats); }},
    {"delete", [](bed &b) { return olv_twamp_responder_delete(b.module, b.responder); }},
    {"bind", [](bed &b) { return olv_twamp_custom_bind(b.framework.system(), &b.request); }},
    {"lookup", [](bed &b) { return olv_twamp_get_imc(b.module, &b.request, &b.imc); }},
    {"unbind", [](bed &b) { return olv_twamp_custom_unbind(b.framework.system(), &b.request); }},
};

} // namespace olv_bench

#endif
