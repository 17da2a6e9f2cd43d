// scale_bench: what an operation costs beside more and more responders, whose numbers are the arguments. See
// scripts/bench.sh.
#include <charconv>
#include <chrono>
#include <cstdio>
#include <exception>
#include <map>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include "populated_module.hpp"

namespace {

using olv_bench::operation;
using olv_bench::populated_module;
using olv_bench::visiting_order;
using clock_type = std::chrono::steady_clock;
namespace library = olv_bench::library;

constexpr std::uint32_t most_responders = 16'000'000;

constexpr std::pair<const char *, visiting_order> orders[] = {{"in_turn", visiting_order::in_turn},
                                                              {"at_random", visiting_order::at_random}};

/** An operation, and those that run before and after it without being timed, so that all stays as it was. */
struct timed_operation {
    const operation *before;
    const operation *timed;
    const operation *after;
};

constexpr timed_operation operations[] = {
    {nullptr, &library::statistics, nullptr},
    {nullptr, &olv_bench::remove_and_free, &library::create},
    {&olv_bench::remove_and_free, &library::create, nullptr},
    {nullptr, &library::bind, &library::unbind},
    {&library::bind, &library::unbind, nullptr},
    {nullptr, &library::lookup, nullptr},
};

/** The modules that were asked for so far. Each order has its own: where responders were deleted and created at
 *  random, they do not lie beside each other any more. */
class populated_modules {
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

void run(populated_module &module, const operation *operation)
{
    if (operation != nullptr) {
        module.run(*operation);
    }
}

void measure(benchmark::State &state, populated_module &module, const timed_operation &steps,
             visiting_order order)
{
    for ([[maybe_unused]] auto each : state) {
        module.choose(order);
        run(module, steps.before);
        const auto start = clock_type::now();
        run(module, steps.timed);
        state.SetIterationTime(std::chrono::duration<double>(clock_type::now() - start).count());
        run(module, steps.after);
    }
    const auto count = static_cast<double>(module.responders());
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(module.chosen()));
    state.counters["library_bytes"] = static_cast<double>(module.memory().library_bytes) / count;
    state.counters["platform_bytes"] = static_cast<double>(module.memory().platform_bytes) / count;
}

void register_all(populated_modules &modules, const std::vector<std::uint32_t> &populations)
{
    for (const timed_operation &steps : operations) {
        for (const auto &[order_name, order] : orders) {
            for (const std::uint32_t responders : populations) {
                const std::string name =
                    std::string(steps.timed->name) + "/" + order_name + "/" + std::to_string(responders);
                benchmark::RegisterBenchmark(name.c_str(), [&steps, &modules, order = order,
                                                            responders](benchmark::State &state) {
                    measure(state, modules.with(responders, order), steps, order);
                })->UseManualTime();
            }
        }
    }
}

/** The arguments that are not Google Benchmark's own: numbers of responders. */
std::vector<std::uint32_t> populations_of(std::span<char *const> arguments)
{
    std::vector<std::uint32_t> populations;
    for (const std::string_view text : arguments) {
        std::uint32_t number = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        if (error != std::errc{} || end != text.data() + text.size() || number == 0 ||
            number > most_responders) {
            throw std::runtime_error("no number of responders from 1 to 16000000: " + std::string(text));
        }
        populations.push_back(number);
    }
    return populations;
}

} // namespace

int main(int argc, char **argv)
{
    try {
        benchmark::Initialize(&argc, argv);
        populated_modules modules;
        register_all(modules, populations_of(std::span(argv, static_cast<std::size_t>(argc)).subspan(1)));
        benchmark::RunSpecifiedBenchmarks();
        benchmark::Shutdown();
        return 0;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "scale_bench: %s\n", error.what());
        return 2;
    }
}
