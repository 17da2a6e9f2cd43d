#include "olv_sim/process.hpp"
#include "olv_sim/call_record.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/tracer.hpp"
#include "olv_sim/violations.hpp"

namespace olv_sim {

void reset_process()
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
