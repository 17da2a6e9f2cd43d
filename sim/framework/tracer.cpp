// The tracer: one function for each trace level, all of them leading to the sink.
#include <cstdarg>

#include "olv_sim/calls.hpp"
#include "olv_sim/tracer.hpp"
#include "sim/faults/platform_call.hpp"
#include "sim/framework/pattern_arena.hpp"
#include "sim/framework/records.hpp"
#include "sim/process_wide.hpp"

namespace olv_sim {
namespace {

constexpr std::uint32_t level_entry = 8;
constexpr std::uint32_t level_exit = 9;
constexpr std::uint32_t level_learnt = 15;
constexpr std::uint32_t level_removed = 16;
constexpr std::uint32_t level_state = 27;

std::atomic<trace_sink *> current_sink{nullptr};

/** Held by the thread whose event the sink takes, or that sets another sink. */
struct turn {};

bool anyone_listens()
{
    return current_sink.load(std::memory_order_relaxed) != nullptr;
}

void deliver(const trace_event &event)
{
    const locked<turn> own;
    trace_sink *sink = current_sink.load(std::memory_order_relaxed);
    if (sink != nullptr) {
        sink->event(event);
    }
}

/** Reads the arguments of a call without a format; the list is the caller's va_list. */
class fixed_arguments {
  public:
    explicit fixed_arguments(std::va_list &list) : list_(list) {}

    std::uint32_t word() { return va_arg(list_, std::uint32_t); }
    std::string name()
    {
        const char *text = va_arg(list_, const char *);
        return text == nullptr ? "NULL" : text;
    }
    void words(std::uint32_t (&words)[3])
    {
        for (std::uint32_t &each : words) {
            each = word();
        }
    }
    const unsigned char *bytes() { return static_cast<const unsigned char *>(va_arg(list_, const void *)); }

  private:
    std::va_list &list_;
};

trace_details::state_write read_state_write(fixed_arguments arguments)
{
    trace_details::state_write write{};
    write.namespace_id = arguments.word();
    write.index = arguments.word();
    const unsigned char *bytes = arguments.bytes();
    write.length = arguments.word();
    if (bytes != nullptr) {
        write.bytes.emplace(bytes, bytes + write.length);
    }
    return write;
}

/** Nothing for a pattern that is not there any more, or has no key, or a longer one. */
std::optional<std::uint32_t> key_of(const olv_ptn &pattern, std::uint32_t &width)
{
    const std::optional<pattern_arena::key> key = pattern_arena::find(pattern);
    if (!key || key->bits == 0 || key->bits > 32) {
        return std::nullopt;
    }
    width = key->bits;
    return key->field(0, key->bits);
}

trace_details::entry_learnt read_entry_learnt(fixed_arguments arguments)
{
    trace_details::entry_learnt entry{};
    entry.tree = arguments.name();
    arguments.words(entry.pattern.word);
    arguments.words(entry.action.word);
    entry.key = key_of(entry.pattern, entry.key_width);
    return entry;
}

trace_details::entry_removed read_entry_removed(fixed_arguments arguments)
{
    trace_details::entry_removed entry{};
    entry.tree = arguments.name();
    arguments.words(entry.pattern.word);
    std::uint32_t width = 0; // of the pattern; the caller tells the one that it removed the entry with
    entry.key = key_of(entry.pattern, width);
    entry.key_width = arguments.word();
    arguments.words(entry.action.word);
    return entry;
}

/** What a call without a format tells; a plain message where its level has no fixed arguments. */
trace_details::any fixed_details(std::uint32_t level, std::va_list &list)
{
    fixed_arguments arguments{list};
    switch (level) {
    case level_entry:
        return trace_details::function_entry{arguments.name()};
    case level_exit:
        return trace_details::function_exit{arguments.name()};
    case level_learnt:
        return read_entry_learnt(arguments);
    case level_removed:
        return read_entry_removed(arguments);
    case level_state:
        return read_state_write(arguments);
    default:
        return trace_details::message{};
    }
}

std::string words_text(const std::uint32_t (&words)[3])
{
    return hex_word(words[0], 8) + ' ' + hex_word(words[1], 8) + ' ' + hex_word(words[2], 8);
}

/** The arguments as text, each kind in the order in which its call passes them. */
struct fixed_text {
    std::string operator()(const trace_details::message &) const { return {}; }
    std::string operator()(const trace_details::function_entry &entry) const { return entry.operation; }
    std::string operator()(const trace_details::function_exit &exit) const { return exit.operation; }
    std::string operator()(const trace_details::state_write &write) const
    {
        const std::string bytes = write.bytes ? hex_bytes(write.bytes->data(), write.length, "") : "NULL";
        return hex_word(write.namespace_id, 8) + ' ' + std::to_string(write.index) + ' ' + bytes + ' ' +
               std::to_string(write.length);
    }
    std::string operator()(const trace_details::entry_learnt &entry) const
    {
        return entry.tree + ' ' + words_text(entry.pattern.word) + ' ' + words_text(entry.action.word);
    }
    std::string operator()(const trace_details::entry_removed &entry) const
    {
        return entry.tree + ' ' + words_text(entry.pattern.word) + ' ' + std::to_string(entry.key_width) + ' ' +
               words_text(entry.action.word);
    }
    std::string operator()(const trace_details::forced_error &) const { return {}; }
};

std::string formatted_text(const char *format, std::va_list &list)
{
    std::va_list measured;
    va_copy(measured, list);
    const int length = std::vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    if (length < 0) {
        return {};
    }
    std::string text(static_cast<std::size_t>(length) + 1, '\0');
    (void)std::vsnprintf(text.data(), text.size(), format, list);
    text.pop_back();
    return text;
}

template <std::uint32_t level>
void trace_function(const void *record, std::uint32_t line, const char *file, const char *format, ...)
{
    if (!anyone_listens()) {
        return;
    }
    trace_event event{level, 0, record, line, file == nullptr ? "" : file, std::nullopt, {}};
    event.module = log_name_of(record);
    std::va_list list;
    va_start(list, format);
    if (format == nullptr) {
        event.details = fixed_details(level, list);
        event.text = std::visit(fixed_text{}, event.details);
    } else {
        event.format = format;
        event.text = formatted_text(format, list);
    }
    va_end(list);
    deliver(event);
}

/** NULL where the level has no function. */
olv_lttng_trace_fn trace_function_of(std::uint32_t level)
{
    switch (level) {
    case 0:
        return trace_function<0>;
    case 2:
        return trace_function<2>;
    case 4:
        return trace_function<4>;
    case level_entry:
        return trace_function<level_entry>;
    case level_exit:
        return trace_function<level_exit>;
    case level_learnt:
        return trace_function<level_learnt>;
    case level_removed:
        return trace_function<level_removed>;
    case level_state:
        return trace_function<level_state>;
    default:
        return nullptr;
    }
}

} // namespace

void tracer::set_sink(trace_sink *sink)
{
    const locked<turn> own;
    current_sink.store(sink, std::memory_order_relaxed);
}

} // namespace olv_sim

using namespace olv_sim;

void olv_lttng_fn_ptr_get(std::uint32_t module_id, std::uint32_t trace_level, olv_lttng_trace_fn *fn)
{
    const platform_call current{call::olv_lttng_fn_ptr_get, [&](argument_text &text) {
                                    text.number("module", module_id).number("level", trace_level);
                                }};
    const olv_lttng_trace_fn found = trace_function_of(trace_level);
    if (!current.fails() && found != nullptr && fn != nullptr) {
        *fn = found;
    }
}

void olv_lttng_trace_sif_force_error(std::uint32_t first_word, std::uint32_t line, const char *file,
                                     const char *format, ...)
{
    const platform_call current{call::olv_lttng_trace_sif_force_error, [&](argument_text &text) {
                                    text.hex("first_word", first_word).text("format", format);
                                }};
    if (!anyone_listens()) {
        return;
    }
    trace_event event{trace_event::forced_error,   first_word,   nullptr, line,
                      file == nullptr ? "" : file, std::nullopt, {}};
    event.details = trace_details::forced_error{};
    if (format != nullptr) {
        std::va_list list;
        va_start(list, format);
        event.format = format;
        event.text = formatted_text(format, list);
        va_end(list);
    }
    deliver(event);
}
