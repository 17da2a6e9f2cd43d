/**
 * @file comparison.hpp
 * The reflector beside the echo servers, under the same traffic.
 */
#ifndef OLV_BENCH_COMPARISON_HPP
#define OLV_BENCH_COMPARISON_HPP

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "cores.hpp"
#include "generator.hpp"
#include "report.hpp"

namespace olv_bench {

struct traffic_case {
    std::uint32_t window;   ///< Requests on their way at the same time.
    std::uint32_t sessions; ///< Sender addresses.
    std::size_t octets;     ///< Of a request.
};

struct comparison_options {
    unsigned rounds = 25;
    std::chrono::milliseconds turn{100};
    std::chrono::milliseconds patience = traffic_options{}.patience;
};

/**
 * Measure one case. In each round every server has a turn, and another one begins.
 * @return A run for each turn, "WINDOW/SESSIONS/OCTETS/SERVER"; servers are plain_echo, batched_echo and
 * reflector. "WINDOW/SESSIONS/OCTETS/module" has `sessions_missed`: how many of the sessions the module has not
 * counted.
 */
[[nodiscard]] std::vector<run> compare(const traffic_case &traffic, const comparison_options &options,
                                       const core_choice &cores);

} // namespace olv_bench

#endif
