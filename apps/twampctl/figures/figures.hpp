/**
 * @file figures.hpp
 * Everything that twampctl counts and knows at one instant, as plain values: what each output format is made
 * of.
 */
#ifndef OLV_TWAMPCTL_FIGURES_HPP
#define OLV_TWAMPCTL_FIGURES_HPP

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "fastpath/fast_path.hpp"
#include "olv_twamp.h"

namespace twampctl {

/** What is in use on the platform. */
struct platform_usage {
    std::size_t blocks = 0;
    std::size_t responder_ids = 0;
    std::size_t responder_entries = 0;
    std::size_t bind_entries = 0;
    std::size_t patterns = 0;
    std::size_t violations = 0;

    [[nodiscard]] bool is_empty() const;
};

/** "0 blocks, 0 responder IDs, ...". */
[[nodiscard]] std::string text_of(const platform_usage &usage);

struct responder_figures {
    std::string name;
    std::uint32_t id = 0;
    std::optional<olv_twamp_responder_stats> counters; ///< Nothing when they cannot be read.
    std::optional<std::uint32_t> session_limit{};      ///< Sessions that it may have.
};

struct listener_figures {
    std::string address;   ///< "127.0.0.1:8620"
    std::string responder; ///< Its name.
    std::uint32_t bind_key = 0;
    olv_fastpath::listener_statistics counters;
};

struct session_figures {
    std::string responder; ///< Its name.
    std::string sender;    ///< "192.0.2.7:40000"
    std::uint32_t replies = 0;
    double idle_seconds = 0;
    std::optional<double> round_trip_seconds{}; ///< Of the last packet, where this process measured it.
};

struct figures {
    double taken_at = 0;   ///< Seconds since 1970.
    std::string processor; ///< Its name.
    bool module_up = false;
    std::optional<olv_twamp_global_stats> module; ///< Nothing when they cannot be read.
    std::vector<responder_figures> responders;
    std::vector<listener_figures> listeners;
    std::vector<session_figures> sessions;
    std::uint64_t gave_way_sessions = 0; ///< That ended so that others could begin.
    platform_usage usage;
};

/** What single commands show: everything, a member, or one responder. */
using figures_part = std::variant<figures, std::optional<olv_twamp_global_stats>, responder_figures,
                                  std::vector<responder_figures>, std::vector<listener_figures>,
                                  std::vector<session_figures>, platform_usage>;

} // namespace twampctl

#endif
