// Turns, ratios, targets, and how they are written.

#include "comparison.hpp"

#include <sstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "bench_report.hpp"

namespace {

using namespace reflect_bench;

turn_figures turn(double rate, double p50, std::uint64_t lost = 0, std::uint64_t drops = 0)
{
    return {.replies_per_second = rate,
            .p50 = p50,
            .p99 = p50 * 2,
            .server_nanoseconds = 500,
            .sent = 1000,
            .lost = lost,
            .kernel_drops = drops};
}

/** Three rounds: the reflector makes 0.9, 0.96 and 1.1 of the batched echo's replies. */
case_figures figures_of(std::uint32_t window)
{
    case_figures figures{.traffic = {window, 1, 44}, .subjects = {}};
    figures.subjects[plain].turns = {turn(100, 10000), turn(200, 20000), turn(300, 30000)};
    figures.subjects[batched].turns = {turn(1000, 8000), turn(500, 9000), turn(100, 9500)};
    figures.subjects[reflector].turns = {turn(900, 10400), turn(480, 22000, 1, 1), turn(110, 30000, 2, 3)};
    figures.counted = 3000;
    figures.sessions = 1;
    sum_up(figures);
    return figures;
}

TEST(comparison, totals_are_medians_and_sums)
{
    const case_figures figures = figures_of(32);
    const turn_figures &total = figures.subjects[reflector].total;
    EXPECT_EQ(total.replies_per_second, 480);
    EXPECT_EQ(total.p50, 22000);
    EXPECT_EQ(total.p99, 44000);
    EXPECT_EQ(total.sent, 3000u);
    EXPECT_EQ(total.lost, 3u);
    EXPECT_EQ(total.kernel_drops, 4u);
}

TEST(comparison, ratio_is_the_median_of_the_rounds_ratios)
{
    const case_figures figures = figures_of(32);
    EXPECT_DOUBLE_EQ(figures.ratio(batched, &turn_figures::replies_per_second), 0.96);
    EXPECT_DOUBLE_EQ(figures.ratio(plain, &turn_figures::p50), 1.04);
    EXPECT_EQ(case_figures{}.ratio(plain, &turn_figures::p50), 0.0);
}

TEST(comparison, targets_depend_on_the_window)
{
    const std::vector<target> single = targets_of(figures_of(1));
    ASSERT_EQ(single.size(), 1u);
    EXPECT_EQ(single[0].text, "round-trip p50 at most 1.05 of the plain echo's");
    EXPECT_DOUBLE_EQ(single[0].value, 1.04);
    EXPECT_TRUE(single[0].met);

    const std::vector<target> several = targets_of(figures_of(32));
    ASSERT_EQ(several.size(), 1u);
    EXPECT_EQ(several[0].text, "replies per second at least 0.95 of the batched echo's");
    EXPECT_TRUE(several[0].met);

    const std::vector<target> many = targets_of(figures_of(256));
    ASSERT_EQ(many.size(), 2u);
    EXPECT_EQ(many[1].text, "no request lost");
    EXPECT_EQ(many[1].value, 3);
    EXPECT_FALSE(many[1].met);
}

TEST(comparison, targets_that_are_missed_are_not_met)
{
    case_figures slow = figures_of(32);
    slow.subjects[reflector].turns = {turn(940, 1), turn(470, 1), turn(94, 1)};
    EXPECT_FALSE(targets_of(slow)[0].met);
    case_figures late = figures_of(1);
    late.subjects[reflector].turns = {turn(1, 10600), turn(1, 21200), turn(1, 31800)};
    EXPECT_FALSE(targets_of(late)[0].met);
}

TEST(comparison, cores_are_two_where_there_are_two)
{
    EXPECT_TRUE(choose_cores({0, 1}).apart());
    EXPECT_EQ(choose_cores({2, 5, 7}).server, 2);
    EXPECT_EQ(choose_cores({2, 5, 7}).generator, 5);
    EXPECT_FALSE(choose_cores({3}).apart());
    EXPECT_EQ(choose_cores({3}).generator, 3);
    EXPECT_FALSE(choose_cores({}).apart());
}

TEST(comparison, every_server_has_its_turns_and_the_module_counts)
{
    const bench_options options{
        .rounds = 2, .turn = std::chrono::milliseconds{20}, .patience = std::chrono::seconds{30}};
    const case_figures figures = measure({32, 10, 44}, options, {});
    for (const subject_figures &each : figures.subjects) {
        ASSERT_EQ(each.turns.size(), 2u);
        EXPECT_GT(each.total.replies_per_second, 0);
        EXPECT_GT(each.total.p50, 0);
        EXPECT_GE(each.total.p99, each.total.p50);
        EXPECT_EQ(each.total.lost, 0u);
    }
    EXPECT_EQ(figures.sessions, 10u);
    EXPECT_EQ(figures.counted, figures.subjects[reflector].total.sent + 2 * 2000);
}

TEST(report, table_has_a_line_for_each_server_and_target)
{
    std::ostringstream out;
    write_case(out, figures_of(256));
    EXPECT_EQ(out.str(),
              "   256        1     44  plain echo          200    20.00    40.00       500      0      0\n"
              "   256        1     44  batched echo        500     9.00    18.00       500      0      0\n"
              "   256        1     44  reflector           480    22.00    44.00       500      3      4\n"
              "       replies per second at least 0.95 of the batched echo's: 0.960, met\n"
              "       no request lost: 3.000, MISSED\n");
}

TEST(report, heading_says_when_there_is_one_core_only)
{
    std::ostringstream two;
    write_heading(two, {}, choose_cores({0, 1}));
    EXPECT_EQ(two.str().substr(0, two.str().find('\n')),
              "server on core 0, generator on core 1; medians of 25 rounds of 100 ms for each server");
    std::ostringstream one;
    write_heading(one, {}, choose_cores({0}));
    EXPECT_EQ(one.str().substr(0, one.str().find(';')),
              "one core for server and generator: the figures say little");
}

TEST(report, json_has_medians_turns_ratios_and_targets)
{
    std::ostringstream out;
    write_json(out, {figures_of(32)}, {}, choose_cores({0, 1}));
    const nlohmann::json json = nlohmann::json::parse(out.str());
    EXPECT_EQ(json["quick"], false);
    EXPECT_EQ(json["rounds"], 25);
    EXPECT_EQ(json["turn_ms"], 100);
    EXPECT_EQ(json["cores_apart"], true);
    ASSERT_EQ(json["cases"].size(), 1u);
    const nlohmann::json &one = json["cases"][0];
    EXPECT_EQ(one["window"], 32);
    EXPECT_EQ(one["sessions"], 1);
    EXPECT_EQ(one["octets"], 44);
    EXPECT_EQ(one["servers"]["reflector"]["replies_per_second"], 480.0);
    EXPECT_EQ(one["servers"]["reflector"]["round_trip_p50_ns"], 22000.0);
    EXPECT_EQ(one["servers"]["reflector"]["lost"], 3);
    EXPECT_EQ(one["servers"]["reflector"]["kernel_drops"], 4);
    EXPECT_EQ(one["servers"]["plain echo"]["turns"].size(), 3u);
    EXPECT_EQ(one["replies_by_batched_echo"], 0.96);
    EXPECT_EQ(one["p50_by_plain_echo"], 1.04);
    EXPECT_EQ(one["module_transmitted"], 3000);
    EXPECT_EQ(one["targets"][0]["met"], true);
}

TEST(report, is_marked_where_it_is_of_a_quick_run)
{
    std::ostringstream out;
    write_json(out, {}, {.quick = true}, {});
    EXPECT_EQ(nlohmann::json::parse(out.str())["quick"], true);
}

} // namespace
