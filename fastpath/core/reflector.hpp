/**
 * @file reflector.hpp
 * The fast path's program: takes a received test packet and makes the reply, or drops it and says why.
 *
 * It knows only what the control side wrote into the processor: the responder lookup tree, the bind tree,
 * the responder's state entry and the global statistics block. It counts in the latter two.
 */
#ifndef OLV_FASTPATH_REFLECTOR_HPP
#define OLV_FASTPATH_REFLECTOR_HPP

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "fastpath/core/clocks.hpp"
#include "fastpath/core/options.hpp"
#include "fastpath/core/packet.hpp"
#include "fastpath/core/responders.hpp"
#include "fastpath/core/session_keeper.hpp"
#include "fastpath/core/state_entry.hpp"
#include "olv_sim/processor.hpp"

namespace olv_fastpath {

/**
 * The reflector of one processor.
 *
 * Each packet is counted in exactly one of transmitted or a drop reason, by these steps:
 *  1. It counts as received globally.
 *  2. Its responder is looked up. No entry, a return value other than 0 and 4, or a state entry that is not
 *     marked as written (bit 31 of bytes 4-7): "no responder".
 *  3. Its output path is looked up. No entry: "no bind". The responder has not seen the packet then, its
 *     counters stay.
 *  4. It counts as received by the responder.
 *  5. Fewer bytes than the options require, 14 at least, or a reply that there is too little room for: "length
 *     check", of both.
 *  6. A request that is the answer to a reply, or one too many without a plausible time stamp, is dropped for
 *     a reason that its listener counts: it counts as received by neither then.
 *  7. Its session is looked up, or begun. The responder has as many as the word at bytes 52-55 allows (in
 *     host order) and none that may give way, or the table has no room: "max sessions" of the responder and
 *     "hash error" globally, as there is no other word for either.
 *  8. The reply is written; it counts as transmitted by both.
 *
 * Sequence numbers are the session's own, from 0; in stateless mode, in which there are no sessions, the
 * requests'. Times follow from an instant of the system's clock that the batch is given, or else from the
 * instant of the responder's creation, plus the timer's ticks since then, both from the state entry. They have
 * the format that the request asks for.
 *
 * One thread at a time may use it. It allocates nothing for a packet and takes no lock; the control side may
 * read and write trees and state meanwhile. The processor has to outlive the reflector.
 *
 * Several reflectors can work for one processor, a thread each, as long as all packets of a sender come to the
 * same one: counters and the maximum of sessions are exact for all of them together. They share the stamps of
 * their replies, and ask each other for places of sessions; nothing else. Idle sessions of another reflector
 * are for it to end, if need be by end_idle_sessions().
 */
class reflector {
  public:
    /** @param peers  What it shares with others; NULL: it is alone. */
    explicit reflector(olv_sim::processor &processor, const fast_path_options &options = {},
                       std::shared_ptr<reflector_peers> peers = nullptr);

    /**
     * Packets that are taken together. Those that were received and transmitted are added to the counters at
     * once: by count(), at the end of the batch, or before a packet of another responder. A responder that is
     * gone by then gets nothing. Belongs to the reflector's thread; one at a time.
     */
    class batch {
      public:
        explicit batch(reflector &reflecting, const reply_time &time = {}) : reflector_(reflecting), time_(time)
        {}
        ~batch() { count(); }
        batch(const batch &) = delete;
        batch &operator=(const batch &) = delete;

        /**
         * Take a packet.
         * @param room  For the reply: the longer of 41 bytes and the payload. It may overlap the payload as
         *              write_reply() allows.
         * @return The reply, written into the beginning of the room, or why there is none.
         */
        [[gnu::flatten]] // all steps in one function: a fifth fewer instructions
        verdict
        reflect(const received_packet &packet, const packet_path &path, std::span<std::uint8_t> room);
        /** For the time of departure of the replies. */
        [[nodiscard]] std::int32_t tai_ahead() const { return time_.tai_ahead; }
        /** Count what has been taken so far, as is to be done before replies leave. */
        void count();

      private:
        void count_received(const responder_view &responder);
        template <drop_reason Reason> verdict drop() const;
        /** Drop a packet that its responder has received. */
        [[gnu::cold, gnu::noinline]] verdict refuse(drop_reason reason, const responder_view &responder);

        reflector &reflector_;
        reply_time time_;
        // Packets that no counter has yet:
        std::uint32_t total_rx_ = 0;
        responder_view responder_;
        reply_clock clock_;             ///< That its replies follow.
        std::uint32_t received_ = 0;    ///< By the responder.
        std::uint32_t transmitted_ = 0; ///< By the responder, and by the module.
    };

    /** A batch of one packet. */
    verdict reflect(const received_packet &packet, const packet_path &path, std::span<std::uint8_t> room)
    {
        return batch{*this}.reflect(packet, path, room);
    }

    /** Packets from these senders are going to be taken soon: fetch what is known of them from memory. A hint.
     */
    void expect(std::span<const olv_net::ip_endpoint> senders, const packet_path &path) const
    {
        sessions_.expect(senders, path.responder_id);
    }

    /** End the sessions that are idle at this instant, though no packet has come. */
    void end_idle_sessions(std::uint64_t now) { sessions_.end_all_idle(now); }
    /** End all sessions, of one responder or of all. @return How many. */
    std::uint32_t clear_sessions(std::optional<std::uint32_t> responder_id)
    {
        return sessions_.end_all(responder_id);
    }
    /** Where the times of departure of its replies are to be noted. */
    [[nodiscard]] sent_stamps *noted_departures() const { return &sessions_.peers()->stamps; }
    /** Whether another reflector has had to refuse a sender, and has not been looked after here. */
    [[nodiscard]] bool is_asked_for_place() const { return sessions_.is_asked_for_place(); }
    /** End a session for it, if there is one that may end. */
    void give_place(std::uint64_t now) { sessions_.give_place(now); }

    /** Sessions in the table, those that are over and not yet found to be included. */
    [[nodiscard]] std::uint32_t sessions() const { return sessions_.size(); }
    /** Sessions that ended so that others could begin. */
    [[nodiscard]] std::uint64_t sessions_that_gave_way() const { return sessions_.gave_way(); }
    /** The sessions that are not over at this instant, the longest idle one first. */
    [[nodiscard]] std::vector<session_summary> sessions_at(std::uint64_t now) const
    {
        return sessions_.sessions_at(now);
    }
    [[nodiscard]] const olv_sim::processor &processor() const { return processor_; }
    [[nodiscard]] const processor_clock &clock() const { return clock_; }

  private:
    /** The sequence number of a reply, or why there is none. */
    struct numbered {
        std::optional<drop_reason> refused;
        std::uint32_t sequence_number = 0;
    };

    [[nodiscard]] bool is_bound(std::uint32_t bind_key) const;
    [[nodiscard]] numbered number_for(const received_packet &packet, const responder_view &responder,
                                      std::uint64_t arrival);

    const olv_sim::processor &processor_;
    processor_clock clock_;
    responder_lookup responders_;
    const olv_sim::classifier_tree *binds_;
    std::array<std::atomic<std::uint32_t>, global_words> uncounted_{}; ///< Where there is no global block.
    olv_sim::state_words global_;
    stamp_mode mode_;
    std::size_t minimum_request_;
    session_keeper sessions_;
};

} // namespace olv_fastpath

#endif
