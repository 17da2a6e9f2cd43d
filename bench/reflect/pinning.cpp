#include "pinning.hpp"

#include <stdexcept>
#include <string>

#include <pthread.h>

namespace reflect_bench {

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

pinned::pinned(int core)
{
    cpu_set_t set{};
    CPU_SET(core, &set);
    if (pthread_getaffinity_np(pthread_self(), sizeof before_, &before_) != 0 ||
        pthread_setaffinity_np(pthread_self(), sizeof set, &set) != 0) {
        throw std::runtime_error("cannot use core " + std::to_string(core));
    }
}

pinned::~pinned()
{
    (void)pthread_setaffinity_np(pthread_self(), sizeof before_, &before_); // was possible before
}

} // namespace reflect_bench
