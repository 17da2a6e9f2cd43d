#include "fastpath/core/session_table.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <random>

#include "fastpath/core/options.hpp"

namespace olv_fastpath {

namespace {

/** Few buckets hold two sessions then, the second of which nothing fetches ahead. */
constexpr std::size_t buckets_each_session = 2;

session_hash random_hash()
{
    std::random_device device;
    std::array<std::uint64_t, session_hash::random_numbers> random{};
    for (std::uint64_t &each : random) {
        each = std::uint64_t{device()} << 32 | device();
    }
    return session_hash{random};
}

} // namespace

session_table::session_table(std::uint32_t capacity)
    : slots_(std::min(capacity, fast_path_options::most_sessions)),
      aside_(slots_.size()),
      buckets_(std::bit_ceil(std::max(this->capacity(), 1u)) * buckets_each_session, none),
      bucket_mask_(static_cast<std::uint32_t>(buckets_.size() - 1)),
      hash_(random_hash()),
      responders_(slots_.size()),
      responder_buckets_(std::bit_ceil(std::max(this->capacity(), 1u)), none),
      responder_mask_(static_cast<std::uint32_t>(responder_buckets_.size() - 1))
{
    for (std::uint32_t index = this->capacity(); index-- > 0;) {
        slots_[index].next_in_bucket_ = first_free_;
        first_free_ = index;
    }
}

session *session_table::insert(const session_key &key, const responder_creation &creation,
                               std::uint64_t arrival)
{
    if (first_free_ == none) {
        return nullptr;
    }
    responder_sessions *known = sessions_of(key.responder_id);
    responder_sessions &of = known == nullptr ? add_responder(key.responder_id) : *known;
    const std::uint32_t index = first_free_;
    session &taken = slots_[index];
    first_free_ = taken.next_in_bucket_;
    taken = {};
    taken.responder_id = key.responder_id;
    taken.sender = key.sender;
    taken.stage = session_stage::newcomer;
    taken.creation = creation;
    taken.last_arrival = arrival;
    std::uint32_t &first = buckets_[bucket_of(key)];
    taken.next_in_bucket_ = first;
    first = index;
    append_youngest(of.newcomers, index);
    append_newcomer(index);
    ++size_;
    return &taken;
}

void session_table::remove(session &entry)
{
    const std::uint32_t index = index_of(entry);
    std::uint32_t *link = &buckets_[bucket_of(entry.key())];
    while (*link != index) {
        link = &slots_[*link].next_in_bucket_;
    }
    *link = entry.next_in_bucket_;
    responder_sessions &of = *sessions_of(entry.responder_id);
    unlink_age(of.of(entry.stage), index);
    if (entry.stage == session_stage::newcomer) {
        unlink_newcomer(index);
    }
    if (of.is_empty()) {
        remove_responder(of);
    }
    entry.stage = session_stage::none;
    entry.next_in_bucket_ = first_free_;
    first_free_ = index;
    --size_;
}

void session_table::establish(session &entry, responder_sessions &of)
{
    const std::uint32_t index = index_of(entry);
    unlink_age(of.newcomers, index);
    unlink_newcomer(index);
    entry.stage = session_stage::established;
    append_youngest(of.established, index);
}

void session_table::append_newcomer(std::uint32_t index)
{
    beside_slot &added = aside_[index];
    added.older_newcomer = newcomers_.youngest;
    added.younger_newcomer = none;
    (newcomers_.youngest == none ? newcomers_.oldest : aside_[newcomers_.youngest].younger_newcomer) = index;
    newcomers_.youngest = index;
}

void session_table::unlink_newcomer(std::uint32_t index)
{
    const std::uint32_t older = aside_[index].older_newcomer;
    const std::uint32_t younger = aside_[index].younger_newcomer;
    (older == none ? newcomers_.oldest : aside_[older].younger_newcomer) = younger;
    (younger == none ? newcomers_.youngest : aside_[younger].older_newcomer) = older;
}

session *session_table::oldest_newcomer(std::uint32_t responder_id)
{
    const responder_sessions *of = sessions_of(responder_id);
    return of == nullptr ? nullptr : at(of->newcomers.oldest);
}

session *session_table::oldest_established(std::uint32_t responder_id)
{
    const responder_sessions *of = sessions_of(responder_id);
    return of == nullptr ? nullptr : at(of->established.oldest);
}

session *session_table::oldest(std::uint32_t responder_id)
{
    const responder_sessions *of = sessions_of(responder_id);
    return of == nullptr ? nullptr : oldest_of(*of);
}

session_table::responder_sessions *session_table::look_up(std::uint32_t responder_id)
{
    // IDs are given out by the control side, mostly one after the other: they are their own hash.
    std::uint32_t index = responder_buckets_[responder_id & responder_mask_];
    while (index != none && responders_[index].responder_id != responder_id) {
        index = responders_[index].next_in_bucket;
    }
    return index == none ? nullptr : &responders_[index];
}

session_table::responder_sessions &session_table::add_responder(std::uint32_t responder_id)
{
    std::uint32_t index = first_free_responder_;
    if (index == none) {
        index = used_responders_++; // each of the others has a session
    } else {
        first_free_responder_ = responders_[index].next_in_bucket;
    }
    std::uint32_t &first = responder_buckets_[responder_id & responder_mask_];
    responders_[index] = {
        .responder_id = responder_id, .next_in_bucket = first, .newcomers = {}, .established = {}};
    first = index;
    last_responder_ = &responders_[index];
    return responders_[index];
}

void session_table::remove_responder(responder_sessions &empty)
{
    const auto index = static_cast<std::uint32_t>(&empty - responders_.data());
    std::uint32_t *link = &responder_buckets_[empty.responder_id & responder_mask_];
    while (*link != index) {
        link = &responders_[*link].next_in_bucket;
    }
    *link = empty.next_in_bucket;
    empty.next_in_bucket = first_free_responder_;
    first_free_responder_ = index;
    last_responder_ = nullptr;
}

std::vector<session> session_table::all() const
{
    std::vector<session> copies;
    copies.reserve(size_);
    for (std::uint32_t place = 0; place < used_responders_; ++place) {
        for (const age_list &list : {responders_[place].newcomers, responders_[place].established}) {
            for (std::uint32_t index = list.oldest; index != none; index = slots_[index].younger_) {
                copies.push_back(slots_[index]);
            }
        }
    }
    return copies;
}

session *session_table::next_slot()
{
    if (slots_.empty()) {
        return nullptr;
    }
    session &visited = slots_[cursor_];
    cursor_ = cursor_ + 1 == capacity() ? 0 : cursor_ + 1;
    return visited.stage == session_stage::none ? nullptr : &visited;
}

} // namespace olv_fastpath
