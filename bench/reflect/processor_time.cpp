#include "processor_time.hpp"

#include <ctime>

namespace reflect_bench {
namespace {

double seconds_of(clockid_t clock)
{
    std::timespec now{};
    (void)clock_gettime(clock, &now); // cannot fail: the clock exists
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

} // namespace

double others_seconds()
{
    return seconds_of(CLOCK_PROCESS_CPUTIME_ID) - seconds_of(CLOCK_THREAD_CPUTIME_ID);
}

} // namespace reflect_bench
