#include "fastpath/udp/udp_server.hpp"

#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "fastpath/udp/socket_options.hpp"
#include "net/start_thread.hpp"

namespace olv_fastpath {

namespace {

/** Looks at the busy listeners before the others get their turn, or messages taken from them. */
constexpr int looks_each_turn = 8;
constexpr std::size_t messages_each_turn = 128;
constexpr std::size_t most_busy = 8;
/** How often idle sessions are looked for while no packet comes: those of other servers may want their places.
 */
constexpr int idle_check_milliseconds = 500;
/** Octets of the longest message of several datagrams. */
constexpr std::size_t longest_message = 65535;

/** Nobody could send while the only core looks for packets. */
std::chrono::nanoseconds patience_of(const fast_path_options &options)
{
    const bool alone = std::thread::hardware_concurrency() == 1;
    return std::chrono::microseconds{alone ? 0 : options.busy_poll_microseconds};
}

} // namespace

udp_server::udp_server(reflector &reflecting, const fast_path_options &options,
                       std::shared_ptr<responder_limits> limits)
    : reflector_(reflecting), options_(options), carrier_(reflecting, options, std::move(limits))
{}

udp_server::~udp_server()
{
    stop();
}

std::size_t udp_server::add(listening_socket socket, const packet_path &path)
{
    const std::string what = "cannot listen on " + socket.local().text();
    const bool segments = socket.abilities().segments && !options_.separate_replies;
    if (!options_.separate_requests && options_.longest_datagram >= longest_message) {
        receive_together(socket.number());
    }
    socket.let_in();
    const std::lock_guard lock{mutex_};
    const olv_net::ip_endpoint own = olv_net::endpoint_of(socket.local().address);
    listeners_.push_back({.socket = std::move(socket),
                          .to = carrier_.admitting().limited(path),
                          .counters = {},
                          .segments = segments,
                          .wait = idle_wait{patience_of(options_)}});
    carrier_.admitting().own().add(own);
    if (!watch_.watch(listeners_.back().socket.number(), listeners_.size() - 1)) {
        const int error = errno;
        carrier_.admitting().own().remove(own);
        listeners_.pop_back();
        throw std::runtime_error(what + ": " + std::generic_category().message(error));
    }
    return listeners_.size() - 1;
}

std::size_t udp_server::open_index(std::size_t index) const
{
    if (index >= listeners_.size() || !listeners_[index].is_open()) {
        throw std::out_of_range("no socket has index " + std::to_string(index));
    }
    return index;
}

listening_socket udp_server::release(std::size_t index)
{
    const std::lock_guard lock{mutex_};
    udp_listener &removed = listeners_[open_index(index)];
    removed.counters = removed.statistics();
    listening_socket released = std::move(removed.socket);
    (void)watch_.forget(released.number()); // a busy one is not watched
    removed.to.limit.reset();
    carrier_.admitting().own().remove(olv_net::endpoint_of(released.local().address));
    return released;
}

void udp_server::set_path(std::size_t index, const packet_path &path)
{
    const std::lock_guard lock{mutex_};
    listeners_[open_index(index)].to = carrier_.admitting().limited(path);
}

packet_path udp_server::path(std::size_t index) const
{
    const std::lock_guard lock{mutex_};
    return listeners_[open_index(index)].to.path;
}

olv_net::socket_address udp_server::local_address(std::size_t index) const
{
    const std::lock_guard lock{mutex_};
    return listeners_[open_index(index)].socket.local();
}

void udp_server::start()
{
    if (running()) {
        return;
    }
    stopping_ = false;
    worker_ = olv_net::start_thread([this] { run(); });
}

void udp_server::stop()
{
    if (!running()) {
        return;
    }
    stopping_ = true;
    watch_.wake();
    worker_.join();
}

listener_statistics udp_server::statistics() const
{
    const std::lock_guard lock{mutex_};
    listener_statistics all;
    for (const udp_listener &each : listeners_) {
        all += each.statistics();
    }
    return all;
}

listener_statistics udp_server::statistics(std::size_t index) const
{
    const std::lock_guard lock{mutex_};
    return listeners_[open_index(index)].statistics();
}

std::vector<session_summary> udp_server::sessions_at(std::uint64_t now) const
{
    const std::lock_guard lock{mutex_};
    return reflector_.sessions_at(now);
}

std::uint32_t udp_server::clear_sessions(std::optional<std::uint32_t> responder_id)
{
    const std::lock_guard lock{mutex_};
    return reflector_.clear_sessions(responder_id);
}

std::uint64_t udp_server::sessions_that_gave_way() const
{
    const std::lock_guard lock{mutex_};
    return reflector_.sessions_that_gave_way();
}

void udp_server::run()
{
    while (!stopping_) {
        const std::span<const std::size_t> ready = watch_.wait(longest_wait());
        if (reflector_.is_asked_for_place()) {
            give_place();
        } else if (ready.empty() && busy_.empty() && !stopping_) {
            end_idle_sessions();
        }
        for (const std::size_t index : ready) {
            serve_woken(index);
        }
        std::size_t messages = 0;
        for (int look = 0; look < looks_each_turn && messages < messages_each_turn && !busy_.empty(); ++look) {
            messages += serve_busy();
        }
    }
    const std::lock_guard lock{mutex_};
    for (std::size_t place = busy_.size(); place-- > 0;) {
        watch_again(place); // for the next thread
    }
}

int udp_server::longest_wait() const
{
    if (!busy_.empty()) {
        return 0;
    }
    if (options_.workers <= 1) {
        return -1;
    }
    const std::lock_guard lock{mutex_}; // the control side may end sessions
    return reflector_.sessions() > 0 ? idle_check_milliseconds : -1;
}

void udp_server::end_idle_sessions()
{
    const std::lock_guard lock{mutex_};
    reflector_.end_idle_sessions(reflector_.clock().now());
}

void udp_server::give_place()
{
    const std::lock_guard lock{mutex_};
    reflector_.give_place(reflector_.clock().now());
}

void udp_server::serve_woken(std::size_t index)
{
    const std::lock_guard lock{mutex_};
    udp_listener &from = listeners_[index];
    if (from.is_open() && carrier_.serve(from).is_busy && busy_.size() < most_busy &&
        watch_.forget(from.socket.number())) {
        busy_.push_back(index);
    }
}

std::size_t udp_server::serve_busy()
{
    const std::lock_guard lock{mutex_};
    std::size_t messages = 0;
    for (std::size_t place = busy_.size(); place-- > 0;) {
        udp_listener &from = listeners_[busy_[place]];
        const packet_carrier::served done = from.is_open() ? carrier_.serve(from) : packet_carrier::served{};
        messages += done.messages;
        if (!done.is_busy) {
            watch_again(place);
        }
    }
    return messages;
}

void udp_server::watch_again(std::size_t place)
{
    const std::size_t index = busy_[place];
    const udp_listener &listener = listeners_[index];
    // It may have been removed. What came meanwhile the watch tells at once. A system that has no memory left
    // for it leaves the listener busy.
    if (!listener.is_open() || watch_.watch(listener.socket.number(), index)) {
        busy_.erase(busy_.begin() + static_cast<std::ptrdiff_t>(place));
    }
}

} // namespace olv_fastpath
