/**
 * @file library_world.hpp
 * The software platform with the modules that are fuzzed, beside the model of both. Made once in a process;
 * every input begins with the same state.
 */
#ifndef OLV_FUZZ_LIBRARY_WORLD_HPP
#define OLV_FUZZ_LIBRARY_WORLD_HPP

#include <array>
#include <memory>
#include <optional>
#include <vector>

#include "library_model.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/framework.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/tracer.hpp"
#include "olv_twamp.h"
#include "stream_capture.hpp"

namespace olv_fuzz {

/** A place where a caller keeps a responder, twice; the model knows the responder by its index. */
struct responder_slot {
    twamp_responder_handle *real = nullptr;
    int model = -1;
};

class library_world {
  public:
    static constexpr std::size_t slot_count = 6;
    static constexpr std::size_t destination_count = 6;
    static constexpr std::uint32_t maximum_responders = 4;

    explicit library_world(const model_constants &constants);
    library_world(const library_world &) = delete;
    library_world &operator=(const library_world &) = delete;

    /** Bring the platform, the modules and the model to where every input begins. */
    void begin();
    /** Take back what the input left. */
    void end();

    // Changes of both sides.
    void plan(std::optional<call> which, const olv_sim::fault &fault);
    void clear_faults();
    /** The timer is that of the first two processors. */
    void set_clocks(const hyx_time &wall_clock, const olv_test::time_of_day &day, std::uint64_t ticks);
    void set_entry_point(std::uint32_t module_id, entry_point_kind kind);
    void move_module(model_module &module, std::size_t processor);
    // On the processor of a module, if there is one.
    /** @param entry  To be learnt; NULL: the key is unlearnt. */
    void change_entry(const model_module &module, std::uint32_t tree, const model_key &key,
                      const model_entry *entry);
    void set_state_word(const model_module &module, std::uint32_t id, std::size_t word, std::uint32_t bytes);
    /** Copy the first module into the record with the wrong magic. */
    model_module *refreshed_foreign();

    /** Compare the platform, the modules and the responders with the model; what differs is reported. */
    void compare();
    /** @param index  Which one of several. */
    void require_same(const char *what, std::size_t index, std::uint64_t expected, std::uint64_t found) const;
    /** After a release that failed. */
    void release_held_locks();

    [[nodiscard]] std::size_t processor_count() const { return processors_.size(); }

    std::optional<library_model> model;
    std::array<model_module, 3> modules; ///< Two of the framework's, and one that no framework has made.
    std::array<std::uint32_t, 3> locks{};
    std::array<olv_system_handle *, 2> systems{};
    std::array<olv_module_handle, destination_count> destinations{};
    std::array<responder_slot, slot_count> slots{};
    // The call in progress, and what it has shown.
    const char *in_progress = "";
    stream_capture console{stdout};
    olv_sim::capturing_trace_sink traces;

  private:
    struct real_processor {
        std::unique_ptr<const olv_sim::classifier_program> program;
        std::unique_ptr<olv_sim::processor> processor;
        bool touched = false; ///< A module lives there, or did.
    };

    void add_modules();
    void begin_module(std::size_t index);
    void restore(real_processor &one);
    /** The addresses of contexts and records that the library has made since. */
    void note_new_addresses();
    void compare_module(std::size_t index);
    void compare_processor(std::size_t index);
    void compare_responders() const;

    const model_constants &constants_;
    std::vector<real_processor> processors_;
    olv_sim::framework framework_;
    olv_module_handle alien_{};
    olv_module_handle foreign_{};
    model_module model_foreign_;
    olv_system_handle other_system_{};
    std::size_t blocks_before_ = 0;
    std::size_t patterns_before_ = 0;
};

} // namespace olv_fuzz

#endif
