/**
 * @file fixture.hpp
 * A processor with the TWAMP program, written to as a module would write to it, and a reflector on it.
 */
#ifndef OLV_FASTPATH_TEST_FIXTURE_HPP
#define OLV_FASTPATH_TEST_FIXTURE_HPP

#include <array>
#include <cstdint>
#include <cstring>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fastpath/core/reflector.hpp"
#include "fastpath/core/reply.hpp"
#include "hyx.h"
#include "program_names.hpp"

namespace olv_fastpath_test {

using namespace olv_fastpath;
using namespace olv_net;
using bytes = std::vector<std::uint8_t>;

using olv_test::bind_tree;
using olv_test::responder_tree;

struct responder_settings {
    std::uint32_t creation_count = 1;
    std::uint32_t ntp_seconds = 0x00000100;
    std::uint32_t ntp_fraction = 0x80000000;
    std::uint64_t ticks = 1000000;
    std::uint32_t maximum_sessions = 32;
};

struct global_counters {
    std::uint32_t rx = 0, tx = 0, no_responder = 0, length_check = 0, hash_error = 0, no_bind = 0;
    friend bool operator==(const global_counters &, const global_counters &) = default;
    friend std::ostream &operator<<(std::ostream &out, const global_counters &value)
    {
        return out << testing::PrintToString(std::array{value.rx, value.tx, value.no_responder,
                                                        value.length_check, value.hash_error, value.no_bind});
    }
};

struct responder_counters {
    std::uint32_t received = 0, transmitted = 0, active = 0, length_check = 0, max_sessions = 0;
    friend bool operator==(const responder_counters &, const responder_counters &) = default;
    friend std::ostream &operator<<(std::ostream &out, const responder_counters &value)
    {
        return out << testing::PrintToString(std::array{value.received, value.transmitted, value.active,
                                                        value.length_check, value.max_sessions});
    }
};

class fastpath_test : public testing::Test {
  protected:
    static constexpr std::uint32_t responder_id = 7;
    static constexpr std::uint32_t bind_key = 5;
    static constexpr packet_path usual_path{.responder_id = responder_id, .bind_key = bind_key};
    static constexpr std::uint64_t start_ticks = 1000000;

    fastpath_test() { processor_.set_timer(start_ticks); }

    /** A responder and a bind, as most tests need them. */
    void define_usual_path(const responder_settings &settings = {})
    {
        define_responder(responder_id, settings);
        learn(bind_tree, bind_key, 0x401);
    }

    void define_responder(std::uint32_t id, const responder_settings &settings = {})
    {
        write_state(id, settings);
        learn(responder_tree, id, 0);
    }

    void write_state(std::uint32_t id, const responder_settings &settings)
    {
        std::array<std::uint8_t, 60> state{};
        store_32(&state[0], 0x12340002);
        store_32(&state[4], 0x80005678);
        store_32(&state[8], settings.creation_count);
        store_32(&state[16], settings.ntp_seconds);
        store_32(&state[20], settings.ntp_fraction);
        store_32(&state[24], static_cast<std::uint32_t>(settings.ticks >> 32));
        store_32(&state[28], static_cast<std::uint32_t>(settings.ticks));
        std::memcpy(&state[52], &settings.maximum_sessions, 4);
        ASSERT_EQ(hyx_se_state_set(processor_.rte_handle(), id, 0, state.data(), 60), 0u);
    }

    /** What deletion leaves: no entry in the tree, zeros in the state. */
    void delete_responder(std::uint32_t id)
    {
        unlearn(responder_tree, id);
        const std::array<std::uint8_t, 60> zeros{};
        ASSERT_EQ(hyx_se_state_set(processor_.rte_handle(), id, 0, zeros.data(), 60), 0u);
    }

    /** A key, or none. */
    using optional_key = std::optional<std::uint32_t>;

    void learn(const char *tree, optional_key key, std::uint32_t return_value)
    {
        olv_ptn pattern = make_pattern(key);
        olv_ptn_action action{{return_value, 0, 0}};
        EXPECT_EQ(hyx_ptn_learn(processor_.rte_handle(), tree_id(tree), &pattern, &action), 0u);
        olv_ptn_free(pattern);
    }

    void unlearn(const char *tree, optional_key key)
    {
        olv_ptn pattern = make_pattern(key);
        olv_ptn_action action{};
        EXPECT_EQ(hyx_ptn_unlearn(processor_.rte_handle(), tree_id(tree), &pattern, key ? 24 : 0, &action, 1),
                  0u);
        olv_ptn_free(pattern);
    }

    [[nodiscard]] global_counters global() const
    {
        std::array<std::uint8_t, 24> state{};
        EXPECT_EQ(hyx_se_state_get(processor_.rte_handle(), 0x7008C1, 0, state.data(), 24), 0u);
        return {load_32(&state[0]),  load_32(&state[4]),  load_32(&state[8]),
                load_32(&state[12]), load_32(&state[16]), load_32(&state[20])};
    }

    [[nodiscard]] responder_counters counters(std::uint32_t id = responder_id) const
    {
        std::array<std::uint8_t, 60> state{};
        EXPECT_EQ(hyx_se_state_get(processor_.rte_handle(), id, 0, state.data(), 60), 0u);
        return {load_32(&state[32]), load_32(&state[36]), load_32(&state[40]), load_32(&state[44]),
                load_32(&state[48])};
    }

    /** Ticks of so many seconds and quarters of a second. */
    [[nodiscard]] std::uint64_t ticks_of(std::uint64_t seconds, std::uint64_t quarters = 0) const
    {
        return seconds * processor_.timer_frequency() + quarters * processor_.timer_frequency() / 4;
    }

    olv_sim::processor processor_{olv_sim::classifier_program::twamp(1000, 100)};

  private:
    [[nodiscard]] std::uint32_t tree_id(const char *tree) const
    {
        std::uint32_t id = 0;
        EXPECT_EQ(hyx_ptn_symbol_get_id(processor_.rte_handle(), tree, &id), 0u);
        return id;
    }

    static olv_ptn make_pattern(optional_key key)
    {
        olv_ptn pattern{};
        EXPECT_EQ(olv_ptn_new(24, &pattern), 0u);
        if (key) {
            EXPECT_EQ(olv_ptn_extend(&pattern, *key, 24), 0u);
        }
        return pattern;
    }
};

/** 10.0.0.1 in its mapped form. */
inline constexpr ip_address first_sender{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 10, 0, 0, 1};
inline constexpr ip_address second_sender{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 10, 0, 0, 2};

/** Sends packets straight into a reflector. */
class reflector_test : public fastpath_test {
  protected:
    struct reply {
        std::optional<drop_reason> dropped;
        std::uint8_t traffic_class;
        bytes payload; ///< Empty when the packet was dropped.
    };

    /** The stamps of request_of() are of no clock: they are not limited, unless the rate says so. */
    void use_options(const fast_path_options &options, std::uint32_t unstamped_rate = 0)
    {
        options_ = options;
        options_.unstamped_packets_per_second = unstamped_rate;
    }

    reflector &subject()
    {
        if (!reflector_)
            reflector_.emplace(processor_, options_);
        return *reflector_;
    }

    /** A packet from the first sender, port 5000, TTL 63, that arrives now. */
    [[nodiscard]] received_packet packet_of(const bytes &payload) const
    {
        received_packet packet;
        packet.payload = payload;
        packet.arrival_ticks = processor_.timer_now();
        packet.ttl = 63;
        packet.sender = {first_sender, 5000};
        return packet;
    }

    /** Reflect a packet alone, and have the reply leave at once. */
    reply reflect(const received_packet &packet, const packet_path &path = usual_path)
    {
        // Old bytes that no reply may show.
        bytes room(std::max<std::size_t>(packet.payload.size(), 44), 0xAA);
        const verdict made = subject().reflect(packet, path, room);
        if (!made.dropped) {
            EXPECT_EQ(made.reply.bytes.data(), room.data());
            departing_.add(made.reply);
            departing_.stamp(subject().clock(), 0, subject().noted_departures());
        }
        room.resize(made.reply.bytes.size());
        return {made.dropped, made.reply.traffic_class, room};
    }

    reply reflect(const bytes &payload, const packet_path &path = usual_path)
    {
        return reflect(packet_of(payload), path);
    }

    departing_replies departing_;

  private:
    fast_path_options options_{.unstamped_packets_per_second = 0};
    std::optional<reflector> reflector_;
};

/** A request of sequence number 0A 0B 0C 0D whose padding counts from 01. */
inline bytes request_of(std::size_t length)
{
    bytes request{0x0A, 0x0B, 0x0C, 0x0D, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18, 0x81, 0x23};
    for (std::size_t position = 14; position < length; ++position)
        request.push_back(static_cast<std::uint8_t>(position - 13));
    request.resize(length);
    return request;
}

} // namespace olv_fastpath_test

namespace olv_fastpath {

inline void PrintTo(drop_reason reason, std::ostream *out)
{
    *out << drop_reasons[static_cast<std::size_t>(reason)].name;
}

} // namespace olv_fastpath

#endif
