/**
 * @file closest.hpp
 * The word that a misspelt one was meant to be.
 */
#ifndef OLV_TWAMPCTL_CLOSEST_HPP
#define OLV_TWAMPCTL_CLOSEST_HPP

#include <string>
#include <vector>

namespace twampctl {

/** @return The known word that differs least; empty when none is near: more than a third of the letters differ.
 */
[[nodiscard]] std::string closest_to(const std::string &word, const std::vector<std::string> &known);

} // namespace twampctl

#endif
