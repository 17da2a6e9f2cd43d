/**
 * @file platform_names.hpp
 * What the classifier program and the platform call the things that commands name.
 */
#ifndef OLV_TWAMPCTL_PLATFORM_NAMES_HPP
#define OLV_TWAMPCTL_PLATFORM_NAMES_HPP

#include <string>
#include <vector>

namespace twampctl {

/** The tree functions of the TWAMP classifier program. */
[[nodiscard]] std::vector<std::string> tree_functions();

/** The platform calls that can be told to fail. */
[[nodiscard]] std::vector<std::string> failing_calls();

} // namespace twampctl

#endif
