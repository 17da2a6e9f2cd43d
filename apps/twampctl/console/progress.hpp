/**
 * @file progress.hpp
 * What was done, a line a step.
 */
#ifndef OLV_TWAMPCTL_PROGRESS_HPP
#define OLV_TWAMPCTL_PROGRESS_HPP

#include <cstdio>

namespace twampctl {

/** Write a line of progress. */
[[gnu::format(printf, 1, 2)]] void say(const char *format, ...);

/** Where progress goes from now on: standard output at first; NULL: nowhere. */
void say_to(std::FILE *stream);

} // namespace twampctl

#endif
