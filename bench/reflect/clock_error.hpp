/**
 * @file clock_error.hpp
 * How far a reflector's time stamps are from the wall clock of the same machine.
 */
#ifndef OLV_BENCH_CLOCK_ERROR_HPP
#define OLV_BENCH_CLOCK_ERROR_HPP

#include <chrono>
#include <cstdint>
#include <vector>

#include "report.hpp"

namespace olv_bench {

/** Instants of a request and its reply, in nanoseconds since 1970. */
struct stamped_reply {
    std::int64_t before_send = 0; ///< The wall clock before the call that sent the request,
    std::int64_t after_send = 0;  ///< and after it: the request was delivered between the two.
    std::int64_t received = 0;    ///< T2, the reflector's time stamp.
    std::int64_t replied = 0;     ///< T3, likewise.
    std::int64_t arrival = 0;     ///< The wall clock when the reply was there.
};

/**
 * What the replies of one interval say about the reflector's clock.
 * @return `offset_us`, its median distance from the wall clock; `uncertainty_us`, by how much that may be
 * wrong: half the median time of sending; `outside_us`, the farthest that a T2 is outside its request's
 * sending, or a T3 outside the round trip; `error_us`, the error at most; `replies`; `reversed`, how many have
 * T3 before T2.
 */
[[nodiscard]] run clock_figures(const std::vector<stamped_reply> &replies);

struct clock_options {
    unsigned intervals = 30;
    std::chrono::milliseconds interval{10'000}; ///< Length of each.
    std::chrono::milliseconds pause{5};         ///< From a reply to the next request.
};

/** Send requests to a reflector. @return A run for each interval, with `begin_seconds`, when it began.
 *  @throw std::runtime_error  A request is not answered. */
[[nodiscard]] std::vector<run> measure_clock(const clock_options &options);

} // namespace olv_bench

#endif
