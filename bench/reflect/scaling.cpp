#include "scaling.hpp"

#include <algorithm>
#include <chrono>
#include <deque>
#include <thread>

#include "crowd.hpp"
#include "percentiles.hpp"
#include "processor_time.hpp"
#include "reflector_server.hpp"

namespace reflect_bench {
namespace {

using namespace std::chrono_literals;
using clock = std::chrono::steady_clock;

constexpr double longest_time_of_a_reply = 1.1;
constexpr double least_share_of_a_worker = 0.5;
/** A backlog takes some milliseconds; looking is not to take much of a core. */
constexpr auto look_interval = 100us;

/** The servers of a crew. */
using servers = std::deque<reflector_server>;

std::uint64_t replies_of(const servers &all)
{
    std::uint64_t replies = 0;
    for (const reflector_server &each : all) {
        replies += each.replies();
    }
    return replies;
}

std::vector<std::uint64_t> replies_by_worker(const servers &all)
{
    std::vector<std::uint64_t> replies;
    for (const reflector_server &each : all) {
        const std::vector<std::uint64_t> own = each.replies_by_worker();
        replies.insert(replies.end(), own.begin(), own.end());
    }
    return replies;
}

/** Open the servers' sockets. @return Where they are. */
std::vector<olv_net::socket_address> open(servers &all)
{
    std::vector<olv_net::socket_address> addresses;
    for (reflector_server &each : all) {
        each.open();
        addresses.push_back(each.address());
    }
    return addresses;
}

void wait_until_answered(const servers &all, std::uint64_t replies, std::chrono::seconds patience)
{
    const clock::time_point end = clock::now() + patience;
    while (replies_of(all) < replies && clock::now() < end) {
        std::this_thread::sleep_for(look_interval);
    }
}

double least_share(const std::vector<std::uint64_t> &replies, std::uint64_t all)
{
    const auto least = static_cast<double>(*std::min_element(replies.begin(), replies.end()));
    return all == 0 ? 0 : least * static_cast<double>(replies.size()) / static_cast<double>(all);
}

std::vector<std::uint64_t> differences(std::vector<std::uint64_t> later,
                                       const std::vector<std::uint64_t> &sooner)
{
    for (std::size_t index = 0; index < later.size(); ++index) {
        later[index] -= sooner[index];
    }
    return later;
}

backlog_figures answer_backlog(servers &all, const crowd &senders, const scaling_options &options)
{
    backlog_figures figures;
    const std::uint64_t replies_before = replies_of(all);
    const std::vector<std::uint64_t> shares_before = replies_by_worker(all);
    figures.sent = senders.send(open(all), options.requests_each);
    const double busy_before = others_seconds();
    const clock::time_point start = clock::now();
    for (reflector_server &each : all) {
        each.run();
    }
    wait_until_answered(all, replies_before + figures.sent, options.patience);
    for (reflector_server &each : all) {
        each.stop();
    }
    const double seconds = std::chrono::duration<double>(clock::now() - start).count();
    const double busy = others_seconds() - busy_before;
    figures.answered = senders.take_replies();
    const auto replies = static_cast<double>(std::max<std::uint64_t>(figures.answered, 1));
    figures.replies_per_second = replies / seconds;
    figures.server_nanoseconds = busy * 1e9 / replies;
    figures.least_share = least_share(differences(replies_by_worker(all), shares_before), figures.answered);
    return figures;
}

} // namespace

double scaling_figures::median_of(crew which, double backlog_figures::*figure) const
{
    std::vector<double> values;
    for (const backlog_figures &each : rounds[which]) {
        values.push_back(each.*figure);
    }
    return median(values);
}

double scaling_figures::ratio(crew other, double backlog_figures::*figure) const
{
    std::vector<double> ratios;
    for (std::size_t round = 0; round < std::min(rounds[other].size(), rounds[all_workers].size()); ++round) {
        if (rounds[other][round].*figure > 0) {
            ratios.push_back(rounds[all_workers][round].*figure / (rounds[other][round].*figure));
        }
    }
    return median(ratios);
}

std::uint64_t scaling_figures::lost() const
{
    std::uint64_t all = 0;
    for (const std::vector<backlog_figures> &crew : rounds) {
        for (const backlog_figures &each : crew) {
            all += each.sent - each.answered;
        }
    }
    return all;
}

scaling_figures measure_scaling(const scaling_options &options, const olv_fastpath::udp_server_options &server)
{
    // The port is another one in each round, and with it the worker that a sender belongs to.
    const auto sessions = static_cast<std::uint32_t>(options.senders) * options.workers;
    std::array<servers, crew_count> crews;
    crews[one_worker].emplace_back(sessions, server, 1);
    crews[all_workers].emplace_back(sessions, server, options.workers);
    while (crews[servers_apart].size() < options.workers) {
        crews[servers_apart].emplace_back(sessions, server, 1);
    }
    const crowd senders{options.senders};
    scaling_figures figures{.options = options, .rounds = {}};
    for (unsigned round = 0; round < options.rounds; ++round) {
        for (std::size_t place = 0; place < crews.size(); ++place) {
            const std::size_t which = (round + place) % crews.size();
            figures.rounds[which].push_back(answer_backlog(crews[which], senders, options));
        }
    }
    return figures;
}

std::vector<target> targets_of(const scaling_figures &figures)
{
    const double time = figures.ratio(servers_apart, &backlog_figures::server_nanoseconds);
    const double share = figures.median_of(all_workers, &backlog_figures::least_share);
    const std::uint64_t lost = figures.lost();
    return {{"processor time of a reply at most 1.1 of that of servers apart", time,
             time <= longest_time_of_a_reply},
            {"share of each worker at least 0.5 of its due", share, share >= least_share_of_a_worker},
            {"no request lost", static_cast<double>(lost), lost == 0}};
}

} // namespace reflect_bench
