#include <thread>

#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/resources.hpp"
#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

using binary_semaphores = sim_test;

TEST_F(binary_semaphores, wait_and_post)
{
    const std::uint32_t semaphore = semaphores::create();
    EXPECT_NE(semaphore, 0u);
    EXPECT_EQ(semaphores::held(semaphore), 0u);
    EXPECT_EQ(olv_sys_sem_lock_wait(semaphore), 0u);
    EXPECT_EQ(semaphores::held(semaphore), 1u);
    EXPECT_EQ(hyx_sem_post(semaphore), 0u);
    EXPECT_EQ(semaphores::held(semaphore), 0u);
    semaphores::destroy(semaphore);
}

TEST_F(binary_semaphores, post_without_wait)
{
    const std::uint32_t semaphore = semaphores::create();
    EXPECT_EQ(hyx_sem_post(semaphore), 0x104u);
    EXPECT_EQ(take_violations().size(), 1u);
    EXPECT_EQ(olv_sys_sem_lock_wait(semaphore), 0u);
    EXPECT_EQ(hyx_sem_post(semaphore), 0u);
    semaphores::destroy(semaphore);
}

TEST_F(binary_semaphores, unknown_handles)
{
    const std::uint32_t stale = semaphores::create();
    semaphores::destroy(stale);
    const std::uint32_t other = semaphores::create();
    EXPECT_NE(other, stale);
    for (const std::uint32_t handle : {0u, stale, 0x0000FFFFu, 0xFFFFFFFFu}) {
        EXPECT_EQ(olv_sys_sem_lock_wait(handle), 0x103u);
        EXPECT_EQ(hyx_sem_post(handle), 0x103u);
        EXPECT_EQ(semaphores::held(handle), 0u);
        semaphores::destroy(handle);
        EXPECT_EQ(take_violations().size(), 3u);
    }
    EXPECT_EQ(olv_sys_sem_lock_wait(other), 0u);
    EXPECT_EQ(hyx_sem_post(other), 0u);
    semaphores::destroy(other);
}

TEST_F(binary_semaphores, injected_failures_change_nothing)
{
    const std::uint32_t semaphore = semaphores::create();
    ASSERT_TRUE(faults::set(call::olv_sys_sem_lock_wait, {.code = 0x103}));
    ASSERT_TRUE(faults::set(call::hyx_sem_post, {}));
    EXPECT_EQ(olv_sys_sem_lock_wait(semaphore), 0x103u);
    EXPECT_EQ(semaphores::held(semaphore), 0u);
    EXPECT_EQ(olv_sys_sem_lock_wait(semaphore), 0u);
    EXPECT_EQ(hyx_sem_post(semaphore), 0x1FFu);
    EXPECT_EQ(semaphores::held(semaphore), 1u);
    EXPECT_EQ(hyx_sem_post(semaphore), 0u);
    semaphores::destroy(semaphore);
}

TEST_F(binary_semaphores, exclude_each_other)
{
    const std::uint32_t semaphore = semaphores::create();
    int counter = 0;
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([&] {
            for (int round = 0; round < 2000; ++round) {
                EXPECT_EQ(olv_sys_sem_lock_wait(semaphore), 0u);
                ++counter;
                EXPECT_EQ(hyx_sem_post(semaphore), 0u);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, 8000);
    semaphores::destroy(semaphore);
}

TEST_F(binary_semaphores, may_be_posted_by_another_thread)
{
    const std::uint32_t semaphore = semaphores::create();
    ASSERT_EQ(olv_sys_sem_lock_wait(semaphore), 0u);
    std::atomic<bool> posted{false};
    std::thread other{[&] {
        posted = true;
        EXPECT_EQ(hyx_sem_post(semaphore), 0u);
    }};
    EXPECT_EQ(olv_sys_sem_lock_wait(semaphore), 0u); // Waits for the post.
    EXPECT_TRUE(posted);
    other.join();
    EXPECT_EQ(hyx_sem_post(semaphore), 0u);
    semaphores::destroy(semaphore);
}

} // namespace
