// What is measured: the library's operations on a module of the software platform, with the console off and
// nobody listening to the tracer.
#ifndef OLV_BENCH_MEASURED_MODULE_HPP
#define OLV_BENCH_MEASURED_MODULE_HPP

#include <cstddef>
#include <cstdint>
#include <vector>

#include "olv_sim/framework.hpp"
#include "olv_sim/processor.hpp"
#include "olv_twamp.h"

namespace olv_bench {

/** A processor, a framework and an initialised module, and the arguments that operations are called with. */
class measured_module {
  public:
    /** @param responders  How many there may be, and binds. @throw std::runtime_error  The library refuses. */
    explicit measured_module(std::uint32_t responders);
    ~measured_module();
    measured_module(const measured_module &) = delete;
    measured_module &operator=(const measured_module &) = delete;

    olv_sim::processor processor;
    olv_sim::framework framework;
    olv_module_handle *const module;

    // Arguments.
    const olv_twamp_responder_info info{0x1234, 0x5678};
    std::vector<twamp_responder_handle *> responders;
    twamp_responder_handle **slot = responders.data(); ///< Of the responder that is created, read or deleted.
    olv_twamp_responder_stats stats{};
    std::uint32_t bind_key = 0;
    const olv_bind_info request; ///< Of a bind or unbind with that key.
    std::uint32_t imc = 0;

    // What the library has found out at init, or counts: whoever makes its platform calls needs it as well.
    std::uint32_t responder_namespace = 0;
    std::uint32_t responder_tree = 0;
    std::uint32_t bind_tree = 0;
    std::uint32_t imc_tree = 0;
    std::uint32_t created = 0;

    /** Let the next operations be called with this responder, and with a bind key of the same number. */
    void select(std::size_t index)
    {
        slot = &responders[index];
        bind_key = static_cast<std::uint32_t>(index);
    }

    /** Free the records of deleted responders: they belong to who created them. */
    void free_records();
};

struct operation {
    const char *name;
    std::uint32_t (*run)(measured_module &); ///< @return Status.
};

namespace library {

inline constexpr operation create{
    "create", [](measured_module &m) { return olv_twamp_responder_create(m.module, &m.info, m.slot); }};
inline constexpr operation statistics{"statistics", [](measured_module &m) {
                                          return olv_twamp_responder_stats_get(m.module, *m.slot, &m.stats);
                                      }};
inline constexpr operation remove{
    "delete", [](measured_module &m) { return olv_twamp_responder_delete(m.module, *m.slot); }};
inline constexpr operation bind{
    "bind", [](measured_module &m) { return olv_twamp_custom_bind(m.framework.system(), &m.request); }};
inline constexpr operation lookup{
    "lookup", [](measured_module &m) { return olv_twamp_get_imc(m.module, &m.request, &m.imc); }};
inline constexpr operation unbind{
    "unbind", [](measured_module &m) { return olv_twamp_custom_unbind(m.framework.system(), &m.request); }};

/** In an order in which each finds what it needs. */
inline constexpr operation operations[] = {create, statistics, remove, bind, lookup, unbind};

} // namespace library
} // namespace olv_bench

#endif
