/**
 * @file reflector_expectation.hpp
 * What the reflector has to make of a packet, from its documentation: outcome, sequence number, reply.
 */
#ifndef OLV_FUZZ_REFLECTOR_EXPECTATION_HPP
#define OLV_FUZZ_REFLECTOR_EXPECTATION_HPP

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <utility>
#include <vector>

#include "fastpath/core/options.hpp"
#include "fastpath/core/packet.hpp"

namespace olv_fuzz {

using olv_fastpath::drop_reason;
using olv_fastpath::fast_path_options;
using olv_fastpath::packet_path;
using olv_fastpath::received_packet;

/** Numbers that a test can change, to see that a difference is noticed. */
struct reflector_constants {
    std::uint32_t first_sequence_number = 0;
    std::uint32_t maximum_sessions = 32;
    std::size_t shortest_request = 14;
    std::size_t shortest_reply = 41;
    std::uint32_t seconds_offset = 0;
    std::size_t first_drop_word = 2;
};

class reflector_expectation {
  public:
    reflector_expectation(const reflector_constants &constants, const fast_path_options &options,
                          std::uint64_t ticks_per_second)
        : constants_(constants), options_(options), frequency_(ticks_per_second)
    {}

    struct responder {
        std::uint64_t created_units = 0; ///< NTP, 2^-32 s.
        std::uint64_t created_ticks = 0;
    };

    void create(std::uint32_t id, const responder &created)
    {
        responders_[id] = created;
        std::erase_if(sessions_, [&](const auto &entry) { return entry.first.first == id; });
    }

    void remove(std::uint32_t id) { responders_.erase(id); }

    void bind(std::uint32_t key) { binds_.insert(key); }
    void unbind(std::uint32_t key) { binds_.erase(key); }
    void set_default_bind(bool on) { has_default_bind_ = on; }
    [[nodiscard]] const std::map<std::uint32_t, responder> &responders() const { return responders_; }

    /** What becomes of a packet; where only the session table decides, what becomes of it when there is room.
     */
    struct decision {
        std::optional<drop_reason> dropped; ///< Nothing: it is reflected.
        std::uint32_t sequence_number = 0;
        bool needs_new_session = false;
    };
    [[nodiscard]] decision decide(const received_packet &packet, const packet_path &path,
                                  std::size_t room) const
    {
        const std::uint32_t id = path.responder_id & id_mask;
        if (!responders_.contains(id)) {
            return {.dropped = drop_reason::no_responder};
        }
        if (!has_default_bind_ && !binds_.contains(path.bind_key & id_mask)) {
            return {.dropped = drop_reason::no_bind};
        }
        const std::size_t shortest = std::max(constants_.shortest_request, options_.minimum_request);
        if (packet.payload.size() < shortest || room < reply_length(packet.payload.size())) {
            return {.dropped = drop_reason::length_check};
        }
        const auto known = sessions_.find(key_of(packet, path));
        const bool goes_on = known != sessions_.end() && is_alive(known->second, packet.arrival_ticks);
        if (!goes_on && alive_sessions(id, packet.arrival_ticks) >= constants_.maximum_sessions) {
            return {.dropped = drop_reason::max_sessions};
        }
        return {.dropped = std::nullopt,
                .sequence_number = goes_on ? known->second.next : constants_.first_sequence_number,
                .needs_new_session = !goes_on};
    }

    /** The packet was reflected. */
    void note_reflected(const received_packet &packet, const packet_path &path)
    {
        session &entry = sessions_[key_of(packet, path)];
        if (entry.next == 0 || !is_alive(entry, packet.arrival_ticks)) {
            entry.next = constants_.first_sequence_number;
            ++sessions_ever_;
        }
        ++entry.next;
        entry.last_arrival = packet.arrival_ticks;
    }

    /** The reply but for its departure time and error estimate, which are taken from @p found. */
    [[nodiscard]] std::vector<std::uint8_t> reply(const received_packet &packet, const packet_path &path,
                                                  std::uint32_t sequence_number,
                                                  std::span<const std::uint8_t> found) const
    {
        const std::span<const std::uint8_t> request = packet.payload;
        std::vector<std::uint8_t> bytes(reply_length(request.size()));
        const bool is_stamp = request.size() == stamp_length;
        store(bytes, 0, sequence_number, 4);
        if (is_stamp && options_.mode == olv_fastpath::stamp_mode::stateless) {
            std::copy_n(request.begin(), 4, bytes.begin());
        }
        std::copy_n(found.begin() + 4, 10, bytes.begin() + 4);
        store(bytes, 16, stamp(packet, instant(path.responder_id, packet.arrival_ticks)), 8);
        std::copy_n(request.begin(), 14, bytes.begin() + 24);
        bytes.at(40) = packet.ttl;
        if (!is_stamp && bytes.size() > 41) {
            std::copy_n(request.begin() + 14, bytes.size() - 41, bytes.begin() + 41);
        }
        return bytes;
    }

    /** The instant that a reply gives for a reading of the timer, in units of 2^-32 s. */
    [[nodiscard]] std::uint64_t instant(std::uint32_t id, std::uint64_t ticks) const
    {
        const responder &from = responders_.at(id & id_mask);
        const std::uint64_t elapsed = ticks <= from.created_ticks ? 0 : ticks - from.created_ticks;
        const std::uint64_t seconds = elapsed / frequency_;
        const std::uint64_t fraction = ((elapsed - seconds * frequency_) << 32) / frequency_;
        return from.created_units + (seconds << 32) + fraction +
               (std::uint64_t{constants_.seconds_offset} << 32);
    }

    /** Whether the request's time stamp is PTP's: the reply's are then, too. */
    [[nodiscard]] static bool is_ptp(const received_packet &packet) { return (packet.payload[12] & 0x40) != 0; }

    /** An instant as the reply to a packet has it. */
    [[nodiscard]] static std::uint64_t stamp(const received_packet &packet, std::uint64_t units)
    {
        if (!is_ptp(packet)) {
            return units;
        }
        const std::uint64_t nanoseconds = ((units & 0xFFFFFFFF) * 1000000000 + (1u << 31)) >> 32;
        const std::uint64_t seconds = (units >> 32) - 2208988800u + nanoseconds / 1000000000;
        return seconds << 32 | nanoseconds % 1000000000;
    }

    [[nodiscard]] std::size_t reply_length(std::size_t request_length) const
    {
        return std::max(request_length, constants_.shortest_reply);
    }

    /** Sessions that may be in the table, forgotten ones included. */
    [[nodiscard]] std::size_t sessions_ever() const { return sessions_ever_; }

  private:
    static constexpr std::uint32_t id_mask = 0xFFFFFF;
    static constexpr std::size_t stamp_length = 44;

    using session_key = std::pair<std::uint32_t, olv_net::ip_endpoint>;
    struct session {
        std::uint32_t next = 0;
        std::uint64_t last_arrival = 0;
    };

    [[nodiscard]] bool is_alive(const session &one, std::uint64_t now) const
    {
        return now - one.last_arrival < options_.refwait_seconds * frequency_;
    }

    [[nodiscard]] std::size_t alive_sessions(std::uint32_t id, std::uint64_t now) const
    {
        return static_cast<std::size_t>(
            std::count_if(sessions_.begin(), sessions_.end(), [&](const auto &entry) {
                return entry.first.first == id && is_alive(entry.second, now);
            }));
    }

    static session_key key_of(const received_packet &packet, const packet_path &path)
    {
        return {path.responder_id & id_mask, packet.sender};
    }

    static void store(std::vector<std::uint8_t> &bytes, std::size_t at, std::uint64_t value, std::size_t count)
    {
        for (std::size_t index = 0; index < count; ++index) {
            bytes.at(at + index) = static_cast<std::uint8_t>(value >> (8 * (count - 1 - index)));
        }
    }

    reflector_constants constants_;
    fast_path_options options_;
    std::uint64_t frequency_;
    std::map<std::uint32_t, responder> responders_;
    std::set<std::uint32_t> binds_;
    bool has_default_bind_ = false;
    std::map<session_key, session> sessions_;
    std::size_t sessions_ever_ = 0;
};

} // namespace olv_fuzz

#endif
