/**
 * @file platform_names.hpp
 * What the classifier program and the platform call the things that commands name.
 */
#ifndef OLV_TWAMPCTL_PLATFORM_NAMES_HPP
#define OLV_TWAMPCTL_PLATFORM_NAMES_HPP

#include <string>
#include <vector>

namespace twampctl {

inline constexpr const char *responder_namespace = "twamp_responder";
inline constexpr const char *responder_tree = "olv_twamp.twamp_responder_lookup";
inline constexpr const char *bind_tree = "olv_twamp.twamp_bind_to_next_module";

/** Of the TWAMP program. */
[[nodiscard]] std::vector<std::string> tree_functions();

/** The platform calls that can be told to fail. */
[[nodiscard]] std::vector<std::string> failing_calls();

} // namespace twampctl

#endif
