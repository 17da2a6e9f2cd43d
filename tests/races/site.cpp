#include "site.hpp"
#include "hyx.h"
#include "olv_sim/framework.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/resources.hpp"

#include <array>
#include <random>

#include <gtest/gtest.h>

namespace olv_races {

using olv_fastpath::outcome;

void tally::add(outcome result)
{
    ++received;
    switch (result) {
    case outcome::reflected:
        ++transmitted;
        break;
    case outcome::drop_no_responder:
        ++no_responder;
        break;
    case outcome::drop_no_bind:
        ++no_bind;
        break;
    case outcome::drop_length:
        ++length;
        break;
    default:
        ++sessions;
        break;
    }
}

site::site(olv_sim::framework &framework, std::uint32_t modules)
    : framework_(framework),
      processor_(olv_sim::classifier_program::twamp(last_id, 16)),
      staying_tally_(staying_responders)
{
    for (std::uint32_t index = 0; index < modules; ++index) {
        modules_.push_back(framework.create_module(
            {.module_id = olv_sim::module_id_twamp, .processor = &processor_, .log_flags = 15}));
        EXPECT_EQ(olv_twamp_init(modules_.back()), 0u);
    }
    for (std::uint32_t index = 0; index < staying_responders; ++index) {
        const olv_twamp_responder_info info{static_cast<std::uint16_t>(index), 0};
        EXPECT_EQ(olv_twamp_responder_create(module(0), &info, &staying_.emplace_back()), 0u);
        EXPECT_EQ(staying(index)->responder_id, index + 1);
    }
    const olv_bind_info bind = olv_sim::make_bind_info(module(0), framework.ipv4_module(), &staying_key);
    EXPECT_EQ(olv_twamp_custom_bind(framework.system(), &bind), 0u);
}

site::~site()
{
    wait();
    const olv_bind_info bind = olv_sim::make_bind_info(module(0), framework_.ipv4_module(), &staying_key);
    EXPECT_EQ(olv_twamp_custom_unbind(framework_.system(), &bind), 0u);
    for (twamp_responder_handle *responder : staying_) {
        EXPECT_EQ(olv_twamp_responder_delete(module(0), responder), 0u);
        hyx_nvm_free(responder);
    }
    for (olv_module_handle *each : modules_) {
        EXPECT_EQ(olv_twamp_shutdown(each), 0u);
    }
    EXPECT_EQ(processor_.allocated(responder_namespace), 0u);
}

void site::start(std::uint32_t packets)
{
    running_ = true;
    worker_ = std::thread{[this, packets] { reflect(packets); }};
}

void site::wait()
{
    if (worker_.joinable()) {
        worker_.join();
    }
}

void site::reflect(std::uint32_t packets)
{
    olv_fastpath::reflector reflector{processor_, {.refwait_seconds = 1, .session_capacity = 64}};
    std::mt19937 random{packets};
    const auto below = [&random](std::uint32_t limit) { return static_cast<std::uint32_t>(random() % limit); };
    std::array<std::uint8_t, 128> request{};
    std::array<std::uint8_t, 128> reply{};
    for (std::uint32_t done = 0; done < packets; ++done) {
        const bool stays = below(2) == 0;
        const olv_fastpath::packet_path path{.responder_id = stays ? 1 + below(staying_responders)
                                                                   : first_free_id + below(last_id),
                                             .bind_key = stays ? staying_key : below(16)};
        olv_fastpath::received_packet packet;
        packet.payload = std::span{request}.first(below(100));
        packet.arrival_ticks = processor_.timer_now();
        packet.sender_port = static_cast<std::uint16_t>(below(48));
        const olv_fastpath::verdict made = reflector.reflect(packet, path, reply);
        all_.add(made.result);
        if (stays) {
            staying_tally_[path.responder_id - 1].add(made.result);
        }
        if (done % 64 == 0) {
            std::this_thread::yield(); // One core or many, the control threads get their share.
        }
    }
    running_ = false;
}

void site::expect_exact_totals() const
{
    olv_twamp_global_stats global{};
    EXPECT_EQ(olv_twamp_global_stats_get(module(0), &global), 0u);
    EXPECT_EQ(global.total_rx, all_.received);
    EXPECT_EQ(global.total_tx, all_.transmitted);
    EXPECT_EQ(global.drop_no_responder, all_.no_responder);
    EXPECT_EQ(global.drop_no_bind, all_.no_bind);
    EXPECT_EQ(global.drop_length_check, all_.length);
    EXPECT_EQ(global.drop_hash_error, all_.sessions);
    for (std::uint32_t index = 0; index < staying_responders; ++index) {
        olv_twamp_responder_stats stats{};
        EXPECT_EQ(olv_twamp_responder_stats_get(module(0), staying(index), &stats), 0u);
        const tally &seen = staying_tally_[index];
        EXPECT_GT(stats.transmitted, 0u);
        EXPECT_EQ(stats.received, seen.received);
        EXPECT_EQ(stats.transmitted, seen.transmitted);
        EXPECT_EQ(stats.drop_length_check, seen.length);
        EXPECT_EQ(stats.drop_max_sessions, seen.sessions);
    }
    EXPECT_EQ(processor_.allocated(responder_namespace), staying_responders);
    EXPECT_EQ(processor_.tree(responder_tree)->size(), staying_responders);
    EXPECT_EQ(processor_.tree(bind_tree)->size(), 1u);
    for (const olv_module_handle *each : modules_) {
        EXPECT_EQ(olv_sim::semaphores::held(each->lock), 0u);
    }
}

} // namespace olv_races
