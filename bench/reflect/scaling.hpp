/**
 * @file scaling.hpp
 * Several workers beside one, and beside as many servers that share nothing.
 *
 * A generator that runs at the same time would take the cores that the workers are to have: on a machine of two
 * it would need one for itself. So many senders fill the workers' sockets first, while nobody answers; then the
 * workers start, and have all cores until every request has been answered. Nobody reads the replies meanwhile.
 *
 * Cores that work at the same time are slower than one alone, as they share caches, memory or even one core's
 * units. What workers cost each other shows beside servers that work at the same time, each with a module, a
 * responder and an address of its own.
 */
#ifndef REFLECT_BENCH_SCALING_HPP
#define REFLECT_BENCH_SCALING_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "comparison.hpp"

namespace reflect_bench {

struct scaling_options {
    std::uint32_t workers = 2;
    unsigned rounds = 60;
    std::size_t senders = 500;
    std::uint32_t requests_each = 16; ///< As many as a socket of either side has room for.
    std::chrono::seconds patience{2}; ///< What is not answered then is lost.
    bool quick = false;               ///< As of bench_options.
};

/** What became of the requests that waited once. */
struct backlog_figures {
    std::uint64_t sent = 0;
    std::uint64_t answered = 0;
    double replies_per_second = 0;
    double server_nanoseconds = 0; ///< Processor time of all workers for each reply.
    double least_share = 0;        ///< Of the replies, that any worker made, by the part that is its due.
};

enum crew : std::size_t { one_worker, all_workers, servers_apart };
inline constexpr std::size_t crew_count = 3;
inline constexpr std::array<const char *, crew_count> crew_names{"one worker", "workers", "servers apart"};

struct scaling_figures {
    scaling_options options;
    std::array<std::vector<backlog_figures>, crew_count> rounds; ///< By crew.

    /** Median over the rounds. */
    [[nodiscard]] double median_of(crew which, double backlog_figures::*figure) const;
    /** Median over the rounds of the figure of all workers by another crew's of the same round. */
    [[nodiscard]] double ratio(crew other, double backlog_figures::*figure) const;
    /** Requests that were not answered, of all rounds. */
    [[nodiscard]] std::uint64_t lost() const;
};

/** All crews have a turn in each round, another one first each time. */
[[nodiscard]] scaling_figures measure_scaling(const scaling_options &options,
                                              const olv_fastpath::udp_server_options &server = {});
/** Processor time of a reply at most 1.1 of that of servers that share nothing; at least half of its due for
 * each worker; no request lost. */
[[nodiscard]] std::vector<target> targets_of(const scaling_figures &figures);

} // namespace reflect_bench

#endif
