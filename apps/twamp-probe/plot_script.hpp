/**
 * @file plot_script.hpp
 * A picture of a measurement, in the language of gnuplot.
 */
#ifndef OLV_PROBE_PLOT_SCRIPT_HPP
#define OLV_PROBE_PLOT_SCRIPT_HPP

#include <string>
#include <vector>

#include "probe/measurement.hpp"

namespace olv_probe {

/**
 * What gnuplot is to do, data included: over the time when packets were sent, the round trips with a mark for
 * each of at most 40 times of losses and their number; forward and backward, each above its shortest, as the
 * clocks may differ; the histogram of the round trips. Of each of at most 5,000 moments there are the shortest
 * delay and the longest. It writes the picture to its standard output, so that no file name has to be put into
 * words of its language. @param title  Of the picture.
 */
[[nodiscard]] std::string plot_script(const std::vector<const measurement *> &sessions,
                                      const std::string &title, bool png);

} // namespace olv_probe

#endif
