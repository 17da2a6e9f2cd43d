/**
 * @file target.hpp
 * What each fuzz target defines.
 */
#ifndef OLV_FUZZ_TARGET_HPP
#define OLV_FUZZ_TARGET_HPP

#include <cstddef>
#include <cstdint>
#include <string_view>

/** Run one input. @return 0. */
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace olv_fuzz {

/** Make one of the target's expectations wrong from now on. @return false when there is none of that name. */
bool change_expectation(std::string_view what);

} // namespace olv_fuzz

#endif
