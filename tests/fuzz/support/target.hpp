/**
 * @file target.hpp
 * What each fuzz target defines.
 */
#ifndef OLV_FUZZ_TARGET_HPP
#define OLV_FUZZ_TARGET_HPP

#include <cstddef>
#include <cstdint>
#include <map>
#include <string_view>

/** Run one input. @return 0. */
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace olv_fuzz {

/** What a test can make wrong of the target's expectations, by name, to see that it notices. */
extern const std::map<std::string_view, void (*)()> expectation_changes;

} // namespace olv_fuzz

#endif
