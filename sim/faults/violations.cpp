#include "olv_sim/violations.hpp"

#include <cstdio>

#include "sim/faults/report_violation.hpp"
#include "sim/process_wide.hpp"

namespace olv_sim::violations {
namespace {

struct breaches {
    std::vector<std::string> list;
    bool echo = true;
};

} // namespace

void report(std::string breach)
{
    const locked<breaches> all;
    if (all->echo) {
        (void)std::fprintf(stderr, "olv-sim: violation: %s\n", breach.c_str());
    }
    all->list.push_back(std::move(breach));
}

std::vector<std::string> list()
{
    return locked<breaches>()->list;
}

std::size_t count()
{
    return locked<breaches>()->list.size();
}

void clear()
{
    locked<breaches>()->list.clear();
}

void set_echo(bool on)
{
    locked<breaches>()->echo = on;
}

} // namespace olv_sim::violations
