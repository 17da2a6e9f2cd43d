// Replies that are longer than their path takes whole, in a network of their own.

#include <cstdlib>

#include <sched.h>

#include <net/if.h>
#include <sys/ioctl.h>

#include "udp_fixture.hpp"

namespace {

using namespace olv_fastpath_test;

/** Have this process a network whose loopback interface takes packets of so many octets. */
void enter_narrow_network(int octets)
{
    // Who is not root has it as the root of a name space of its own.
    ASSERT_TRUE(unshare(CLONE_NEWNET) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0);
    const descriptor control{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    request.ifr_mtu = octets;
    ASSERT_EQ(ioctl(control.number(), SIOCSIFMTU, &request), 0);
    request.ifr_flags = IFF_UP | IFF_RUNNING;
    ASSERT_EQ(ioctl(control.number(), SIOCSIFFLAGS, &request), 0);
}

class narrow_path_test : public traffic_test {
  protected:
    /** That replies to requests of these lengths, which wait together, come whole. */
    void expect_replies(int octets, const std::vector<std::size_t> &lengths)
    {
        const auto exchange = [&] {
            ASSERT_NO_FATAL_FAILURE(enter_narrow_network(octets));
            make();
            const socket_address to = at(add());
            const client sender{AF_INET};
            for (const std::size_t length : lengths)
                sender.send(to, request_of(length));
            fast_path_->start();
            for (const std::size_t length : lengths)
                EXPECT_EQ(sender.receive().payload.size(), length);
            fast_path_->stop();
            EXPECT_EQ(sent(), lengths.size());
            EXPECT_EQ(fast_path_->statistics().failed_replies, 0u);
        };
        // In a process of its own.
        EXPECT_EXIT((exchange(), std::_Exit(HasFailure() ? 1 : 0)), testing::ExitedWithCode(0), "");
    }
};

TEST_F(narrow_path_test, replies_longer_than_the_path_takes_arrive_whole)
{
    expect_replies(1500, {1472, 1473, 44, 9000, 65507, 44});
}

TEST_F(narrow_path_test, replies_of_segments_that_do_not_fit_arrive_one_by_one)
{
    expect_replies(1000, {44, 44, 1400, 1400, 1400, 44, 44, 44});
}

} // namespace
