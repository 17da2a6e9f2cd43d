// soak: control operations and faults at random while packets flow, for as long as one likes.
#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <deque>
#include <thread>

#include "apps/common/command_line.hpp"
#include "apps/common/errors.hpp"
#include "olv_sim/framework.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/resources.hpp"
#include "olv_sim/violations.hpp"
#include "resident_memory.hpp"
#include "silence.hpp"
#include "station.hpp"

namespace {

using clock_type = std::chrono::steady_clock;
constexpr std::uint32_t processors = 2; ///< Each with a module and senders.

struct soak_options {
    double seconds = 60;
    std::uint32_t responders = 5000;
    std::uint64_t seed = 1;
};

/** What may not grow. */
struct memory_use {
    std::size_t resident = olv_test::resident_bytes();
    std::size_t mapped_blocks = olv_sim::memory::in_use().mapped_bytes;

    [[nodiscard]] bool is_flat_since(const memory_use &before) const
    {
        constexpr std::size_t tolerance = 1 << 20;
        std::size_t most = before.resident + before.resident / 20 + tolerance;
#ifdef __SANITIZE_ADDRESS__
        most = SIZE_MAX; // It keeps what is freed for a while, to notice its use.
#endif
        return mapped_blocks <= before.mapped_blocks + tolerance && resident <= most;
    }
};

void print(const olv_soak::totals &all, const memory_use &early, const memory_use &late)
{
    std::printf("operations: %" PRIu64 ", returned a failure: %" PRIu64 ", different statuses: %zu\n"
                "packets sent: %" PRIu64 ", replies: %" PRIu64 "\n"
                "memory at the end: %.3f of what it was after a quarter of the time\n",
                all.operations, all.failures, all.statuses.size(), all.sent, all.replies,
                static_cast<double>(late.resident) / static_cast<double>(early.resident));
}

/** Run until the time is over or something is wrong. */
void wait_until(clock_type::time_point end, const std::deque<olv_soak::station> &stations)
{
    while (clock_type::now() < end && std::ranges::all_of(stations, &olv_soak::station::is_good)) {
        std::this_thread::sleep_for(std::chrono::milliseconds{100});
    }
}

void soak(const soak_options &options)
{
    using olv_soak::require;
    const std::size_t blocks = olv_sim::memory::in_use().live_blocks;
    const std::size_t patterns = olv_sim::patterns::live();
    olv_sim::framework framework;
    std::deque<olv_soak::station> stations;
    olv_soak::totals all;
    memory_use early;
    memory_use late;
    {
        const olv_test::silence quiet; // Operations print, a lot.
        for (std::uint32_t index = 0; index < processors; ++index) {
            stations.emplace_back(framework, options.responders, options.seed + index);
        }
        std::ranges::for_each(stations, &olv_soak::station::start); // from here on calls fail, of any of them
        const auto after = [&, begin = clock_type::now()](double share) {
            return begin + std::chrono::duration_cast<clock_type::duration>(
                               std::chrono::duration<double>(options.seconds * share));
        };
        wait_until(after(0.25), stations);
        early = {};
        wait_until(after(1), stations);
        late = {};
        std::ranges::for_each(stations, &olv_soak::station::stop_operations);
        for (olv_soak::station &each : stations) {
            all.add(each.finish());
        }
    }
    print(all, early, late);
    require(late.is_flat_since(early), "memory has grown");
    require(olv_sim::memory::in_use().live_blocks == blocks, "blocks are left");
    require(olv_sim::patterns::live() == patterns, "patterns are left");
    require(olv_sim::violations::count() == 0, "a rule of the platform was broken, see above");
}

} // namespace

int main(int argc, char **argv)
{
    soak_options options;
    olv_apps::command_line line{
        "soak", "Random control operations with random faults on many responders, while packets flow."};
    const olv_apps::command command = line.options();
    command.add_option("--seconds", options.seconds, "How long (60)");
    command.add_option("--responders", options.responders, "IDs of each processor (5000)");
    command.add_option("--seed", options.seed, "Of what happens (1)");
    if (const auto status = line.read_or_report("soak", {argv + 1, argv + argc})) {
        return *status;
    }
    try {
        soak(options);
    } catch (const std::exception &problem) {
        olv_apps::report_error("soak", "%s (seed %" PRIu64 ")", problem.what(), options.seed);
        return olv_apps::exit_failed;
    }
    std::puts("good: nothing is left, every counter adds up");
    return olv_apps::exit_good;
}
