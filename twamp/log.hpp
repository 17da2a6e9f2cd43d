// Logging and tracing. Every message goes two ways at once: to the console under the log levels, and always
// to the framework's tracer.
#ifndef TWAMP_LOG_HPP
#define TWAMP_LOG_HPP

#include <cstdint>
#include <cstdio>
#include <string_view>

#include "olv.h"

namespace twamp {

/** Index into the severity table in log.cpp. */
enum class severity : uint8_t { fatal, error, info, entry, exit, state_dump, entry_learnt, entry_removed };

/** Where a message comes from, as it is printed and traced. */
struct log_site {
    const char *file;
    uint32_t line;
};

/** Whether a printed file name such as "twamp.c" stands for the source file at this path. */
consteval bool names_source_file(std::string_view printed, std::string_view path)
{
    path.remove_prefix(path.rfind('/') + 1);
    return printed.substr(0, printed.rfind('.')) == path.substr(0, path.rfind('.'));
}

/** Declares, once in a source file, the name under which its messages are printed. */
#define TWAMP_LOG_FILE(name)                                                                                   \
    static constexpr char log_file[] = name;                                                                   \
    static_assert(::twamp::names_source_file(log_file, __FILE__))

#define TWAMP_HERE (::twamp::log_site{log_file, __LINE__})

/** The records that a message is logged through. Refers to them: no longer-lived than they are. */
class log_context {
  public:
    /** Messages of a module; @p system, which may be NULL, adds its level and is asked for status texts. */
    log_context(const olv_module_handle &module, const olv_system_handle *system)
        : record_(&module),
          flags_(&module.log_flags),
          name_(module.log_name),
          module_id_(module.module_id),
          system_(system)
    {}
    explicit log_context(const olv_module_handle &module) : log_context(module, module.system) {}
    /** Messages of the system record itself. */
    explicit log_context(const olv_system_handle &system)
        : record_(&system),
          flags_(&system.log_flags),
          name_(system.log_name),
          module_id_(system.module_id),
          system_(&system)
    {}

    [[nodiscard]] const void *record() const { return record_; }
    [[nodiscard]] const char *status_text(uint32_t status) const { return olv_sys_status_get(system_, status); }

    /** Whether the console shows this severity. The words are read anew: a level change applies at once. */
    [[nodiscard]] bool shows(severity kind) const;
    /** Prints "[name_log: KEYWORD]", what begins every console line. */
    void print_name(severity kind) const;
    /** Prints the name, then " file:line ". */
    void print_prefix(severity kind, log_site site) const;
    /** The trace function of this severity; NULL where the framework has none. */
    [[nodiscard]] olv_lttng_trace_fn trace_function(severity kind) const;

  private:
    const void *record_;
    const uint32_t *flags_;
    const char *name_;
    uint32_t module_id_;
    const olv_system_handle *system_;
};

/** The low 32 bits of an address: the whole of it on the 32-bit target. */
inline uint32_t address_word(const void *pointer)
{
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pointer));
}

/** Prints a text less its trailing newline, then one newline. */
void print_line(const char *text);
/** Prints "[olv_unknown_log: ERROR] file:line ". */
void print_unknown_prefix(log_site site);

template <typename... Arguments> void print_message(const char *format, Arguments... arguments)
{
    if constexpr (sizeof...(Arguments) == 0) {
        print_line(format);
    } else {
        std::printf(format, arguments...);
    }
}

template <typename... Arguments>
void trace_message(const log_context &log, severity kind, log_site site, const char *format,
                   Arguments... arguments)
{
    if (const olv_lttng_trace_fn trace = log.trace_function(kind)) {
        trace(log.record(), site.line, site.file, format, arguments...);
    }
}

template <typename... Arguments>
void log_message(const log_context &log, severity kind, log_site site, const char *format,
                 Arguments... arguments)
{
    if (log.shows(kind)) {
        log.print_prefix(kind, site);
        print_message(format, arguments...);
    }
    trace_message(log, kind, site, format, arguments...);
}

/** The few messages that end without a newline on the console. */
void log_unterminated(const log_context &log, severity kind, log_site site, const char *text);

/** The line with the framework's text of a status. @return The status. */
uint32_t log_status(const log_context &log, severity kind, log_site site, uint32_t status);

/** A message and the text of the status that it leads to, from one source line. @return The status. */
template <typename... Arguments>
uint32_t log_failure(const log_context &log, severity kind, log_site site, uint32_t status, const char *format,
                     Arguments... arguments)
{
    log_message(log, kind, site, format, arguments...);
    return log_status(log, kind, site, status);
}

/** A message without a usable handle: printed whatever the levels, traced as a forced error. */
template <typename... Arguments> void log_unknown(log_site site, const char *format, Arguments... arguments)
{
    print_unknown_prefix(site);
    print_message(format, arguments...);
    olv_lttng_trace_sif_force_error(0, site.line, site.file, format, arguments...);
}

/** As log_unterminated(), without a usable handle. */
void log_unknown_unterminated(log_site site, const char *text);

/** The entry or exit line of an operation. */
void log_function(const log_context &log, severity kind, log_site site, const char *operation);

/** The dump of bytes that are about to be written to the fast path. */
void log_state_dump(const log_context &log, log_site site, uint32_t namespace_id, uint32_t index,
                    const void *bytes, uint32_t length);

// The call that is never made lets the compiler check the format against its arguments.
#define TWAMP_CHECK_FORMAT(...) (false ? static_cast<void>(std::printf(__VA_ARGS__)) : static_cast<void>(0))

/** Log a message: LOG(log, severity, format, arguments...). */
#define TWAMP_LOG(log, kind, ...)                                                                              \
    (TWAMP_CHECK_FORMAT(__VA_ARGS__), ::twamp::log_message(log, kind, TWAMP_HERE, __VA_ARGS__))
/** Log a message and the text of a status, and yield the status. */
#define TWAMP_FAIL(log, kind, status, ...)                                                                     \
    (TWAMP_CHECK_FORMAT(__VA_ARGS__), ::twamp::log_failure(log, kind, TWAMP_HERE, status, __VA_ARGS__))
/** Log a message without a usable handle. */
#define TWAMP_LOG_UNKNOWN(...) (TWAMP_CHECK_FORMAT(__VA_ARGS__), ::twamp::log_unknown(TWAMP_HERE, __VA_ARGS__))

} // namespace twamp

#endif
