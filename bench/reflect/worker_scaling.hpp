/**
 * @file worker_scaling.hpp
 * Several workers beside one, and beside as many servers that share nothing.
 *
 * A generator that runs at the same time would take the cores that the workers are to have: on a machine of two
 * it would need one for itself. So many senders fill the workers' sockets first, while nobody answers. Then the
 * workers start, and have all cores until every request is answered. Nobody reads the replies meanwhile.
 *
 * Cores that work at the same time are slower than one alone, as they share caches, memory or even the units of
 * one core. What workers cost each other shows beside servers that work at the same time, each with a module, a
 * responder and an address of its own.
 */
#ifndef OLV_BENCH_WORKER_SCALING_HPP
#define OLV_BENCH_WORKER_SCALING_HPP

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "report.hpp"

namespace olv_bench {

struct scaling_options {
    std::uint32_t workers = 2;
    unsigned rounds = 60;
    std::size_t senders = 500;
    std::uint32_t requests_each = 16; ///< As many as a socket of either side has room for.
    std::chrono::seconds patience{2}; ///< What is not answered then is lost.
};

/**
 * In each round one worker, all workers and the servers that share nothing have a turn, another of them first
 * each time.
 * @return A run for each turn: workers/one, workers/all and workers/apart.
 */
[[nodiscard]] std::vector<run> measure_scaling(const scaling_options &options);

} // namespace olv_bench

#endif
