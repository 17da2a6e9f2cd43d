/**
 * @file harness.hpp
 * What the library's tests stand on: a bench with a processor, a framework and a TWAMP module of its own, and
 * the observation of one operation on it.
 *
 *     bench b;                                              // initialised module, everything logged
 *     const observation seen = b.observe([&] { return olv_twamp_sys_log(b.handle, 3); });
 *     EXPECT_EQ(seen.console, "[twamp_log: function] twamp.c:LINE [00000012:00000034] Entering ...");
 *
 * What most tests compare is the whole of what an operation does, see story.hpp.
 */
#ifndef OLV_TWAMP_TESTS_HARNESS_HPP
#define OLV_TWAMP_TESTS_HARNESS_HPP

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "gmock/gmock.h"
#include "gtest/gtest.h"

#include "hyx.h"
#include "olv.h"
#include "olv_sim/call_record.hpp"
#include "olv_sim/calls.hpp"
#include "olv_sim/framework.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/tracer.hpp"
#include "olv_twamp.h"
#include "program_names.hpp"
#include "source_lines.hpp"
#include "time_of_day.hpp"

namespace olv_test {

using olv_sim::call;

/** Log word that lets every console line through: level 15, function, pattern and state lines. */
inline constexpr std::uint32_t everything = 0xDF;

/** Code of an injected fault: of the runtime environment, and of the framework. */
inline constexpr std::uint32_t injected = 0x1FF;
inline constexpr std::uint32_t injected_in_framework = 0x201FF;

/** Run @p work and return what it wrote to standard output, through stdio or the descriptor. */
[[nodiscard]] std::string captured_console(const std::function<void()> &work);

/** Run one operation without its output. Nothing of GoogleTest's is lost that way, as it would be inside. */
std::uint32_t quiet(const std::function<std::uint32_t()> &operation);

// Observation of one operation

/** A trace event, and the state of the module when it came. */
struct seen_event {
    olv_sim::trace_event event;
    bool initialised;
    bool locked;
};

/** What was seen from one event, or from the begin, to the next, or to the end. */
struct episode {
    std::vector<olv_sim::recorded_call> calls;
    std::string console; ///< As printed.
    std::optional<seen_event> event;
};

struct observation {
    std::uint32_t status = 0;
    std::string console; ///< Standard output, with source lines replaced by "LINE".
    std::vector<episode> episodes;

    [[nodiscard]] std::vector<olv_sim::trace_event> events() const;
    /** Calls of the kinds that were asked for, each as "name(arguments)". */
    [[nodiscard]] std::vector<std::string> calls() const;
};

/** Fails the test unless each console line names the source line of its event, and each status text
 *  ("%s\n") comes from file, line and record of the event before it. */
void expect_source_lines_agree(const observation &seen);

// Bench

/** IDs of the tree functions on a bench. */
inline constexpr std::uint32_t responder_tree_id = 0x101;
inline constexpr std::uint32_t bind_tree_id = 0x202;
inline constexpr std::uint32_t ip_direct_imc_id = 0x303;
inline constexpr std::uint32_t ipv6_indirect_imc_id = 0x404;
inline constexpr std::uint32_t lli_processing_id = 0x10505; ///< Not a word of 16 bits.

/** The TWAMP program with these IDs. Small, so that a bench is made quickly. */
[[nodiscard]] olv_sim::classifier_program bench_program(std::uint32_t responders = 16);

struct options {
    std::uint32_t module_flags = everything;
    std::uint32_t system_flags = everything;
    bool locked = true;
    bool system = true; ///< false: the module's `system` is NULL.
    bool initialised = true;
    olv_sim::classifier_program program = bench_program();
};

/** What is there after an operation. */
struct remains {
    std::size_t responder_ids = 0;     ///< Allocated from "twamp_responder".
    std::size_t responder_entries = 0; ///< In the responder lookup tree.
    std::size_t bind_entries = 0;      ///< In the bind tree.
    std::size_t blocks = 0;            ///< Live memory blocks: the context and the responder records.
    std::size_t patterns = 0;          ///< Patterns not freed.
    std::uint32_t lock_held = 0;
    bool initialised = false;
    bool registered = false; ///< The framework has service functions of the module.
    std::uint32_t log_flags = 0;

    bool operator==(const remains &) const = default;
};
std::ostream &operator<<(std::ostream &stream, const remains &value);

/**
 * A processor, a framework and one module. Names: the module logs as "twamp", the system as "system".
 * hyx_gettime() answers 12 s, 34 us, so function lines read "[00000012:00000034]".
 *
 * The destructor clears the faults, frees what keep() was told of, shuts the module down if it is initialised
 * and then fails the test when a block, a pattern or a held lock is left or when the platform counted a breach
 * of its contract. One bench at a time.
 */
class bench {
  public:
    explicit bench(options setup = {});
    ~bench();
    bench(const bench &) = delete;
    bench &operator=(const bench &) = delete;

    olv_sim::processor processor;
    olv_sim::framework framework;
    olv_module_handle *const module;
    /** The handle that operations are called with: the module, until a test puts another one here. */
    olv_module_handle *handle;
    /** A record that is no module's. Its magic is wrong, and whoever follows its name or its system record
     * falls; everything else is copied from the module. */
    olv_module_handle foreign;

    /** Arguments of operations; a test may point the slot elsewhere. The responder's record is freed in the
     * end. */
    olv_twamp_responder_info info{};
    twamp_responder_handle *responder = nullptr;
    twamp_responder_handle **slot = &responder;

    /** Run one operation and observe it: console, traces, calls of @p kinds. */
    observation observe(const std::function<std::uint32_t()> &operation,
                        unsigned kinds = static_cast<unsigned>(olv_sim::call_kind::service));

    [[nodiscard]] remains left() const;

    /** Create a responder, quietly, and keep() its record. */
    twamp_responder_handle *create_responder(std::uint16_t param_a = 0, std::uint16_t param_b = 0);
    /** The same; the record is the caller's. */
    twamp_responder_handle *create_unkept_responder(std::uint16_t param_a = 0, std::uint16_t param_b = 0);
    /** How many responders these two have created. */
    [[nodiscard]] std::uint32_t created() const { return created_; }
    /** Put an entry into a tree, without a key where none is given. */
    void learn(std::uint32_t tree_id, std::optional<std::uint32_t> key, std::uint32_t action_0,
               std::uint32_t action_1);
    /** Have a block freed when the bench goes, once. NULL is ignored. */
    void keep(void *block);
    /** Bytes of a state entry as they stand in memory; empty where there is none. */
    [[nodiscard]] std::vector<std::uint8_t> state_bytes(std::uint32_t namespace_id) const;
    void set_state_bytes(std::uint32_t namespace_id, const std::vector<std::uint8_t> &bytes);
    /** Overwrite the first word of the module's private context, until it is restored or the bench goes. */
    void set_context_magic(std::uint32_t magic);
    void restore_context();
    /** Handle of the responders' namespace. */
    [[nodiscard]] std::uint32_t responder_ns() const;

    /** Log words of the module and, where there is one, of the system. */
    void set_log_words(std::uint32_t module_flags, std::uint32_t system_flags);
    /** Post the module's lock if a failed release left it held. */
    void release_lock();

  private:
    std::size_t blocks_before_;
    std::size_t patterns_before_;
    std::uint32_t lock_;
    olv_system_handle *system_;
    std::uint32_t created_ = 0;
    std::vector<void *> kept_;
    twamp_ctx *marked_ = nullptr; ///< The context whose first word was overwritten.
};

} // namespace olv_test

#endif
