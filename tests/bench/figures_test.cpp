// Percentiles, the kernel's counter of drops, reports.
#include <vector>

#include <gtest/gtest.h>
#include <sys/socket.h>

#include "percentiles.hpp"
#include "report.hpp"
#include "udp_socket.hpp"

namespace olv_bench {
namespace {

TEST(percentile, is_the_nearest_rank)
{
    std::vector<unsigned> samples{50, 15, 40, 20, 35};
    EXPECT_EQ(percentile(samples, 0), 15u);
    EXPECT_EQ(percentile(samples, 20), 15u);
    EXPECT_EQ(percentile(samples, 21), 20u);
    EXPECT_EQ(percentile(samples, 50), 35u);
    EXPECT_EQ(percentile(samples, 100), 50u);
    std::vector<double> none;
    EXPECT_EQ(percentile(none, 50), 0.0);
}

TEST(kernel_drops, of_a_full_socket_are_counted)
{
    const udp_socket full;
    const int small = 2304;
    ASSERT_EQ(setsockopt(full.number(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small), 0);
    const udp_socket sender;
    EXPECT_EQ(full.dropped(), 0u);
    const std::vector<char> datagram(1000);
    for (int number = 0; number < 100; ++number) {
        ASSERT_EQ(sendto(sender.number(), datagram.data(), datagram.size(), 0, full.local_address().generic(),
                         full.local_address().length),
                  1000);
    }
    std::uint64_t received = 0;
    char octet = 0;
    while (recv(full.number(), &octet, sizeof octet, MSG_DONTWAIT) >= 0) {
        ++received;
    }
    EXPECT_GT(received, 0u);
    EXPECT_EQ(full.dropped(), 100 - received);
}

TEST(report, has_a_line_for_each_run)
{
    EXPECT_EQ(report_text({{"workers/one", {{"lost", 0}, {"server_ns", 512.25}}}, {"workers/all", {}}}, false),
              "{\"context\": {\"quick\": \"false\"},\n"
              " \"benchmarks\": [\n"
              "  {\"run_name\": \"workers/one\", \"lost\": 0, \"server_ns\": 512.25},\n"
              "  {\"run_name\": \"workers/all\"}\n"
              "]}\n");
    EXPECT_EQ(report_text({}, true), "{\"context\": {\"quick\": \"true\"},\n \"benchmarks\": [\n]}\n");
}

} // namespace
} // namespace olv_bench
