/**
 * @file signal_watch.hpp
 * Signals as something to poll for.
 */
#ifndef OLV_APPS_SIGNAL_WATCH_HPP
#define OLV_APPS_SIGNAL_WATCH_HPP

#include <chrono>
#include <csignal>
#include <initializer_list>
#include <optional>

#include "net/descriptor.hpp"

namespace olv_apps {

/** Blocks the signals while it lives, so that none is lost between two waits. Make it before any thread is
 *  started: threads inherit the mask. */
class signal_watch {
  public:
    explicit signal_watch(std::initializer_list<int> signals = {SIGINT, SIGTERM});

    /** Readable once a signal came; -1 when there is none because of an error. */
    [[nodiscard]] int descriptor() const { return descriptor_.number(); }
    /** Wait for a signal, without a limit or for this long. @return Whether one came. */
    [[nodiscard]] bool wait(std::optional<std::chrono::nanoseconds> limit) const;
    /** Whether one has come. */
    [[nodiscard]] bool arrived() const { return wait(std::chrono::nanoseconds::zero()); }
    /** Forget the signals that have come. @return The last one's number; 0 when none had. */
    int take() const;

  private:
    olv_net::descriptor descriptor_;
};

} // namespace olv_apps

#endif
