#include "site.hpp"

#include <numeric>
#include <random>
#include <thread>

#include <gtest/gtest.h>

#include "hyx.h"
#include "olv_sim/resources.hpp"
#include "program_names.hpp"

namespace olv_races {
namespace {

using olv_fastpath::drop_reason;
constexpr std::nullopt_t reflected = std::nullopt;
using words = std::vector<std::uint32_t>;

std::uint32_t all_of(const tally &seen)
{
    return std::accumulate(seen.begin(), seen.end(), 0u,
                           [](std::uint32_t sum, const auto &each) { return sum + each.second; });
}

} // namespace

site::site(olv_sim::framework &framework, std::uint32_t modules)
    : framework_(framework), processor_(olv_sim::classifier_program::twamp(last_id, 16))
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
    const olv_bind_info bind = olv_sim::make_bind_info(module(0), framework_.ipv4_module(), &staying_key);
    EXPECT_EQ(olv_twamp_custom_unbind(framework_.system(), &bind), 0u);
    for (twamp_responder_handle *responder : staying_) {
        EXPECT_EQ(olv_twamp_responder_delete(module(0), responder), 0u);
        hyx_nvm_free(responder);
    }
    for (olv_module_handle *each : modules_) {
        EXPECT_EQ(olv_twamp_shutdown(each), 0u);
    }
    EXPECT_EQ(processor_.allocated(olv_test::responder_namespace), 0u);
}

void site::reflect(std::uint32_t packets)
{
    olv_fastpath::reflector reflector{
        processor_, {.refwait_seconds = 1, .session_capacity = 64, .unstamped_packets_per_second = 0}};
    std::mt19937 random{packets};
    const auto below = [&random](std::uint32_t limit) { return static_cast<std::uint32_t>(random() % limit); };
    std::array<std::uint8_t, 128> request{};
    std::array<std::uint8_t, 128> reply{};
    for (std::uint32_t done = 0; done < packets; ++done) {
        const bool stays = below(2) == 0;
        const std::uint32_t id =
            stays ? 1 + below(staying_responders) : staying_responders + 1 + below(last_id);
        olv_fastpath::received_packet packet;
        packet.payload = std::span{request}.first(below(100));
        packet.arrival_ticks = processor_.timer_now();
        packet.sender.port = static_cast<std::uint16_t>(below(48));
        const std::uint32_t key = stays ? staying_key : below(16);
        const std::optional<drop_reason> dropped =
            reflector.reflect(packet, {.responder_id = id, .bind_key = key}, reply).dropped;
        ++seen_[dropped];
        if (stays) {
            ++seen_of_staying_.at(id - 1)[dropped];
        }
        if (done % 64 == 0) {
            std::this_thread::yield(); // One core or many, the control threads get their share.
        }
    }
    is_done_ = true;
}

void site::expect_exact_totals()
{
    olv_twamp_global_stats global{};
    EXPECT_EQ(olv_twamp_global_stats_get(module(0), &global), 0u);
    EXPECT_EQ((words{global.total_rx, global.total_tx, global.drop_no_responder, global.drop_no_bind,
                     global.drop_length_check, global.drop_hash_error}),
              (words{all_of(seen_), seen_[reflected], seen_[drop_reason::no_responder],
                     seen_[drop_reason::no_bind], seen_[drop_reason::length_check],
                     seen_[drop_reason::max_sessions] + seen_[drop_reason::hash_error]}));
    for (std::uint32_t index = 0; index < staying_responders; ++index) {
        olv_twamp_responder_stats stats{};
        EXPECT_EQ(olv_twamp_responder_stats_get(module(0), staying(index), &stats), 0u);
        EXPECT_GT(stats.transmitted, 0u);
        tally &seen = seen_of_staying_.at(index);
        EXPECT_EQ((words{stats.received, stats.transmitted, stats.drop_length_check, stats.drop_max_sessions}),
                  (words{all_of(seen), seen[reflected], seen[drop_reason::length_check],
                         seen[drop_reason::max_sessions] + seen[drop_reason::hash_error]}));
    }
    EXPECT_EQ(processor_.allocated(olv_test::responder_namespace), staying_responders);
    EXPECT_EQ(processor_.tree(olv_test::responder_tree)->size(), staying_responders);
    EXPECT_EQ(processor_.tree(olv_test::bind_tree)->size(), 1u);
    for (const olv_module_handle *each : modules_) {
        EXPECT_EQ(olv_sim::semaphores::held(each->lock), 0u);
    }
}

} // namespace olv_races
