/**
 * @file session_table.hpp
 * The reflector's sessions: a hash table of fixed capacity with its entries in order of age.
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

struct session {
    session_key key;
    responder_creation creation;
    std::uint32_t next_sequence_number = 0;
    std::uint64_t last_arrival = 0; ///< Ticks of timer 0.
};

class session_table {
  public:
    /** @param capacity  Sessions at the same time. */
    explicit session_table(std::uint32_t capacity);

    /** @return NULL when there is none. It stays valid until it is removed. */
    [[nodiscard]] session *find(const session_key &key);
    /** Add a session, as the youngest, that is not in the table. @return NULL when there is no room. */
    [[nodiscard]] session *insert(const session_key &key, const responder_creation &creation,
                                  std::uint64_t arrival);
    /** Make a session the youngest. */
    void touch(session &entry, std::uint64_t arrival);
    void remove(session &entry);

    /** Copies of all sessions, the one that has gone without a packet for longest first. */
    [[nodiscard]] std::vector<session> all() const;
    /** The session that has gone without a packet for longest; NULL when the table is empty. */
    [[nodiscard]] session *oldest();
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

    static constexpr std::uint32_t none = UINT32_MAX;

    static constexpr std::size_t cache_line = 64;

    /** Links are indices of slots. A free slot uses `next_in_bucket` for the list of free slots. */
    struct alignas(cache_line) slot {
        session entry;
        std::uint32_t next_in_bucket = none;
        std::uint32_t older = none;
        std::uint32_t younger = none;
        bool used = false;
    };

    [[nodiscard]] std::uint32_t bucket_of(const session_key &key) const;
    [[nodiscard]] std::uint32_t index_of(const session &entry) const;
    void append_youngest(std::uint32_t index);
    void unlink_age(std::uint32_t index);

    std::vector<slot> slots_;
    std::vector<std::uint32_t> buckets_; ///< First slot of each bucket; a power of two of them.
    std::uint32_t bucket_mask_;
    session_hash hash_;
    std::uint32_t first_free_ = none;
    std::uint32_t oldest_ = none;
    std::uint32_t youngest_ = none;
    std::uint32_t cursor_ = 0;
    std::uint32_t size_ = 0;

    static_assert(sizeof(slot) == cache_line);
};

inline std::uint32_t session_table::bucket_of(const session_key &key) const
{
    return hash_(key) & bucket_mask_;
}

inline std::uint32_t session_table::index_of(const session &entry) const
{
    // Sessions are handed out by find(), insert() and the like only: each is the first member of a slot.
    return static_cast<std::uint32_t>(reinterpret_cast<const slot *>(&entry) - slots_.data());
}

inline session *session_table::find(const session_key &key)
{
    for (std::uint32_t index = buckets_[bucket_of(key)]; index != none; index = slots_[index].next_in_bucket) {
        if (slots_[index].entry.key == key) {
            return &slots_[index].entry;
        }
    }
    return nullptr;
}

inline void session_table::touch(session &entry, std::uint64_t arrival)
{
    const std::uint32_t index = index_of(entry);
    entry.last_arrival = arrival;
    if (index == youngest_) {
        return;
    }
    unlink_age(index);
    append_youngest(index);
}

inline session *session_table::oldest()
{
    return oldest_ == none ? nullptr : &slots_[oldest_].entry;
}

inline void session_table::append_youngest(std::uint32_t index)
{
    slots_[index].older = youngest_;
    slots_[index].younger = none;
    (youngest_ == none ? oldest_ : slots_[youngest_].younger) = index;
    youngest_ = index;
}

inline void session_table::unlink_age(std::uint32_t index)
{
    const std::uint32_t older = slots_[index].older;
    const std::uint32_t younger = slots_[index].younger;
    (older == none ? oldest_ : slots_[older].younger) = younger;
    (younger == none ? youngest_ : slots_[younger].older) = older;
}

} // namespace olv_fastpath

#endif
