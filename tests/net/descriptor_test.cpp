#include "net/descriptor.hpp"

#include <utility>

#include <fcntl.h>

#include <gtest/gtest.h>

namespace {

using olv_net::descriptor;

bool is_open(int number)
{
    return fcntl(number, F_GETFD) >= 0;
}

descriptor opened()
{
    return descriptor{open("/dev/null", O_RDONLY | O_CLOEXEC)};
}

TEST(descriptor, closes_what_it_owns_once)
{
    int number = -1;
    {
        descriptor first = opened();
        number = first.number();
        const descriptor second = std::move(first);
        EXPECT_FALSE(first.is_open());
        EXPECT_EQ(second.number(), number);
        EXPECT_TRUE(is_open(number));
    }
    EXPECT_FALSE(is_open(number));
}

TEST(descriptor, gives_up_what_it_owned_when_it_gets_another)
{
    descriptor kept = opened();
    const int before = kept.number();
    kept = opened();
    EXPECT_FALSE(is_open(before));
    const descriptor taking{kept.release()};
    kept = descriptor{};
    EXPECT_FALSE(kept.is_open());
    EXPECT_TRUE(is_open(taking.number()));
}

TEST(descriptor, leaves_errno_alone)
{
    descriptor closed_twice = opened();
    ASSERT_EQ(close(closed_twice.number()), 0); // closing it again fails
    errno = EADDRINUSE;
    closed_twice = descriptor{};
    EXPECT_EQ(errno, EADDRINUSE);
}

} // namespace
