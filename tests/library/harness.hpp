/**
 * @file harness.hpp
 * What the library's tests stand on: a bench with a processor, a framework and a TWAMP module of its own,
 * and the observation of one operation on it: status, console, traces, platform calls.
 *
 *     bench b;                                              // initialised module, everything logged
 *     const observation seen = b.observe([&] { return olv_twamp_sys_log(b.handle, 3); });
 *     EXPECT_EQ(seen.console, b.expand("[twamp_log: function] twamp.c:LINE [00000012:00000034] ..."));
 *
 * Console texts are compared with their source lines replaced by "LINE". The tables of rows are in rows.hpp.
 */
#ifndef OLV_TWAMP_TESTS_HARNESS_HPP
#define OLV_TWAMP_TESTS_HARNESS_HPP

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
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

/** Log word that lets every console line through: level 15, function, pattern and state lines. */
inline constexpr std::uint32_t everything = 0xDF;

// ---------------------------------------------------------------------------------------------------------
// Traces
// ---------------------------------------------------------------------------------------------------------

/** A trace event as tests compare it: its level, and its format, or its arguments where the format was NULL. */
struct trace {
    std::uint32_t level;
    std::string text;
    bool by_system = false; ///< Traced with the system record instead of the module's.

    bool operator==(const trace &) const = default;
};
std::ostream &operator<<(std::ostream &stream, const trace &value);

inline trace fatal(std::string format)
{
    return {4, std::move(format)};
}
inline trace error(std::string format)
{
    return {2, std::move(format)};
}
inline trace info(std::string format)
{
    return {0, std::move(format)};
}
inline trace entry(std::string operation)
{
    return {8, std::move(operation)};
}
inline trace exit(std::string operation)
{
    return {9, std::move(operation)};
}
/** The arguments, as olv_sim::trace_event::text gives them. */
inline trace learnt(std::string arguments)
{
    return {15, std::move(arguments)};
}
inline trace removed(std::string arguments)
{
    return {16, std::move(arguments)};
}
inline trace state_dump(std::string arguments)
{
    return {27, std::move(arguments)};
}
/** A message in the unknown-handle form. */
inline trace forced(std::string format)
{
    return {olv_sim::trace_event::forced_error, std::move(format)};
}
/** The status-text line after an error and after a fatal message. */
inline trace error_status()
{
    return error("%s\n");
}
inline trace fatal_status()
{
    return fatal("%s\n");
}
/** The same event traced with the system record. */
inline trace by_system(trace event)
{
    event.by_system = true;
    return event;
}

// ---------------------------------------------------------------------------------------------------------
// Observation of one operation
// ---------------------------------------------------------------------------------------------------------

struct observation {
    std::uint32_t status = 0;
    std::string console;     ///< Standard output with source lines replaced by "LINE".
    std::string raw_console; ///< As printed.
    std::vector<olv_sim::trace_event> events;
    std::vector<trace> traces; ///< `events` as tests compare them.
    std::vector<olv_sim::recorded_call> recorded;
    std::vector<std::string> calls; ///< Names of `recorded`.
};

/** Run @p work and return what it wrote to standard output, through stdio or the descriptor. */
[[nodiscard]] std::string captured_console(const std::function<void()> &work);

/** Run @p work without its output. */
void quietly(const std::function<void()> &work);
/** Run one operation without its output. Nothing of GoogleTest's is lost that way, as it would be inside. */
std::uint32_t quiet(const std::function<std::uint32_t()> &operation);

/** Fails the test unless each status-text event ("%s\n") has level, file, line and record of the event before
 *  it: a status line carries the source line of its message. */
void expect_status_lines_follow_messages(const observation &seen);

/** For an operation whose lines were all printed: fails the test unless every message stands on the console
 *  with the file, line and text of its trace event, in the same order. */
void expect_console_agrees_with_traces(const observation &seen);

// ---------------------------------------------------------------------------------------------------------
// Bench
// ---------------------------------------------------------------------------------------------------------

struct options {
    std::uint32_t module_flags = everything;
    std::uint32_t system_flags = everything;
    bool locked = true;
    bool system = true; ///< false: the module's `system` is NULL.
    bool initialised = true;
    /** Small, so that a bench is made quickly. */
    olv_sim::classifier_program program = olv_sim::classifier_program::twamp(16, 16);
};

/** What an operation leaves behind. The defaults are those of an initialised module without responders. */
struct remains {
    std::size_t responder_ids = 0;     ///< Allocated from "twamp_responder".
    std::size_t responder_entries = 0; ///< In the responder lookup tree.
    std::size_t bind_entries = 0;      ///< In the bind tree.
    std::size_t blocks = 1;            ///< Live memory blocks: the context and the responder records.
    std::size_t patterns = 0;          ///< Patterns not freed.
    std::uint32_t lock_held = 0;
    bool initialised = true;
    bool registered = true; ///< The framework has service functions of the module.

    bool operator==(const remains &) const = default;
};
std::ostream &operator<<(std::ostream &stream, const remains &value);

/** What uninitialised modules leave behind. */
inline constexpr remains nothing{.blocks = 0, .initialised = false, .registered = false};

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

    /** Scratch for operations with these arguments; a test may point it elsewhere. */
    olv_twamp_responder_info info{};
    twamp_responder_handle *responder = nullptr;
    twamp_responder_handle **slot = &responder;

    /** Run one operation and observe it: console, traces, calls of @p kinds. */
    observation observe(const std::function<std::uint32_t()> &operation,
                        unsigned kinds = static_cast<unsigned>(olv_sim::call_kind::service));

    /** Replace in an expected console text or trace:
     *  {module} and {MODULE}   low 32 bits of `handle`, lower and upper case, eight digits
     *  {status 0x300A5}        the framework's text of a status
     *  {rte 0x1FF}             the runtime environment's text of an error code
     *  {tree NAME}             the printable name of a tree function
     *  {zeros 128}             so many zero bytes as the framework prints them
     *  {action 0x401}          an action with this first word as the framework prints it
     *  {key 0x000001}          a pattern of this 24-bit key as the framework prints it
     *  {plain}                 nothing; marks where text that is no log line begins, see rows.hpp */
    [[nodiscard]] std::string expand(const std::string &text) const;

    [[nodiscard]] remains left() const;

    /** Create a responder, quietly, and keep() its record. */
    twamp_responder_handle *create_responder(std::uint16_t param_a = 0, std::uint16_t param_b = 0);
    /** Have a block freed when the bench goes, once. NULL is ignored. */
    void keep(void *block);
    /** Bytes of a state entry as they stand in memory; empty where there is none. */
    [[nodiscard]] std::vector<std::uint8_t> state_bytes(std::uint32_t namespace_id) const;
    void set_state_bytes(std::uint32_t namespace_id, const std::vector<std::uint8_t> &bytes);
    /** Overwrite the first word of the module's private context. The destructor undoes it. */
    void set_context_magic(std::uint32_t magic);

    /** Log words of the module and, where there is one, of the system. */
    void set_log_words(std::uint32_t module_flags, std::uint32_t system_flags);

  private:
    std::size_t blocks_before_;
    std::size_t patterns_before_;
    std::uint32_t lock_;
    olv_sim::capturing_trace_sink sink_;
    std::vector<void *> kept_;
    twamp_ctx *marked_ = nullptr; ///< The context whose first word was overwritten.
};

} // namespace olv_test

#endif
