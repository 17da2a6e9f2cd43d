// Times each operation of the library beside its floor. See scripts/bench.sh.
#include <ctime>
#include <string>

#include <benchmark/benchmark.h>

#include "floor.hpp"

namespace {

/** Responders and binds that are made, used and removed in one round. */
constexpr std::uint32_t batch = 1024;

/** Processor time of this thread: what else the machine does is not in it. */
double seconds_now()
{
    timespec now = {};
    (void)clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/** Run an operation on everything in a batch. @return Seconds; negative where a run failed. */
double run_batch(olv_bench::bed &bed, const olv_bench::operation &operation)
{
    std::uint32_t status = 0;
    const double begin = seconds_now();
    for (std::size_t i = 0; i < batch; ++i) {
        bed.select(i);
        status |= operation.run(bed);
    }
    const double elapsed = seconds_now() - begin;
    return status == 0 ? elapsed : -1;
}

/** Rounds of all operations of a side: what the timed one needs is there, what it leaves goes. */
void run_rounds(benchmark::State &state, std::span<const olv_bench::operation> side, std::size_t timed)
{
    olv_bench::bed bed(batch);
    for ([[maybe_unused]] auto _ : state) {
        for (std::size_t i = 0; i < side.size(); ++i) {
            const double seconds = run_batch(bed, side[i]);
            if (seconds < 0) {
                state.SkipWithError(side[i].name);
                return;
            }
            if (i == timed) {
                state.SetIterationTime(seconds);
            }
        }
        bed.free_records();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * batch);
}

void register_side(const char *side_name, std::span<const olv_bench::operation> side)
{
    for (std::size_t i = 0; i < side.size(); ++i) {
        const std::string name = std::string(side[i].name) + '/' + side_name;
        benchmark::RegisterBenchmark(name.c_str(), [side, i](benchmark::State &state) {
            run_rounds(state, side, i);
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
    register_side("library", olv_bench::operations);
    register_side("floor", olv_bench::operation_floors);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
