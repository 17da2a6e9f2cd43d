/**
 * @file station.hpp
 * A processor with everything at work on it: control application, fast path on UDP sockets, senders.
 */
#ifndef OLV_TWAMP_SOAK_STATION_HPP
#define OLV_TWAMP_SOAK_STATION_HPP

#include <array>
#include <atomic>
#include <chrono>
#include <deque>
#include <string>
#include <thread>

#include "control.hpp"
#include "fastpath/udp/udp_server.hpp"
#include "senders.hpp"

namespace olv_soak {

class station {
  public:
    station(olv_sim::framework &framework, std::uint32_t responders, std::uint64_t seed)
        : processor_(olv_sim::classifier_program::twamp(responders, 16)),
          control_(framework, processor_, responders, seed),
          random_(static_cast<std::uint32_t>(seed))
    {
        control_.begin();
        for (const std::uint32_t responder : {1u, 2u, 3u, 4u, 1u}) {
            const char *address = responder == 2 ? "[::1]:0" : "127.0.0.1:0";
            wandering_ = server_.add(olv_net::parse_socket_address(address),
                                     {.responder_id = responder, .bind_key = control::staying_key});
        }
    }
    ~station() { stop(); }
    station(const station &) = delete;
    station &operator=(const station &) = delete;

    /** Let packets flow and operations follow each other in a thread of their own. */
    void start()
    {
        server_.start();
        for (std::size_t socket = 0; socket <= wandering_; ++socket) {
            senders_.emplace_back(server_.local_address(socket), random_(),
                                  [this, socket] { return server_.statistics(socket).received_packets; });
        }
        worker_ = std::thread{[this] { work(); }};
    }
    [[nodiscard]] bool is_good() const { return !failed_; } ///< The operations still follow each other.
    /** End the operations, and with them the faults. @throw wrong  What ended them before. */
    void stop_operations()
    {
        stop();
        require(!failed_, failure_);
    }
    /** Let the packets run out, add everything up and take everything down. No station operates any more.
     *  @return What has been done. @throw wrong */
    totals finish()
    {
        totals done = control_.done();
        for (sender &each : senders_) {
            each.stop();
            require(each.is_good(), "bad replies, or more than requests");
            done.sent += each.sent();
            done.replies += each.replies();
        }
        wait_for(done.sent);
        server_.stop();
        expect_exact_counters(done.replies);
        expect_sessions_to_end();
        control_.finish();
        return done;
    }

  private:
    static constexpr std::uint32_t session_capacity = 4096;

    void work()
    {
        try {
            for (std::uint64_t operation = 1; !stopping_; ++operation) {
                control_.step();
                if (operation % 16 == 0) {
                    server_.set_path(wandering_,
                                     {.responder_id = static_cast<std::uint32_t>(random_() % 0x2000),
                                      .bind_key = static_cast<std::uint32_t>(random_() % 64)});
                }
            }
        } catch (const wrong &what) {
            failure_ = what.what();
            failed_ = true;
        }
    }

    void stop()
    {
        stopping_ = true;
        if (worker_.joinable()) {
            worker_.join();
        }
    }

    /** Loopback loses none of so few packets. */
    void wait_for(std::uint64_t packets) const
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds{30};
        while (server_.statistics().received_packets < packets && std::chrono::steady_clock::now() < end) {
            std::this_thread::yield();
        }
        require(server_.statistics().received_packets == packets, "the server has not received what was sent");
    }

    void expect_exact_counters(std::uint64_t replies) const
    {
        const olv_twamp_global_stats global = control_.global_statistics();
        const olv_fastpath::listener_statistics seen = server_.statistics();
        require(global.total_rx == seen.received_packets, "received differs");
        require(global.total_tx == seen.sent_replies + seen.failed_replies, "transmitted differs");
        require(global.total_rx == global.total_tx + olv_fastpath::drops_in(global).sum(),
                "received is not transmitted and dropped");
        require(replies > 0 && global.drop_length_check > 0 && global.drop_no_responder > 0,
                "hardly anything has happened");
        require(replies <= seen.sent_replies, "more replies than were sent");
    }

    /** Packets of a later time, one sender's, find all other sessions idle. */
    void expect_sessions_to_end()
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

    olv_sim::processor processor_;
    control control_;
    olv_fastpath::reflector reflector_{
        processor_,
        {.refwait_seconds = 1, .session_capacity = session_capacity, .unstamped_packets_per_second = 0}};
    olv_fastpath::udp_server server_{reflector_};
    std::size_t wandering_ = 0; ///< Socket whose packets change their responder.
    std::deque<sender> senders_;
    std::minstd_rand random_;
    std::atomic<bool> stopping_{false};
    std::atomic<bool> failed_{false};
    std::string failure_; ///< What was wrong, once the thread has ended.
    std::thread worker_;
};

} // namespace olv_soak

#endif
