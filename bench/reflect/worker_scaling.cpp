#include "worker_scaling.hpp"

#include <algorithm>
#include <deque>
#include <iterator>
#include <thread>

#include "cores.hpp"
#include "many_senders.hpp"
#include "reflector_server.hpp"

namespace olv_bench {
namespace {

using namespace std::chrono_literals;
using clock = std::chrono::steady_clock;

/** Waiting requests are answered within milliseconds; looking whether they are is not to take much of a core.
 */
constexpr auto look_interval = 100us;

/** Those that answer at the same time. */
struct arrangement {
    const char *name;
    std::deque<reflector_server> servers;

    [[nodiscard]] std::uint64_t replies() const
    {
        std::uint64_t all = 0;
        for (const reflector_server &each : servers) {
            all += each.replies();
        }
        return all;
    }
    [[nodiscard]] std::vector<std::uint64_t> replies_by_worker() const
    {
        std::vector<std::uint64_t> replies;
        for (const reflector_server &each : servers) {
            const std::vector<std::uint64_t> own = each.replies_by_worker();
            replies.insert(replies.end(), own.begin(), own.end());
        }
        return replies;
    }
    /** Open the servers' sockets. @return Their addresses. */
    std::vector<olv_net::socket_address> open()
    {
        std::vector<olv_net::socket_address> addresses;
        for (reflector_server &each : servers) {
            each.open();
            addresses.push_back(each.address());
        }
        return addresses;
    }
};

/** The fewest replies of a worker, by what each would have made of equal shares. */
double least_share(const std::vector<std::uint64_t> &before, std::vector<std::uint64_t> after, double all)
{
    for (std::size_t worker = 0; worker < after.size(); ++worker) {
        after[worker] -= before[worker];
    }
    const auto least = static_cast<double>(*std::min_element(after.begin(), after.end()));
    return least * static_cast<double>(after.size()) / all;
}

void await_replies(const arrangement &who, std::uint64_t replies, std::chrono::seconds patience)
{
    const clock::time_point end = clock::now() + patience;
    while (who.replies() < replies && clock::now() < end) {
        std::this_thread::sleep_for(look_interval);
    }
}

run take_turn(arrangement &who, const many_senders &senders, const scaling_options &options)
{
    const std::uint64_t replies_before = who.replies();
    const std::vector<std::uint64_t> shares_before = who.replies_by_worker();
    const std::uint64_t sent = senders.send(who.open(), options.requests_each);
    const double busy_before = seconds_of_other_threads();
    const clock::time_point start = clock::now();
    for (reflector_server &each : who.servers) {
        each.run();
    }
    await_replies(who, replies_before + sent, options.patience);
    for (reflector_server &each : who.servers) {
        each.stop();
    }
    const double seconds = std::chrono::duration<double>(clock::now() - start).count();
    const double busy = seconds_of_other_threads() - busy_before;
    const std::uint64_t answered = senders.take_replies();
    const auto replies = static_cast<double>(std::max<std::uint64_t>(answered, 1));
    return {.name = std::string{"workers/"} + who.name,
            .figures = {{"replies_per_second", replies / seconds},
                        {"server_ns", busy * 1e9 / replies},
                        {"least_share", least_share(shares_before, who.replies_by_worker(), replies)},
                        {"lost", static_cast<double>(sent) - static_cast<double>(answered)}}};
}

} // namespace

std::vector<run> measure_scaling(const scaling_options &options)
{
    const auto sessions = static_cast<std::uint32_t>(options.senders) * options.workers;
    arrangement arrangements[] = {{"one", {}}, {"all", {}}, {"apart", {}}};
    arrangements[0].servers.emplace_back(sessions);
    arrangements[1].servers.emplace_back(sessions, options.workers);
    for (std::uint32_t worker = 0; worker < options.workers; ++worker) {
        arrangements[2].servers.emplace_back(sessions);
    }
    const many_senders senders{options.senders};
    std::vector<run> turns;
    // A server's port is another one in each round, and with it the worker that a sender belongs to.
    for (unsigned round = 0; round < options.rounds; ++round) {
        for (std::size_t place = 0; place < std::size(arrangements); ++place) {
            turns.push_back(
                take_turn(arrangements[(round + place) % std::size(arrangements)], senders, options));
        }
    }
    return turns;
}

} // namespace olv_bench
