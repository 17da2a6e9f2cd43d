/**
 * @file session_keeper.hpp
 * When sessions begin and end.
 */
#ifndef OLV_FASTPATH_SESSION_KEEPER_HPP
#define OLV_FASTPATH_SESSION_KEEPER_HPP

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "fastpath/core/clocks.hpp"
#include "fastpath/core/options.hpp"
#include "fastpath/core/pacing.hpp"
#include "fastpath/core/packet.hpp"
#include "fastpath/core/place_requests.hpp"
#include "fastpath/core/responders.hpp"
#include "fastpath/core/sender_stamp.hpp"
#include "fastpath/core/sent_stamps.hpp"
#include "fastpath/core/session_table.hpp"
#include "fastpath/core/statistics.hpp"

namespace olv_fastpath {

/** A packet's session, or why there is none. */
struct entered_session {
    session *entry = nullptr;
    drop_reason refused = drop_reason::hash_error; ///< Where there is none.
};

/** What the reflectors of one fast path share. Any thread may use it. */
struct reflector_peers {
    /** @param reflectors  How many share it. @param ring  See place_requests. */
    explicit reflector_peers(std::uint32_t reflectors = 1, std::function<void()> ring = {})
        : places(reflectors, std::move(ring))
    {}

    sent_stamps stamps;
    place_requests places;
};

/**
 * A session for each responder, sender address and port, up to the maximum in the responder's state entry,
 * where its sessions are counted.
 *
 * A new sender finds a place as long as there is one that may give way: first the oldest session of the
 * responder that gave no second packet, then the longest idle one if it is idle for the grace time. Where the
 * table is full, those that gave no second packet make room whatever their responder is, the oldest first.
 * Where another reflector has the responder's sessions, it is asked to end one: the new sender is refused
 * until that has been done.
 *
 * A session numbers anew when its sender does: number 0 after another one, a second or more later.
 *
 * Idle sessions end with packets, whatever session these belong to: each batch ends some of them. All that is
 * constant work for each session ever begun. Sessions of a responder that was deleted, or created anew, are not
 * found any more; they are forgotten little by little, without being counted as ended.
 *
 * Requests that are answers to replies have no session, and those without a plausible time stamp are limited:
 * each session's, and the first packets of sessions by their senders' addresses. A plausible one stands for
 * itself alone, as it may be forged.
 *
 * Belongs to one thread at a time; the processor has to outlive it.
 */
class session_keeper {
  public:
    session_keeper(const olv_sim::processor &processor, const fast_path_options &options,
                   std::shared_ptr<reflector_peers> peers);

    /** The session of a packet, begun if there is none yet. Otherwise the reason: answer_to_reply and
     *  unstamped_rate, which nothing has been changed for; max_sessions, where the responder has as many as it
     *  may have; hash_error, where the table has no room.
     *  @param instant  Of its arrival, in units of ntp_time. */
    [[nodiscard]] entered_session enter(const received_packet &packet, const responder_view &responder,
                                        std::uint64_t instant);
    /** Why a packet is not to be answered where there are no sessions; nothing: there is no reason. */
    [[nodiscard]] std::optional<drop_reason> reason_against(const received_packet &packet,
                                                            std::uint64_t instant);
    /** End some of the sessions that are idle at this instant, as each batch of packets does. */
    void end_some_idle(std::uint64_t now);
    void end_all_idle(std::uint64_t now);
    /** End all sessions of a responder, or of all. @return How many that were. */
    std::uint32_t end_all(std::optional<std::uint32_t> responder_id);

    /** Whether another reflector asks for a place. */
    [[nodiscard]] bool is_asked_for_place() const { return peers_->places.is_asked(looks_); }
    /** Give it, if there is a session that may end. */
    void give_place(std::uint64_t now);

    /** Fetch from memory, of all senders at the same time, what is known of them. */
    void expect(std::span<const olv_net::ip_endpoint> senders, std::uint32_t responder_id) const;

    /** Sessions, counting those that are over and have not been found to be yet. */
    [[nodiscard]] std::uint32_t size() const { return table_.size(); }
    /** Sessions that ended so that others could begin. */
    [[nodiscard]] std::uint64_t gave_way() const { return gave_way_; }
    /** The sessions that are not over at this instant, the longest idle one first. */
    [[nodiscard]] std::vector<session_summary> sessions_at(std::uint64_t now) const;
    [[nodiscard]] const std::shared_ptr<reflector_peers> &peers() const { return peers_; }

  private:
    /** A session's first request, and each one after so many, is searched for stamps of replies at all places,
     *  the others where senders' stamps are. */
    static constexpr std::uint32_t searches_one_in = 64;
    /** Idle sessions that a batch of packets ends: more than it may begin. */
    static constexpr std::uint32_t idle_each_batch = 64;

    [[gnu::cold, gnu::noinline]] entered_session begin(const session_key &key, const received_packet &packet,
                                                       const responder_view &responder, std::uint64_t instant);
    /** Count another session of a responder, if need be in place of one that gives way. */
    [[nodiscard]] bool take_place(const responder_view &responder, std::uint64_t now);
    void ask_for_place(std::uint32_t responder_id, std::uint64_t now);
    /** A slot for a session of a responder. @return Whether there is one. */
    [[nodiscard]] bool make_room(std::uint32_t responder_id, std::uint64_t now);
    /** The session of a responder that would give way to a new one; NULL: all are established and busy. */
    [[nodiscard]] session *dispensable(std::uint32_t responder_id, std::uint64_t now);
    /** The same of the next few responders. */
    [[nodiscard]] session *dispensable_elsewhere(std::uint64_t now);
    void give_way(session &leaving);
    [[gnu::cold, gnu::noinline]] void end(session &entry);
    /** End idle sessions of a responder. */
    [[gnu::cold, gnu::noinline]] void end_idle_of(std::uint32_t responder_id, std::uint64_t now,
                                                  std::uint32_t limit);
    void forget_stale(std::uint32_t slots);

    /** Whether a packet of a session is the answer to a reply. Two in a row that may be are no chance. */
    [[nodiscard]] bool answers_a_reply(session &entry, std::span<const std::uint8_t> request) const
    {
        const bool thoroughly = (entry.next_sequence_number + 1) % searches_one_in == 0;
        const stamp_origin found =
            thoroughly ? peers_->stamps.look_through(request) : peers_->stamps.look_at(request);
        if (found == stamp_origin::sender && !entry.may_be_answers) [[likely]] {
            return false;
        }
        const bool twice = entry.may_be_answers && found == stamp_origin::either;
        entry.may_be_answers = found == stamp_origin::either;
        return found == stamp_origin::reply || twice;
    }
    /** @return Whether a packet of a session may pass whose time stamp is not near now. */
    [[gnu::cold, gnu::noinline]] bool may_pass(session &entry, const received_packet &packet);
    /** The same of a sender without a session. */
    [[nodiscard]] bool may_pass(const olv_net::ip_address &sender, std::uint64_t now);
    /** Whether its sender numbers its packets anew with this one. */
    [[nodiscard]] bool begins_anew(const session &entry, std::uint32_t number, std::uint64_t now) const;

    [[nodiscard]] bool is_idle_for(const session &entry, std::int64_t ticks, std::uint64_t now) const
    {
        return static_cast<std::int64_t>(now - entry.last_arrival) >= ticks;
    }
    [[nodiscard]] bool is_idle(const session &entry, std::uint64_t now) const
    {
        return is_idle_for(entry, refwait_ticks_, now);
    }
    /** Whether its responder has not been deleted or created anew. */
    [[nodiscard]] bool is_current(const session &entry) const;

    const olv_sim::processor *processor_;
    std::uint64_t ticks_per_second_;
    std::int64_t refwait_ticks_;
    std::int64_t grace_ticks_;
    pacing unstamped_;
    std::shared_ptr<reflector_peers> peers_;
    place_requests::look_count looks_ = 0;
    std::uint64_t asked_at_ = 0; ///< Ticks.
    session_table table_;
    std::vector<std::uint64_t> paid_by_address_; ///< By a hash of the sender's address.
    std::uint64_t gave_way_ = 0;
};

inline bool session_keeper::begins_anew(const session &entry, std::uint32_t number, std::uint64_t now) const
{
    // Numbers that go round come from just below 2^32.
    constexpr std::uint32_t most_lost = 65536;
    return number == 0 && entry.last_number != 0 && 0 - entry.last_number > most_lost &&
           is_idle_for(entry, static_cast<std::int64_t>(ticks_per_second_), now);
}

inline entered_session session_keeper::enter(const received_packet &packet, const responder_view &responder,
                                             std::uint64_t instant)
{
    const session_key key{.responder_id = responder.id, .sender = packet.sender};
    session *known = table_.find(key);
    if (known != nullptr && (known->creation != responder.creation || is_idle(*known, packet.arrival_ticks))) {
        end(*known);
        known = nullptr;
    }
    if (known == nullptr) {
        return begin(key, packet, responder, instant);
    }
    if (answers_a_reply(*known, packet.payload)) {
        return {.refused = drop_reason::answer_to_reply};
    }
    if (!sender_stamp{packet.payload}.is_near(instant) && !may_pass(*known, packet)) {
        return {.refused = drop_reason::unstamped_rate};
    }
    const std::uint32_t number = olv_net::load_32(&packet.payload[olv_net::sender_packet::sequence_number]);
    if (begins_anew(*known, number, packet.arrival_ticks)) {
        known->next_sequence_number = 0;
    }
    known->last_number = number;
    table_.touch(*known, packet.arrival_ticks);
    return {.entry = known};
}

inline void session_keeper::end_some_idle(std::uint64_t now)
{
    session *visited = table_.oldest_of_next_responder();
    if (visited != nullptr && is_idle(*visited, now)) {
        end_idle_of(visited->responder_id, now, idle_each_batch);
    }
}

} // namespace olv_fastpath

#endif
