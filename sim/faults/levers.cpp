#include "olv_sim.hpp"

namespace olv_sim {

void reset_levers()
{
    faults::clear_all();
    call_record::stop();
    call_record::start(0);
    call_record::stop();
    violations::clear();
    violations::set_echo(true);
    tracer::set_sink(nullptr);
    set_wall_clock(std::nullopt);
}

} // namespace olv_sim
