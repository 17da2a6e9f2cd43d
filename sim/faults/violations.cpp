#include "olv_sim/violations.hpp"

#include <cstdio>
#include <mutex>

#include "sim/faults/report_violation.hpp"
#include "sim/process_wide.hpp"

namespace olv_sim::violations {
namespace {

struct breaches {
    std::mutex mutex;
    std::vector<std::string> list;
    bool echo = true;
};

breaches &the_breaches()
{
    return process_wide<breaches>();
}

} // namespace

void report(std::string breach)
{
    breaches &all = the_breaches();
    const std::lock_guard lock{all.mutex};
    if (all.echo) {
        (void)std::fprintf(stderr, "olv-sim: violation: %s\n", breach.c_str());
    }
    all.list.push_back(std::move(breach));
}

std::vector<std::string> list()
{
    breaches &all = the_breaches();
    const std::lock_guard lock{all.mutex};
    return all.list;
}

std::size_t count()
{
    breaches &all = the_breaches();
    const std::lock_guard lock{all.mutex};
    return all.list.size();
}

void clear()
{
    breaches &all = the_breaches();
    const std::lock_guard lock{all.mutex};
    all.list.clear();
}

void set_echo(bool on)
{
    breaches &all = the_breaches();
    const std::lock_guard lock{all.mutex};
    all.echo = on;
}

} // namespace olv_sim::violations
