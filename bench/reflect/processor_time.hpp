/**
 * @file processor_time.hpp
 * Who has used how much of the processors.
 */
#ifndef REFLECT_BENCH_PROCESSOR_TIME_HPP
#define REFLECT_BENCH_PROCESSOR_TIME_HPP

namespace reflect_bench {

/** Seconds of processor time of all threads but this one: the server's, while nothing else runs. */
[[nodiscard]] double others_seconds();

} // namespace reflect_bench

#endif
