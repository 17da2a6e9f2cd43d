/**
 * @file shell.hpp
 * Commands from a terminal: edited, completed, remembered.
 */
#ifndef OLV_TWAMPCTL_SHELL_HPP
#define OLV_TWAMPCTL_SHELL_HPP

namespace twampctl {

class testbed;

/** Read and run commands until "quit", the end of the input, or SIGTERM. Failures are reported, and the next
 * command is read. @return Whether the end was asked for, not forced by a signal. */
bool run_shell(testbed &bed);

} // namespace twampctl

#endif
