/**
 * @file clock_error.hpp
 * How far a reflector's time stamps are from the wall clock of the same machine.
 */
#ifndef REFLECT_BENCH_CLOCK_ERROR_HPP
#define REFLECT_BENCH_CLOCK_ERROR_HPP

#include <cstddef>
#include <cstdint>
#include <vector>

namespace reflect_bench {

/** One reply: instants of the wall clock, in nanoseconds since 1970, and time stamps as if they were such. */
struct stamped_reply {
    std::int64_t before_send = 0; ///< The wall clock before the call that sent the request,
    std::int64_t after_send = 0;  ///< and after it: the request was delivered between the two.
    std::int64_t received = 0;    ///< T2.
    std::int64_t replied = 0;     ///< T3.
    std::int64_t arrival = 0;     ///< The wall clock when the reply was there.
};

/** Figures of the replies of one interval, in microseconds. */
struct clock_row {
    double begin_seconds = 0; ///< Since the first reply.
    std::size_t replies = 0;
    double offset = 0;      ///< The reflector's clock less the wall clock: the median.
    double uncertainty = 0; ///< By how much that may be wrong: half the median time of sending.
    double outside =
        0; ///< The farthest that a T2 is outside its request's sending, or a T3 outside the round trip.

    /** An offset is not larger than this. */
    [[nodiscard]] double bound() const;
};

/** What replies say about a reflector's clock. */
class clock_error {
  public:
    explicit clock_error(double seconds_in_row) : nanoseconds_in_row_(seconds_in_row * 1e9) {}

    /** @param reply  Not earlier than those before it. */
    void add(const stamped_reply &reply);
    [[nodiscard]] std::vector<clock_row> rows() const;
    /** Replies whose T3 is before their T2. */
    [[nodiscard]] std::size_t reversed() const { return reversed_; }

  private:
    double nanoseconds_in_row_;
    std::int64_t start_ = 0;
    std::vector<std::vector<stamped_reply>> rows_;
    std::size_t reversed_ = 0;
};

/** The largest bound, and the farthest outside, of all rows, in microseconds. */
[[nodiscard]] double worst_error(const std::vector<clock_row> &rows);
/** By how many microseconds the clocks go apart in an hour: the slope of the straight line that fits the rows
 *  best. 0 for fewer than two. */
[[nodiscard]] double drift_per_hour(const std::vector<clock_row> &rows);

} // namespace reflect_bench

#endif
