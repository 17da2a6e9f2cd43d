#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

class binary_semaphores : public sim_test {
  protected:
    ~binary_semaphores() override { semaphores::destroy(semaphore); }

    const std::uint32_t semaphore = semaphores::create();
};

TEST_F(binary_semaphores, wait_and_post)
{
    EXPECT_EQ(semaphores::held(semaphore), 0u);
    EXPECT_EQ(hyx_sem_post(semaphore), 0x104u); // without a wait
    EXPECT_EQ(take_violations().size(), 1u);
    EXPECT_EQ(olv_sys_sem_lock_wait(semaphore), 0u);
    EXPECT_EQ(semaphores::held(semaphore), 1u);
    EXPECT_EQ(hyx_sem_post(semaphore), 0u);
    EXPECT_EQ(semaphores::held(semaphore), 0u);
}

TEST_F(binary_semaphores, unknown_handles)
{
    const std::uint32_t stale = semaphores::create();
    semaphores::destroy(stale);
    const std::uint32_t other = semaphores::create(); // may take the same place
    for (const std::uint32_t handle : {0u, stale, 0x0000FFFFu, 0xFFFFFFFFu}) {
        EXPECT_EQ(olv_sys_sem_lock_wait(handle), 0x103u);
        EXPECT_EQ(hyx_sem_post(handle), 0x103u);
        EXPECT_EQ(semaphores::held(handle), 0u);
        semaphores::destroy(handle);
        EXPECT_EQ(take_violations().size(), 3u);
    }
    EXPECT_EQ(olv_sys_sem_lock_wait(other), 0u);
    semaphores::destroy(other);
}

TEST_F(binary_semaphores, exclude_each_other)
{
    int counter = 0;
    in_threads(4, [&](std::uint32_t) {
        for (int round = 0; round < 2000; ++round) {
            EXPECT_EQ(olv_sys_sem_lock_wait(semaphore), 0u);
            ++counter;
            EXPECT_EQ(hyx_sem_post(semaphore), 0u);
        }
    });
    EXPECT_EQ(counter, 8000);
}

TEST_F(binary_semaphores, waiting_ends_with_a_post_of_another_thread_or_with_the_semaphore)
{
    ASSERT_EQ(olv_sys_sem_lock_wait(semaphore), 0u);
    const std::uint32_t ending = semaphores::create();
    ASSERT_EQ(olv_sys_sem_lock_wait(ending), 0u);
    std::atomic<bool> posts{false};
    in_threads(2, [&](std::uint32_t number) {
        if (number == 0) {
            posts = true;
            EXPECT_EQ(hyx_sem_post(semaphore), 0u);
            semaphores::destroy(ending);
        } else {
            EXPECT_EQ(olv_sys_sem_lock_wait(semaphore), 0u);
            EXPECT_TRUE(posts);
            EXPECT_EQ(olv_sys_sem_lock_wait(ending), 0x103u);
        }
    });
    EXPECT_EQ(take_violations().size(), 1u);
}

} // namespace
