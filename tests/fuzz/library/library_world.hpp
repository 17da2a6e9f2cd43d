/**
 * @file library_world.hpp
 * The software platform with the modules that are fuzzed, beside the model of both. Made once in a process;
 * every input begins with the same state.
 */
#ifndef OLV_FUZZ_LIBRARY_WORLD_HPP
#define OLV_FUZZ_LIBRARY_WORLD_HPP

#include <array>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "library_model.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/framework.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/tracer.hpp"
#include "olv_twamp.h"

namespace olv_fuzz {

inline constexpr std::size_t slot_count = 6;

/** A module twice: the record that the library gets, and the model's. */
struct module_pair {
    olv_module_handle *real = nullptr;
    model_module *model = nullptr;
};

/** A responder twice; the model knows it by its number. */
struct responder_pair {
    twamp_responder_handle *real = nullptr;
    int model = -1;
};

/** Collects what an operation prints and traces. */
class observer : public olv_sim::trace_sink {
  public:
    observer();
    ~observer() override;
    observer(const observer &) = delete;
    observer &operator=(const observer &) = delete;

    void event(const olv_sim::trace_event &event) override { raw_.push_back(event); }

    /** Run an operation with its output going here. */
    template <typename Operation> auto observe(Operation &&operation)
    {
        begin();
        const auto result = operation();
        end();
        return result;
    }

    [[nodiscard]] const std::string &console() const { return console_; }
    [[nodiscard]] const std::vector<olv_sim::trace_event> &raw_events() const { return raw_; }

  private:
    void begin();
    void end();

    char *buffer_ = nullptr;
    std::size_t length_ = 0;
    std::FILE *stream_;
    std::FILE *saved_ = nullptr;
    std::string console_;
    std::vector<olv_sim::trace_event> raw_;
};

class library_world {
  public:
    static constexpr std::size_t module_count = 3;
    static constexpr std::size_t destination_count = 6;
    static constexpr std::uint32_t maximum_responders = 4;

    explicit library_world(const model_constants &constants);
    library_world(const library_world &) = delete;
    library_world &operator=(const library_world &) = delete;

    /** Bring the platform, the modules and the model to where every input begins. */
    void begin();
    /** Take back what the input left. */
    void end();

    /** Plan a fault on both sides. */
    void plan(std::optional<call> which, const olv_sim::fault &fault);
    void clear_faults();
    /** A module lives on another processor from now on. */
    void move_module(std::size_t module, std::size_t processor);
    /** Entry of a tree as another user of the processor makes and removes it. */
    void learn(std::size_t processor, std::uint32_t tree, const model_key &key, const model_entry &entry);
    void unlearn(std::size_t processor, std::uint32_t tree, const model_key &key);
    void set_state_word(std::size_t processor, std::uint32_t id, std::size_t word, std::uint32_t bytes);
    void set_timer(std::size_t processor, std::uint64_t ticks);
    void set_entry_point(std::uint32_t module_id, entry_point_kind kind);
    /** Copy the first module into the record with the wrong magic. */
    module_pair refreshed_foreign();

    /** Where the platform and the modules differ from the model; empty when they agree. */
    [[nodiscard]] std::string state_difference();

    [[nodiscard]] std::size_t processor_count() const { return processors_.size(); }
    [[nodiscard]] std::size_t processor_of(std::uint32_t rte) const;

    std::optional<library_model> model;
    std::array<model_module, module_count> model_modules;
    std::array<olv_module_handle *, module_count> modules{};
    std::array<std::uint32_t, module_count> locks{};
    model_module model_foreign;
    olv_module_handle foreign{};
    std::array<model_system, 2> model_systems;
    std::array<olv_system_handle *, 2> systems{};
    std::array<olv_module_handle, destination_count> destinations{};
    std::array<model_destination, destination_count> model_destinations;
    std::array<twamp_responder_handle *, slot_count> slots{};
    std::array<int, slot_count> model_slots{};
    /** By the model's index. */
    std::vector<twamp_responder_handle *> records;
    observer seen;

  private:
    struct real_processor {
        processor_description description;
        std::unique_ptr<olv_sim::processor> processor;
        bool touched = false;
    };

    void add_processors();
    void add_modules();
    void begin_modules();
    void fill_model_processors();
    void restore(real_processor &one);
    [[nodiscard]] std::string module_difference(std::size_t index);
    [[nodiscard]] std::string processor_difference(std::size_t index);
    [[nodiscard]] std::string responder_difference() const;
    [[nodiscard]] std::string registration_difference(std::size_t index) const;

    model_constants constants_;
    std::vector<real_processor> processors_;
    olv_sim::framework framework_;
    olv_module_handle alien_{}; ///< A module record that no framework has made.
    olv_system_handle other_system_{};
    std::vector<void *> contexts_; ///< Every context that a module had.
    std::size_t blocks_before_ = 0;
    std::size_t patterns_before_ = 0;
};

} // namespace olv_fuzz

#endif
