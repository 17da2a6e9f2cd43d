// The parts of reflect_bench: what they measure, and that all servers answer all requests meanwhile.
#include <map>
#include <string>

#include <gtest/gtest.h>

#include "clock_error.hpp"
#include "comparison.hpp"
#include "worker_scaling.hpp"

namespace olv_bench {
namespace {

using namespace std::chrono_literals;

TEST(comparison, every_server_has_its_turns_in_another_order_each_round)
{
    const std::vector<run> turns = compare({.window = 32, .sessions = 10, .octets = 1400},
                                           {.rounds = 2, .turn = 20ms, .patience = 30s}, {});
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

TEST(worker_scaling, every_arrangement_answers_all_that_waits)
{
    const std::vector<run> turns =
        measure_scaling({.workers = 2, .rounds = 2, .senders = 50, .requests_each = 4, .patience = 30s});
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

constexpr std::int64_t second = 1'000'000'000;

/** Sent within 4 microseconds from an instant on, back 20 microseconds later. T2 and T3 are after that instant.
 */
stamped_reply reply_at(std::int64_t instant, std::int64_t received, std::int64_t replied)
{
    return {.before_send = instant,
            .after_send = instant + 4000,
            .received = instant + received,
            .replied = instant + replied,
            .arrival = instant + 24000};
}

TEST(clock_error, is_the_distance_from_the_middle_of_the_sending)
{
    const run row =
        clock_figures({reply_at(0, 2500, 9000), reply_at(second, 3000, 9000), reply_at(0, 5000, 2000)});
    const std::map<std::string, double> expected{{"replies", 3},        {"offset_us", 1},  // of the second
                                                 {"uncertainty_us", 2}, {"outside_us", 1}, // of the third
                                                 {"error_us", 3},       {"reversed", 1}};
    EXPECT_EQ(row.figures, expected);
}

TEST(clock_error, is_at_least_how_far_a_time_stamp_is_outside_of_what_it_stamps)
{
    const auto figure = [](const char *name, std::int64_t received, std::int64_t replied) {
        return clock_figures({reply_at(second, received, replied)}).figures.at(name);
    };
    EXPECT_EQ(figure("error_us", -7000, 9000), 11); // 9 from the middle, and 2
    EXPECT_EQ(figure("outside_us", -7000, 9000), 7);
    EXPECT_EQ(figure("error_us", 2000, 34000), 10);
    EXPECT_EQ(figure("offset_us", -1000, 9000), -3);
    EXPECT_EQ(figure("reversed", 2000, 2000), 0);
}

TEST(clock_error, is_measured_in_intervals)
{
    const std::vector<run> rows = measure_clock({.intervals = 2, .interval = 50ms, .pause = 5ms});
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_LT(rows[0].figures.at("begin_seconds"), rows[1].figures.at("begin_seconds"));
    for (const run &each : rows) {
        EXPECT_GE(each.figures.at("replies"), 1);
        EXPECT_EQ(each.figures.at("reversed"), 0);
    }
}

} // namespace
} // namespace olv_bench
