/**
 * @file progress_line.hpp
 * How far a run is, redrawn in place on a terminal.
 */
#ifndef OLV_PROBE_PROGRESS_LINE_HPP
#define OLV_PROBE_PROGRESS_LINE_HPP

#include <string>

#include "probe/probe.hpp"

namespace olv_probe {

/** Fits 79 columns. */
[[nodiscard]] std::string progress_text(const session_options &options, const probe_progress &progress);

/** On standard error if that is a terminal that moves its cursor; otherwise nowhere. Wiped away when it ends.
 */
class progress_line {
  public:
    progress_line(const session_options &options, probe &sender);
    ~progress_line();
    progress_line(const progress_line &) = delete;
    progress_line &operator=(const progress_line &) = delete;

  private:
    bool shown_ = false;
};

} // namespace olv_probe

#endif
