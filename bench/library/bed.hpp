// What is measured: the library's operations on a module of the software platform, with the console off and
// nobody listening to the tracer.
#ifndef OLV_TWAMP_BENCH_LIBRARY_BED_HPP
#define OLV_TWAMP_BENCH_LIBRARY_BED_HPP

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "olv_sim/framework.hpp"
#include "olv_sim/processor.hpp"
#include "olv_twamp.h"

namespace olv_bench {

/** A processor, a framework and an initialised module. The members below the module are what the operations are
 *  called with. */
class bed {
  public:
    /** @param responders  How many there are at most, and binds. */
    explicit bed(std::uint32_t responders);
    ~bed();
    bed(const bed &) = delete;
    bed &operator=(const bed &) = delete;

    olv_sim::processor processor;
    olv_sim::framework framework;
    olv_module_handle *const module;

    const olv_twamp_responder_info info{0x1234, 0x5678};
    std::vector<twamp_responder_handle *> responders;
    twamp_responder_handle **slot = responders.data(); ///< Of the responder that is created, read or deleted.
    olv_twamp_responder_stats stats{};
    std::uint32_t bind_key = 0;
    const olv_bind_info request;
    std::uint32_t imc = 0;

    // What init found out, and what creation counts: known to the library, needed by the floors.
    std::uint32_t responder_ns = 0;
    std::uint32_t responder_tree = 0;
    std::uint32_t bind_tree = 0;
    std::uint32_t imc_tree = 0;
    std::uint32_t created = 0;

    /** From now on the operations are called with this responder, and with this bind. */
    void select(std::size_t index)
    {
        slot = &responders[index];
        bind_key = static_cast<std::uint32_t>(index);
    }

    /** Free the records of deleted responders, which are their creator's. */
    void free_records();
};

/** An operation with the arguments of a bed. */
struct operation {
    const char *name;
    std::uint32_t (*run)(bed &); ///< @return Status.
};

/** The library's, in an order in which each finds what it needs: a responder, then its deletion. */
inline constexpr operation operations[] = {
    {"create", [](bed &b) { return olv_twamp_responder_create(b.module, &b.info, b.slot); }},
    {"statistics", [](bed &b) { return olv_twamp_responder_stats_get(b.module, *b.slot, &b.stats); }},
    {"delete", [](bed &b) { return olv_twamp_responder_delete(b.module, *b.slot); }},
    {"bind", [](bed &b) { return olv_twamp_custom_bind(b.framework.system(), &b.request); }},
    {"lookup", [](bed &b) { return olv_twamp_get_imc(b.module, &b.request, &b.imc); }},
    {"unbind", [](bed &b) { return olv_twamp_custom_unbind(b.framework.system(), &b.request); }},
};

} // namespace olv_bench

#endif
