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

    /** What becomes of a packet. */
    struct decision {
        std::optional<drop_reason> dropped; ///< Nothing: it is reflected.
        std::uint32_t sequence_number = 0;
    };
    /** @param found  What became of it; two things depend on hashes that nobody knows, whether an older stamp
     * is still remembered and which senders without a session are limited together. */
    [[nodiscard]] decision decide(const received_packet &packet, const packet_path &path, std::size_t room,
                                  const std::optional<drop_reason> &found)
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
        current_id_ = id;
        const auto number = static_cast<std::uint32_t>(load(packet.payload, 0, 4));
        if (options_.mode == olv_fastpath::stamp_mode::stateless) {
            return {.dropped = reason_against_first(packet, found), .sequence_number = number};
        }
        const auto known = sessions_.find(key_of(packet, path));
        if (known == sessions_.end() || !is_alive(known->second, packet.arrival_ticks)) {
            return begin(packet, path, found);
        }
        session &entry = known->second;
        const bool is_answer = is_answer_to_reply(packet, entry.next % 64 == 63, entry.suspected, found);
        entry.suspected = suspicion_of(packet, is_answer);
        if (is_answer) {
            return {.dropped = drop_reason::answer_to_reply};
        }
        if (!may_pass(entry, packet)) {
            return {.dropped = drop_reason::unstamped_rate};
        }
        const std::uint64_t idle = packet.arrival_ticks - entry.last_arrival;
        if (number == 0 && entry.number != 0 && entry.number < 0xFFFF0000 && idle >= frequency_) {
            entry.next = constants_.first_sequence_number;
        }
        entry.is_established = true;
        note_packet(entry, packet);
        return {.dropped = std::nullopt, .sequence_number = entry.next++};
    }

    void note_departure(std::uint64_t stamp, bool ptp)
    {
        departed_.insert(stamp);
        last_departure_ = stamp;
        last_was_ptp_ = ptp;
    }

    /** Put the stamp of the last reply somewhere in a request. */
    void write_stamp(std::vector<std::uint8_t> &request, std::uint32_t choice) const
    {
        const std::size_t position = choice % 3 == 0 ? 4 : choice % 3 == 1 ? 28 : choice / 3;
        if (last_departure_ != 0 && position + 8 <= request.size()) {
            store(request, position, last_departure_, 8);
        }
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

    /** Sessions that a responder has at an instant; more may not have been found to be over yet. */
    [[nodiscard]] std::uint32_t sessions_of(std::uint32_t id, std::uint64_t now) const
    {
        return static_cast<std::uint32_t>(
            std::count_if(sessions_.begin(), sessions_.end(), [&](const auto &entry) {
                return entry.first.first == id && is_alive(entry.second, now);
            }));
    }

  private:
    static constexpr std::uint32_t id_mask = 0xFFFFFF;
    static constexpr std::size_t stamp_length = 44;

    using session_key = std::pair<std::uint32_t, olv_net::ip_endpoint>;
    /** Whether a sender's last packet may have been an answer; hashes decide what is not known. */
    enum class suspicion { no, unknown, yes };
    struct session {
        suspicion suspected = suspicion::no;
        std::uint32_t next = 0;
        std::uint64_t last_arrival = 0;
        std::uint64_t order = 0; ///< Of its last packet.
        std::uint32_t number = 0;
        bool is_established = false;
        std::uint64_t stamp = 0;
        std::uint64_t paid = 0; ///< Ticks up to when its packets without a plausible stamp are paid for.
    };

    [[nodiscard]] bool is_alive(const session &one, std::uint64_t now) const
    {
        return now - one.last_arrival < options_.refwait_seconds * frequency_;
    }

    [[nodiscard]] decision begin(const received_packet &packet, const packet_path &path,
                                 const std::optional<drop_reason> &found)
    {
        if (const auto reason = reason_against_first(packet, found)) {
            return {.dropped = reason};
        }
        const std::uint32_t id = path.responder_id & id_mask;
        std::erase_if(sessions_,
                      [&](const auto &entry) { return !is_alive(entry.second, packet.arrival_ticks); });
        if (sessions_of(id, packet.arrival_ticks) >= constants_.maximum_sessions && !give_way(id, packet)) {
            return {.dropped = drop_reason::max_sessions};
        }
        session begun;
        begun.next = constants_.first_sequence_number + 1;
        begun.suspected = suspicion_of(packet);
        begun.stamp = load(packet.payload, 4, 8);
        begun.paid = packet.arrival_ticks + ticks_each();
        note_packet(begun, packet);
        sessions_[key_of(packet, path)] = begun;
        return {.dropped = std::nullopt, .sequence_number = constants_.first_sequence_number};
    }

    /** End the oldest session that gave one packet, or the oldest idle one. */
    bool give_way(std::uint32_t id, const received_packet &packet)
    {
        auto leaving = sessions_.end();
        for (auto each = sessions_.begin(); each != sessions_.end(); ++each) {
            const session &one = each->second;
            const bool may = each->first.first == id &&
                             (!one.is_established || packet.arrival_ticks - one.last_arrival >=
                                                         options_.session_grace_seconds * frequency_);
            if (may && (leaving == sessions_.end() ||
                        std::pair{one.is_established, one.order} <
                            std::pair{leaving->second.is_established, leaving->second.order})) {
                leaving = each;
            }
        }
        if (leaving == sessions_.end()) {
            return false;
        }
        sessions_.erase(leaving);
        return true;
    }

    void note_packet(session &entry, const received_packet &packet)
    {
        entry.last_arrival = packet.arrival_ticks;
        entry.order = ++packets_;
        entry.number = static_cast<std::uint32_t>(load(packet.payload, 0, 4));
    }

    /** Whether a packet carries a reply's stamp where no sender's stamp could be the same by chance. */
    [[nodiscard]] bool is_answer_to_reply(const received_packet &packet, bool anywhere, suspicion before,
                                          const std::optional<drop_reason> &found) const
    {
        const std::size_t end = std::min<std::size_t>(packet.payload.size(), 128);
        for (std::size_t position = 0; position + 8 <= end; ++position) {
            const std::uint64_t stamp = load(packet.payload, position, 8);
            if ((!anywhere && position != 4 && position != 28) || !departed_.contains(stamp)) {
                continue;
            }
            const bool may_be_chance = position == 4 && may_be_senders(packet);
            if (may_be_chance && before == suspicion::no) {
                continue;
            }
            const bool must_be_found =
                must_be_known(packet, stamp) && !(may_be_chance && before == suspicion::unknown);
            if (must_be_found || found == drop_reason::answer_to_reply) {
                return true;
            }
        }
        return false;
    }

    /** A request in NTP format need not be taken for an answer to a reply in PTP format. */
    [[nodiscard]] bool must_be_known(const received_packet &packet, std::uint64_t stamp) const
    {
        return stamp == last_departure_ && (is_ptp(packet) || !last_was_ptp_);
    }

    /** Whether the stamp of a request in PTP format stands without the seconds of an arrival behind it. */
    [[nodiscard]] static bool may_be_senders(const received_packet &packet)
    {
        return is_ptp(packet) &&
               (packet.payload.size() < 20 ||
                static_cast<std::uint32_t>(load(packet.payload, 4, 4) - load(packet.payload, 16, 4)) > 60);
    }

    [[nodiscard]] suspicion suspicion_of(const received_packet &packet, bool is_answer = false) const
    {
        const std::uint64_t stamp = load(packet.payload, 4, 8);
        if (!may_be_senders(packet) || !departed_.contains(stamp)) {
            return suspicion::no;
        }
        return must_be_known(packet, stamp) && !is_answer ? suspicion::yes : suspicion::unknown;
    }

    [[nodiscard]] std::optional<drop_reason> reason_against_first(const received_packet &packet,
                                                                  const std::optional<drop_reason> &found) const
    {
        if (is_answer_to_reply(packet, true, suspicion::no, found)) {
            return drop_reason::answer_to_reply;
        }
        const bool may_be_limited = options_.unstamped_packets_per_second != 0 &&
                                    (!is_near(packet) || suspicion_of(packet) != suspicion::no);
        return may_be_limited && found == drop_reason::unstamped_rate ? found : std::nullopt;
    }

    [[nodiscard]] bool is_near(const received_packet &packet) const
    {
        const std::uint32_t now = day_seconds(packet);
        const std::uint32_t then = static_cast<std::uint32_t>(load(packet.payload, 4, 4));
        const auto is_within_a_day = [&](std::uint32_t seconds) {
            const auto apart = static_cast<std::int32_t>(seconds - now);
            return apart >= -86400 && apart <= 86400;
        };
        return is_within_a_day(then) || (is_ptp(packet) && is_within_a_day(then + 2208988800u));
    }

    [[nodiscard]] std::uint32_t day_seconds(const received_packet &packet) const
    {
        return static_cast<std::uint32_t>(instant(current_id_, packet.arrival_ticks) >> 32);
    }

    [[nodiscard]] std::uint64_t ticks_each() const
    {
        const std::uint32_t rate = options_.unstamped_packets_per_second;
        return rate == 0 ? 0 : frequency_ / rate;
    }

    [[nodiscard]] bool may_pass(session &entry, const received_packet &packet) const
    {
        if (is_near(packet)) {
            return true;
        }
        const std::uint64_t stamp = load(packet.payload, 4, 8);
        const std::uint64_t seconds = (packet.arrival_ticks - entry.last_arrival) / frequency_;
        const std::uint64_t risen = stamp - entry.stamp;
        entry.stamp = stamp;
        if (risen != 0 && risen >> 32 <= seconds + 1) {
            return true;
        }
        const std::uint64_t start = std::max(entry.paid, packet.arrival_ticks);
        if (ticks_each() != 0 && start - packet.arrival_ticks + ticks_each() > frequency_) {
            return false;
        }
        entry.paid = start + ticks_each();
        return true;
    }

    static session_key key_of(const received_packet &packet, const packet_path &path)
    {
        return {path.responder_id & id_mask, packet.sender};
    }

    static std::uint64_t load(std::span<const std::uint8_t> bytes, std::size_t at, std::size_t count)
    {
        std::uint64_t value = 0;
        for (const std::uint8_t byte : bytes.subspan(at, count)) {
            value = value << 8 | byte;
        }
        return value;
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
    std::uint64_t packets_ = 0;
    std::set<std::uint64_t> departed_; ///< Stamps of replies.
    std::uint64_t last_departure_ = 0;
    bool last_was_ptp_ = false;
    std::uint32_t current_id_ = 0; ///< Of the responder whose packet is decided.
};

} // namespace olv_fuzz

#endif
