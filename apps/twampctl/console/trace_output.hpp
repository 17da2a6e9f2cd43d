/**
 * @file trace_output.hpp
 * Where the trace goes while a run lasts.
 */
#ifndef OLV_TWAMPCTL_TRACE_OUTPUT_HPP
#define OLV_TWAMPCTL_TRACE_OUTPUT_HPP

#include <cstdio>
#include <memory>
#include <string>

#include "olv_sim/tracer.hpp"

namespace twampctl {

class trace_output {
  public:
    /**
     * @param file  Empty: no trace; "-": standard error; "lttng": events of LTTng-UST.
     * @throw std::runtime_error  One line: the file cannot be written, LTTng-UST is not there.
     */
    explicit trace_output(const std::string &file);
    /** Says so when the trace is not complete. */
    ~trace_output();
    trace_output(const trace_output &) = delete;
    trace_output &operator=(const trace_output &) = delete;

  private:
    /** @return Where the text goes. */
    std::FILE *open(const std::string &file);

    std::FILE *opened_ = nullptr; ///< Ours to close.
    std::unique_ptr<olv_sim::trace_sink> sink_;
};

} // namespace twampctl

#endif
