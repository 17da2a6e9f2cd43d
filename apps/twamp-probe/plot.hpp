/**
 * @file plot.hpp
 * A picture of the round trips, drawn by the program gnuplot.
 */
#ifndef OLV_PROBE_PLOT_HPP
#define OLV_PROBE_PLOT_HPP

#include <string>
#include <vector>

#include "probe/measurement.hpp"

namespace olv_probe {

/** What gnuplot is to do, data included. It writes the picture to its standard output, so that no file name has
 *  to be put into words of its language. @param title  Of the picture. */
[[nodiscard]] std::string plot_script(const std::vector<const measurement *> &sessions,
                                      const std::string &title, bool png);

/**
 * Draw into a file that ends in .svg or .png: over time, each of at most 5,000 moments with its shortest and
 * its longest round trip; below, the histogram. The file is complete or not there, or as it was before.
 * @throw std::runtime_error  One line: gnuplot is missing or fails, or the file cannot be written.
 */
void draw_plot(const std::string &file, const std::vector<const measurement *> &sessions,
               const std::string &title);

} // namespace olv_probe

#endif
