// Workers answer all requests that waited for them, and share the work.
#include "worker_scaling.hpp"

#include <chrono>

#include <gtest/gtest.h>

namespace olv_bench {
namespace {

TEST(worker_scaling, every_arrangement_answers_all_that_waits)
{
    const std::vector<run> turns = measure_scaling(
        {.workers = 2, .rounds = 2, .senders = 50, .requests_each = 4, .patience = std::chrono::seconds{30}});
    std::vector<std::string> names;
    for (const run &each : turns) {
        names.push_back(each.name);
        SCOPED_TRACE(each.name);
        EXPECT_EQ(each.figures.at("lost"), 0);
        EXPECT_GT(each.figures.at("replies_per_second"), 0);
        EXPECT_GT(each.figures.at("server_ns"), 0);
        EXPECT_GT(each.figures.at("least_share"), 0);
        EXPECT_LE(each.figures.at("least_share"), 1);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"workers/one", "workers/all", "workers/apart", "workers/all",
                                               "workers/apart", "workers/one"}));
}

} // namespace
} // namespace olv_bench
