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
      buckets_(std::bit_ceil(std::max(this->capacity(), 1u)) * buckets_each_session, none),
      bucket_mask_(static_cast<std::uint32_t>(buckets_.size() - 1)),
      hash_(random_hash())
{
    for (std::uint32_t index = this->capacity(); index-- > 0;) {
        slots_[index].next_in_bucket = first_free_;
        first_free_ = index;
    }
}

session *session_table::insert(const session_key &key, const responder_creation &creation,
                               std::uint64_t arrival)
{
    if (first_free_ == none) {
        return nullptr;
    }
    const std::uint32_t index = first_free_;
    slot &taken = slots_[index];
    first_free_ = taken.next_in_bucket;
    taken.entry = {.key = key, .creation = creation, .next_sequence_number = 0, .last_arrival = arrival};
    taken.used = true;
    std::uint32_t &first = buckets_[bucket_of(key)];
    taken.next_in_bucket = first;
    first = index;
    append_youngest(index);
    ++size_;
    return &taken.entry;
}

void session_table::remove(session &entry)
{
    const std::uint32_t index = index_of(entry);
    std::uint32_t *link = &buckets_[bucket_of(entry.key)];
    while (*link != index) {
        link = &slots_[*link].next_in_bucket;
    }
    *link = slots_[index].next_in_bucket;
    unlink_age(index);
    slots_[index].used = false;
    slots_[index].next_in_bucket = first_free_;
    first_free_ = index;
    --size_;
}

std::vector<session> session_table::all() const
{
    std::vector<session> copies;
    copies.reserve(size_);
    for (std::uint32_t index = oldest_; index != none; index = slots_[index].younger) {
        copies.push_back(slots_[index].entry);
    }
    return copies;
}

session *session_table::next_slot()
{
    if (slots_.empty()) {
        return nullptr;
    }
    slot &visited = slots_[cursor_];
    cursor_ = cursor_ + 1 == capacity() ? 0 : cursor_ + 1;
    return visited.used ? &visited.entry : nullptr;
}

} // namespace olv_fastpath
