/**
 * @file plot.hpp
 * A picture of a measurement, drawn by the program gnuplot.
 */
#ifndef OLV_PROBE_PLOT_HPP
#define OLV_PROBE_PLOT_HPP

#include <string>
#include <vector>

#include "probe/measurement.hpp"

namespace olv_probe {

/** @throw std::runtime_error  One line: there is no gnuplot, or no folder to write the file to. */
void require_plot(const std::string &file);

/**
 * Draw into a file that ends in .svg or .png what plot_script.hpp describes. The file is complete or not there,
 * or as it was before.
 * @throw std::runtime_error  One line: gnuplot is missing or fails, or the file cannot be written.
 */
void draw_plot(const std::string &file, const std::vector<const measurement *> &sessions,
               const std::string &title);

} // namespace olv_probe

#endif
