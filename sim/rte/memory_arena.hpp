// Blocks of hyx_nvm_calloc(): never unmapped, late to be reused.
#ifndef OLV_SIM_MEMORY_ARENA_HPP
#define OLV_SIM_MEMORY_ARENA_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <vector>

#include "olv_sim/resources.hpp"

namespace olv_sim {

/**
 * Slabs for each size class, single mappings above them. A freed block keeps its content and is handed out
 * again only after many others of its class were freed, so that a stale pointer still reads what was there.
 */
class memory_arena {
  public:
    /** Frees of a size class that a freed block waits for at least. */
    static constexpr std::size_t quarantine = 1024;
    /** Of every block; the size classes are its multiples. */
    static constexpr std::size_t alignment = 16;

    /** Zeroed, aligned to `alignment`. @return NULL when the system has no memory. */
    void *allocate(std::uint32_t size);
    /** @return false for a block that is not live; nothing happens then. */
    bool release(const void *block);
    [[nodiscard]] bool is_live(const void *block);
    /** Nothing for a block that is not live. */
    [[nodiscard]] std::optional<std::uint32_t> size_of(const void *block);
    [[nodiscard]] memory::usage in_use();

  private:
    static constexpr std::size_t slab_bytes = 65536;
    static constexpr std::uint32_t no_block = UINT32_MAX;

    struct note {
        std::uint32_t size; ///< As asked for, 0: free.
        std::uint32_t next; ///< Next one in the class's queue of free blocks.
    };
    struct release_memory {
        void operator()(void *memory) const;
    };
    struct slab {
        std::unique_ptr<void, release_memory> memory;
        std::uint32_t size_class;
        std::uint32_t first_block; ///< Number of its first block in the class.
        std::vector<note> notes;
    };
    struct size_class {
        std::uint32_t block_bytes = 0;
        std::uint32_t blocks_in_slab = 0;
        std::vector<std::unique_ptr<slab>> slabs;
        std::uint32_t carved = 0;
        std::uint32_t oldest_free = no_block;
        std::uint32_t newest_free = no_block;
        std::size_t free_count = 0;
    };
    struct large_block {
        std::unique_ptr<void, release_memory> memory;
        std::size_t capacity;
        std::uint32_t size; ///< 0: free.
    };
    struct place {
        size_class *owner;
        note *entry;
        std::uint32_t number; ///< In its class.
    };

    static constexpr std::array<std::uint32_t, 15> class_sizes{16,  32,  48,  64,   96,   128,  192, 256,
                                                               384, 512, 768, 1024, 1536, 2048, 4096};

    void *allocate_small(std::uint32_t class_number, std::uint32_t size);
    void *allocate_large(std::uint32_t size);
    bool add_slab(std::uint32_t class_number);
    void *take(size_class &owner, std::uint32_t number, std::uint32_t size);
    [[nodiscard]] std::optional<place> find_small(const void *block);
    [[nodiscard]] std::uint32_t *size_word(const void *block);
    void note_free(const place &freed);

    std::mutex mutex_;
    std::array<size_class, class_sizes.size()> classes_;
    std::unordered_map<std::uintptr_t, slab *> slabs_by_address_;
    std::unordered_map<const void *, large_block> large_;
    std::unordered_map<std::size_t, std::deque<void *>> free_large_;
    memory::usage usage_{};
};

memory_arena &the_memory_arena();

} // namespace olv_sim

#endif
