/**
 * @file sequence.hpp
 * What an operation does in which order, as one text: the console with what happens between its lines.
 */
#ifndef OLV_TWAMP_TESTS_SEQUENCE_HPP
#define OLV_TWAMP_TESTS_SEQUENCE_HPP

#include <functional>
#include <string>

#include "harness.hpp"

namespace olv_test {

/**
 * The console text of an operation; each of these stands, as a line of its own, where it happens:
 *  <trace 8>, <trace 8, initialised>   an event of that level, and whether the module is initialised then
 *  <forced error>                      an event without a handle
 *  <hyx_gettime>                       the call
 *  <hyx_nvm_free>                      the call
 * @param freed  Runs before a block is freed, while it can still be looked at.
 */
[[nodiscard]] std::string sequence_of(bench &b, const std::function<std::uint32_t()> &operation,
                                      const std::function<void(const void *block)> &freed = {});

} // namespace olv_test

#endif
