#include "fastpath/core/token_bucket.hpp"

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

using olv_fastpath::token_bucket;

constexpr std::uint64_t second = 1000;

/** How many of twenty packets that arrive at the same time pass. */
int passing(token_bucket &bucket, std::uint64_t now)
{
    int passed = 0;
    for (int packet = 0; packet < 20; ++packet)
        passed += bucket.take(now) ? 1 : 0;
    return passed;
}

TEST(token_bucket, lets_pass_what_was_earned)
{
    struct step {
        std::uint64_t now;
        int passing;
    };
    struct row {
        const char *label;
        std::uint32_t rate;
        std::uint64_t ticks_per_second;
        std::vector<step> steps;
    };
    const row rows[] = {
        {"as time goes by", 5, second, {{0, 5}, {199, 0}, {200, 1}, {600, 2}, {800, 1}}},
        {"no more than in a second", 5, second, {{0, 5}, {3600 * second, 5}, {UINT64_MAX, 5}}},
        {"on after the clock went back", 5, second, {{1'000'000, 5}, {10, 0}, {410, 2}}},
        {"nothing twice when the clock is a little behind",
         5,
         second,
         {{10'000, 5}, {10'400, 2}, {10'000, 0}, {10'599, 0}, {10'600, 1}}},
        {"less where limit and clock are too large together",
         UINT32_MAX,
         1ull << 60,
         {{0, 7}, {1ull << 60, 7}}},
    };
    for (const row &each : rows) {
        token_bucket bucket{each.rate, each.ticks_per_second};
        for (const step &at : each.steps)
            EXPECT_EQ(passing(bucket, at.now), at.passing) << each.label << ", " << at.now;
    }
}

TEST(token_bucket, loses_no_part_of_a_packet)
{
    token_bucket bucket{3, second}; // 333 and a third ticks each
    EXPECT_EQ(passing(bucket, 0), 3);
    int passed = 0;
    for (std::uint64_t now = 1; now <= 100 * second; ++now)
        passed += bucket.take(now) ? 1 : 0;
    EXPECT_EQ(passed, 300);
}

/** Threads that take what they get, from a time on, until they are told to end. */
class takers {
  public:
    takers(token_bucket &bucket, int count, std::uint32_t now)
        : now_(now), refused_(static_cast<std::size_t>(count))
    {
        for (std::size_t number = 0; number < refused_.size(); ++number)
            threads_.emplace_back([this, &bucket, number] { take_from(bucket, refused_[number]); });
    }
    ~takers()
    {
        stopping_ = true;
        for (std::thread &each : threads_)
            each.join();
    }
    takers(const takers &) = delete;
    takers &operator=(const takers &) = delete;

    /** Let all of them see this time, and come away with nothing. @return How many packets have passed. */
    std::uint32_t passed_at(std::uint32_t now)
    {
        now_ = now;
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds{30};
        for (std::atomic<std::uint32_t> &each : refused_)
            while (each != now && std::chrono::steady_clock::now() < end)
                std::this_thread::yield();
        return passed_;
    }

  private:
    void take_from(token_bucket &bucket, std::atomic<std::uint32_t> &refused_at)
    {
        while (!stopping_) {
            const std::uint32_t now = now_;
            if (bucket.take(now)) {
                ++passed_;
            } else {
                refused_at = now;
                std::this_thread::yield();
            }
        }
    }

    std::atomic<std::uint32_t> now_;
    std::atomic<bool> stopping_{false};
    std::atomic<std::uint32_t> passed_{0};
    std::vector<std::atomic<std::uint32_t>> refused_;
    std::vector<std::thread> threads_;
};

TEST(token_bucket, threads_together_get_what_one_would)
{
    token_bucket bucket{100, second};
    {
        takers four{bucket, 4, 1};
        EXPECT_EQ(four.passed_at(1), 100u);
        for (std::uint32_t now = 2; now <= 10 * second; now += 7)
            (void)four.passed_at(now);
        EXPECT_EQ(four.passed_at(10 * second), 1100u);
    }
    EXPECT_EQ((takers{bucket, 4, 20 * second}.passed_at(20 * second)), 100u);
}

} // namespace
