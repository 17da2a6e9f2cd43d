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
#include <span>
#include <vector>

#include "fastpath/core/session_table.hpp"
#include "fastpath/core/state_entry.hpp"
#include "fastpath/core/tick_scale.hpp"
#include "net/twamp_wire.hpp"
#include "olv_sim/processor.hpp"

namespace olv_fastpath {

/** The sequence number of a reply to a STAMP request. */
enum class stamp_mode : std::uint8_t {
    stateful, ///< The session's own.
    stateless ///< The request's.
};

struct reflector_options {
    stamp_mode mode = stamp_mode::stateful;
    std::uint32_t refwait_seconds = 900; ///< A session without a packet for so long ends.
    std::uint32_t session_capacity = session_table::default_capacity; ///< Of all responders together.
    /** Shorter requests are dropped; below 14 is taken as 14. From 41 on no reply is longer than its request,
     *  so that forged requests gain nothing. */
    std::size_t minimum_request = olv_net::sender_packet::header_length;
};

struct received_packet {
    std::span<const std::uint8_t> payload; ///< Of UDP.
    std::uint64_t arrival_ticks = 0;       ///< Timer 0.
    std::uint8_t ttl = 0;                  ///< TTL or hop limit.
    std::uint8_t traffic_class = 0;        ///< DSCP in the upper six bits, ECN in the lower two.
    olv_net::ip_address sender_address{};
    std::uint16_t sender_port = 0; ///< Host order.
};

/** How a packet reached the fast path. The low 24 bits of each are significant. */
struct packet_path {
    std::uint32_t responder_id = 0;
    std::uint32_t bind_key = 0;
};

/** What became of a packet. */
enum class outcome : std::uint8_t {
    reflected,
    drop_no_responder, ///< No entry in the responder lookup tree, or one that says NOT_DEFINED.
    drop_no_bind,      ///< No entry in the bind tree.
    drop_length,       ///< Shorter than a request has to be.
    drop_max_sessions, ///< The responder has as many sessions as it may have.
    drop_table_full    ///< The session table has no room.
};

struct verdict {
    outcome result = outcome::drop_no_responder;
    std::size_t reply_length = 0;   ///< Bytes of the reply buffer to send; 0 when the packet is dropped.
    std::uint8_t traffic_class = 0; ///< Of the reply: the request's DSCP, ECN bits 0.
};

/**
 * The reflector of one processor.
 *
 * Each packet given to reflect() is counted in exactly one of transmitted or a drop reason, by these steps:
 *  1. It counts as received globally.
 *  2. Its responder is looked up. No entry, a return value other than 0 and 4, or a state entry that is not
 *     marked as written (bit 31 of bytes 4-7): "no responder".
 *  3. Its output path is looked up. No entry: "no bind". The responder has not seen the packet then, its
 *     counters stay.
 *  4. It counts as received by the responder.
 *  5. Fewer bytes than the options require, 14 at least, or a reply that the buffer is too small for: "length
 *     check", of both.
 *  6. Its session is looked up, or begun. The responder has as many as the word at bytes 52-55 allows (in
 *     host order), or the table has no room: "max sessions" of the responder and "hash error" globally, as
 *     there is no other word for either.
 *  7. The reply is made; it counts as transmitted by both.
 *
 * Sessions: one for each responder, sender address and port. Sequence numbers are the session's own, from 0.
 * A session ends when a packet of any session finds it idle; a few idle ones end with every packet, all of
 * them before a packet is refused, which is constant work for each session ever begun. Sessions of a
 * responder that has been deleted or created anew since are not found any more and are forgotten without
 * being counted as ended.
 *
 * Time: the instant of the responder's creation, plus the timer's ticks since then, both from the state
 * entry. A timer reading from before the creation is taken as the creation.
 *
 * One thread at a time may call reflect(). It allocates nothing and takes no lock; the control side may read
 * and write trees and state meanwhile. The processor has to outlive the reflector.
 *
 * Several reflectors can work for one processor, a thread each, as long as all packets of a sender come to the
 * same one: counters and the maximum of sessions are exact for all of them together, and nothing else is
 * shared. Idle sessions of another reflector are for it to end, if need be by end_idle_sessions().
 */
class reflector {
  public:
    /** S and Z are 0: not synchronised as far as known, NTP format. About a millisecond, 2^22 * 2^-32 s, for
     *  reading the wall clock and the timer one after the other. */
    static constexpr std::uint16_t own_error_estimate = olv_net::error_estimate::make(22, 1);

    explicit reflector(olv_sim::processor &processor, const reflector_options &options = {});

    /**
     * Take a packet.
     * A reply is as long as its request, but at least 41 bytes; 44 bytes are taken as STAMP. Every byte of
     * the reply is written, its time of departure at the end of the batch that the packet is taken in.
     * @param reply  Room for the longer of 41 bytes and the payload. It must not overlap the payload, except
     *               that it may begin 27 bytes before it: the padding is then where the reply has it.
     */
    verdict reflect(const received_packet &packet, const packet_path &path, std::span<std::uint8_t> reply);

    static constexpr std::size_t most_expected = 64;
    /** Packets from these senders are going to be taken soon: fetch what is known of them from memory, of all
     * at the same time. A hint, for most_expected senders. */
    void expect(std::span<const olv_net::ip_endpoint> senders, const packet_path &path) const;

    /**
     * Packets that are taken together. At its end, or before another responder's packet, they are counted as
     * received and transmitted, in one addition, though not for a responder that is gone by then; and their
     * replies get their time of departure, which is the nearer to the truth the later it is read. So the
     * replies have to stay where they are until then. Belongs to the thread that calls reflect(); one at a
     * time.
     */
    class batch {
      public:
        explicit batch(reflector &reflecting) : reflecting_(reflecting) { reflecting_.in_batch_ = true; }
        ~batch()
        {
            reflecting_.finish();
            reflecting_.in_batch_ = false;
        }
        batch(const batch &) = delete;
        batch &operator=(const batch &) = delete;

      private:
        reflector &reflecting_;
    };

    /** Do what the end of a batch does, for replies that leave now. */
    void finish();

    /**
     * Whether a packet is another reflector's answer to a reply of this one: it carries a time stamp that the
     * path's responder wrote within the last seconds, where a reply carries the request's. Two reflectors
     * would go on answering each other for ever after one forged packet. Nothing is counted.
     */
    [[nodiscard]] bool answers_a_reply(const received_packet &packet, const packet_path &path);

    /** End the sessions that are idle at this instant, though no packet has come. Belongs to the thread that
     * calls reflect(). */
    void end_idle_sessions(std::uint64_t now) { end_idle_sessions(now, sessions_.capacity()); }

    /** Sessions in the table, those that are over and not yet found to be included. */
    [[nodiscard]] std::uint32_t sessions() const { return sessions_.size(); }
    /** Copies of the sessions that are not over at this instant, the longest idle one first. */
    [[nodiscard]] std::vector<session> sessions_at(std::uint64_t now) const;
    [[nodiscard]] const olv_sim::processor &processor() const { return processor_; }

  private:
    /** What a responder's state entry says, read once for each packet. */
    struct responder_view {
        olv_sim::state_words words;
        responder_creation creation;
        std::uint64_t created = 0; ///< The instant of creation, in units of ntp_time.

        [[nodiscard]] bool exists() const { return !words.empty(); }
    };

    /** Packets that no counter has yet. */
    struct packet_sums {
        std::uint32_t total_rx = 0;
        std::uint32_t total_tx = 0;
        responder_view responder; ///< Which these belong to:
        std::uint32_t received = 0;
        std::uint32_t transmitted = 0;
    };
    /** More replies get their time of departure before the end of their batch. */
    static constexpr std::size_t most_waiting = 64;
    /** A reply without its time of departure. */
    struct waiting_reply {
        std::uint8_t *bytes = nullptr;
        std::uint64_t until_arrival = 0; ///< Ticks since the responder's creation.
    };

    [[gnu::flatten]] // all steps in one function: a fifth fewer instructions
    verdict
    take(const received_packet &packet, const packet_path &path, std::span<std::uint8_t> reply);
    void count_received(const responder_view &responder);
    void write_departures();
    [[nodiscard]] responder_view find_responder(std::uint32_t responder_id);
    [[nodiscard]] bool is_bound(std::uint32_t bind_key) const;
    /** The packet's session, or why there is none. */
    outcome enter_session(const received_packet &packet, std::uint32_t responder_id,
                          const responder_view &responder, session **entry);
    [[gnu::cold, gnu::noinline]] outcome begin_session(const session_key &key, std::uint64_t arrival,
                                                       const responder_view &responder, session **entry);
    [[nodiscard]] bool is_idle(const session &entry, std::uint64_t now) const;
    /** Whether its responder has not been deleted or created anew. */
    [[nodiscard]] bool is_current(const session &entry) const;
    [[gnu::cold, gnu::noinline]] void end_session(session &entry);
    void end_idle_sessions(std::uint64_t now, std::uint32_t limit);
    void forget_stale_sessions(std::uint32_t slots);
    std::size_t write_reply(const received_packet &packet, const responder_view &responder, session &entry,
                            std::span<std::uint8_t> reply);

    olv_sim::processor &processor_;
    const olv_sim::classifier_tree *responders_;
    const olv_sim::classifier_tree *binds_;
    std::array<std::atomic<std::uint32_t>, global_words> uncounted_{}; ///< Where there is no global block.
    olv_sim::state_words global_;
    stamp_mode mode_;
    std::size_t minimum_request_;
    tick_scale scale_;
    std::uint64_t refwait_ticks_;
    session_table sessions_;
    std::uint32_t last_responder_id_ = UINT32_MAX; ///< Of the last packet that had one.
    olv_sim::state_words last_responder_;          ///< Its words, which stay the same.
    bool in_batch_ = false;
    packet_sums sums_;
    std::array<waiting_reply, most_waiting> waiting_; ///< To packets of the responder of the sums.
    std::size_t waiting_count_ = 0;
};

/** Length of the reply to a request of this length. */
[[nodiscard]] constexpr std::size_t reply_length(std::size_t request_length)
{
    return request_length < olv_net::reflector_packet::header_length ? olv_net::reflector_packet::header_length
                                                                     : request_length;
}

} // namespace olv_fastpath

#endif
