// What an operation costs with one responder, and with sixteen million of them. See scripts/bench.sh.
#include <chrono>
#include <cstdio>
#include <exception>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <benchmark/benchmark.h>

#include "populated_module.hpp"

namespace {

using olv_bench::populated_module;
using clock_type = std::chrono::steady_clock;
using olv_bench::visiting_order;
using step = void (populated_module::*)();

constexpr std::uint32_t most_responders = 16'000'000;

constexpr std::pair<const char *, visiting_order> orders[] = {{"in_turn", visiting_order::in_turn},
                                                              {"at_random", visiting_order::at_random}};

/** The modules that were asked for so far. Those visited at random are others: who is deleted and created at
 *  random has no neighbour any more. */
class module_park {
  public:
    populated_module &with(std::uint32_t responders, visiting_order order)
    {
        std::unique_ptr<populated_module> &module = modules_[{responders, order}];
        if (module == nullptr) {
            module = std::make_unique<populated_module>(responders);
        }
        return *module;
    }

  private:
    std::map<std::pair<std::uint32_t, visiting_order>, std::unique_ptr<populated_module>> modules_;
};

/** An operation on a group of responders; what is done before and after it is not timed. */
struct timed_operation {
    const char *name;
    step before;
    step timed;
    step after;
};

constexpr timed_operation operations[] = {
    {"statistics", nullptr, &populated_module::read_chosen, nullptr},
    {"delete", nullptr, &populated_module::delete_chosen, &populated_module::create_chosen},
    {"create", &populated_module::delete_chosen, &populated_module::create_chosen, nullptr},
    {"bind", nullptr, &populated_module::bind_chosen, &populated_module::unbind_chosen},
    {"unbind", &populated_module::bind_chosen, &populated_module::unbind_chosen, nullptr},
    {"lookup", nullptr, &populated_module::look_up, nullptr},
};

void take(populated_module &module, step taken)
{
    if (taken != nullptr) {
        (module.*taken)();
    }
}

void measure(benchmark::State &state, populated_module &module, const timed_operation &operation,
             visiting_order order)
{
    for ([[maybe_unused]] auto each : state) {
        module.choose(order);
        take(module, operation.before);
        const auto start = clock_type::now();
        take(module, operation.timed);
        state.SetIterationTime(std::chrono::duration<double>(clock_type::now() - start).count());
        take(module, operation.after);
    }
    const auto count = static_cast<double>(module.responders());
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(module.chosen()));
    state.counters["library_bytes"] = static_cast<double>(module.memory().library_bytes) / count;
    state.counters["platform_bytes"] = static_cast<double>(module.memory().platform_bytes) / count;
}

void register_all(module_park &modules, const std::vector<std::uint32_t> &populations)
{
    for (const timed_operation &operation : operations) {
        for (const auto &[order_name, order] : orders) {
            for (const std::uint32_t responders : populations) {
                const std::string name =
                    std::string(operation.name) + "/" + order_name + "/" + std::to_string(responders);
                benchmark::RegisterBenchmark(name.c_str(), [&operation, &modules, order = order,
                                                            responders](benchmark::State &state) {
                    measure(state, modules.with(responders, order), operation, order);
                })->UseManualTime();
            }
        }
    }
}

int run_all(int argc, char **argv)
{
    std::vector<std::uint32_t> populations{1, 1000, 1'000'000, most_responders};
    CLI::App program{"What the library's operations cost beside more and more responders."};
    program.add_option("--responders", populations, "Numbers of responders")
        ->delimiter(',')
        ->check(CLI::Range(std::uint32_t{1}, most_responders));
    program.allow_extras()->footer("Further options are Google Benchmark's, such as --benchmark_out=FILE.");
    CLI11_PARSE(program, argc, argv);

    std::vector<std::string> others = program.remaining();
    std::vector<char *> arguments{argv[0]};
    for (std::string &each : others) {
        arguments.push_back(each.data());
    }
    int count = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
        return 2;
    }
    module_park modules;
    register_all(modules, populations);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    try {
        return run_all(argc, argv);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "scale_bench: %s\n", error.what());
        return 2;
    }
}
