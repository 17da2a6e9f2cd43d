/**
 * @file shell.hpp
 * Commands from a terminal: edited, completed, remembered.
 */
#ifndef OLV_TWAMPCTL_SHELL_HPP
#define OLV_TWAMPCTL_SHELL_HPP

namespace twampctl {

class command_context;

/** Read and run commands until "quit", the end of the input, or SIGTERM. Failures are reported, and the next
 * command is read. @throw std::runtime_error  A signal ended it, or this is such a shell already. */
void run_shell(command_context &context);

} // namespace twampctl

#endif
