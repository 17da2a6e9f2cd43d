/**
 * @file time_of_day.hpp
 * The time of day as a test sets it. A program that links this answers gettimeofday() itself; the library finds
 * that symbol.
 */
#ifndef OLV_TESTS_TIME_OF_DAY_HPP
#define OLV_TESTS_TIME_OF_DAY_HPP

#include <cstdint>
#include <functional>
#include <optional>

namespace olv_test {

struct time_of_day {
    std::int64_t seconds;
    std::int64_t microseconds;
};

/** Make gettimeofday() return this instant in the whole process; nothing: the wall clock.
 *  @param read  Runs when the instant is read. */
void set_time_of_day(std::optional<time_of_day> instant, std::function<void()> read = {});

} // namespace olv_test

#endif
