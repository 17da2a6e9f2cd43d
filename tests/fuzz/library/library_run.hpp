/**
 * @file library_run.hpp
 * One input: bytes become library calls and changes of the platform, on the real side and in the model.
 */
#ifndef OLV_FUZZ_LIBRARY_RUN_HPP
#define OLV_FUZZ_LIBRARY_RUN_HPP

#include <vector>

#include "byte_source.hpp"
#include "library_world.hpp"

namespace olv_fuzz {

struct library_call;

class library_run {
  public:
    library_run(library_world &where, byte_source bytes) : world(where), input(bytes) {}

    void run();

    // Choices of the input.
    model_module *any_module();
    model_module &framework_module() { return world.modules[input.below(3)]; }
    /** What a slot holds, or NULL. */
    responder_slot any_responder();

    struct planned_fault {
        std::optional<call> which;
        olv_sim::fault fault;
    };

    library_world &world;
    byte_source input;
    std::vector<planned_fault> plan; ///< For the next call.
    bool plan_stays = false;         ///< For the calls after it, too.

  private:
    void make(const library_call &one);
    void arm();
    void disarm();
    void compare_texts() const;

    bool over_ = false;
};

/** What a call is given, on either side, and what it returns beside its status. */
struct arguments {
    arguments() = default;
    arguments(const arguments &) = delete;
    arguments &operator=(const arguments &) = delete;

    bool is_made = true; ///< false: the call is not to be made like that.
    model_module *module = nullptr;
    std::uint32_t number = 0; ///< A log level, a table group, the index of a tree, or which call.
    responder_slot responder;
    responder_slot *slot = nullptr;
    bool has_record = true; ///< Info or statistics; false: NULL.
    olv_twamp_responder_info info{};
    olv_system_handle *system = nullptr;
    olv_bind_info whole_request{};
    const olv_bind_info *request = &whole_request; ///< Or NULL.
    model_module *source = nullptr;                ///< Of the request.
    std::uint32_t bind_key = 0;
    olv_ptn whole_pattern{};
    const olv_ptn *pattern = nullptr;
    std::optional<pattern_argument> expected_pattern; ///< Nothing for NULL.
    bool owns_pattern = false;
    olv_ptn_action whole_action{};
    const olv_ptn_action *action = nullptr;
    library_model::words expected = untouched;
    library_model::words found = untouched;

    [[nodiscard]] olv_module_handle *handle() const { return module != nullptr ? module->real : nullptr; }

    static constexpr library_model::words untouched{0xA5A5A5A5, 0xA5A5A5A5, 0xA5A5A5A5,
                                                    0xA5A5A5A5, 0xA5A5A5A5, 0xA5A5A5A5};
};

/** Takes an argument from the input. */
using argument = void (*)(library_run &, arguments &);

/** A call of the library. */
struct library_call {
    const char *name;
    std::vector<argument> given;
    std::uint32_t (*expected)(library_model &, arguments &);
    std::uint32_t (*real)(arguments &);
    bool has_texts = true; ///< false: status and changes alone are compared, without faults.
};

/** A change of what stands around the library, on both sides. */
struct surrounding_change {
    const char *name;
    void (*make)(library_run &);
};

// The first byte of a step is a number: of a call, or behind those of a change. More come at the end.
extern const std::vector<library_call> library_calls;
extern const std::vector<surrounding_change> surrounding_changes;

} // namespace olv_fuzz

#endif
