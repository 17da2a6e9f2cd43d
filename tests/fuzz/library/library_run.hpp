/**
 * @file library_run.hpp
 * One input: bytes become library calls and changes of the platform, on the real side and in the model.
 */
#ifndef OLV_FUZZ_LIBRARY_RUN_HPP
#define OLV_FUZZ_LIBRARY_RUN_HPP

#include <functional>
#include <span>
#include <vector>

#include "byte_source.hpp"
#include "library_world.hpp"

namespace olv_fuzz {

class library_run {
  public:
    library_run(library_world &world, byte_source input) : world_(world), input_(input) {}

    void run();

  private:
    using step = void (library_run::*)();
    struct planned_fault {
        std::optional<call> which;
        olv_sim::fault fault;
    };

    // Steps that call the library.
    void init();
    void shutdown();
    void update();
    void sys_log();
    void map_sys_log();
    void create();
    void remove();
    void stats_get();
    void stats_print();
    void bind();
    void unbind();
    void get_imc();
    void call_with_null();
    void global_stats_get();
    void global_stats_print();
    void tables_dump();
    void dump_tables();
    void table_entry_dump();
    void responder_entry_dump();
    void valid_module_handle();

    // Steps that change what stands around it.
    void plan_any_fault();
    void plan_fault();
    void clear_plan();
    void set_log_words();
    void set_module_magic();
    void set_context_magic();
    void set_responder_word(std::span<const std::uint32_t> values, std::uint32_t twamp_responder_handle::*real,
                            std::uint32_t model_responder::*expected);
    void set_responder_magic();
    void set_responder_id();
    void free_responder();
    void copy_slot();
    void drop_slot();
    void set_state();
    void learn_entry();
    void unlearn_entry();
    void set_lock();
    void move_module();
    void set_clocks();
    void set_destination();
    void set_system();

    void change_bind(bool binds);
    module_pair any_module();
    std::size_t framework_module();
    responder_pair any_responder();
    std::uint32_t level();
    olv_bind_info bind_request(model_bind_info &expected);
    std::optional<pattern_argument> pattern(olv_ptn &real, bool &owned);
    std::optional<olv_ptn_action> action();

    /** Run an operation in the model and in the library, with the planned faults, and compare. */
    void both(const char *name, const std::function<std::uint32_t()> &expected,
              const std::function<std::uint32_t()> &real);
    void arm();
    void disarm();
    void compare(const char *name, std::uint32_t expected, std::uint32_t found);
    void note_new_records();
    void release_held_locks();

    static const std::vector<step> steps;

    library_world &world_;
    byte_source input_;
    std::vector<planned_fault> plan_;
    bool plan_stays_ = false;
    bool over_ = false;
    bool loses_traces_ = false; ///< The tracer's look-up is told to fail.
    std::uint32_t bind_key_ = 0;
    olv_twamp_responder_info info_{};
};

/** What differs between two texts or numbers, for a report. */
void require_equal(const char *operation, const char *what, std::uint64_t expected, std::uint64_t found);

} // namespace olv_fuzz

#endif
