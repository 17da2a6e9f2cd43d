#include "cores.hpp"

#include <ctime>
#include <stdexcept>
#include <string>

#include <pthread.h>

namespace olv_bench {
namespace {

double seconds_of(clockid_t clock)
{
    std::timespec now{};
    (void)clock_gettime(clock, &now); // cannot fail: the clock exists
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

} // namespace

std::vector<int> usable_cores()
{
    cpu_set_t set{};
    std::vector<int> cores;
    if (sched_getaffinity(0, sizeof set, &set) != 0) {
        return cores;
    }
    for (int core = 0; core < CPU_SETSIZE; ++core) {
        if (CPU_ISSET(core, &set)) {
            cores.push_back(core);
        }
    }
    return cores;
}

core_choice choose_cores(const std::vector<int> &usable)
{
    if (usable.empty()) {
        return {};
    }
    return {.server = usable.front(), .generator = usable.size() > 1 ? usable[1] : usable.front()};
}

pinned::pinned(std::optional<int> core)
{
    if (pthread_getaffinity_np(pthread_self(), sizeof before_, &before_) != 0) {
        throw std::runtime_error("cannot tell which cores may be used");
    }
    cpu_set_t set = before_;
    if (core) {
        CPU_ZERO(&set);
        CPU_SET(*core, &set);
    }
    if (pthread_setaffinity_np(pthread_self(), sizeof set, &set) != 0) {
        throw std::runtime_error("cannot use core " + std::to_string(core.value_or(-1)));
    }
}

pinned::~pinned()
{
    (void)pthread_setaffinity_np(pthread_self(), sizeof before_, &before_); // was possible before
}

double seconds_of_other_threads()
{
    return seconds_of(CLOCK_PROCESS_CPUTIME_ID) - seconds_of(CLOCK_THREAD_CPUTIME_ID);
}

} // namespace olv_bench
