/**
 * @file tracer.hpp
 * Trace events and where they go.
 */
#ifndef OLV_SIM_TRACER_HPP
#define OLV_SIM_TRACER_HPP

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "olv.h"

namespace olv_sim {

/** What a trace event tells, each kind with what it carries. */
namespace trace_details {

/** A text alone, made from a format. */
struct message {};

/** An operation of the module begins. */
struct function_entry {
    std::string operation; ///< Exported name.
};

/** An operation of the module ends. */
struct function_exit {
    std::string operation; ///< Exported name.
};

/** State memory is about to be written. */
struct state_write {
    std::uint32_t namespace_id;                     ///< Of the state entry, with the index.
    std::uint32_t index;                            ///< Of the state entry.
    std::optional<std::vector<std::uint8_t>> bytes; ///< Nothing where the caller passed NULL.
    std::uint32_t length;                           ///< In bytes.
};

/** A classifier entry was learnt. */
struct entry_learnt {
    std::string tree;                 ///< Name of its tree function.
    olv_ptn pattern;                  ///< Its pattern's record.
    olv_ptn_action action;            ///< Its action.
    std::optional<std::uint32_t> key; ///< Nothing where no pattern with a key of up to 32 bits lives.
    std::uint32_t key_width;          ///< In bits; 0 where there is no key.
};

/** A classifier entry was removed. */
struct entry_removed {
    std::string tree;                 ///< Name of its tree function.
    olv_ptn pattern;                  ///< Its pattern's record.
    olv_ptn_action action;            ///< Its action.
    std::optional<std::uint32_t> key; ///< As above.
    std::uint32_t key_width;          ///< In bits, as the caller says.
};

/** A text and trace_event::first_word. */
struct forced_error {};

/** One of them. */
using any = std::variant<message, function_entry, function_exit, state_write, entry_learnt, entry_removed,
                         forced_error>;

} // namespace trace_details

/** An event as a trace function received it. */
struct trace_event {
    static constexpr std::uint32_t forced_error = UINT32_MAX; ///< `level` of a forced error.

    std::uint32_t level;      ///< Trace level, or forced_error.
    std::uint32_t first_word; ///< Of a forced error, otherwise 0.
    const void *record;       ///< Module or system record; NULL for a forced error.
    /** Source line. */
    std::uint32_t line;
    /** Source file name. */
    std::string file;
    std::optional<std::string> format; ///< Nothing where the format was NULL.
    /** The formatted message; where the format was NULL the arguments, separated by blanks: names as they
     *  are, words as "0x%08x", key width, index and length in decimal, bytes in hexadecimal. */
    std::string text;
    std::string module{};         ///< Log name of the record; empty where it is no framework's.
    trace_details::any details{}; ///< What it tells, typed.
};

/** Where trace events go. Called by one thread at a time. */
class trace_sink {
  public:
    virtual ~trace_sink() = default;
    virtual void event(const trace_event &event) = 0; ///< Take an event.
};

namespace tracer {

/** Send events to @p sink from now on; NULL: nowhere. The sink has to live until it is replaced. */
void set_sink(trace_sink *sink);

/**
 * A sink that hands events to LTTng-UST as those of the provider olv_twamp (docs/tracing.md). Nothing of
 * LTTng-UST is in the process before the first call; from then on it stays until the process ends.
 * @throw std::runtime_error  One line: which library is missing, and what brings it.
 */
[[nodiscard]] std::unique_ptr<trace_sink> load_lttng();

} // namespace tracer

/** Writes one line an event. */
class text_trace_sink : public trace_sink {
  public:
    /** @param stream  Written to; stays the caller's. */
    explicit text_trace_sink(std::FILE *stream) : stream_(stream) {}
    void event(const trace_event &event) override; ///< Write it.

  private:
    std::FILE *stream_;
};

/** Keeps events. */
class capturing_trace_sink : public trace_sink {
  public:
    /** Keep it. */
    void event(const trace_event &event) override { events_.push_back(event); }
    /** The events kept, in the order in which they came. */
    [[nodiscard]] const std::vector<trace_event> &events() const { return events_; }
    /** Forget them. */
    void clear() { events_.clear(); }

  private:
    std::vector<trace_event> events_;
};

} // namespace olv_sim

#endif
