#include "comparison.hpp"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include "echo_server.hpp"
#include "percentiles.hpp"
#include "reflector_server.hpp"

namespace olv_bench {
namespace {

/** Each turn begins with so many requests that are not measured. */
constexpr std::uint64_t requests_before = 2000;

void start_on(server &subject, const std::optional<int> &core)
{
    const pinned here{core};
    subject.start();
}

/** @param before  Requests to send first. */
run take_turn(std::string name, server &subject, generator &traffic, std::uint64_t before,
              std::chrono::nanoseconds duration, const core_choice &cores)
{
    start_on(subject, cores.server);
    traffic.aim(subject.address(), subject.number_position());
    const std::uint64_t dropped = subject.dropped() + traffic.dropped();
    traffic.send_requests(before);
    const double busy_before = seconds_of_other_threads();
    traffic_figures seen = traffic.run(duration);
    const double busy = seconds_of_other_threads() - busy_before;
    const auto replies = static_cast<double>(std::max<std::uint64_t>(seen.received, 1));
    run turn{.name = std::move(name),
             .figures = {
                 {"replies_per_second", seen.replies_per_second()},
                 {"p50_ns", percentile(seen.round_trips, 50)},
                 {"p99_ns", percentile(seen.round_trips, 99)},
                 {"server_ns", busy * 1e9 / replies},
                 {"lost", static_cast<double>(seen.lost)},
                 {"kernel_drops", static_cast<double>(subject.dropped() + traffic.dropped() - dropped)},
             }};
    subject.stop();
    return turn;
}

} // namespace

std::vector<run> compare(const traffic_case &traffic, const comparison_options &options,
                         const core_choice &cores)
{
    const std::string name = std::to_string(traffic.window) + "/" + std::to_string(traffic.sessions) + "/" +
                             std::to_string(traffic.octets) + "/";
    echo_server plain{echo_one_by_one};
    echo_server batched{echo_in_batches};
    reflector_server reflector{traffic.sessions};
    const std::pair<const char *, server *> servers[] = {
        {"plain_echo", &plain}, {"batched_echo", &batched}, {"reflector", &reflector}};
    const pinned here{cores.generator};
    generator source{{.window = traffic.window,
                      .sessions = traffic.sessions,
                      .length = traffic.octets,
                      .spins = cores.apart(),
                      .patience = options.patience}};
    std::vector<run> turns;
    for (unsigned round = 0; round < options.rounds; ++round) {
        // Each session begins before the first turn that is measured.
        const std::uint64_t before =
            round == 0 ? std::max<std::uint64_t>(requests_before, traffic.sessions) : requests_before;
        for (std::size_t place = 0; place < std::size(servers); ++place) {
            const auto &[server_name, subject] = servers[(round + place) % std::size(servers)];
            turns.push_back(take_turn(name + server_name, *subject, source, before, options.turn, cores));
        }
    }
    const double sessions = reflector.counters().active_sessions;
    turns.push_back({.name = name + "module", .figures = {{"sessions_missed", traffic.sessions - sessions}}});
    return turns;
}

} // namespace olv_bench
