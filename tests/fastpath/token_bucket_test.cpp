#include "fastpath/core/token_bucket.hpp"

#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

using olv_fastpath::token_bucket;

constexpr std::uint64_t second = 1000;

/** How many of @p packets that arrive at the same time pass. */
int passing(token_bucket &bucket, int packets, std::uint64_t now)
{
    int passed = 0;
    for (int packet = 0; packet < packets; ++packet)
        passed += bucket.take(now) ? 1 : 0;
    return passed;
}

TEST(token_bucket, lets_a_seconds_packets_pass_at_once)
{
    token_bucket bucket{5, second};
    EXPECT_EQ(passing(bucket, 20, 7), 5);
}

TEST(token_bucket, earns_packets_as_time_goes_by)
{
    token_bucket bucket{5, second};
    EXPECT_EQ(passing(bucket, 20, 0), 5);
    EXPECT_EQ(passing(bucket, 20, 199), 0);
    EXPECT_EQ(passing(bucket, 20, 200), 1);
    EXPECT_EQ(passing(bucket, 20, 600), 2);
    EXPECT_EQ(passing(bucket, 20, 800), 1);
}

TEST(token_bucket, loses_no_part_of_a_packet)
{
    token_bucket bucket{3, second}; // 333 and a third ticks each
    EXPECT_EQ(passing(bucket, 20, 0), 3);
    int passed = 0;
    for (std::uint64_t now = 1; now <= 100 * second; ++now)
        passed += bucket.take(now) ? 1 : 0;
    EXPECT_EQ(passed, 300);
}

TEST(token_bucket, holds_no_more_than_a_seconds_packets)
{
    token_bucket bucket{5, second};
    EXPECT_EQ(passing(bucket, 20, 0), 5);
    EXPECT_EQ(passing(bucket, 20, 3600 * second), 5);
    EXPECT_EQ(passing(bucket, 20, UINT64_MAX), 5);
}

TEST(token_bucket, steady_sender_at_the_limit_loses_nothing)
{
    token_bucket bucket{100, second};
    for (std::uint64_t now = 0; now < 60 * second; now += 10)
        ASSERT_TRUE(bucket.take(now)) << now;
}

TEST(token_bucket, goes_on_after_its_clock_went_back)
{
    token_bucket bucket{5, second};
    EXPECT_EQ(passing(bucket, 20, 1'000'000), 5);
    EXPECT_EQ(passing(bucket, 20, 10), 0);
    EXPECT_EQ(passing(bucket, 20, 410), 2);
}

TEST(token_bucket, limit_and_clock_that_are_too_large_together_still_let_packets_pass)
{
    token_bucket bucket{UINT32_MAX, 1ull << 60};
    EXPECT_EQ(passing(bucket, 20, 0), 7);
    EXPECT_EQ(passing(bucket, 20, 1ull << 60), 7);
}

TEST(token_bucket, clock_that_is_a_little_behind_earns_nothing_twice)
{
    token_bucket bucket{5, second};
    EXPECT_EQ(passing(bucket, 20, 10'000), 5);
    EXPECT_EQ(passing(bucket, 20, 10'400), 2);
    EXPECT_EQ(passing(bucket, 20, 10'000), 0);
    EXPECT_EQ(passing(bucket, 20, 10'599), 0);
    EXPECT_EQ(passing(bucket, 20, 10'600), 1);
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

    /** Let all of them see this time, and come away with nothing. */
    void wait_until(std::uint32_t now)
    {
        now_ = now;
        for (std::atomic<std::uint32_t> &each : refused_)
            while (each != now)
                std::this_thread::yield();
    }

    [[nodiscard]] std::uint32_t passed() const { return passed_; }

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
        four.wait_until(1);
        EXPECT_EQ(four.passed(), 100u);
        for (std::uint32_t now = 2; now <= 10 * second; now += 7)
            four.wait_until(now);
        four.wait_until(10 * second);
        EXPECT_EQ(four.passed(), 1100u);
    }
    takers after_a_rest{bucket, 4, 20 * second};
    after_a_rest.wait_until(20 * second);
    EXPECT_EQ(after_a_rest.passed(), 100u);
}

} // namespace
