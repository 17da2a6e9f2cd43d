#include "generator.hpp"

#include <algorithm>
#include <bit>
#include <cstring>
#include <stdexcept>

#include <poll.h>

#include "net/wall_clock.hpp"

namespace olv_bench {
namespace {

constexpr std::uint32_t first_source = 0x7F010001; ///< 127.1.0.1
constexpr int sleep_milliseconds = 10;
constexpr std::uint32_t fewest_places = 1024;

} // namespace

generator::generator(const traffic_options &options)
    : options_(options),
      socket_(options.sessions > 1 ? "0.0.0.0:0" : "127.0.0.1:0"),
      requests_(std::bit_ceil(std::max(options.window * 4, fewest_places))),
      request_bytes_(batch_length),
      reply_bytes_(batch_length)
{
    // Requests that may not be split cost the system less to send.
    const int whole = IP_PMTUDISC_DO;
    (void)setsockopt(socket_.number(), IPPROTO_IP, IP_MTU_DISCOVER, &whole, sizeof whole);
    prepare_messages();
}

void generator::prepare_messages()
{
    const olv_net::ntp_time now = olv_net::ntp_time_of(olv_net::wall_time()); // a stamp that stays plausible
    for (std::size_t place = 0; place < batch_length; ++place) {
        olv_net::store_ntp(&request_bytes_[place][olv_net::sender_packet::timestamp], now);
        request_parts_[place] = {request_bytes_[place].data(), options_.length};
        reply_parts_[place] = {reply_bytes_[place].data(), longest};
        request_messages_[place].msg_hdr.msg_iov = &request_parts_[place];
        request_messages_[place].msg_hdr.msg_iovlen = 1;
        reply_messages_[place].msg_hdr.msg_iov = &reply_parts_[place];
        reply_messages_[place].msg_hdr.msg_iovlen = 1;
        if (options_.sessions > 1) {
            msghdr &message = request_messages_[place].msg_hdr;
            message.msg_name = &server_.address;
            message.msg_namelen = sizeof(sockaddr_in);
            message.msg_control = sources_[place].bytes.data();
            message.msg_controllen = sources_[place].bytes.size();
            cmsghdr header{};
            header.cmsg_level = IPPROTO_IP;
            header.cmsg_type = IP_PKTINFO;
            header.cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
            std::memcpy(sources_[place].bytes.data(), &header, sizeof header);
        }
    }
}

void generator::aim(const olv_net::socket_address &server, std::size_t number_position)
{
    server_ = server;
    number_position_ = number_position;
    if (options_.sessions == 1 && connect(socket_.number(), server_.generic(), server_.length) != 0) {
        throw std::runtime_error("cannot send to " + server_.text());
    }
}

void generator::send_requests(std::uint64_t requests)
{
    figures_ = {};
    last_reply_ = clock::now();
    while (figures_.sent < requests) {
        fill_window(requests - figures_.sent);
        if (!await_replies()) {
            give_up_waiting();
        }
    }
    while (waiting_ > 0 && await_replies()) {
    }
    give_up_waiting();
}

traffic_figures generator::run(std::chrono::nanoseconds duration)
{
    forget_late_replies();
    figures_ = {};
    figures_.round_trips.reserve(static_cast<std::size_t>(duration.count()) / 500);
    const clock::time_point start = clock::now();
    last_reply_ = start;
    while (clock::now() - start < duration) {
        fill_window(UINT64_MAX);
        if (!await_replies()) {
            give_up_waiting();
        }
    }
    figures_.seconds = std::chrono::duration<double>(clock::now() - start).count();
    const std::uint64_t in_time = figures_.received;
    while (waiting_ > 0 && await_replies()) {
    }
    give_up_waiting();
    // What came after the end belongs to the time that it took; without the wait for what is lost.
    if (figures_.lost == 0 && figures_.received > in_time) {
        figures_.seconds = std::chrono::duration<double>(last_reply_ - start).count();
    }
    return std::move(figures_);
}

void generator::fill_window(std::uint64_t most)
{
    std::uint64_t missing = std::min<std::uint64_t>(options_.window - waiting_, most);
    while (missing > 0) {
        const auto batch = static_cast<std::uint32_t>(std::min<std::uint64_t>(missing, batch_length));
        const clock::time_point now = clock::now();
        for (std::uint32_t place = 0; place < batch; ++place) {
            write_request(place, next_number_ + place, now);
        }
        const std::uint32_t sent = send_batch(batch);
        for (std::uint32_t place = sent; place < batch; ++place) {
            requests_[(next_number_ + place) % requests_.size()].waits = false;
        }
        if (sent == 0) {
            give_up_sending(now);
            return;
        }
        next_number_ += sent;
        waiting_ += sent;
        figures_.sent += sent;
        missing -= sent;
    }
}

/** Requests that cannot be sent now, as no server is there, may be sent later; but not for ever. */
void generator::give_up_sending(clock::time_point now) const
{
    if (waiting_ == 0 && now - last_reply_ > options_.patience) {
        throw std::runtime_error("cannot send to " + server_.text());
    }
}

std::uint32_t generator::send_batch(std::uint32_t requests)
{
    const int taken = sendmmsg(socket_.number(), request_messages_.data(), requests, 0);
    return taken > 0 ? static_cast<std::uint32_t>(taken) : 0;
}

void generator::write_request(std::size_t place, std::uint32_t number, clock::time_point now)
{
    request &entry = requests_[number % requests_.size()];
    if (entry.waits) { // left behind by a whole round of numbers
        --waiting_;
        ++figures_.lost;
    }
    entry = {.number = number, .waits = true, .sent = now};
    std::memcpy(request_bytes_[place].data(), &number, sizeof number);
    if (options_.sessions > 1) {
        in_pktinfo source{};
        source.ipi_spec_dst.s_addr = htonl(first_source + next_session_);
        std::memcpy(&sources_[place].bytes[CMSG_LEN(0)], &source, sizeof source);
        next_session_ = next_session_ + 1 == options_.sessions ? 0 : next_session_ + 1;
    }
}

/** @return false: none has come for longer than replies take. */
bool generator::await_replies()
{
    while (waiting_ > 0) {
        if (take_replies() > 0) {
            return true;
        }
        if (clock::now() - last_reply_ > options_.patience) {
            return false;
        }
        if (!options_.spins) {
            pollfd readable{.fd = socket_.number(), .events = POLLIN, .revents = 0};
            (void)poll(&readable, 1, sleep_milliseconds); // the next attempt finds out
        }
    }
    return true;
}

std::size_t generator::take_replies()
{
    const auto most = static_cast<unsigned>(std::min<std::size_t>(options_.window, batch_length));
    const int received = recvmmsg(socket_.number(), reply_messages_.data(), most, MSG_DONTWAIT, nullptr);
    if (received <= 0) {
        return 0;
    }
    const clock::time_point now = clock::now();
    const std::uint64_t before = figures_.received;
    for (std::size_t place = 0; place < static_cast<std::size_t>(received); ++place) {
        take_reply(place, now);
    }
    if (figures_.received > before) {
        last_reply_ = now;
    }
    return figures_.received - before;
}

void generator::take_reply(std::size_t place, clock::time_point now)
{
    std::uint32_t number = 0;
    if (reply_messages_[place].msg_len != options_.length) {
        return;
    }
    std::memcpy(&number, &reply_bytes_[place][number_position_], sizeof number);
    request &entry = requests_[number % requests_.size()];
    if (!entry.waits || entry.number != number) {
        return;
    }
    entry.waits = false;
    --waiting_;
    ++figures_.received;
    figures_.round_trips.push_back(static_cast<std::uint32_t>((now - entry.sent).count()));
}

void generator::give_up_waiting()
{
    for (request &each : requests_) {
        each.waits = false;
    }
    figures_.lost += waiting_;
    waiting_ = 0;
    last_reply_ = clock::now();
}

void generator::forget_late_replies()
{
    unsigned char octet = 0;
    while (recv(socket_.number(), &octet, sizeof octet, MSG_DONTWAIT) >= 0) {
    }
}

} // namespace olv_bench
