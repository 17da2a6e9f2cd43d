// Times each operation of the library beside its platform calls. See scripts/bench.sh.
#include <ctime>
#include <span>
#include <string>

#include <benchmark/benchmark.h>

#include "platform_calls.hpp"

namespace {

/** Responders and binds that are made, used and removed in one iteration. */
constexpr std::uint32_t batch = 1024;

/** Processor time of this thread: what else the machine does is not in it. */
double seconds_now()
{
    timespec now = {};
    (void)clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/** Run an operation on each responder, or bind, of a batch. @return Seconds; negative: a call failed. */
double run_batch(olv_bench::measured_module &module, const olv_bench::operation &operation)
{
    std::uint32_t status = 0;
    const double begin = seconds_now();
    for (std::size_t i = 0; i < batch; ++i) {
        module.select(i);
        status |= operation.run(module);
    }
    const double elapsed = seconds_now() - begin;
    return status == 0 ? elapsed : -1;
}

/** Run all operations of a side in each iteration, so that each finds what it needs; time one of them. */
void time_operation(benchmark::State &state, std::span<const olv_bench::operation> side, std::size_t timed)
{
    olv_bench::measured_module module(batch);
    for ([[maybe_unused]] auto _ : state) {
        for (std::size_t i = 0; i < side.size(); ++i) {
            const double seconds = run_batch(module, side[i]);
            if (seconds < 0) {
                state.SkipWithError(side[i].name);
                return;
            }
            if (i == timed) {
                state.SetIterationTime(seconds);
            }
        }
        module.free_records();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * batch);
}

void register_side(const char *side_name, std::span<const olv_bench::operation> side)
{
    for (std::size_t i = 0; i < side.size(); ++i) {
        const std::string name = std::string(side[i].name) + '/' + side_name;
        benchmark::RegisterBenchmark(name.c_str(), [side, i](benchmark::State &state) {
            time_operation(state, side, i);
        })->UseManualTime();
    }
}

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    register_side("library", olv_bench::library::operations);
    register_side("platform_calls", olv_bench::platform_calls::operations);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
