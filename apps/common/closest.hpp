/**
 * @file closest.hpp
 * The word that a misspelt one was meant to be.
 */
#ifndef OLV_TWAMPCTL_CLOSEST_HPP
#define OLV_TWAMPCTL_CLOSEST_HPP

#include <string>
#include <vector>

namespace twampctl {

/** @return "; did you mean 'the known word that differs least'?"; empty when none is near: two letters at most
 *  differ, and no more than half of the known word's. */
[[nodiscard]] std::string did_you_mean(const std::string &word, const std::vector<std::string> &known);

} // namespace twampctl

#endif
