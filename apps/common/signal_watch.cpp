#include "apps/common/signal_watch.hpp"

#include <algorithm>
#include <cerrno>
#include <climits>

#include <poll.h>
#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace olv_apps {
namespace {

/** nohup has programs go on after a hangup. */
bool is_ignored_hangup(int signal)
{
    struct sigaction action {};
    return signal == SIGHUP && sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

} // namespace

signal_watch::signal_watch(std::initializer_list<int> signals)
{
    sigset_t watched{};
    (void)sigemptyset(&watched); // these calls fail for unknown signals only
    for (const int each : signals) {
        if (!is_ignored_hangup(each)) {
            (void)sigaddset(&watched, each);
        }
    }
    if (pthread_sigmask(SIG_BLOCK, &watched, nullptr) == 0) {
        descriptor_ = olv_net::descriptor{signalfd(-1, &watched, SFD_CLOEXEC | SFD_NONBLOCK)};
    }
}

bool signal_watch::wait(std::optional<std::chrono::nanoseconds> limit) const
{
    using clock = std::chrono::steady_clock;
    const clock::time_point start = clock::now();
    for (;;) {
        int milliseconds = -1;
        if (limit) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(*limit - (clock::now() - start));
            milliseconds = static_cast<int>(std::clamp<long long>(left.count(), 0, INT_MAX));
        }
        pollfd watched{.fd = descriptor(), .events = POLLIN, .revents = 0};
        const int ready = poll(&watched, 1, milliseconds);
        if (ready > 0) {
            return true;
        }
        if (ready < 0 && errno != EINTR) {
            return true; // unable to wait: end rather than run for ever
        }
        if (limit && clock::now() - start >= *limit) {
            return false;
        }
    }
}

int signal_watch::take() const
{
    int last = 0;
    signalfd_siginfo signal{};
    while (read(descriptor(), &signal, sizeof signal) == sizeof signal) {
        last = static_cast<int>(signal.ssi_signo);
    }
    return last;
}

} // namespace olv_apps
