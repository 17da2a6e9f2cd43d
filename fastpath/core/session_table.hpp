/**
 * @file session_table.hpp
 * The reflector's sessions: a hash table of fixed capacity, with the sessions of each responder in order of
 * age.
 *
 * All memory is taken by the constructor. Every call takes constant time, as far as the hash spreads the
 * keys; it is seeded at random, so that senders cannot choose colliding ones. The table belongs to one
 * thread at a time: there is no lock in it.
 */
#ifndef OLV_FASTPATH_SESSION_TABLE_HPP
#define OLV_FASTPATH_SESSION_TABLE_HPP

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fastpath/core/session_hash.hpp"

namespace olv_fastpath {

/** What tells a responder from a later one that was given the same ID. */
class responder_creation {
  public:
    responder_creation() = default;
    /** @param count  Creation count of the responder's module.
     *  @param ticks  Timer 0 at creation: counts start again with the module. */
    responder_creation(std::uint32_t count, std::uint64_t ticks)
        : count_(count), ticks_(std::bit_cast<std::array<std::uint32_t, 2>>(ticks))
    {}

    [[nodiscard]] std::uint64_t ticks() const { return std::bit_cast<std::uint64_t>(ticks_); }

    friend bool operator==(const responder_creation &left, const responder_creation &right)
    {
        return left.ticks() == right.ticks() && left.count_ == right.count_;
    }

  private:
    std::uint32_t count_ = 0;
    std::array<std::uint32_t, 2> ticks_{}; ///< Words, so that a session fits a cache line.
};

/** How far a session has come. One that gave no second packet may be of a sender that is long gone, or forged.
 */
enum class session_stage : std::uint8_t { none, newcomer, established };

/** A slot of the table. Its size is a line of the processor's caches: a packet costs no more memory than that.
 */
struct alignas(64) session {
    std::uint32_t responder_id = 0;
    olv_net::ip_endpoint sender;
    session_stage stage = session_stage::none; ///< None: the slot is free.
    bool may_be_answers = false;               ///< Its last packet may have been the answer to a reply.
    responder_creation creation;
    std::uint32_t next_sequence_number = 0;
    std::uint64_t last_arrival = 0; ///< Ticks of timer 0.
    std::uint32_t last_number = 0;  ///< That the sender gave a packet.

    [[nodiscard]] session_key key() const { return {.responder_id = responder_id, .sender = sender}; }

  private:
    friend class session_table;

    static constexpr std::uint32_t none = UINT32_MAX;

    // Slots. A free one uses the first for the list of free ones.
    std::uint32_t next_in_bucket_ = none;
    std::uint32_t older_ = none; ///< Of the same responder and stage.
    std::uint32_t younger_ = none;
};

static_assert(sizeof(session) == 64);

/** What is known of a sender of requests without a time stamp near now. */
struct unstamped_sender {
    std::uint64_t stamp = 0; ///< Of its first packet, or of the last such one.
    std::uint64_t paid = 0;  ///< See pacing.
};

class session_table {
  public:
    /** @param capacity  Sessions at the same time. */
    explicit session_table(std::uint32_t capacity);

    /** @return NULL when there is none. It stays valid until it is removed. */
    [[nodiscard]] session *find(const session_key &key);
    /** Add a session that is not in the table, as a newcomer. @return NULL when there is no room. */
    [[nodiscard]] session *insert(const session_key &key, const responder_creation &creation,
                                  std::uint64_t arrival);
    /** It gave another packet: it is established, and the youngest. */
    void touch(session &entry, std::uint64_t arrival);
    void remove(session &entry);

    // The one of them that has gone without a packet for longest; NULL when there is none.
    [[nodiscard]] session *oldest_newcomer() { return at(newcomers_.oldest); }
    [[nodiscard]] session *oldest_newcomer(std::uint32_t responder_id);
    [[nodiscard]] session *oldest_established(std::uint32_t responder_id);
    [[nodiscard]] session *oldest(std::uint32_t responder_id);
    /** Each call takes the next responder that has sessions, or had. */
    [[nodiscard]] session *oldest_of_next_responder();
    /** Calls that take each responder once. */
    [[nodiscard]] std::uint32_t responders() const { return used_responders_; }

    [[nodiscard]] unstamped_sender &unstamped(const session &entry)
    {
        return aside_[index_of(entry)].unstamped;
    }

    /** Copies of all sessions. */
    [[nodiscard]] std::vector<session> all() const;
    /** Go round all slots, one a call. @return NULL where the slot is free. */
    [[nodiscard]] session *next_slot();

    /** Fetch from memory, ahead of find(), what it is going to look at: first the bucket of a key, then, once
     *  that may be there, its slot. Nothing changes. @return The bucket. */
    [[nodiscard]] std::uint32_t fetch_bucket(const session_key &key) const
    {
        const std::uint32_t bucket = bucket_of(key);
        fetch(&buckets_[bucket]);
        return bucket;
    }
    void fetch_slot(std::uint32_t bucket) const
    {
        const std::uint32_t first = buckets_[bucket];
        if (first != none) {
            fetch(&slots_[first]);
        }
    }

    /** A number that senders cannot choose. */
    [[nodiscard]] std::uint32_t hash_of(const session_key &key) const { return hash_(key); }
    [[nodiscard]] std::uint32_t size() const { return size_; }
    [[nodiscard]] std::uint32_t capacity() const { return static_cast<std::uint32_t>(slots_.size()); }

  private:
    /** Have the processor's caches fetch a line of memory. */
    static void fetch(const void *line)
    {
        __builtin_prefetch(line, 1);
        // Without it the compiler takes who fetches only for a function without effect, and drops its calls.
        asm volatile("" : : "r"(line));
    }

    static constexpr std::uint32_t none = session::none;

    /** Sessions in the order of their last packets, as indices of slots. */
    struct age_list {
        std::uint32_t oldest = none;
        std::uint32_t youngest = none;
    };
    /** The sessions of a responder. */
    struct responder_sessions {
        std::uint32_t responder_id = 0;
        std::uint32_t next_in_bucket = none; ///< Index of another responder, or of the next free place.
        age_list newcomers;
        age_list established;

        [[nodiscard]] age_list &of(session_stage stage)
        {
            return stage == session_stage::newcomer ? newcomers : established;
        }
        [[nodiscard]] bool is_empty() const { return newcomers.oldest == none && established.oldest == none; }
    };
    /** What no packet of an established session needs, unless its time stamps are odd. */
    struct beside_slot {
        std::uint32_t older_newcomer = none; ///< Of all responders.
        std::uint32_t younger_newcomer = none;
        unstamped_sender unstamped;
    };

    [[nodiscard]] session *oldest_of(const responder_sessions &of);
    [[nodiscard]] session *at(std::uint32_t index) { return index == none ? nullptr : &slots_[index]; }
    [[nodiscard]] std::uint32_t bucket_of(const session_key &key) const;
    [[nodiscard]] std::uint32_t index_of(const session &entry) const;
    /** @return NULL when it has no sessions. */
    [[nodiscard]] responder_sessions *sessions_of(std::uint32_t responder_id);
    [[nodiscard]] responder_sessions *look_up(std::uint32_t responder_id);
    /** There has to be a free slot. */
    [[nodiscard]] responder_sessions &add_responder(std::uint32_t responder_id);
    void remove_responder(responder_sessions &empty);
    void append_youngest(age_list &list, std::uint32_t index);
    void unlink_age(age_list &list, std::uint32_t index);
    void append_newcomer(std::uint32_t index);
    void unlink_newcomer(std::uint32_t index);
    [[gnu::cold, gnu::noinline]] void establish(session &entry, responder_sessions &of);

    std::vector<session> slots_;
    std::vector<beside_slot> aside_;
    std::vector<std::uint32_t> buckets_; ///< First slot of each bucket; a power of two of them.
    std::uint32_t bucket_mask_;
    session_hash hash_;
    std::uint32_t first_free_ = none;
    std::uint32_t cursor_ = 0;
    std::uint32_t size_ = 0;
    age_list newcomers_; ///< Of all responders.

    std::vector<responder_sessions> responders_;   ///< No more than there are sessions.
    std::vector<std::uint32_t> responder_buckets_; ///< A power of two of them, too.
    std::uint32_t responder_mask_;
    std::uint32_t used_responders_ = 0; ///< Places that have been used; those behind never were.
    std::uint32_t first_free_responder_ = none;
    std::uint32_t responder_cursor_ = 0;
    responder_sessions *last_responder_ = nullptr; ///< That was looked up.
};

inline std::uint32_t session_table::bucket_of(const session_key &key) const
{
    return hash_(key) & bucket_mask_;
}

inline std::uint32_t session_table::index_of(const session &entry) const
{
    return static_cast<std::uint32_t>(&entry - slots_.data());
}

inline session *session_table::find(const session_key &key)
{
    for (std::uint32_t index = buckets_[bucket_of(key)]; index != none; index = slots_[index].next_in_bucket_) {
        if (slots_[index].sender == key.sender && slots_[index].responder_id == key.responder_id) {
            return &slots_[index];
        }
    }
    return nullptr;
}

inline session_table::responder_sessions *session_table::sessions_of(std::uint32_t responder_id)
{
    if (last_responder_ == nullptr || last_responder_->responder_id != responder_id) {
        last_responder_ = look_up(responder_id);
    }
    return last_responder_;
}

inline void session_table::touch(session &entry, std::uint64_t arrival)
{
    entry.last_arrival = arrival;
    responder_sessions &of = *sessions_of(entry.responder_id);
    if (entry.stage == session_stage::newcomer) {
        establish(entry, of);
        return;
    }
    const std::uint32_t index = index_of(entry);
    if (index != of.established.youngest) {
        unlink_age(of.established, index);
        append_youngest(of.established, index);
    }
}

inline session *session_table::oldest_of(const responder_sessions &of)
{
    session *newcomer = at(of.newcomers.oldest);
    session *established = at(of.established.oldest);
    if (newcomer == nullptr || established == nullptr) {
        return newcomer == nullptr ? established : newcomer;
    }
    const auto later = static_cast<std::int64_t>(newcomer->last_arrival - established->last_arrival);
    return later < 0 ? newcomer : established;
}

inline session *session_table::oldest_of_next_responder()
{
    if (used_responders_ == 0) {
        return nullptr;
    }
    responder_cursor_ = responder_cursor_ + 1 >= used_responders_ ? 0 : responder_cursor_ + 1;
    return oldest_of(responders_[responder_cursor_]);
}

inline void session_table::append_youngest(age_list &list, std::uint32_t index)
{
    slots_[index].older_ = list.youngest;
    slots_[index].younger_ = none;
    (list.youngest == none ? list.oldest : slots_[list.youngest].younger_) = index;
    list.youngest = index;
}

inline void session_table::unlink_age(age_list &list, std::uint32_t index)
{
    const std::uint32_t older = slots_[index].older_;
    const std::uint32_t younger = slots_[index].younger_;
    (older == none ? list.oldest : slots_[older].younger_) = younger;
    (younger == none ? list.youngest : slots_[younger].older_) = older;
}

} // namespace olv_fastpath

#endif
