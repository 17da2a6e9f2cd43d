/**
 * @file figures_formats.hpp
 * The three formats, each in its own file, behind figures_output.hpp.
 */
#ifndef OLV_TWAMPCTL_FIGURES_FORMATS_HPP
#define OLV_TWAMPCTL_FIGURES_FORMATS_HPP

#include <cstdint>
#include <string>
#include <vector>

#include "apps/twampctl/figures/figures.hpp"

namespace twampctl {

/** Packets dropped for a reason of the fast path's list. */
struct drop_figure {
    const char *name; ///< In JSON and Prometheus.
    const char *text; ///< For people.
    std::uint64_t packets;
};

/** All reasons that are counted there. */
[[nodiscard]] std::vector<drop_figure> drops_of(const olv_twamp_global_stats &counters);
[[nodiscard]] std::vector<drop_figure> drops_of(const olv_twamp_responder_stats &counters);
[[nodiscard]] std::vector<drop_figure> drops_of(const olv_fastpath::listener_statistics &counters);

/** How many of something are in use on the platform, with its names for programs and for people. */
struct usage_item {
    const char *name;
    const char *title;
    std::size_t count;
};
[[nodiscard]] std::vector<usage_item> items_of(const platform_usage &usage);

/** A name as it can be printed, cut to this width with "..." where it is longer. */
[[nodiscard]] std::string shortened(const std::string &name, std::size_t width);

/** With U+FFFD for whatever is not UTF-8. */
[[nodiscard]] std::string valid_utf8(const std::string &text);
/** In ASCII, with JSON's escapes for everything else: each byte takes a column, and none moves the cursor. */
[[nodiscard]] std::string printable(const std::string &text);

[[nodiscard]] std::string as_text(const figures_part &part);
[[nodiscard]] std::string as_json(const figures_part &part);
[[nodiscard]] std::string as_prometheus(const figures_part &part);

} // namespace twampctl

#endif
