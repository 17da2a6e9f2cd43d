/**
 * @file run.hpp
 * "twampctl run": a module that answers packets until a signal or the end of a duration, then tells and takes
 * down.
 */
#ifndef OLV_TWAMPCTL_RUN_HPP
#define OLV_TWAMPCTL_RUN_HPP

#include "apps/twampctl/run/run_options.hpp"

namespace twampctl {

/** @return The status to exit with. */
[[nodiscard]] int run(const run_options &options);

} // namespace twampctl

#endif
