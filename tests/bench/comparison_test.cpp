// Every server has its turns, answers all requests, and the module counts them.
#include "comparison.hpp"

#include <map>

#include <gtest/gtest.h>

namespace olv_bench {
namespace {

TEST(comparison, every_server_has_its_turns_in_another_order_each_round)
{
    const std::vector<run> turns =
        compare({.window = 32, .sessions = 10, .octets = 1400},
                {.rounds = 2, .turn = std::chrono::milliseconds{20}, .patience = std::chrono::seconds{30}}, {});
    std::vector<std::string> names;
    for (const run &each : turns) {
        names.push_back(each.name);
    }
    EXPECT_EQ(names,
              (std::vector<std::string>{"32/10/1400/plain_echo", "32/10/1400/batched_echo",
                                        "32/10/1400/reflector", "32/10/1400/batched_echo",
                                        "32/10/1400/reflector", "32/10/1400/plain_echo", "32/10/1400/module"}));
    for (std::size_t turn = 0; turn < 6; ++turn) {
        const std::map<std::string, double> &figures = turns[turn].figures;
        SCOPED_TRACE(turns[turn].name);
        EXPECT_GT(figures.at("replies_per_second"), 0);
        EXPECT_GT(figures.at("p50_ns"), 0);
        EXPECT_GE(figures.at("p99_ns"), figures.at("p50_ns"));
        EXPECT_GT(figures.at("server_ns"), 0);
        EXPECT_EQ(figures.at("lost"), 0);
        EXPECT_EQ(figures.at("kernel_drops"), 0);
    }
    EXPECT_EQ(turns[6].figures.at("sessions_missed"), 0);
}

} // namespace
} // namespace olv_bench
