/**
 * @file cores.hpp
 * Which core runs what, and for how long.
 */
#ifndef OLV_BENCH_CORES_HPP
#define OLV_BENCH_CORES_HPP

#include <optional>
#include <vector>

#include <sched.h>

namespace olv_bench {

/** Cores that this process may use. */
[[nodiscard]] std::vector<int> usable_cores();

/** Where server and generator run. */
struct core_choice {
    std::optional<int> server; ///< None: wherever the system likes.
    std::optional<int> generator;
    [[nodiscard]] bool apart() const { return server && generator && *server != *generator; }
};
[[nodiscard]] core_choice choose_cores(const std::vector<int> &usable);

/** Keeps the calling thread, and the threads that it starts, on one core while it lives. */
class pinned {
  public:
    /** @param core  None: all stays as it is. @throw std::runtime_error  The core cannot be used. */
    explicit pinned(std::optional<int> core);
    ~pinned();
    pinned(const pinned &) = delete;
    pinned &operator=(const pinned &) = delete;

  private:
    cpu_set_t before_{};
};

/** Seconds of processor time that all threads but this one have used: the server's, while nothing else runs. */
[[nodiscard]] double seconds_of_other_threads();

} // namespace olv_bench

#endif
