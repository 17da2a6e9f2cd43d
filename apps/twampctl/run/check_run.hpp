/**
 * @file check_run.hpp
 * What only the machine can tell about the options of a run.
 */
#ifndef OLV_TWAMPCTL_CHECK_RUN_HPP
#define OLV_TWAMPCTL_CHECK_RUN_HPP

namespace twampctl {

struct run_options;

/**
 * Take the memory, the threads and the sockets that a run would take, give them back, and look at the file of
 * the trace. An address in use is good: what is to be replaced still runs.
 * @throw std::runtime_error  One line: why a run would not begin.
 */
void check_run(const run_options &options);

} // namespace twampctl

#endif
