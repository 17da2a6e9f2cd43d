#include "sim/rte/memory_arena.hpp"
#include "sim/process_wide.hpp"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>

namespace olv_sim {

memory_arena &the_memory_arena()
{
    return process_wide<memory_arena>();
}

void memory_arena::release_memory::operator()(void *memory) const
{
    std::free(memory);
}

void *memory_arena::allocate(std::uint32_t size)
{
    const std::lock_guard lock{mutex_};
    const auto *fitting = std::lower_bound(class_sizes.begin(), class_sizes.end(), size);
    void *block = fitting == class_sizes.end()
                      ? allocate_large(size)
                      : allocate_small(static_cast<std::uint32_t>(fitting - class_sizes.begin()), size);
    if (block != nullptr) {
        ++usage_.live_blocks;
        usage_.live_bytes += size;
    }
    return block;
}

void *memory_arena::allocate_small(std::uint32_t class_number, std::uint32_t size)
{
    size_class &owner = classes_[class_number];
    if (owner.free_count > quarantine) {
        const std::uint32_t number = owner.oldest_free;
        const slab &home = *owner.slabs[number / owner.blocks_in_slab];
        owner.oldest_free = home.notes[number % owner.blocks_in_slab].next;
        --owner.free_count;
        return take(owner, number, size);
    }
    if (owner.carved == owner.slabs.size() * owner.blocks_in_slab && !add_slab(class_number)) {
        return nullptr;
    }
    return take(owner, owner.carved++, size);
}

bool memory_arena::add_slab(std::uint32_t class_number)
{
    void *memory = std::aligned_alloc(slab_bytes, slab_bytes);
    if (memory == nullptr) {
        return false;
    }
    size_class &owner = classes_[class_number];
    owner.block_bytes = class_sizes[class_number];
    owner.blocks_in_slab = static_cast<std::uint32_t>(slab_bytes) / owner.block_bytes;
    auto added = std::make_unique<slab>();
    added->memory.reset(memory);
    added->size_class = class_number;
    added->first_block = owner.carved;
    added->notes.resize(owner.blocks_in_slab);
    slabs_by_address_.emplace(reinterpret_cast<std::uintptr_t>(memory) / slab_bytes, added.get());
    owner.slabs.push_back(std::move(added));
    usage_.mapped_bytes += slab_bytes;
    return true;
}

void *memory_arena::take(size_class &owner, std::uint32_t number, std::uint32_t size)
{
    slab &home = *owner.slabs[number / owner.blocks_in_slab];
    const std::uint32_t index = number % owner.blocks_in_slab;
    home.notes[index] = {size, no_block};
    void *block = static_cast<std::byte *>(home.memory.get()) + std::size_t{index} * owner.block_bytes;
    std::memset(block, 0, owner.block_bytes);
    return block;
}

void *memory_arena::allocate_large(std::uint32_t size)
{
    const std::size_t capacity = std::bit_ceil(std::uint64_t{size}) > SIZE_MAX / 2
                                     ? std::size_t{size}
                                     : static_cast<std::size_t>(std::bit_ceil(std::uint64_t{size}));
    std::deque<void *> &waiting = free_large_[capacity];
    if (waiting.size() > quarantine) {
        void *block = waiting.front();
        waiting.pop_front();
        large_.at(block).size = size;
        return std::memset(block, 0, capacity);
    }
    // calloc() aligns to 8 bytes on some 32-bit targets.
    std::unique_ptr<void, release_memory> memory{std::aligned_alloc(alignment, capacity)};
    void *block = memory.get();
    if (block == nullptr) {
        return nullptr;
    }
    large_.emplace(block, large_block{std::move(memory), capacity, size});
    usage_.mapped_bytes += capacity;
    return std::memset(block, 0, capacity);
}

std::optional<memory_arena::place> memory_arena::find_small(const void *block)
{
    const auto address = reinterpret_cast<std::uintptr_t>(block);
    const auto found = slabs_by_address_.find(address / slab_bytes);
    if (found == slabs_by_address_.end()) {
        return std::nullopt;
    }
    slab &home = *found->second;
    size_class &owner = classes_[home.size_class];
    const auto offset = static_cast<std::uint32_t>(address % slab_bytes);
    const std::uint32_t index = offset / owner.block_bytes;
    if (offset % owner.block_bytes != 0 || index >= owner.blocks_in_slab) {
        return std::nullopt;
    }
    return place{&owner, &home.notes[index], home.first_block + index};
}

/** The block's size as it was asked for; NULL for what never was a block. */
std::uint32_t *memory_arena::size_word(const void *block)
{
    if (const auto small = find_small(block)) {
        return &small->entry->size;
    }
    const auto large = large_.find(block);
    return large == large_.end() ? nullptr : &large->second.size;
}

void memory_arena::note_free(const place &freed)
{
    size_class &owner = *freed.owner;
    freed.entry->next = no_block;
    if (owner.free_count++ == 0) {
        owner.oldest_free = freed.number;
    } else {
        slab &last = *owner.slabs[owner.newest_free / owner.blocks_in_slab];
        last.notes[owner.newest_free % owner.blocks_in_slab].next = freed.number;
    }
    owner.newest_free = freed.number;
}

bool memory_arena::release(const void *block)
{
    const std::lock_guard lock{mutex_};
    std::uint32_t *size = size_word(block);
    if (size == nullptr || *size == 0) {
        return false;
    }
    --usage_.live_blocks;
    usage_.live_bytes -= *size;
    *size = 0;
    if (const auto small = find_small(block)) {
        note_free(*small);
    } else {
        large_block &large = large_.at(block);
        free_large_[large.capacity].push_back(large.memory.get());
    }
    return true;
}

bool memory_arena::is_live(const void *block)
{
    return size_of(block).has_value();
}

std::optional<std::uint32_t> memory_arena::size_of(const void *block)
{
    const std::lock_guard lock{mutex_};
    const std::uint32_t *size = size_word(block);
    return size == nullptr || *size == 0 ? std::nullopt : std::optional{*size};
}

memory::usage memory_arena::in_use()
{
    const std::lock_guard lock{mutex_};
    return usage_;
}

} // namespace olv_sim
