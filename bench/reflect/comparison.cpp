#include "comparison.hpp"

#include <algorithm>
#include <memory>

#include "echo_server.hpp"
#include "percentiles.hpp"
#include "pinning.hpp"
#include "processor_time.hpp"
#include "reflector_server.hpp"

namespace reflect_bench {
namespace {

constexpr double least_rate = 0.95;
constexpr double longest_round_trip = 1.05;
constexpr std::uint32_t window_without_loss = 256;
/** Each turn begins with so many requests that are not measured. */
constexpr std::uint64_t requests_before = 2000;

void start_on(server &subject, const std::optional<int> &core)
{
    std::optional<pinned> here;
    if (core) {
        here.emplace(*core);
    }
    subject.start();
}

/** @param before  Requests to send first. */
turn_figures take_turn(server &subject, generator &traffic, std::chrono::nanoseconds duration,
                       std::uint64_t before, const core_choice &cores)
{
    start_on(subject, cores.server);
    traffic.aim(subject.address(), subject.number_position());
    const std::uint64_t dropped_before = dropped_at(traffic.port());
    traffic.send_requests(before);
    const double began = others_seconds();
    traffic_figures seen = traffic.run(duration);
    const double busy = others_seconds() - began;
    turn_figures figures;
    figures.replies_per_second = seen.replies_per_second();
    figures.p50 = percentile(seen.round_trips, 50);
    figures.p99 = percentile(seen.round_trips, 99);
    figures.server_nanoseconds = busy * 1e9 / static_cast<double>(std::max<std::uint64_t>(seen.received, 1));
    figures.sent = seen.sent;
    figures.lost = seen.lost;
    figures.kernel_drops = dropped_at(subject.address().port()) + dropped_at(traffic.port()) - dropped_before;
    subject.stop();
    return figures;
}

double median_of(const std::vector<turn_figures> &turns, double turn_figures::*figure)
{
    std::vector<double> values;
    values.reserve(turns.size());
    for (const turn_figures &each : turns) {
        values.push_back(each.*figure);
    }
    return median(values);
}

std::array<std::unique_ptr<server>, subject_count> make_subjects(std::unique_ptr<reflector_server> measured)
{
    return {std::make_unique<plain_echo>(), std::make_unique<batched_echo>(), std::move(measured)};
}

} // namespace

core_choice choose_cores(const std::vector<int> &usable)
{
    if (usable.empty()) {
        return {};
    }
    return {.server = usable.front(), .generator = usable.size() > 1 ? usable[1] : usable.front()};
}

double case_figures::ratio(subject echo, double turn_figures::*figure) const
{
    std::vector<double> ratios;
    const std::vector<turn_figures> &own = subjects[reflector].turns;
    const std::vector<turn_figures> &others = subjects[echo].turns;
    for (std::size_t round = 0; round < std::min(own.size(), others.size()); ++round) {
        if (others[round].*figure > 0) {
            ratios.push_back(own[round].*figure / (others[round].*figure));
        }
    }
    return median(ratios);
}

case_figures measure(const traffic_case &traffic, const bench_options &options, const core_choice &cores)
{
    auto measured = std::make_unique<reflector_server>(traffic.sessions, options.server);
    const reflector_server &module = *measured;
    const auto subjects = make_subjects(std::move(measured));
    std::optional<pinned> here;
    if (cores.generator) {
        here.emplace(*cores.generator);
    }
    generator source{{.window = traffic.window,
                      .sessions = traffic.sessions,
                      .length = traffic.length,
                      .segments = options.segmented_requests,
                      .spins = cores.apart(),
                      .patience = options.patience}};
    case_figures figures{.traffic = traffic, .subjects = {}};
    for (unsigned round = 0; round < options.rounds; ++round) {
        for (std::size_t place = 0; place < subject_count; ++place) {
            const std::size_t which = (round + place) % subject_count;
            // Each session is begun before the first turn.
            const std::uint64_t before =
                round == 0 ? std::max<std::uint64_t>(requests_before, traffic.sessions) : requests_before;
            figures.subjects[which].turns.push_back(
                take_turn(*subjects[which], source, options.turn, before, cores));
        }
    }
    const olv_twamp_responder_stats counted = module.counters();
    figures.counted = counted.transmitted;
    figures.sessions = counted.active_sessions;
    sum_up(figures);
    return figures;
}

void sum_up(case_figures &figures)
{
    for (subject_figures &each : figures.subjects) {
        turn_figures &total = each.total;
        total = {};
        total.replies_per_second = median_of(each.turns, &turn_figures::replies_per_second);
        total.p50 = median_of(each.turns, &turn_figures::p50);
        total.p99 = median_of(each.turns, &turn_figures::p99);
        total.server_nanoseconds = median_of(each.turns, &turn_figures::server_nanoseconds);
        for (const turn_figures &turn : each.turns) {
            total.sent += turn.sent;
            total.lost += turn.lost;
            total.kernel_drops += turn.kernel_drops;
        }
    }
}

std::vector<target> targets_of(const case_figures &figures)
{
    if (figures.traffic.window == 1) {
        const double round_trip = figures.ratio(plain, &turn_figures::p50);
        return {
            {"round-trip p50 at most 1.05 of the plain echo's", round_trip, round_trip <= longest_round_trip}};
    }
    const double rate = figures.ratio(batched, &turn_figures::replies_per_second);
    std::vector<target> targets{
        {"replies per second at least 0.95 of the batched echo's", rate, rate >= least_rate}};
    if (figures.traffic.window >= window_without_loss) {
        const std::uint64_t lost = figures.subjects[reflector].total.lost;
        targets.push_back({"no request lost", static_cast<double>(lost), lost == 0});
    }
    return targets;
}

} // namespace reflect_bench
