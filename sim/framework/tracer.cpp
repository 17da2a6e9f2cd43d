// The tracer: one function for each trace level, all of them leading to the sink.
#include <cstdarg>
#include <cstring>
#include <mutex>

#include "../faults/platform_call.hpp"

namespace olv_sim {
namespace {

constexpr std::uint32_t level_entry = 8;
constexpr std::uint32_t level_exit = 9;
constexpr std::uint32_t level_learnt = 15;
constexpr std::uint32_t level_removed = 16;
constexpr std::uint32_t level_state = 27;

std::atomic<trace_sink *> current_sink{nullptr};

std::mutex &sink_mutex()
{
    static std::mutex mutex;
    return mutex;
}

bool anyone_listens()
{
    return current_sink.load(std::memory_order_relaxed) != nullptr;
}

void deliver(const trace_event &event)
{
    const std::lock_guard lock{sink_mutex()};
    trace_sink *sink = current_sink.load(std::memory_order_relaxed);
    if (sink != nullptr) {
        sink->event(event);
    }
}

/** Words and names of an event without a format; the list is the caller's va_list. */
class fixed_arguments {
  public:
    explicit fixed_arguments(std::va_list &list) : list_(list) {}

    void name() { add(string()); }
    void words(int count)
    {
        while (count-- > 0) {
            add(hex_word(word(), 8));
        }
    }
    void decimal() { add(std::to_string(word())); }
    void bytes()
    {
        const void *start = va_arg(list_, const void *);
        const std::uint32_t length = word();
        add(start == nullptr ? "NULL" : hex_bytes(start, length, ""));
        add(std::to_string(length));
    }
    [[nodiscard]] std::string take() { return std::move(text_); }

  private:
    std::uint32_t word() { return va_arg(list_, std::uint32_t); }
    std::string string()
    {
        const char *text = va_arg(list_, const char *);
        return text == nullptr ? "NULL" : text;
    }
    void add(const std::string &argument)
    {
        if (!text_.empty()) {
            text_ += ' ';
        }
        text_ += argument;
    }

    std::va_list &list_;
    std::string text_;
};

std::string fixed_text(std::uint32_t level, std::va_list &list)
{
    fixed_arguments arguments{list};
    switch (level) {
    case level_entry:
    case level_exit:
        arguments.name();
        break;
    case level_learnt:
        arguments.name();
        arguments.words(6);
        break;
    case level_removed:
        arguments.name();
        arguments.words(3);
        arguments.decimal();
        arguments.words(3);
        break;
    case level_state:
        arguments.words(1);
        arguments.decimal();
        arguments.bytes();
        break;
    default:
        break; // The level has no fixed arguments.
    }
    return arguments.take();
}

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
    std::va_list list;
    va_start(list, format);
    if (format == nullptr) {
        event.text = fixed_text(level, list);
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
    const std::lock_guard lock{sink_mutex()};
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
    if (format != nullptr) {
        std::va_list list;
        va_start(list, format);
        event.format = format;
        event.text = formatted_text(format, list);
        va_end(list);
    }
    deliver(event);
}
