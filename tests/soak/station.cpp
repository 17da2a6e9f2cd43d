#include "station.hpp"

#include <array>
#include <chrono>

namespace olv_soak {

station::station(olv_sim::framework &framework, std::uint32_t responders, std::uint64_t seed)
    : processor_(olv_sim::classifier_program::twamp(responders, 16)),
      control_(framework, processor_, responders, seed),
      reflector_(processor_, {.refwait_seconds = 1, .session_capacity = session_capacity}),
      server_(reflector_),
      random_(static_cast<std::uint32_t>(seed))
{
    control_.begin();
    const auto listen = [this](const char *address, std::uint32_t responder) {
        return server_.add(olv_net::parse_socket_address(address),
                           {.responder_id = responder, .bind_key = control::staying_key});
    };
    listen("127.0.0.1:0", 1);
    listen("[::1]:0", 2);
    listen("127.0.0.1:0", 3);
    listen("127.0.0.1:0", 4);
    wandering_ = listen("127.0.0.1:0", 1);
}

station::~station()
{
    stopping_ = true;
    if (worker_.joinable()) {
        worker_.join();
    }
}

void station::start()
{
    server_.start();
    for (std::size_t socket = 0; socket <= wandering_; ++socket) {
        senders_.emplace_back(server_.local_address(socket), random_(),
                              [this, socket] { return server_.statistics(socket).received; });
    }
    worker_ = std::thread{[this] { work(); }};
}

void station::work()
{
    try {
        while (!stopping_) {
            control_.step();
            if (control_.operations() % 16 == 0) {
                server_.set_path(wandering_, {.responder_id = static_cast<std::uint32_t>(random_() % 0x2000),
                                              .bind_key = static_cast<std::uint32_t>(random_() % 64)});
            }
        }
    } catch (const wrong &what) {
        failure_ = what.what();
        failed_ = true;
    }
}

std::uint64_t station::sent() const
{
    std::uint64_t total = 0;
    for (const sender &each : senders_) {
        total += each.sent();
    }
    return total;
}

std::uint64_t station::replies() const
{
    std::uint64_t total = 0;
    for (const sender &each : senders_) {
        total += each.replies();
    }
    return total;
}

void station::stop_operations()
{
    stopping_ = true;
    worker_.join();
    require(!failed_, failure_);
}

void station::finish()
{
    for (sender &each : senders_) {
        each.stop();
        require(each.bad_replies() == 0, "bad replies");
        require(each.replies() <= each.sent(), "more replies than requests");
    }
    wait_for_the_last_packets();
    server_.stop();
    expect_exact_counters();
    expect_sessions_to_end();
    control_.finish();
}

/** Loopback loses none of so few packets. */
void station::wait_for_the_last_packets() const
{
    for (int tries = 0; server_.statistics().received < sent() && tries < 1000; ++tries) {
        std::this_thread::sleep_for(std::chrono::milliseconds{20});
    }
    require(server_.statistics().received == sent(), "the server has not received what was sent");
}

void station::expect_exact_counters() const
{
    const olv_twamp_global_stats global = control_.global_statistics();
    const olv_fastpath::udp_statistics seen = server_.statistics();
    require(global.total_rx == seen.received, "received differs");
    require(global.total_tx == seen.sent + seen.send_failures, "transmitted differs");
    require(global.total_rx == global.total_tx + global.drop_no_responder + global.drop_length_check +
                                   global.drop_hash_error + global.drop_no_bind,
            "received is not transmitted and dropped");
    require(global.total_tx > 0 && global.drop_length_check > 0 && global.drop_no_responder > 0,
            "hardly anything has happened");
    require(replies() <= seen.sent, "more replies than were sent");
}

/** Packets of a later time, one sender's, find all other sessions idle. */
void station::expect_sessions_to_end()
{
    const std::array<std::uint8_t, 44> request{};
    std::array<std::uint8_t, 44> reply{};
    olv_fastpath::received_packet packet;
    packet.payload = request;
    packet.arrival_ticks = processor_.timer_now() + 10 * processor_.timer_frequency();
    for (std::uint32_t count = 0; count < session_capacity; ++count) {
        (void)reflector_.reflect(packet, {.responder_id = 1, .bind_key = control::staying_key}, reply);
    }
    require(reflector_.sessions() == 1, "sessions are left");
}

} // namespace olv_soak
