/**
 * @file populated_module.hpp
 * A module with many responders, and operations on some of them.
 */
#ifndef OLV_BENCH_POPULATED_MODULE_HPP
#define OLV_BENCH_POPULATED_MODULE_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <random>

#include "hyx.h"
#include "measured_module.hpp"

namespace olv_bench {

/** Memory in use, less what there was before a module was populated. */
struct memory_growth {
    std::size_t library_bytes = 0;  ///< Blocks that the library holds.
    std::size_t platform_bytes = 0; ///< All that the platform took from the system, those blocks included.
};

/** Which responders come next. With many of them the processor's caches hold nothing of theirs, either way. */
enum class visiting_order : std::uint8_t {
    in_turn,  ///< As they were created: all are visited before one is visited again.
    at_random ///< Any of them: the processor cannot foresee whose memory will be needed.
};

/** A deletion, and the release of the record, which belongs to who created it. */
inline constexpr operation remove_and_free{"delete", [](measured_module &m) {
                                               const std::uint32_t status = library::remove.run(m);
                                               hyx_nvm_free(*m.slot);
                                               *m.slot = nullptr;
                                               return status;
                                           }};

class populated_module {
  public:
    /** Operations that are timed together, so that reading the clock takes no share of the time worth counting.
     */
    static constexpr std::size_t largest_group = 256;

    /** @throw std::runtime_error  An operation failed, here and below. */
    explicit populated_module(std::uint32_t responders);
    ~populated_module() { keep_handles(); } // whose records the module frees
    populated_module(const populated_module &) = delete;
    populated_module &operator=(const populated_module &) = delete;

    [[nodiscard]] std::uint32_t responders() const { return responders_; }
    [[nodiscard]] const memory_growth &memory() const { return memory_; }
    [[nodiscard]] measured_module &module() { return module_; }

    /** Choose the responders, different ones, that are visited next. Their handles are at hand then, but
     * nothing else of theirs. */
    void choose(visiting_order order);
    [[nodiscard]] std::size_t chosen() const { return group_; }
    /** Call an operation with each of the chosen responders, and with binds of the same numbers. */
    void run(const operation &operation);

  private:
    void populate();
    /** Let the bind tree take all memory that binds of these responders' numbers need. */
    void reach_bind_tree();
    void keep_handles();
    void choose_in_turn();
    void choose_at_random();

    std::uint32_t responders_;
    measured_module module_;
    std::size_t group_ = 0;  ///< Responders that are chosen.
    std::uint32_t next_ = 0; ///< In turn.
    std::array<std::uint32_t, largest_group> places_{};
    std::array<twamp_responder_handle *, largest_group> at_hand_{};
    memory_growth memory_{};
    std::mt19937_64 random_{1}; // the same choices in every run
};

} // namespace olv_bench

#endif
