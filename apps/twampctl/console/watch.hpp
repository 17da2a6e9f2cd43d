/**
 * @file watch.hpp
 * Figures as they change, on the terminal.
 */
#ifndef OLV_TWAMPCTL_WATCH_HPP
#define OLV_TWAMPCTL_WATCH_HPP

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

#include "apps/common/signal_watch.hpp"
#include "apps/twampctl/figures/figures.hpp"
#include "apps/twampctl/figures/output_format.hpp"

namespace twampctl {

struct watch_options {
    std::chrono::nanoseconds interval{1'000'000'000};
    std::optional<std::uint32_t> count; ///< Intervals; nothing: until a signal or the end.
    std::optional<std::chrono::nanoseconds> duration;
    output_format format = output_format::text; ///< Other than text: all figures each time.
};

/** Show the figures after each interval: redrawn in place on a terminal that can, a line each elsewhere.
 *  @return Whether a signal ended it. */
bool watch(const std::function<figures()> &collect, const olv_apps::signal_watch &signals,
           const watch_options &options);

} // namespace twampctl

#endif
