#include "time_of_day.hpp"

#include <ctime>
#include <mutex>
#include <sys/time.h>

namespace {

// The instant of gettimeofday(); nothing: the wall clock.
std::mutex fixed_time_mutex;
std::optional<olv_test::time_of_day> fixed_time;
std::function<void()> when_read;

} // namespace

// The library takes the time of day from the C library; in this program that is here.
extern "C" __attribute__((visibility("default"))) int gettimeofday(struct timeval *__restrict now,
                                                                   void *__restrict zone) noexcept
{
    const std::lock_guard lock{fixed_time_mutex};
    if (fixed_time) {
        now->tv_sec = static_cast<time_t>(fixed_time->seconds); // wraps in 2038 where time_t has 32 bits
        now->tv_usec = static_cast<suseconds_t>(fixed_time->microseconds);
        if (zone != nullptr) { // written after the time, as some kernels do
            *static_cast<struct timezone *>(zone) = {};
        }
        if (when_read) {
            when_read();
        }
        return 0;
    }
    timespec instant{};
    clock_gettime(CLOCK_REALTIME, &instant);
    now->tv_sec = instant.tv_sec;
    now->tv_usec = static_cast<suseconds_t>(instant.tv_nsec / 1000);
    return 0;
}

void olv_test::set_time_of_day(std::optional<time_of_day> instant, std::function<void()> read)
{
    const std::lock_guard lock{fixed_time_mutex};
    fixed_time = instant;
    when_read = std::move(read);
}
