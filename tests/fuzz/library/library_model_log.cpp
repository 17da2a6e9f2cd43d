// The model's console and traces, and the frame of an operation.
#include "library_model.hpp"
#include "olv_sim/calls.hpp"
#include "olv_sim/tracer.hpp"

#include <cstdarg>
#include <cstdio>
#include <string_view>

namespace olv_fuzz {
namespace {

constexpr std::uint32_t level_bits = 0x0F;
constexpr std::uint32_t function_bit = 0x10;
constexpr std::uint32_t pattern_bit = 0x40;

std::string formatted(const char *format, std::va_list list)
{
    std::va_list measured;
    va_copy(measured, list);
    const int length = std::vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    std::string text(static_cast<std::size_t>(length) + 1, '\0');
    (void)std::vsnprintf(text.data(), text.size(), format, list);
    text.pop_back();
    return text;
}

bool has_arguments(std::string_view format)
{
    return format.find('%') != std::string_view::npos;
}

/** The two messages that no newline follows on the console. */
bool stays_on_its_line(std::string_view format)
{
    return format == "Unsupported log-level in TWAMP!" || format == "Succefully initialized TWAMP module";
}

/** A message without arguments is a line of its own: one newline after it. */
std::string as_printed(const std::string &format, std::string text)
{
    if (has_arguments(format) || stays_on_its_line(format)) {
        return text;
    }
    while (text.ends_with('\n')) {
        text.pop_back();
    }
    return text + "\n";
}

std::string tail(const std::string &file)
{
    return " " + file + ":LINE ";
}

} // namespace

bool library_model::usable(const model_module *module) const
{
    return module != nullptr && module->magic == module_magic && valid_module_handle(*module) == 1;
}

std::uint32_t library_model::valid_module_handle(const model_module &module) const
{
    const bool valid =
        module.context >= 0 && contexts.at(static_cast<std::size_t>(module.context)).magic == context_magic;
    return valid ? 1 : 0;
}

model_context &library_model::context_of(const model_module &module)
{
    return contexts.at(static_cast<std::size_t>(module.context));
}

library_model::operation library_model::operation_of(model_module &module, const char *name, const char *file)
{
    return {.module = &module, .system = module.system, .name = name, .file = file};
}

library_model::speaker library_model::speaker_of(const operation &current)
{
    return {.own_flags = current.module->log_flags,
            .system_flags = current.system != nullptr ? std::optional{current.system->log_flags} : std::nullopt,
            .name = current.module->log_name,
            .record = trace_record::module,
            .file = current.file};
}

void library_model::print(const char *format, ...)
{
    std::va_list list;
    va_start(list, format);
    console += formatted(format, list);
    va_end(list);
}

void library_model::trace(const model_event &event)
{
    if (!platform.faults.next(call::olv_lttng_fn_ptr_get)) {
        events.push_back(event);
    }
}

void library_model::say_text(const speaker &by, severity how, const char *format, const std::string &text)
{
    const auto at_least = [&](std::uint32_t level) {
        return (by.own_flags & level_bits) >= level || (by.system_flags.value_or(0) & level_bits) >= level;
    };
    static constexpr const char *keywords[] = {"FATAL", "ERROR", "info"};
    static constexpr std::uint32_t thresholds[] = {1, 3, 15};
    static constexpr std::uint32_t levels[] = {4, 2, 0};
    const auto index = static_cast<std::size_t>(how);
    if (at_least(thresholds[index])) {
        console += "[" + by.name + "_log: " + keywords[index] + "]" + tail(by.file) + as_printed(format, text);
    }
    trace({levels[index], by.record, by.file, format, text});
}

void library_model::say(const speaker &by, severity how, const char *format, ...)
{
    std::va_list list;
    va_start(list, format);
    const std::string text = formatted(format, list);
    va_end(list);
    say_text(by, how, format, text);
}

void library_model::report(const speaker &by, severity how, std::uint32_t status)
{
    say(by, how, "%s\n", olv_sys_status_get(nullptr, status));
}

std::uint32_t library_model::fail_with(severity how, const speaker &by, std::uint32_t status,
                                       const char *format, const std::string &text)
{
    say_text(by, how, format, text);
    report(by, how, status);
    return status;
}

std::uint32_t library_model::fail(const speaker &by, std::uint32_t status, const char *format, ...)
{
    std::va_list list;
    va_start(list, format);
    const std::string text = formatted(format, list);
    va_end(list);
    return fail_with(severity::error, by, status, format, text);
}

std::uint32_t library_model::fail_fatally(const speaker &by, std::uint32_t status, const char *format, ...)
{
    std::va_list list;
    va_start(list, format);
    const std::string text = formatted(format, list);
    va_end(list);
    return fail_with(severity::fatal, by, status, format, text);
}

void library_model::say_unknown_text(const char *file, const char *format, const std::string &text)
{
    console += "[olv_unknown_log: ERROR]" + tail(file) + as_printed(format, text);
    events.push_back({olv_sim::trace_event::forced_error, trace_record::none, file, format, text});
}

void library_model::say_unknown(const char *file, const char *format, ...)
{
    std::va_list list;
    va_start(list, format);
    const std::string text = formatted(format, list);
    va_end(list);
    say_unknown_text(file, format, text);
}

std::uint32_t library_model::refuse(const char *file, const model_module *module, const char *failed)
{
    say_unknown(file, "Invalid TWAMP module handle 0x%08x\n", module != nullptr ? module->address : 0);
    say_unknown_text(file, failed, failed);
    return 1;
}

void library_model::function_line(const operation &current, bool entering)
{
    const std::uint32_t system_flags = current.system != nullptr ? current.system->log_flags : 0;
    if (((current.module->log_flags | system_flags) & function_bit) != 0) {
        print("[%s_log: function]%s[%08lu:%08lu] %s %s\n", current.module->log_name.c_str(),
              tail(current.file).c_str(), wall_clock.seconds, wall_clock.microseconds,
              entering ? "Entering" : "Exiting", current.name);
    }
    trace(
        {entering ? 8 : constants_.exit_level, trace_record::module, current.file, std::nullopt, current.name});
}

void library_model::pattern_line(const operation &current, const char *word, bool with_place, const char *tree,
                                 const model_pattern &key, const model_entry &entry)
{
    const bool removed = std::string_view{word} == "ptn_unlearn";
    const std::uint32_t system_flags = current.system != nullptr ? current.system->log_flags : 0;
    char action[64];
    (void)std::snprintf(action, sizeof action, "0x%08x 0x%08x 0x%08x", entry.action[0], entry.action[1],
                        entry.action[2]);
    if (((current.module->log_flags | system_flags) & pattern_bit) != 0) {
        print("[%s_log: %s]%s%s: <key = 0x%06x/24>%s<action = %s>\n", current.module->log_name.c_str(), word,
              with_place ? tail(current.file).c_str() : "", tree, key.value, removed ? "<xsize = 24>" : "",
              action);
    }
    // The pattern's first word is the framework's own; the comparison masks it.
    trace({removed ? 16u : 15u, trace_record::module, current.file, std::nullopt,
           std::string{tree} + " * 0x00000018 0x00000000 " + (removed ? "24 " : "") + action});
}

bool library_model::takes_lock(const operation &current)
{
    if (current.module->lock == 0) {
        return true;
    }
    const std::uint32_t code = platform.sem_wait(current.module->lock);
    if (code == 0) {
        return true;
    }
    const speaker by = speaker_of(current);
    fail(by, constants_.lock_failed, " Failed to acquire lock, RTE error code: %d. %s\n",
         static_cast<int>(code), hyx_status_get(code));
    return false;
}

std::uint32_t library_model::released(const operation &current, std::uint32_t result)
{
    if (current.module->lock == 0) {
        return result;
    }
    const std::uint32_t code = platform.sem_post(current.module->lock);
    if (code == 0) {
        return result;
    }
    const speaker by = speaker_of(current);
    return fail(by, constants_.lock_failed, " Failed to release lock, RTE error code: %d. %s\n",
                static_cast<int>(code), hyx_status_get(code));
}

std::uint32_t library_model::framed(const operation &current, const std::function<std::uint32_t()> &work)
{
    function_line(current, true);
    if (!takes_lock(current)) {
        return constants_.lock_failed;
    }
    const std::uint32_t result = released(current, work());
    function_line(current, false);
    return result;
}

} // namespace olv_fuzz
