// reflect_bench: the fast path over loopback. See scripts/bench.sh.
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "clock_error.hpp"
#include "comparison.hpp"
#include "worker_scaling.hpp"

namespace {

using namespace olv_bench;
using namespace std::chrono_literals;

struct settings {
    std::string part;
    std::string json_file;
    bool quick = false;
    std::vector<std::uint32_t> windows{1, 32, 256};
    std::vector<std::uint32_t> sessions{1, 100000};
    std::vector<std::size_t> octets{44, 1400};
    comparison_options comparison;
    scaling_options scaling;
    clock_options clock;

    /** Small sizes, runs of seconds. No time is judged then, and what comes late on a busy machine is not lost.
     */
    void make_quick()
    {
        sessions = {1, 1000};
        comparison = {.rounds = 1, .turn = 20ms, .patience = 30s};
        scaling.rounds = 3;
        scaling.patience = 30s;
        clock = {.intervals = 5, .interval = 1s};
    }
};

void add_options(CLI::App &program, settings &chosen)
{
    program
        .add_option(
            "PART", chosen.part,
            "reflect: beside echo servers; workers: several workers beside one; clock: time stamps beside "
            "the wall clock")
        ->required()
        ->check(CLI::IsMember({"reflect", "workers", "clock"}));
    program.add_option("--json", chosen.json_file, "Write the figures to this file instead of standard output");
    program.add_flag("--quick", chosen.quick, "A few small measurements: whether all works, no more");
    program.add_option("--windows", chosen.windows, "Requests on their way at the same time")
        ->delimiter(',')
        ->check(CLI::Range(1, 4096));
    program.add_option("--sessions", chosen.sessions, "Sender addresses")
        ->delimiter(',')
        ->check(CLI::Range(1, 1000000));
    program.add_option("--octets", chosen.octets, "Length of a request")
        ->delimiter(',')
        ->check(CLI::Range(41, 1472));
    program.add_option("--rounds", chosen.comparison.rounds, "Turns of each server")
        ->check(CLI::Range(1, 1000));
    program.add_option("--workers", chosen.scaling.workers, "How many answer together")
        ->check(CLI::Range(2, 64));
    program
        .add_option("--intervals", chosen.clock.intervals, "How often 10 seconds of time stamps are looked at")
        ->check(CLI::Range(1, 8640));
}

std::vector<run> compare_all(const settings &chosen)
{
    const core_choice cores = choose_cores(usable_cores());
    if (!cores.apart()) {
        std::fprintf(stderr, "one core for server and generator: the figures say little\n");
    }
    std::vector<run> all;
    for (const std::uint32_t window : chosen.windows) {
        for (const std::uint32_t sessions : chosen.sessions) {
            for (const std::size_t octets : chosen.octets) {
                std::fprintf(stderr, "window %u, %u session(s), %zu octets\n", window, sessions, octets);
                const std::vector<run> turns = compare({window, sessions, octets}, chosen.comparison, cores);
                all.insert(all.end(), turns.begin(), turns.end());
            }
        }
    }
    return all;
}

std::vector<run> measure(const settings &chosen)
{
    if (chosen.part == "reflect") {
        return compare_all(chosen);
    }
    return chosen.part == "workers" ? measure_scaling(chosen.scaling) : measure_clock(chosen.clock);
}

} // namespace

int main(int argc, char **argv)
{
    try {
        settings chosen;
        CLI::App program{"Measures the fast path over loopback."};
        add_options(program, chosen);
        CLI11_PARSE(program, argc, argv);
        if (chosen.quick) {
            chosen.make_quick();
        }
        write_report(chosen.json_file, measure(chosen), chosen.quick);
        return 0;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "reflect_bench: %s\n", error.what());
        return 2;
    }
}
