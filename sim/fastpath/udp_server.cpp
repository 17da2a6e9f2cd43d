#include "fastpath/udp_server.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>
#include <system_error>

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "fastpath/udp_datagrams.hpp"

namespace olv_fastpath {

namespace {

/** Batches taken from one socket before the others get their turn. */
constexpr int batches_each_turn = 4;
constexpr int events_each_turn = 16;
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

} // namespace

udp_server::descriptor::~descriptor()
{
    if (is_open()) {
        close(number_);
    }
}

udp_server::descriptor &udp_server::descriptor::operator=(descriptor &&other) noexcept
{
    if (this != &other) {
        if (is_open()) {
            close(number_);
        }
        number_ = other.release();
    }
    return *this;
}

int udp_server::descriptor::release()
{
    const int number = number_;
    number_ = -1;
    return number;
}

udp_statistics &udp_statistics::operator+=(const udp_statistics &other)
{
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

udp_server::udp_server(reflector &reflector, const udp_server_options &options)
    : reflector_(reflector),
      options_(options),
      ticks_per_second_(std::max<std::uint64_t>(reflector.processor().timer_frequency(), 1)),
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

udp_server::endpoint udp_server::open_endpoint(const listen_address &address, const packet_path &path)
{
    const std::string what = "cannot listen on " + address.text();
    endpoint opened;
    opened.path = path;
    opened.socket = descriptor{socket(address.family(), SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)};
    if (!opened.socket.is_open() || !prepare_socket(opened.socket.number(), address.family()) ||
        bind(opened.socket.number(), reinterpret_cast<const sockaddr *>(&address.address), address.length) !=
            0) {
        fail(what, errno);
    }
    opened.local.length = sizeof opened.local.address;
    if (getsockname(opened.socket.number(), reinterpret_cast<sockaddr *>(&opened.local.address),
                    &opened.local.length) != 0) {
        fail(what, errno);
    }
    return opened;
}

std::size_t udp_server::add(const listen_address &address, const packet_path &path)
{
    endpoint opened = open_endpoint(address, path);
    const std::string what = "cannot listen on " + address.text();
    const std::lock_guard lock{mutex_};
    opened.bucket = bucket_of(path.responder_id);
    endpoints_.reserve(endpoints_.size() + 1);
    if (!watch(epoll_.number(), opened.socket.number(), endpoints_.size())) {
        fail(what, errno);
    }
    endpoints_.push_back(std::move(opened));
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

std::shared_ptr<token_bucket> udp_server::bucket_of(std::uint32_t responder_id) const
{
    if (options_.packets_per_second == 0) {
        return nullptr;
    }
    constexpr std::uint32_t id_mask = (1u << olv_sim::key_bits) - 1;
    for (const endpoint &each : endpoints_) {
        if (each.bucket != nullptr && ((each.path.responder_id ^ responder_id) & id_mask) == 0) {
            return each.bucket;
        }
    }
    return std::make_shared<token_bucket>(options_.packets_per_second, ticks_per_second_);
}

void udp_server::note_own_endpoints()
{
    std::vector<ip_endpoint> listening;
    for (const endpoint &each : endpoints_) {
        if (each.socket.is_open()) {
            listening.push_back(endpoint_of(each.local.address));
        }
    }
    own_.set(listening);
}

void udp_server::remove(std::size_t index)
{
    const std::lock_guard lock{mutex_};
    (void)open_at(index); // only checks
    endpoints_[index].socket = descriptor{};
    endpoints_[index].bucket.reset();
    note_own_endpoints();
}

void udp_server::set_path(std::size_t index, const packet_path &path)
{
    const std::lock_guard lock{mutex_};
    (void)open_at(index); // only checks
    endpoints_[index].bucket = bucket_of(path.responder_id);
    endpoints_[index].path = path;
}

packet_path udp_server::path(std::size_t index) const
{
    const std::lock_guard lock{mutex_};
    return open_at(index).path;
}

listen_address udp_server::local_address(std::size_t index) const
{
    const std::lock_guard lock{mutex_};
    return open_at(index).local;
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
        all += each.counters;
    }
    return all;
}

udp_statistics udp_server::statistics(std::size_t index) const
{
    const std::lock_guard lock{mutex_};
    return open_at(index).counters;
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
        const int ready = epoll_wait(epoll_.number(), events, events_each_turn, -1);
        const std::lock_guard lock{mutex_};
        for (int index = 0; index < ready; ++index) {
            const std::uint64_t data = events[index].data.u64;
            if (data == wake_event) {
                continue;
            }
            endpoint &from = endpoints_[static_cast<std::size_t>(data)];
            if (from.socket.is_open()) { // it may have been removed since
                serve(from);
            }
        }
    }
}

void udp_server::serve(endpoint &from)
{
    for (int turn = 0; turn < batches_each_turn; ++turn) {
        const std::size_t received = batch_->receive(from.socket.number());
        const std::uint64_t arrival = reflector_.processor().timer_now();
        for (std::size_t index = 0; index < received; ++index) {
            take(from, index, arrival);
        }
        const send_result result = batch_->send(from.socket.number());
        from.counters.sent += result.sent;
        from.counters.send_failures += result.failed;
        if (received < datagram_batch::capacity) {
            return;
        }
    }
}

void udp_server::take(endpoint &from, std::size_t index, std::uint64_t arrival)
{
    udp_statistics &counters = from.counters;
    const ip_endpoint sender = batch_->sender(index);
    if (std::uint64_t *reason = reason_against(sender, arrival, counters)) {
        ++*reason;
        return;
    }
    if (batch_->is_truncated(index)) {
        ++counters.truncated;
        return;
    }
    received_packet packet = batch_->packet(index, sender);
    packet.arrival_ticks = arrival;
    if (reflector_.answers_a_reply(packet, from.path)) {
        ++counters.answers;
        return;
    }
    if (from.bucket != nullptr && !from.bucket->take(arrival)) {
        ++counters.rate_limited;
        return;
    }
    ++counters.received;
    const verdict made = reflector_.reflect(packet, from.path, batch_->reply_buffer());
    if (made.result == outcome::reflected) {
        batch_->add_reply(index, made);
    }
}

std::uint64_t *udp_server::reason_against(const ip_endpoint &sender, std::uint64_t arrival,
                                          udp_statistics &counters)
{
    if (!options_.allowed_sources.empty() && !options_.allowed_sources.contains(sender.address)) {
        return &counters.source_not_allowed;
    }
    if (sender.port < options_.lowest_source_port) {
        return &counters.source_port;
    }
    if (own_.contains(sender, arrival / ticks_per_second_)) {
        return &counters.own_source;
    }
    return nullptr;
}

} // namespace olv_fastpath
