#include "fastpath/session_table.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <random>

namespace olv_fastpath {

namespace {

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
    : slots_(std::min(capacity, maximum_capacity)),
      buckets_(std::bit_ceil(std::max(this->capacity(), 1u)), none),
      hash_(random_hash())
{
    for (std::uint32_t index = this->capacity(); index-- > 0;) {
        slots_[index].next_in_bucket = first_free_;
        first_free_ = index;
    }
}

std::uint32_t session_table::bucket_of(const session_key &key) const
{
    return hash_(key) & static_cast<std::uint32_t>(buckets_.size() - 1);
}

std::uint32_t session_table::index_of(const session &entry) const
{
    // Sessions are handed out by find(), insert() and the like only: each is the first member of a slot.
    return static_cast<std::uint32_t>(reinterpret_cast<const slot *>(&entry) - slots_.data());
}

session *session_table::find(const session_key &key)
{
    for (std::uint32_t index = buckets_[bucket_of(key)]; index != none; index = slots_[index].next_in_bucket) {
        if (slots_[index].entry.key == key) {
            return &slots_[index].entry;
        }
    }
    return nullptr;
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

void session_table::touch(session &entry, std::uint64_t arrival)
{
    const std::uint32_t index = index_of(entry);
    entry.last_arrival = arrival;
    if (index == youngest_) {
        return;
    }
    unlink_age(index);
    append_youngest(index);
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

session *session_table::oldest()
{
    return oldest_ == none ? nullptr : &slots_[oldest_].entry;
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

void session_table::append_youngest(std::uint32_t index)
{
    slots_[index].older = youngest_;
    slots_[index].younger = none;
    (youngest_ == none ? oldest_ : slots_[youngest_].younger) = index;
    youngest_ = index;
}

void session_table::unlink_age(std::uint32_t index)
{
    const std::uint32_t older = slots_[index].older;
    const std::uint32_t younger = slots_[index].younger;
    (older == none ? oldest_ : slots_[older].younger) = younger;
    (younger == none ? youngest_ : slots_[younger].older) = older;
}

} // namespace olv_fastpath
