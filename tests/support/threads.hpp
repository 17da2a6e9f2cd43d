/**
 * @file threads.hpp
 * Several threads at once, and an end of waiting for them.
 */
#ifndef OLV_TWAMP_TESTS_THREADS_HPP
#define OLV_TWAMP_TESTS_THREADS_HPP

#include <chrono>
#include <cstdint>
#include <thread>
#include <vector>

namespace olv_test {

/** When waiting for what has to happen is given up. */
class deadline {
  public:
    [[nodiscard]] bool over() const { return std::chrono::steady_clock::now() >= end_; }

  private:
    std::chrono::steady_clock::time_point end_ = std::chrono::steady_clock::now() + std::chrono::seconds{60};
};

/** Run the work, given its number from 0 on, in so many threads at once, and wait for them. */
template <typename Work> void in_threads(std::uint32_t count, const Work &work)
{
    std::vector<std::thread> threads;
    for (std::uint32_t number = 0; number < count; ++number) {
        threads.emplace_back(work, number);
    }
    for (std::thread &each : threads) {
        each.join();
    }
}

} // namespace olv_test

#endif
