/**
 * @file populated_module.hpp
 * A module with many responders, and operations on responders chosen at random.
 */
#ifndef OLV_BENCH_POPULATED_MODULE_HPP
#define OLV_BENCH_POPULATED_MODULE_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "olv_sim/framework.hpp"
#include "olv_sim/processor.hpp"
#include "olv_twamp.h"
#include "twamp_program.h"

namespace olv_bench {

/** Memory in use, less what there was before a module was populated. */
struct memory_growth {
    std::size_t library_bytes = 0;  ///< Blocks that the library holds.
    std::size_t platform_bytes = 0; ///< All that the platform took from the system, those blocks included.
};

/** Which responders come next. Either way, with many of them, nothing of theirs is in the processor's caches.
 */
enum class visiting_order : std::uint8_t {
    in_turn,  ///< As they were created: all are visited before one is visited again.
    at_random ///< Anyone: no hardware can know whose memory will be wanted.
};

class populated_module {
  public:
    /** Operations that are timed together: what is told apart is not the clock's own time. */
    static constexpr std::size_t largest_group = 256;

    /** @throw std::runtime_error  An operation failed, here and below. */
    explicit populated_module(std::uint32_t responders);
    ~populated_module();
    populated_module(const populated_module &) = delete;
    populated_module &operator=(const populated_module &) = delete;

    [[nodiscard]] std::uint32_t responders() const { return static_cast<std::uint32_t>(handles_.size()); }
    /** Those that the processor has now. */
    [[nodiscard]] std::size_t live() const { return processor_.allocated(TWAMP_RESPONDER_NAMESPACE); }
    [[nodiscard]] const memory_growth &memory() const { return memory_; }
    [[nodiscard]] olv_module_handle &module() { return *module_; }

    /** Choose the different responders that are timed together. Their handles are at hand then, but not their
     *  records, nor anything else of theirs. */
    void choose(visiting_order order);
    [[nodiscard]] std::size_t chosen() const { return group_; }
    void read_chosen();
    void delete_chosen();
    /** In the place of those that were deleted. */
    void create_chosen();
    void bind_chosen();
    void unbind_chosen();
    void look_up();

  private:
    void create(twamp_responder_handle *&slot);
    void choose_in_turn();
    void choose_at_random();
    /** Let the bind tree take the memory that binds of any key here need. */
    void reach_bind_tree();

    olv_sim::processor processor_;
    olv_sim::framework framework_;
    olv_module_handle *module_;
    std::vector<twamp_responder_handle *> handles_;
    std::size_t group_;
    std::uint32_t next_ = 0; ///< In turn.
    std::array<std::uint32_t, largest_group> places_{};
    std::array<twamp_responder_handle *, largest_group> at_hand_{};
    memory_growth memory_{};
    std::mt19937_64 random_{1}; // the same choices in every run
};

} // namespace olv_bench

#endif
