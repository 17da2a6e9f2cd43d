#include "bench_report.hpp"

#include <cstdio>
#include <string>

#include <nlohmann/json.hpp>

namespace reflect_bench {
namespace {

constexpr std::size_t longest_line = 200;

template <typename... Values> std::string formatted(const char *format, Values... values)
{
    char line[longest_line];
    (void)std::snprintf(line, sizeof line, format, values...); // cut where it is too long
    return line;
}

nlohmann::ordered_json json_of(const std::vector<target> &targets)
{
    nlohmann::ordered_json json;
    for (const target &each : targets) {
        json.push_back({{"target", each.text}, {"value", each.value}, {"met", each.met}});
    }
    return json;
}

void write_targets(std::ostream &out, const std::vector<target> &targets)
{
    for (const target &each : targets) {
        out << formatted("       %s: %.3f, %s\n", each.text.c_str(), each.value, each.met ? "met" : "MISSED");
    }
}

nlohmann::ordered_json json_of(const turn_figures &turn)
{
    return {{"replies_per_second", turn.replies_per_second},
            {"round_trip_p50_ns", turn.p50},
            {"round_trip_p99_ns", turn.p99},
            {"server_ns_per_reply", turn.server_nanoseconds},
            {"sent", turn.sent},
            {"lost", turn.lost},
            {"kernel_drops", turn.kernel_drops}};
}

nlohmann::ordered_json json_of(const subject_figures &subject)
{
    nlohmann::ordered_json json = json_of(subject.total);
    json["turns"] = nlohmann::ordered_json::array();
    for (const turn_figures &turn : subject.turns) {
        json["turns"].push_back(json_of(turn));
    }
    return json;
}

nlohmann::ordered_json json_of(const case_figures &figures)
{
    nlohmann::ordered_json json{{"window", figures.traffic.window},
                                {"sessions", figures.traffic.sessions},
                                {"octets", figures.traffic.length}};
    for (std::size_t which = 0; which < subject_count; ++which) {
        json["servers"][subject_names[which]] = json_of(figures.subjects[which]);
    }
    json["replies_by_plain_echo"] = figures.ratio(plain, &turn_figures::replies_per_second);
    json["replies_by_batched_echo"] = figures.ratio(batched, &turn_figures::replies_per_second);
    json["p50_by_plain_echo"] = figures.ratio(plain, &turn_figures::p50);
    json["p50_by_batched_echo"] = figures.ratio(batched, &turn_figures::p50);
    json["module_transmitted"] = figures.counted;
    json["module_sessions"] = figures.sessions;
    json["targets"] = json_of(targets_of(figures));
    return json;
}

nlohmann::ordered_json json_of(const scaling_figures &figures, crew which)
{
    return {{"replies_per_second", figures.median_of(which, &backlog_figures::replies_per_second)},
            {"server_ns_per_reply", figures.median_of(which, &backlog_figures::server_nanoseconds)},
            {"least_share", figures.median_of(which, &backlog_figures::least_share)}};
}

void write_crew(std::ostream &out, const scaling_figures &figures, crew which)
{
    out << formatted("%13s %10.0f %9.0f %12.3f\n", crew_names[which],
                     figures.median_of(which, &backlog_figures::replies_per_second),
                     figures.median_of(which, &backlog_figures::server_nanoseconds),
                     figures.median_of(which, &backlog_figures::least_share));
}

void write_ratios(std::ostream &out, const scaling_figures &figures, crew other)
{
    out << formatted(
        "       beside %s: %.3f of the replies per second, %.3f of the processor time of a reply\n",
        crew_names[other], figures.ratio(other, &backlog_figures::replies_per_second),
        figures.ratio(other, &backlog_figures::server_nanoseconds));
}

} // namespace

void write_heading(std::ostream &out, const bench_options &options, const core_choice &cores)
{
    if (cores.apart()) {
        out << formatted("server on core %d, generator on core %d", *cores.server, *cores.generator);
    } else {
        out << "one core for server and generator: the figures say little";
    }
    out << formatted("; medians of %u rounds of %lld ms for each server\n", options.rounds,
                     static_cast<long long>(options.turn.count()));
    out << formatted("%6s %8s %6s  %-12s %10s %8s %8s %9s %6s %6s\n", "window", "sessions", "octets", "server",
                     "replies/s", "p50 us", "p99 us", "busy ns", "lost", "drops");
}

void write_case(std::ostream &out, const case_figures &figures)
{
    for (std::size_t which = 0; which < subject_count; ++which) {
        const turn_figures &total = figures.subjects[which].total;
        out << formatted("%6u %8u %6zu  %-12s %10.0f %8.2f %8.2f %9.0f %6llu %6llu\n", figures.traffic.window,
                         figures.traffic.sessions, figures.traffic.length, subject_names[which],
                         total.replies_per_second, total.p50 / 1000, total.p99 / 1000, total.server_nanoseconds,
                         static_cast<unsigned long long>(total.lost),
                         static_cast<unsigned long long>(total.kernel_drops));
    }
    write_targets(out, targets_of(figures));
}

void write_json(std::ostream &out, const std::vector<case_figures> &cases, const bench_options &options,
                const core_choice &cores)
{
    nlohmann::ordered_json json{{"quick", options.quick},
                                {"rounds", options.rounds},
                                {"turn_ms", options.turn.count()},
                                {"cores_apart", cores.apart()}};
    for (const case_figures &each : cases) {
        json["cases"].push_back(json_of(each));
    }
    out << json.dump(2) << '\n';
}

void write_scaling(std::ostream &out, const scaling_figures &figures, std::size_t cores)
{
    out << formatted(
        "%u workers on %zu cores; medians of %zu rounds of %zu senders, %u requests each, that wait\n",
        figures.options.workers, cores, figures.rounds[one_worker].size(), figures.options.senders,
        figures.options.requests_each);
    out << formatted("%13s %10s %9s %12s\n", "", "replies/s", "busy ns", "least share");
    for (const crew each : {one_worker, all_workers, servers_apart}) {
        write_crew(out, figures, each);
    }
    for (const crew each : {one_worker, servers_apart}) {
        write_ratios(out, figures, each);
    }
    write_targets(out, targets_of(figures));
}

void write_scaling_json(std::ostream &out, const scaling_figures &figures, std::size_t cores)
{
    const nlohmann::ordered_json json{
        {"quick", figures.options.quick},
        {"cores", cores},
        {"workers", figures.options.workers},
        {"rounds", figures.rounds[one_worker].size()},
        {"senders", figures.options.senders},
        {"requests_each", figures.options.requests_each},
        {"one_worker", json_of(figures, one_worker)},
        {"all_workers", json_of(figures, all_workers)},
        {"servers_apart", json_of(figures, servers_apart)},
        {"replies_by_one_worker", figures.ratio(one_worker, &backlog_figures::replies_per_second)},
        {"server_ns_by_one_worker", figures.ratio(one_worker, &backlog_figures::server_nanoseconds)},
        {"replies_by_servers_apart", figures.ratio(servers_apart, &backlog_figures::replies_per_second)},
        {"server_ns_by_servers_apart", figures.ratio(servers_apart, &backlog_figures::server_nanoseconds)},
        {"lost", figures.lost()},
        {"targets", json_of(targets_of(figures))}};
    out << json.dump(2) << '\n';
}

} // namespace reflect_bench
