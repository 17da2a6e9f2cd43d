/**
 * @file comparison.hpp
 * The reflector beside the echo servers, under the same traffic.
 */
#ifndef REFLECT_BENCH_COMPARISON_HPP
#define REFLECT_BENCH_COMPARISON_HPP

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "fastpath/udp/udp_server.hpp"
#include "generator.hpp"

namespace reflect_bench {

enum subject : std::size_t { plain, batched, reflector };
inline constexpr std::size_t subject_count = 3;
inline constexpr std::array<const char *, subject_count> subject_names{"plain echo", "batched echo",
                                                                       "reflector"};

struct traffic_case {
    std::uint32_t window;
    std::uint32_t sessions;
    std::size_t length;
};

/** One turn of one server. */
struct turn_figures {
    double replies_per_second = 0;
    double p50 = 0; ///< Round trips, nanoseconds.
    double p99 = 0;
    double server_nanoseconds = 0; ///< Processor time of the server's thread for each reply.
    std::uint64_t sent = 0;
    std::uint64_t lost = 0;
    std::uint64_t kernel_drops = 0; ///< At the sockets of both sides.
};

/** All turns of one server, and the medians of them. */
struct subject_figures {
    std::vector<turn_figures> turns;
    turn_figures total; ///< Medians of the figures, sums of the counts.
};

struct case_figures {
    traffic_case traffic{};
    std::array<subject_figures, subject_count> subjects;
    std::uint64_t counted =
        0; ///< Replies that the module counted, those to requests before the turns included.
    std::uint32_t sessions = 0; ///< That the module counted.

    /** Median over the rounds of the reflector's figure by an echo server's of the same round. */
    [[nodiscard]] double ratio(subject echo, double turn_figures::*figure) const;
};

/** What a case has to reach. */
struct target {
    std::string text;
    double value = 0;
    bool met = false;
};

struct bench_options {
    std::vector<std::uint32_t> windows{1, 32, 256};
    std::vector<std::uint32_t> sessions{1, 100000};
    std::vector<std::size_t> lengths{44, 1400};
    unsigned rounds = 25;
    std::chrono::milliseconds turn{100};
    olv_fastpath::udp_server_options server{}; ///< Of the reflector.
    bool segmented_requests = false;           ///< Of one session.
    std::chrono::milliseconds patience = traffic_options{}.patience;
    bool quick = false; ///< Whether it works, no more: the figures say nothing.
};

/** Where server and generator run. */
struct core_choice {
    std::optional<int> server;
    std::optional<int> generator;
    [[nodiscard]] bool apart() const { return server && generator && *server != *generator; }
};

[[nodiscard]] core_choice choose_cores(const std::vector<int> &usable);

/** Measure one case: in each round each server has a turn, another one first each time. */
[[nodiscard]] case_figures measure(const traffic_case &traffic, const bench_options &options,
                                   const core_choice &cores);
/** Fill the totals of each server from its turns. */
void sum_up(case_figures &figures);
/** The targets that a case has: replies at least 0.95 of the batched echo's and no loss with a window, a round
 *  trip of at most 1.05 of the plain echo's without. */
[[nodiscard]] std::vector<target> targets_of(const case_figures &figures);

} // namespace reflect_bench

#endif
