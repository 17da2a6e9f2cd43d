/**
 * @file difference.hpp
 * How a fuzz target says that something is not as it should be.
 */
#ifndef OLV_FUZZ_DIFFERENCE_HPP
#define OLV_FUZZ_DIFFERENCE_HPP

#include <cstdio>
#include <cstdlib>
#include <string>

namespace olv_fuzz {

/** Whoever sets this wants to see a difference: the first one ends the process with success. */
inline bool difference_is_expected = false;

/** Write @p what to standard error and end the process; a fuzzer takes that for a crash and keeps the input. */
[[noreturn]] inline void report_difference(const std::string &what)
{
    (void)std::fprintf(stderr, "difference: %s\n", what.c_str());
    if (difference_is_expected) {
        std::_Exit(EXIT_SUCCESS);
    }
    std::abort();
}

template <typename Text> void require(bool holds, const Text &what)
{
    if (!holds) {
        report_difference(what);
    }
}

} // namespace olv_fuzz

#endif
