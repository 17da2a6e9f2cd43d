// Several workers beside one: backlogs, ratios, targets, and how they are written.

#include "scaling.hpp"

#include <array>
#include <chrono>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "bench_report.hpp"
#include "crowd.hpp"
#include "reflector_server.hpp"

namespace {

using namespace reflect_bench;

backlog_figures backlog(double rate, double nanoseconds, double share, std::uint64_t answered = 8000)
{
    return {.sent = 8000,
            .answered = answered,
            .replies_per_second = rate,
            .server_nanoseconds = nanoseconds,
            .least_share = share};
}

/** Three rounds: two workers make 1.5, 1.8 and 2 times one worker's replies, at 1.0, 1.05 and 1.2 of the time
 * of servers apart. */
scaling_figures example()
{
    return {.options = {.workers = 2, .rounds = 3},
            .rounds = {{{backlog(1000, 400, 1), backlog(2000, 700, 1), backlog(3000, 1000, 1)},
                        {backlog(1500, 500, 0.9), backlog(3600, 1050, 0.8), backlog(6000, 2400, 0.7)},
                        {backlog(1500, 500, 1), backlog(4000, 1000, 1), backlog(6000, 2000, 1)}}}};
}

TEST(scaling, ratio_is_the_median_of_the_rounds_ratios)
{
    EXPECT_DOUBLE_EQ(example().ratio(one_worker, &backlog_figures::replies_per_second), 1.8);
    EXPECT_DOUBLE_EQ(example().ratio(one_worker, &backlog_figures::server_nanoseconds), 1.5);
    EXPECT_DOUBLE_EQ(example().ratio(servers_apart, &backlog_figures::replies_per_second), 1.0);
    EXPECT_DOUBLE_EQ(example().ratio(servers_apart, &backlog_figures::server_nanoseconds), 1.05);
    EXPECT_DOUBLE_EQ(example().median_of(one_worker, &backlog_figures::replies_per_second), 2000);
    EXPECT_DOUBLE_EQ(example().median_of(all_workers, &backlog_figures::least_share), 0.8);
    EXPECT_EQ(scaling_figures{}.ratio(one_worker, &backlog_figures::replies_per_second), 0.0);
}

TEST(scaling, targets_are_the_time_of_a_reply_the_shares_and_no_loss)
{
    const std::vector<target> met = targets_of(example());
    ASSERT_EQ(met.size(), 3u);
    for (const target &each : met)
        EXPECT_TRUE(each.met) << each.text;

    scaling_figures bad = example();
    bad.rounds[all_workers] = {backlog(1, 600, 0.4), backlog(1, 1200, 0.4, 7999), backlog(1, 2400, 0.4)};
    const std::vector<target> missed = targets_of(bad);
    EXPECT_DOUBLE_EQ(missed[0].value, 1.2);
    EXPECT_DOUBLE_EQ(missed[1].value, 0.4);
    EXPECT_EQ(missed[2].value, 1);
    for (const target &each : missed)
        EXPECT_FALSE(each.met) << each.text;
}

TEST(scaling, all_of_a_backlog_is_answered_by_each_crew)
{
    const scaling_figures figures = measure_scaling(
        {.workers = 2, .rounds = 2, .senders = 50, .requests_each = 4, .patience = std::chrono::seconds{30}});
    for (const std::vector<backlog_figures> &crew : figures.rounds) {
        ASSERT_EQ(crew.size(), 2u);
        for (const backlog_figures &each : crew) {
            EXPECT_EQ(each.sent, 200u);
            EXPECT_EQ(each.answered, 200u);
            EXPECT_GT(each.replies_per_second, 0);
            EXPECT_GT(each.server_nanoseconds, 0);
            EXPECT_GT(each.least_share, 0);
            EXPECT_LE(each.least_share, 1);
        }
    }
    EXPECT_EQ(figures.lost(), 0u);
}

TEST(scaling, requests_wait_until_the_workers_run)
{
    reflector_server server{20, {}, 2};
    const crowd senders{20};
    server.open();
    EXPECT_EQ(senders.send(std::array{server.address()}, 3), 60u);
    EXPECT_EQ(server.replies(), 0u);
    server.run();
    for (int waits = 0; waits < 30'000 && server.replies() < 60; ++waits)
        std::this_thread::sleep_for(std::chrono::milliseconds{1});
    server.stop();
    EXPECT_EQ(senders.take_replies(), 60u);
    const std::vector<std::uint64_t> shares = server.replies_by_worker();
    ASSERT_EQ(shares.size(), 2u);
    EXPECT_EQ(shares[0] + shares[1], 60u);
}

TEST(scaling, table_has_a_line_for_each_crew_the_ratio_and_the_targets)
{
    std::ostringstream out;
    write_scaling(out, example(), 2);
    EXPECT_EQ(
        out.str(),
        "2 workers on 2 cores; medians of 3 rounds of 500 senders, 16 requests each, that wait\n"
        "               replies/s   busy ns  least share\n"
        "   one worker       2000       700        1.000\n"
        "      workers       3600      1050        0.800\n"
        "servers apart       4000      1000        1.000\n"
        "       beside one worker: 1.800 of the replies per second, 1.500 of the processor time of a reply\n"
        "       beside servers apart: 1.000 of the replies per second, 1.050 of the processor time of a reply\n"
        "       processor time of a reply at most 1.1 of that of servers apart: 1.050, met\n"
        "       share of each worker at least 0.5 of its due: 0.800, met\n"
        "       no request lost: 0.000, met\n");
}

TEST(scaling, json_has_all_crews_ratios_and_targets)
{
    std::ostringstream out;
    write_scaling_json(out, example(), 2);
    const nlohmann::json json = nlohmann::json::parse(out.str());
    EXPECT_EQ(json["quick"], false);
    EXPECT_EQ(json["cores"], 2);
    EXPECT_EQ(json["workers"], 2);
    EXPECT_EQ(json["rounds"], 3);
    EXPECT_EQ(json["one_worker"]["replies_per_second"], 2000.0);
    EXPECT_EQ(json["all_workers"]["server_ns_per_reply"], 1050.0);
    EXPECT_EQ(json["all_workers"]["least_share"], 0.8);
    EXPECT_EQ(json["replies_by_one_worker"], 1.8);
    EXPECT_EQ(json["server_ns_by_one_worker"], 1.5);
    EXPECT_EQ(json["replies_by_servers_apart"], 1.0);
    EXPECT_EQ(json["server_ns_by_servers_apart"], 1.05);
    EXPECT_EQ(json["servers_apart"]["server_ns_per_reply"], 1000.0);
    EXPECT_EQ(json["lost"], 0);
    ASSERT_EQ(json["targets"].size(), 3u);
    EXPECT_EQ(json["targets"][0]["met"], true);
}

} // namespace
