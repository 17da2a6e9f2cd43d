/**
 * @file pinning.hpp
 * Threads on cores of their own.
 */
#ifndef REFLECT_BENCH_PINNING_HPP
#define REFLECT_BENCH_PINNING_HPP

#include <vector>

#include <sched.h>

namespace reflect_bench {

/** Cores that this process may use. */
[[nodiscard]] std::vector<int> usable_cores();

/** Keeps the calling thread, and the threads that it starts, on one core while it lives. */
class pinned {
  public:
    explicit pinned(int core);
    ~pinned();
    pinned(const pinned &) = delete;
    pinned &operator=(const pinned &) = delete;

  private:
    cpu_set_t before_{};
};

} // namespace reflect_bench

#endif
