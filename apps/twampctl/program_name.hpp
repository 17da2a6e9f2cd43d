/**
 * @file program_name.hpp
 * The program's name, before its messages.
 */
#ifndef OLV_TWAMPCTL_PROGRAM_NAME_HPP
#define OLV_TWAMPCTL_PROGRAM_NAME_HPP

namespace twampctl {

inline constexpr const char *program_name = "twampctl";

} // namespace twampctl

#endif
