/**
 * @file watch_text.hpp
 * Figures as they change between two instants, as text.
 */
#ifndef OLV_TWAMPCTL_WATCH_TEXT_HPP
#define OLV_TWAMPCTL_WATCH_TEXT_HPP

#include <cstddef>
#include <string>

#include "apps/twampctl/figures/figures.hpp"

namespace twampctl {

/** "2025-01-31T12:00:00Z  received 1000.0/s  sent 999.0/s  dropped 1.0/s  sessions 3  max_sessions 4 (1.0/s)":
 *  how fast counters grew, and what was dropped for each reason so far. */
[[nodiscard]] std::string watch_line(const figures &before, const figures &now);

/** The same for a screen, with responders and sessions.
 *  @param rows  Lines that there are at most; sessions and responders that do not fit are counted. */
[[nodiscard]] std::string watch_screen(const figures &before, const figures &now, std::size_t rows);

} // namespace twampctl

#endif
