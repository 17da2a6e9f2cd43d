/**
 * @file difference.hpp
 * How a fuzz target says that something is not as it should be.
 */
#ifndef OLV_FUZZ_DIFFERENCE_HPP
#define OLV_FUZZ_DIFFERENCE_HPP

#include <string>

namespace olv_fuzz {

/** Write @p what to standard error and end the process; a fuzzer takes that for a crash and keeps the input.
 *  A replay that looks for differences ends with success instead. */
[[noreturn]] void report_difference(const std::string &what);

/** Have the first difference end the process with success: whoever sets this wants to see one. */
void expect_a_difference();

} // namespace olv_fuzz

#endif
