/**
 * @file resources.hpp
 * What the process has in use: semaphores, memory blocks, patterns.
 */
#ifndef OLV_SIM_RESOURCES_HPP
#define OLV_SIM_RESOURCES_HPP

#include <cstddef>
#include <cstdint>

namespace olv_sim {

namespace semaphores {

/** A binary semaphore, free. @return Its handle, not 0. */
[[nodiscard]] std::uint32_t create();
/** Destroy a semaphore; its handle is unknown from then on. */
void destroy(std::uint32_t semaphore);
/** Waits not yet posted: 1 while held. */
[[nodiscard]] std::uint32_t held(std::uint32_t semaphore);

} // namespace semaphores

namespace memory {

/** Memory of hyx_nvm_calloc(). */
struct usage {
    std::size_t live_blocks;  ///< Blocks handed out and not freed.
    std::size_t live_bytes;   ///< Bytes asked for in them.
    std::size_t mapped_bytes; ///< All that was ever taken from the system; freed blocks stay mapped.
};

/** What the process has in use now. */
[[nodiscard]] usage in_use();
/** Whether this block was handed out and is not freed. */
[[nodiscard]] bool is_live(const void *block);

} // namespace memory

namespace patterns {

/** Patterns made and not yet freed. */
[[nodiscard]] std::size_t live();

} // namespace patterns

} // namespace olv_sim

#endif
