/**
 * @file traffic_options.hpp
 * Which packets a processor's fast path answers, and how: the same options wherever a processor is made.
 */
#ifndef OLV_TWAMPCTL_TRAFFIC_OPTIONS_HPP
#define OLV_TWAMPCTL_TRAFFIC_OPTIONS_HPP

#include <cstdint>
#include <string>
#include <vector>

#include "apps/common/command_line.hpp"
#include "fastpath/fast_path.hpp"

namespace twampctl {

/** The options as written. */
struct traffic_options {
    std::vector<std::string> allowed;
    std::string stamp_mode = "stateful";
    std::string clock = "system";
    olv_fastpath::fast_path_options fast_path;

    /** @throw std::invalid_argument  A text of --allow is no prefix. */
    void apply(olv_fastpath::fast_path_options &to) const;
};

/** What is said where a processor cannot be made for want of memory. */
[[nodiscard]] inline std::string no_memory_for(std::uint32_t responder_ids, std::uint32_t sessions)
{
    return "no memory is to be had for " + std::to_string(responder_ids) + " responder IDs and " +
           std::to_string(sessions) + " sessions";
}

void add_traffic_options(olv_apps::command to, traffic_options &options);

} // namespace twampctl

#endif
