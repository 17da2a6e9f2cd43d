// A network for each test program: a port that a test has given back, or that nobody is to listen at, is taken
// by no test that runs beside it, and late replies to it reach nobody else. Where the system does not allow
// that, the tests use the network that all share.
#include <cstring>

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include "net/descriptor.hpp"

namespace {

bool bring_loopback_up()
{
    const olv_net::descriptor control{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP | IFF_RUNNING;
    return ioctl(control.number(), SIOCSIFFLAGS, &request) == 0;
}

class own_network : public testing::Environment {
  public:
    /** Before any thread begins, so that all have it, as have the programs that tests start. */
    void SetUp() override
    {
        const olv_net::descriptor shared{open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC)};
        if (shared.is_open() && unshare(CLONE_NEWNET) == 0 && !bring_loopback_up()) {
            ASSERT_EQ(setns(shared.number(), CLONE_NEWNET), 0);
        }
    }
};

const testing::Environment *const environment = testing::AddGlobalTestEnvironment(new own_network);

} // namespace
