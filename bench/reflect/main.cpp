// reflect_bench: the fast path over loopback, beside echo servers in the same run.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <fstream>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "bench_report.hpp"
#include "comparison.hpp"
#include "fastpath/udp/udp_workers.hpp"
#include "pinning.hpp"
#include "scaling.hpp"

namespace {

using namespace reflect_bench;

constexpr int status_of_missed_target = 1;
constexpr int status_of_failure = 2;

struct settings {
    bench_options bench;
    scaling_options scaling{.workers = 1};
    std::string json_file;
    bool check = false;
};

void add_options(CLI::App &program, settings &chosen, unsigned &turn_milliseconds)
{
    program.add_option("--windows", chosen.bench.windows, "Requests on their way at the same time")
        ->delimiter(',')
        ->check(CLI::Range(1, 4096));
    program.add_option("--sessions", chosen.bench.sessions, "Sender addresses")
        ->delimiter(',')
        ->check(CLI::Range(1, 1000000));
    program.add_option("--lengths", chosen.bench.lengths, "Octets of a request")
        ->delimiter(',')
        ->check(CLI::Range(41, 1472));
    program.add_option("--rounds", chosen.bench.rounds, "Turns of each server")->check(CLI::Range(1, 1000));
    program.add_option("--turn", turn_milliseconds, "Milliseconds of a turn")->check(CLI::Range(1, 60000));
    program
        .add_option("--busy-poll", chosen.bench.server.busy_poll_microseconds,
                    "Microseconds for which the reflector looks for packets before it sleeps")
        ->check(CLI::Range(0, 1000000));
    program.add_flag("!--no-segments", chosen.bench.server.segments,
                     "Have each reply leave as a datagram of its own");
    program.add_flag("!--no-together", chosen.bench.server.together,
                     "Have the reflector receive each request as a message of its own");
    program.add_flag("--segmented-requests", chosen.bench.segmented_requests,
                     "Send the requests of one session as segmented datagrams");
    program
        .add_option("--workers", chosen.scaling.workers,
                    "Instead of all this, measure so many workers beside one and beside servers apart")
        ->check(CLI::Range(2u, olv_fastpath::udp_workers_options::most_workers));
    program.add_option("--json", chosen.json_file, "Write the figures to this file, too");
    program.add_flag("--quick", chosen.bench.quick,
                     "A round of 20 ms each, few sessions: whether it works, no more");
    program.add_flag("--check", chosen.check, "Exit status 1 when a target is missed");
}

std::vector<case_figures> measure_all(const bench_options &options, const core_choice &cores)
{
    std::vector<case_figures> all;
    for (const std::uint32_t window : options.windows) {
        for (const std::uint32_t sessions : options.sessions) {
            for (const std::size_t length : options.lengths) {
                all.push_back(measure({window, sessions, length}, options, cores));
                write_case(std::cout, all.back());
                std::cout.flush();
            }
        }
    }
    return all;
}

void save(const std::string &name, const std::function<void(std::ostream &)> &write)
{
    if (name.empty()) {
        return;
    }
    std::ofstream file{name};
    write(file);
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write " + name);
    }
}

bool all_met(const std::vector<target> &targets)
{
    return std::all_of(targets.begin(), targets.end(), [](const target &each) { return each.met; });
}

/** @return Whether all targets are met. */
bool compare(const settings &chosen)
{
    const core_choice cores = choose_cores(usable_cores());
    write_heading(std::cout, chosen.bench, cores);
    const std::vector<case_figures> all = measure_all(chosen.bench, cores);
    save(chosen.json_file, [&](std::ostream &file) { write_json(file, all, chosen.bench, cores); });
    return std::all_of(all.begin(), all.end(),
                       [](const case_figures &each) { return all_met(targets_of(each)); });
}

/** @return Whether all targets are met. */
bool scale(const settings &chosen)
{
    const std::size_t cores = usable_cores().size();
    const scaling_figures figures = measure_scaling(chosen.scaling, chosen.bench.server);
    write_scaling(std::cout, figures, cores);
    save(chosen.json_file, [&](std::ostream &file) { write_scaling_json(file, figures, cores); });
    return all_met(targets_of(figures));
}

int run(const settings &chosen)
{
    const bool met = chosen.scaling.workers > 1 ? scale(chosen) : compare(chosen);
    return chosen.check && !met ? status_of_missed_target : 0;
}

} // namespace

int main(int argc, char **argv)
{
    try {
        settings chosen;
        auto turn_milliseconds = static_cast<unsigned>(chosen.bench.turn.count());
        CLI::App program{
            "Replies per second and round trips of the fast path over loopback, beside echo servers."};
        add_options(program, chosen, turn_milliseconds);
        CLI11_PARSE(program, argc, argv);
        chosen.bench.turn = std::chrono::milliseconds{turn_milliseconds};
        if (chosen.bench.quick) {
            chosen.bench.rounds = 1;
            chosen.bench.turn = std::chrono::milliseconds{20};
            chosen.bench.sessions = {1, 1000};
            // No timing is judged: what comes late on a busy machine is not lost.
            chosen.bench.patience = std::chrono::seconds{30};
            chosen.scaling.patience = std::chrono::seconds{30};
            chosen.scaling.rounds = 3;
            chosen.scaling.quick = true;
        }
        return run(chosen);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "reflect_bench: %s\n", error.what());
        return status_of_failure;
    }
}
