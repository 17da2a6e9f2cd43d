// Blocks of hyx_nvm_calloc(): never unmapped, late to be reused.
#ifndef OLV_SIM_MEMORY_ARENA_HPP
#define OLV_SIM_MEMORY_ARENA_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "olv_sim/resources.hpp"

namespace olv_sim {

/**
 * A block has the next power of two as its size class, and is cut from a slab of its class. A freed block keeps
 * its content and is handed out again only after many others of its class were freed, so that a stale pointer
 * still reads what was there. For one thread at a time.
 */
class memory_arena {
  public:
    /** Frees of a size class that a freed block waits for at least. */
    static constexpr std::size_t quarantine = 1024;

    /** Zeroed, aligned for any type. @return NULL when the system has no memory. */
    void *allocate(std::uint32_t size);
    /** @return false for a block that is not live; nothing happens then. */
    bool release(const void *block);
    /** Nothing for a block that is not live. */
    [[nodiscard]] std::optional<std::uint32_t> size_of(const void *block);
    [[nodiscard]] const memory::usage &in_use() const { return usage_; }

  private:
    static constexpr unsigned smallest_class = 4; // Of 16 bytes, which is the alignment of any type.
    static constexpr unsigned largest_class = 31;
    /** Size, and alignment, of a slab; larger blocks have a slab each, which is as large as they. */
    static constexpr std::size_t slab_bytes = 65536;

    struct release_memory {
        void operator()(void *memory) const;
    };
    /** What is known of a block: two words, since there may be millions. */
    struct note {
        std::uint32_t size = 0; ///< As asked for, 0: free.
        std::uint32_t next = 0; ///< Number of the next one in its class's queue of free blocks.
    };
    struct slab {
        std::unique_ptr<void, release_memory> memory;
        std::vector<note> notes;
    };
    /** Its blocks are numbered from slab to slab. */
    struct size_class {
        std::size_t block_bytes = 0;
        std::uint32_t blocks_in_slab = 0;
        std::vector<slab> slabs;
        std::uint32_t carved = 0; ///< Blocks from this one on were never handed out.
        std::uint32_t oldest_free = 0;
        std::uint32_t newest_free = 0;
        std::size_t free_count = 0;

        [[nodiscard]] note &note_of(std::uint32_t number)
        {
            return slabs[number / blocks_in_slab].notes[number % blocks_in_slab];
        }
        [[nodiscard]] void *block(std::uint32_t number);
        [[nodiscard]] std::uint32_t take_oldest_free();
        void append_free(std::uint32_t number);
    };
    /** Where a slab is known by its address. */
    struct slab_place {
        size_class *owner;
        std::uint32_t first_block;
    };
    struct block_place {
        size_class *owner;
        std::uint32_t number;
    };

    bool add_slab(size_class &to);
    /** Nothing for what never was a block. */
    [[nodiscard]] std::optional<block_place> find(const void *block);

    std::array<size_class, largest_class + 1> classes_;
    std::unordered_map<std::uintptr_t, slab_place> slabs_by_address_;
    memory::usage usage_{};
};

} // namespace olv_sim

#endif
