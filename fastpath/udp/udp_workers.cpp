#include "fastpath/udp/udp_workers.hpp"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace olv_fastpath {

namespace {

/** What the options say for each of the workers. */
fast_path_options options_of_each(fast_path_options options)
{
    options.workers = std::clamp(options.workers, 1u, fast_path_options::most_workers);
    std::uint32_t &capacity = options.session_capacity;
    capacity = capacity / options.workers + (capacity % options.workers != 0 ? 1 : 0);
    return options;
}

/** Merge a worker's sessions with those of others, both the longest idle one first. */
void merge(std::vector<session_summary> &all, const std::vector<session_summary> &more)
{
    const auto middle = all.insert(all.end(), more.begin(), more.end());
    std::inplace_merge(all.begin(), middle, all.end(), is_idle_longer);
}

} // namespace

udp_workers::udp_workers(olv_sim::processor &processor, const fast_path_options &options) : clock_(processor)
{
    const fast_path_options each = options_of_each(options);
    const auto limits = std::make_shared<responder_limits>(each.packets_per_second, clock_.ticks_per_second());
    const auto peers = std::make_shared<reflector_peers>(each.workers, [this] { ring(); });
    while (workers_.size() < each.workers) {
        workers_.emplace_back(processor, each, limits, peers);
    }
}

std::size_t udp_workers::add(const olv_net::socket_address &address, const packet_path &path)
{
    std::vector<listening_socket> sockets = listening_socket::open_together(address, workers_.size());
    const std::lock_guard lock{mutex_};
    addresses_.emplace_back(); // stays empty, as if it had been removed, where they cannot be served
    addresses_.back() = serve(std::move(sockets), path);
    return addresses_.size() - 1;
}

udp_workers::socket_indices udp_workers::serve(std::vector<listening_socket> sockets, const packet_path &path)
{
    socket_indices served;
    served.reserve(workers_.size());
    try {
        for (worker &each : workers_) {
            served.push_back(each.server.add(std::move(sockets[served.size()]), path));
        }
    } catch (...) {
        close(served);
        throw;
    }
    return served;
}

void udp_workers::close(const socket_indices &sockets)
{
    // None before the last one is released: its packets would go to the others.
    std::vector<listening_socket> released;
    released.reserve(sockets.size());
    for (std::size_t number = 0; number < sockets.size(); ++number) {
        released.push_back(workers_[number].server.release(sockets[number]));
    }
}

const udp_workers::socket_indices &udp_workers::sockets_of(std::size_t index) const
{
    if (index >= addresses_.size() || addresses_[index].empty()) {
        throw std::out_of_range("no address has index " + std::to_string(index));
    }
    return addresses_[index];
}

void udp_workers::remove(std::size_t index)
{
    const std::lock_guard lock{mutex_};
    close(sockets_of(index));
    addresses_[index].clear();
}

void udp_workers::set_path(std::size_t index, const packet_path &path)
{
    const std::lock_guard lock{mutex_};
    const socket_indices &sockets = sockets_of(index);
    for (std::size_t number = 0; number < sockets.size(); ++number) {
        workers_[number].server.set_path(sockets[number], path);
    }
}

packet_path udp_workers::path(std::size_t index) const
{
    const std::lock_guard lock{mutex_};
    return workers_.front().server.path(sockets_of(index).front());
}

olv_net::socket_address udp_workers::local_address(std::size_t index) const
{
    const std::lock_guard lock{mutex_};
    return workers_.front().server.local_address(sockets_of(index).front());
}

void udp_workers::start()
{
    try {
        for (worker &each : workers_) {
            each.server.start();
        }
    } catch (...) {
        stop();
        throw;
    }
}

void udp_workers::stop()
{
    for (worker &each : workers_) {
        each.server.stop();
    }
}

void udp_workers::ring() const
{
    for (const worker &each : workers_) {
        each.server.ring();
    }
}

listener_statistics udp_workers::statistics() const
{
    listener_statistics all;
    for (const listener_statistics &each : statistics_by_worker()) {
        all += each;
    }
    return all;
}

listener_statistics udp_workers::statistics(std::size_t index) const
{
    const std::lock_guard lock{mutex_};
    const socket_indices &sockets = sockets_of(index);
    listener_statistics all;
    for (std::size_t number = 0; number < sockets.size(); ++number) {
        all += workers_[number].server.statistics(sockets[number]);
    }
    return all;
}

std::vector<listener_statistics> udp_workers::statistics_by_worker() const
{
    std::vector<listener_statistics> all;
    for (const worker &each : workers_) {
        all.push_back(each.server.statistics());
    }
    return all;
}

std::vector<session_summary> udp_workers::sessions() const
{
    std::vector<session_summary> all;
    const std::uint64_t now = clock_.now();
    for (const worker &each : workers_) {
        merge(all, each.server.sessions_at(now));
    }
    return all;
}

std::uint32_t udp_workers::clear_sessions(std::optional<std::uint32_t> responder_id)
{
    std::uint32_t ended = 0;
    for (worker &each : workers_) {
        ended += each.server.clear_sessions(responder_id);
    }
    return ended;
}

std::uint64_t udp_workers::sessions_that_gave_way() const
{
    std::uint64_t sum = 0;
    for (const worker &each : workers_) {
        sum += each.server.sessions_that_gave_way();
    }
    return sum;
}

} // namespace olv_fastpath
