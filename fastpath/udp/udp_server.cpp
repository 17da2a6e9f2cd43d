#include "fastpath/udp/udp_server.hpp"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "fastpath/udp/udp_datagrams.hpp"

namespace olv_fastpath {

namespace {

/** Batches taken from one socket before the others get their turn. */
constexpr int batches_each_turn = 4;
constexpr int events_each_turn = 16;
/** Looks at the busy sockets before the others get their turn, or messages taken from them. */
constexpr int looks_each_turn = 8;
constexpr std::size_t messages_each_turn = batches_each_turn * datagram_batch::capacity;
constexpr std::size_t most_busy_sockets = 8;
/** The part of a second that reading both clocks takes at most: two microseconds. */
constexpr std::uint64_t clocks_apart = 500'000;
/** Fewer requests that were received together get a datagram each. What captures on this machine see of
 * segments is one long datagram, which would be wrong of a few probes and saves little. */
constexpr std::size_t fewest_in_segments = 8;
/** How often sessions that other servers' may take the place of are looked at while no packet comes. */
constexpr int idle_check_milliseconds = 500;
/** Octets of the longest message of several datagrams. */
constexpr std::size_t longest_message = 65535;
/** What epoll says of the descriptor that wakes the thread; no index of a socket. */
constexpr std::uint64_t wake_event = UINT64_MAX;

/** @p what is made before the call that may fail, as making it may change errno. */
[[noreturn]] void fail(const std::string &what, int error)
{
    throw std::runtime_error(what + ": " + std::generic_category().message(error));
}

bool watch(int epoll, int descriptor, std::uint64_t data)
{
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = data;
    return epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &event) == 0;
}

std::uint64_t wall_nanoseconds()
{
    const auto wall = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(wall).count());
}

/** Nobody could send while the only core looks for packets. */
std::chrono::nanoseconds patience_of(const udp_server_options &options)
{
    const bool alone = std::thread::hardware_concurrency() == 1;
    return std::chrono::microseconds{alone ? 0 : options.busy_poll_microseconds};
}

} // namespace

udp_statistics &udp_statistics::operator+=(const udp_statistics &other)
{
    socket_full += other.socket_full;
    received += other.received;
    source_not_allowed += other.source_not_allowed;
    source_port += other.source_port;
    own_source += other.own_source;
    truncated += other.truncated;
    answers += other.answers;
    rate_limited += other.rate_limited;
    sent += other.sent;
    send_failures += other.send_failures;
    return *this;
}

udp_server::udp_server(reflector &reflector, const udp_server_options &options,
                       std::shared_ptr<responder_limits> limits)
    : reflector_(reflector),
      options_(options),
      ticks_per_second_(std::max<std::uint64_t>(reflector.processor().timer_frequency(), 1)),
      limits_(limits != nullptr
                  ? std::move(limits)
                  : std::make_shared<responder_limits>(options.packets_per_second, ticks_per_second_)),
      epoll_(epoll_create1(EPOLL_CLOEXEC)),
      wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      batch_(std::make_unique<datagram_batch>(options.longest_datagram))
{
    // Nothing can be sent to port 0.
    options_.lowest_source_port = std::max<std::uint16_t>(options_.lowest_source_port, 1);
    if (!epoll_.is_open() || !wake_.is_open() || !watch(epoll_.number(), wake_.number(), wake_event)) {
        fail("cannot serve sockets", errno);
    }
}

udp_server::~udp_server()
{
    stop();
}

std::size_t udp_server::add(listening_socket socket, const packet_path &path)
{
    const int number = socket.number();
    const std::string what = "cannot listen on " + socket.local().text();
    const bool segments = socket.abilities().segments && options_.segments;
    if (options_.together && options_.longest_datagram >= longest_message) {
        receive_together(number);
    }
    socket.let_in();
    const std::lock_guard lock{mutex_};
    endpoints_.reserve(endpoints_.size() + 1);
    if (!watch(epoll_.number(), number, endpoints_.size())) {
        fail(what, errno);
    }
    endpoints_.push_back({.socket = std::move(socket),
                          .path = path,
                          .bucket = limits_->bucket_of(path.responder_id),
                          .counters = {},
                          .segments = segments,
                          .wait = idle_wait{patience_of(options_)}});
    note_own_endpoints();
    return endpoints_.size() - 1;
}

const udp_server::endpoint &udp_server::open_at(std::size_t index) const
{
    if (index >= endpoints_.size() || !endpoints_[index].socket.is_open()) {
        throw std::out_of_range("no socket has index " + std::to_string(index));
    }
    return endpoints_[index];
}

void udp_server::note_own_endpoints()
{
    std::vector<olv_net::ip_endpoint> listening;
    for (const endpoint &each : endpoints_) {
        if (each.socket.is_open()) {
            listening.push_back(olv_net::endpoint_of(each.socket.local().address));
        }
    }
    own_.set(listening);
}

listening_socket udp_server::release(std::size_t index)
{
    const std::lock_guard lock{mutex_};
    (void)open_at(index); // only checks
    endpoints_[index].counters = counters_of(endpoints_[index]);
    listening_socket released = std::move(endpoints_[index].socket);
    (void)epoll_ctl(epoll_.number(), EPOLL_CTL_DEL, released.number(), nullptr); // a busy one is not watched
    endpoints_[index].bucket.reset();
    note_own_endpoints();
    return released;
}

void udp_server::set_path(std::size_t index, const packet_path &path)
{
    const std::lock_guard lock{mutex_};
    (void)open_at(index); // only checks
    endpoints_[index].bucket = limits_->bucket_of(path.responder_id);
    endpoints_[index].path = path;
}

packet_path udp_server::path(std::size_t index) const
{
    const std::lock_guard lock{mutex_};
    return open_at(index).path;
}

olv_net::socket_address udp_server::local_address(std::size_t index) const
{
    const std::lock_guard lock{mutex_};
    return open_at(index).socket.local();
}

void udp_server::start()
{
    if (running()) {
        return;
    }
    stopping_ = false;
    worker_ = std::thread{[this] { run(); }};
}

void udp_server::stop()
{
    if (!running()) {
        return;
    }
    stopping_ = true;
    const std::uint64_t one = 1;
    (void)!write(wake_.number(), &one, sizeof one); // fails only when the thread is woken already
    worker_.join();
    std::uint64_t woken = 0;
    (void)!read(wake_.number(), &woken, sizeof woken); // so that the next thread is not
}

udp_statistics udp_server::statistics() const
{
    const std::lock_guard lock{mutex_};
    udp_statistics all;
    for (const endpoint &each : endpoints_) {
        all += counters_of(each);
    }
    return all;
}

udp_statistics udp_server::statistics(std::size_t index) const
{
    const std::lock_guard lock{mutex_};
    return counters_of(open_at(index));
}

udp_statistics udp_server::counters_of(const endpoint &which)
{
    udp_statistics counters = which.counters;
    counters.socket_full += which.socket.is_open() ? which.socket.dropped() : 0;
    return counters;
}

std::vector<session> udp_server::sessions() const
{
    const std::lock_guard lock{mutex_};
    return reflector_.sessions_at(reflector_.processor().timer_now());
}

void udp_server::run()
{
    while (!stopping_) {
        epoll_event events[events_each_turn];
        const int ready = epoll_wait(epoll_.number(), events, events_each_turn, longest_wait());
        if (ready == 0 && busy_.empty()) {
            end_idle_sessions();
        }
        for (int index = 0; index < ready; ++index) {
            serve_woken(events[index].data.u64);
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
    return options_.shares_responders && reflector_.sessions() > 0 ? idle_check_milliseconds : -1;
}

void udp_server::end_idle_sessions()
{
    const std::lock_guard lock{mutex_};
    reflector_.end_idle_sessions(reflector_.processor().timer_now());
}

void udp_server::serve_woken(std::uint64_t data)
{
    if (data == wake_event) {
        return;
    }
    const std::lock_guard lock{mutex_};
    const auto index = static_cast<std::size_t>(data);
    endpoint &from = endpoints_[index];
    if (from.socket.is_open() && serve(from).is_busy && busy_.size() < most_busy_sockets &&
        epoll_ctl(epoll_.number(), EPOLL_CTL_DEL, from.socket.number(), nullptr) == 0) {
        busy_.push_back(index);
    }
}

std::size_t udp_server::serve_busy()
{
    const std::lock_guard lock{mutex_};
    std::size_t messages = 0;
    for (std::size_t place = busy_.size(); place-- > 0;) {
        endpoint &from = endpoints_[busy_[place]];
        const served done = from.socket.is_open() ? serve(from) : served{};
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
    const listening_socket &socket = endpoints_[index].socket;
    // It may have been removed. What came meanwhile epoll tells at once. A system that has no memory left for
    // it leaves the socket busy.
    if (!socket.is_open() || watch(epoll_.number(), socket.number(), index)) {
        busy_.erase(busy_.begin() + static_cast<std::ptrdiff_t>(place));
    }
}

udp_server::served udp_server::serve(endpoint &from)
{
    if (!from.wait.ever_looks()) {
        return {.messages = serve_batches(from)};
    }
    const idle_wait::clock::time_point looked = idle_wait::clock::now();
    const std::size_t messages = serve_batches(from);
    if (messages > 0) {
        from.wait.note_packets(looked, idle_wait::clock::now());
    }
    return {.messages = messages, .is_busy = from.wait.may_look(looked)};
}

std::size_t udp_server::serve_batches(endpoint &from)
{
    std::size_t all = 0;
    for (int turn = 0; turn < batches_each_turn; ++turn) {
        const std::size_t received = batch_->receive(from.socket.number());
        if (received == 0) {
            break;
        }
        all += received;
        const reflector::batch together{reflector_};
        const arrival_clock clock = read_clocks();
        reflector_.expect(batch_->senders(), from.path);
        for (std::size_t index = 0; index < received; ++index) {
            take(from, index, clock);
        }
        send(from);
        if (received < datagram_batch::capacity) {
            break;
        }
    }
    return all;
}

arrival_clock udp_server::read_clocks() const
{
    const olv_sim::processor &processor = reflector_.processor();
    if (!processor.timer_runs()) {
        return {processor.timer_now(), std::nullopt, ticks_per_second_};
    }
    const clock_reading now = read_together([&] { return processor.timer_now(); }, wall_nanoseconds,
                                            ticks_per_second_ / clocks_apart);
    return {now.timer, now.wall_nanoseconds, ticks_per_second_};
}

void udp_server::take(endpoint &from, std::size_t index, const arrival_clock &clock)
{
    udp_statistics &counters = from.counters;
    const std::size_t datagrams = batch_->open(index);
    if (std::uint64_t *reason = reason_against(batch_->senders()[index], clock.timer(), counters)) {
        *reason += datagrams;
        return;
    }
    if (batch_->is_truncated(index)) {
        ++counters.truncated;
        return;
    }
    const bool many = std::max(batch_->senders().size(), datagrams) >= fewest_in_segments;
    for (std::size_t datagram = 0; datagram < datagrams; ++datagram) {
        take_datagram(from, datagram, clock, many && from.segments);
    }
}

void udp_server::take_datagram(endpoint &from, std::size_t datagram, const arrival_clock &clock,
                               bool may_segment)
{
    udp_statistics &counters = from.counters;
    received_packet packet = batch_->packet(datagram);
    packet.arrival_ticks = clock.timer();
    if (reflector_.answers_a_reply(packet, from.path)) {
        ++counters.answers;
        return;
    }
    if (from.bucket != nullptr && !from.bucket->take(clock.timer())) {
        ++counters.rate_limited;
        return;
    }
    ++counters.received;
    if (batch_->is_full()) {
        send(from);
    }
    packet.arrival_ticks = clock.arrival(batch_->stamp());
    const verdict made = reflector_.reflect(packet, from.path, batch_->reply_buffer(datagram));
    if (made.result == outcome::reflected) {
        batch_->add_reply(datagram, made, may_segment);
    }
}

void udp_server::send(endpoint &from)
{
    reflector_.finish();
    const send_result result = batch_->send(from.socket.number());
    from.counters.sent += result.sent;
    from.counters.send_failures += result.failed;
    from.segments = from.segments && !result.segments_refused;
}

std::uint64_t *udp_server::reason_against(const olv_net::ip_endpoint &sender, std::uint64_t now,
                                          udp_statistics &counters)
{
    if (!options_.allowed_sources.empty() && !options_.allowed_sources.contains(sender.address)) {
        return &counters.source_not_allowed;
    }
    if (sender.port < options_.lowest_source_port) {
        return &counters.source_port;
    }
    if (own_.contains(sender, now / ticks_per_second_)) {
        return &counters.own_source;
    }
    return nullptr;
}

} // namespace olv_fastpath
