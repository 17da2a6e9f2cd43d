// reflect_bench: the fast path over loopback, beside echo servers in the same run.
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "bench_report.hpp"
#include "comparison.hpp"
#include "pinning.hpp"

namespace {

using namespace reflect_bench;

constexpr int status_of_missed_target = 1;
constexpr int status_of_failure = 2;

struct settings {
    bench_options bench;
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

void save(const settings &chosen, const std::vector<case_figures> &all, const core_choice &cores)
{
    std::ofstream file{chosen.json_file};
    write_json(file, all, chosen.bench, cores);
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write " + chosen.json_file);
    }
}

bool all_met(const std::vector<case_figures> &all)
{
    bool met = true;
    for (const case_figures &each : all) {
        for (const target &one : targets_of(each)) {
            met = met && one.met;
        }
    }
    return met;
}

int run(const settings &chosen)
{
    const core_choice cores = choose_cores(usable_cores());
    write_heading(std::cout, chosen.bench, cores);
    const std::vector<case_figures> all = measure_all(chosen.bench, cores);
    if (!chosen.json_file.empty()) {
        save(chosen, all, cores);
    }
    return chosen.check && !all_met(all) ? status_of_missed_target : 0;
}

} // namespace

int main(int argc, char **argv)
{
    try {
        settings chosen;
        unsigned turn_milliseconds = 300;
        CLI::App program{
            "Replies per second and round trips of the fast path over loopback, beside echo servers."};
        add_options(program, chosen, turn_milliseconds);
        CLI11_PARSE(program, argc, argv);
        chosen.bench.turn = std::chrono::milliseconds{turn_milliseconds};
        if (chosen.bench.quick) {
            chosen.bench.rounds = 1;
            chosen.bench.turn = std::chrono::milliseconds{20};
            chosen.bench.sessions = {1, 1000};
        }
        return run(chosen);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "reflect_bench: %s\n", error.what());
        return status_of_failure;
    }
}
