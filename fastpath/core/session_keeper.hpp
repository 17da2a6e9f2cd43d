/**
 * @file session_keeper.hpp
 * When sessions begin and end.
 */
#ifndef OLV_FASTPATH_SESSION_KEEPER_HPP
#define OLV_FASTPATH_SESSION_KEEPER_HPP

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "fastpath/core/clocks.hpp"
#include "fastpath/core/options.hpp"
#include "fastpath/core/packet.hpp"
#include "fastpath/core/responders.hpp"
#include "fastpath/core/session_table.hpp"
#include "fastpath/core/statistics.hpp"

namespace olv_fastpath {

/** A packet's session, or why there is none. */
struct entered_session {
    session *entry = nullptr;
    drop_reason refused = drop_reason::hash_error; ///< Where there is none.
};

/**
 * A session for each responder, sender address and port, up to the maximum in the responder's state entry,
 * where its sessions are counted.
 *
 * Idle sessions end with packets, whatever session these belong to: each packet ends a few of them, one that
 * would be refused for the responder's maximum ends all. That is constant work for each session ever begun.
 * Sessions of a responder that was deleted, or created anew, are not found any more; they are forgotten little
 * by little, without being counted as ended.
 *
 * Belongs to one thread at a time; the processor has to outlive it.
 */
class session_keeper {
  public:
    session_keeper(const olv_sim::processor &processor, const fast_path_options &options);

    /** The session of a packet, begun if there is none yet: max_sessions says that the responder has as many as
     *  it may have, hash_error that the table has no room. */
    [[nodiscard]] entered_session enter(const received_packet &packet, const responder_view &responder);
    /** End a few of the sessions that are idle at this instant, as each packet does. */
    void end_some_idle(std::uint64_t now) { end_idle(now, idle_each_packet); }
    void end_all_idle(std::uint64_t now) { end_idle(now, table_.capacity()); }

    /** Fetch from memory, of all senders at the same time, what is known of them. */
    void expect(std::span<const olv_net::ip_endpoint> senders, std::uint32_t responder_id) const;

    /** Sessions, counting those that are over and have not been found to be yet. */
    [[nodiscard]] std::uint32_t size() const { return table_.size(); }
    /** The sessions that are not over at this instant, the longest idle one first. */
    [[nodiscard]] std::vector<session_summary> sessions_at(std::uint64_t now) const;

  private:
    /** More than one, so that idle sessions become fewer under load. */
    static constexpr std::uint32_t idle_each_packet = 2;

    [[gnu::cold, gnu::noinline]] entered_session begin(const session_key &key, std::uint64_t arrival,
                                                       const responder_view &responder);
    [[gnu::cold, gnu::noinline]] void end(session &entry);
    void end_idle(std::uint64_t now, std::uint32_t limit);
    void forget_stale(std::uint32_t slots);
    [[nodiscard]] bool is_idle(const session &entry, std::uint64_t now) const
    {
        return static_cast<std::int64_t>(now - entry.last_arrival) >= refwait_ticks_;
    }
    /** Whether its responder has not been deleted or created anew. */
    [[nodiscard]] bool is_current(const session &entry) const;

    const olv_sim::processor *processor_;
    std::uint64_t ticks_per_second_;
    std::int64_t refwait_ticks_;
    session_table table_;
};

inline entered_session session_keeper::enter(const received_packet &packet, const responder_view &responder)
{
    const session_key key{.responder_id = responder.id, .sender = packet.sender};
    session *known = table_.find(key);
    if (known != nullptr && (known->creation != responder.creation || is_idle(*known, packet.arrival_ticks))) {
        end(*known);
        known = nullptr;
    }
    if (known == nullptr) {
        return begin(key, packet.arrival_ticks, responder);
    }
    table_.touch(*known, packet.arrival_ticks);
    return {.entry = known};
}

inline void session_keeper::end_idle(std::uint64_t now, std::uint32_t limit)
{
    for (; limit > 0; --limit) {
        session *oldest = table_.oldest();
        if (oldest == nullptr || !is_idle(*oldest, now)) {
            return;
        }
        end(*oldest);
    }
}

} // namespace olv_fastpath

#endif
