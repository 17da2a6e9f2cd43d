// Replies that are longer than their path takes whole. In a network of its own, where the process may have one.

#include <functional>
#include <sched.h>

#include <net/if.h>
#include <sys/ioctl.h>

#include "udp_fixture.hpp"

namespace {

using namespace olv_fastpath_test;

class narrow_path_test : public fastpath_test {
  protected:
    narrow_path_test() { define_usual_path({.maximum_sessions = 1000}); }

    /** Run something in a thread whose loopback interface takes packets of so many octets. */
    static void with_mtu(int octets, const std::function<void()> &work)
    {
        bool narrow = false;
        std::thread{[&] {
            narrow = unshare(CLONE_NEWNET) == 0 && narrow_loopback(octets);
            if (narrow)
                work();
        }}.join();
        if (!narrow)
            GTEST_SKIP() << "the process may have no network of its own";
    }

    static bool narrow_loopback(int octets)
    {
        const int control = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        ifreq request{};
        std::strcpy(request.ifr_name, "lo");
        request.ifr_mtu = octets;
        bool done = ioctl(control, SIOCSIFMTU, &request) == 0;
        request.ifr_flags = IFF_UP | IFF_RUNNING;
        done = done && ioctl(control, SIOCSIFFLAGS, &request) == 0;
        close(control);
        return done;
    }

    reflector reflector_{processor_};
    udp_server server_{reflector_};
};

TEST_F(narrow_path_test, replies_longer_than_the_path_takes_arrive_whole)
{
    with_mtu(1500, [this] {
        const std::size_t index = server_.add(parse_socket_address("127.0.0.1:0"), usual_path);
        server_.start();
        const client sender{AF_INET};
        for (const std::size_t length : {1472u, 1473u, 44u, 9000u, 65507u, 44u}) {
            sender.send(server_.local_address(index), request_of(length));
            EXPECT_EQ(sender.receive().payload.size(), length);
        }
        server_.stop();
        EXPECT_EQ(server_.statistics().sent, 6u);
        EXPECT_EQ(server_.statistics().send_failures, 0u);
    });
}

TEST_F(narrow_path_test, replies_of_segments_that_do_not_fit_arrive_one_by_one)
{
    with_mtu(1000, [this] {
        const std::size_t index = server_.add(parse_socket_address("127.0.0.1:0"), usual_path);
        const client sender{AF_INET};
        const std::size_t lengths[] = {44, 44, 1400, 1400, 1400, 44, 44, 44};
        for (const std::size_t length : lengths)
            sender.send(server_.local_address(index), request_of(length));
        server_.start();
        for (const std::size_t length : lengths)
            EXPECT_EQ(sender.receive().payload.size(), length);
        server_.stop();
        EXPECT_EQ(server_.statistics().sent, 8u);
        EXPECT_EQ(server_.statistics().send_failures, 0u);
    });
}

} // namespace
