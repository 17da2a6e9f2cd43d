#include "sim/rte/memory_arena.hpp"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>

namespace olv_sim {

void memory_arena::release_memory::operator()(void *memory) const
{
    std::free(memory);
}

void *memory_arena::size_class::block(std::uint32_t number)
{
    void *memory = slabs[number / blocks_in_slab].memory.get();
    return static_cast<std::byte *>(memory) + number % blocks_in_slab * block_bytes;
}

std::uint32_t memory_arena::size_class::take_oldest_free()
{
    const std::uint32_t taken = oldest_free;
    oldest_free = note_of(taken).next;
    --free_count;
    return taken;
}

void memory_arena::size_class::append_free(std::uint32_t number)
{
    (free_count++ == 0 ? oldest_free : note_of(newest_free).next) = number;
    newest_free = number;
}

void *memory_arena::allocate(std::uint32_t size)
{
    const unsigned number_of_class = std::max(static_cast<unsigned>(std::bit_width(size - 1)), smallest_class);
    if (number_of_class > largest_class) {
        return nullptr;
    }
    size_class &from = classes_[number_of_class];
    from.block_bytes = std::size_t{1} << number_of_class;
    const bool reuses = from.free_count > quarantine;
    if (!reuses && from.carved == from.slabs.size() * from.blocks_in_slab && !add_slab(from)) {
        return nullptr;
    }
    const std::uint32_t number = reuses ? from.take_oldest_free() : from.carved++;
    from.note_of(number).size = size;
    ++usage_.live_blocks;
    usage_.live_bytes += size;
    return std::memset(from.block(number), 0, from.block_bytes);
}

bool memory_arena::add_slab(size_class &to)
{
    const std::size_t bytes = std::max(to.block_bytes, slab_bytes);
    slab added;
    added.memory.reset(std::aligned_alloc(slab_bytes, bytes));
    if (added.memory == nullptr) {
        return false;
    }
    to.blocks_in_slab = static_cast<std::uint32_t>(bytes / to.block_bytes);
    added.notes.resize(to.blocks_in_slab);
    slabs_by_address_.emplace(reinterpret_cast<std::uintptr_t>(added.memory.get()) / slab_bytes,
                              slab_place{&to, to.carved});
    to.slabs.push_back(std::move(added));
    usage_.mapped_bytes += bytes;
    return true;
}

std::optional<memory_arena::block_place> memory_arena::find(const void *block)
{
    const auto address = reinterpret_cast<std::uintptr_t>(block);
    const auto found = slabs_by_address_.find(address / slab_bytes);
    if (found == slabs_by_address_.end() || address % slab_bytes % found->second.owner->block_bytes != 0) {
        return std::nullopt;
    }
    const auto index = static_cast<std::uint32_t>(address % slab_bytes / found->second.owner->block_bytes);
    return block_place{found->second.owner, found->second.first_block + index};
}

bool memory_arena::release(const void *block)
{
    const std::optional<block_place> freed = find(block);
    if (!freed || freed->owner->note_of(freed->number).size == 0) {
        return false;
    }
    std::uint32_t &size = freed->owner->note_of(freed->number).size;
    --usage_.live_blocks;
    usage_.live_bytes -= size;
    size = 0;
    freed->owner->append_free(freed->number);
    return true;
}

std::optional<std::uint32_t> memory_arena::size_of(const void *block)
{
    const std::optional<block_place> known = find(block);
    const std::uint32_t size = known ? known->owner->note_of(known->number).size : 0;
    return size == 0 ? std::nullopt : std::optional{size};
}

} // namespace olv_sim
