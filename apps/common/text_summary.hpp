/**
 * @file text_summary.hpp
 * What a person wants to know of a run, on one screen, and the words that the details have in common with it.
 */
#ifndef OLV_PROBE_TEXT_SUMMARY_HPP
#define OLV_PROBE_TEXT_SUMMARY_HPP

#include <string>

#include "apps/common/run_report.hpp"

namespace olv_probe {

/** At most 12 lines of at most 80 columns, unless counts have more than seven digits. */
[[nodiscard]] std::string text_summary(const run_report &report);

/** "5.8 us", "250.000 ms", "37.000 s", "12 days": with a unit that suits it. */
[[nodiscard]] std::string duration_text(double nanoseconds);
/** "sent 4, received 4, valid 2, odd 1", in lines. */
[[nodiscard]] std::string counts_text(const packet_counts &counts);
/** "the reflector's clock is 5.8 us behind, if both ways take equally long". */
[[nodiscard]] std::string clock_offset_text(std::int64_t nanoseconds_ahead);

} // namespace olv_probe

#endif
