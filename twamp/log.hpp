// Logging and tracing. Every message goes two ways at once: to the console under the log levels, and always
// to the framework's tracer.
#ifndef TWAMP_LOG_HPP
#define TWAMP_LOG_HPP

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "olv.h"
#include "olv_twamp.h"

namespace twamp {

/** Index into the severity table in log.cpp. */
enum class severity : uint8_t { fatal, error, info, entry, exit, state_dump, entry_learnt, entry_removed };

/** Index into the printed file names. */
enum class source_file : uint8_t { twamp, twamp_responder, twamp_bind, twamp_internal };

/** Printed names, in the order of source_file; each has room for the longest. */
inline constexpr char source_file_names[][18] = {"twamp.c", "twamp_responder.c", "twamp_bind.c",
                                                 "twamp_internal.c"};

constexpr const char *printed_name(source_file file)
{
    return source_file_names[static_cast<std::size_t>(file)];
}

/** What is known of a message where it is logged: file, line and severity. One word, since every message in the
 *  code carries one. */
class log_site {
  public:
    constexpr log_site(source_file file, uint32_t line, severity kind)
        : word_(line | static_cast<uint32_t>(file) << file_shift | static_cast<uint32_t>(kind) << kind_shift)
    {}

    /** The same place with another severity. */
    [[nodiscard]] constexpr log_site as(severity kind) const { return {source(), line(), kind}; }
    [[nodiscard]] constexpr uint32_t line() const { return word_ & line_mask; }
    [[nodiscard]] constexpr severity kind() const { return static_cast<severity>(word_ >> kind_shift); }

    [[nodiscard]] constexpr source_file source() const
    {
        return static_cast<source_file>(word_ >> file_shift & 0xFF);
    }

  private:
    static constexpr unsigned file_shift = 16;
    static constexpr unsigned kind_shift = 24;
    static constexpr uint32_t line_mask = (1u << file_shift) - 1;

    uint32_t word_;
};

/** Printed name of the file that a message comes from. */
const char *file_name(log_site site);

/** Whether a printed file name such as "twamp.c" stands for the source file at this path. */
consteval bool names_source_file(std::string_view printed, std::string_view path)
{
    path.remove_prefix(path.rfind('/') + 1);
    return printed.substr(0, printed.rfind('.')) == path.substr(0, path.rfind('.'));
}

/** Declares, once in a source file, the name under which its messages are printed. */
#define TWAMP_LOG_FILE(name)                                                                                   \
    static constexpr auto log_file = ::twamp::source_file::name;                                               \
    static_assert(::twamp::names_source_file(::twamp::printed_name(log_file), __FILE__))

/** This line, with a severity: TWAMP_HERE(error). */
#define TWAMP_HERE(kind) (::twamp::log_site{log_file, __LINE__, ::twamp::severity::kind})

/** The records that a message is logged through. Refers to them: no longer-lived than they are. */
class log_context {
  public:
    /** Messages of a module; @p system, which may be NULL, adds its level and is asked for status texts. */
    log_context(const olv_module_handle &module, const olv_system_handle *system);
    /** Messages of the system record itself. */
    explicit log_context(const olv_system_handle &system);

    [[nodiscard]] const void *record() const { return record_; }
    [[nodiscard]] const char *status_text(uint32_t status) const { return olv_sys_status_get(system_, status); }

    /** Whether the console shows this severity. The words are read anew: a level change applies at once. */
    [[nodiscard]] bool shows(severity kind) const;
    /** Prints "[name_log: KEYWORD]", what begins every console line. */
    void print_name(severity kind) const;
    /** Prints the name, then " file:line ". */
    void print_prefix(log_site site) const;
    /** Prints the prefix where the console shows the severity. @return Whether it does. */
    [[nodiscard]] bool begin_line(log_site site) const;
    /** The trace function of a message's severity; NULL where the framework has none. */
    [[nodiscard]] olv_lttng_trace_fn trace_function(log_site site) const;

  private:
    const void *record_;
    const uint32_t *flags_;
    const char *name_;
    uint32_t module_id_;
    const olv_system_handle *system_;
};

template <typename... Arguments>
void trace_message(const log_context &log, log_site site, const char *format, const Arguments &...arguments)
{
    if (const olv_lttng_trace_fn trace = log.trace_function(site)) {
        trace(log.record(), site.line(), file_name(site), format, arguments...);
    }
}

/** The low 32 bits of an address: the whole of it on the 32-bit target. */
inline uint32_t address_word(const void *pointer)
{
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pointer));
}

/** A message whose text is printed as it stands: the few without a newline. */
void log_as_it_stands(const log_context &log, log_site site, const char *text);

/** The line with the framework's text of a status; OLV_STATUS_OK has none. @return The status. */
uint32_t log_status(const log_context &log, log_site site, uint32_t status);

// report(): a message, then from the same source line the text of the status that it leads to, which is
// returned. A message that leads to none comes with OLV_STATUS_OK. Few lists of arguments serve all formats:
// what a format does not ask for is passed as 0 or NULL, and neither printf() nor the tracer looks at it.

/** A text is a line of its own: it ends in one newline, with or without one of its own. */
uint32_t report(const log_context &log, log_site site, uint32_t status, const char *text);
uint32_t report(const log_context &log, log_site site, uint32_t status, const char *format, uint32_t first,
                uint32_t second = 0, const char *third = nullptr);
uint32_t report(const log_context &log, log_site site, uint32_t status, const char *format, uint32_t first,
                const char *second);
uint32_t report(const log_context &log, log_site site, uint32_t status, const char *format, const char *first,
                uint32_t second = 0, const char *third = nullptr);

/** As report(), of a call that the runtime environment refused: the format ends in its code and the text of
 *  that code. */
uint32_t report_rte(const log_context &log, log_site site, uint32_t status, uint32_t rte, const char *format);
uint32_t report_rte(const log_context &log, log_site site, uint32_t status, uint32_t rte, const char *format,
                    uint32_t first);
uint32_t report_rte(const log_context &log, log_site site, uint32_t status, uint32_t rte, const char *format,
                    const char *first);

/** A message without a usable handle: printed whatever the levels, traced as a forced error. */
void log_unknown(log_site site, const char *text);
void log_unknown(log_site site, const char *format, uint32_t argument);
/** As log_as_it_stands(), without a usable handle. */
void log_unknown_as_it_stands(log_site site, const char *text);

/** Print a counter unless it is zero. Counters from 2^31 on print negative, as the formats have it. */
void print_counter(const char *format, uint32_t value);

/** The entry or exit line of an operation. */
void log_function(const log_context &log, log_site site, const char *operation);

/** The dump of bytes that are about to be written to the fast path. */
void log_state_dump(const log_context &log, log_site site, uint32_t namespace_id, uint32_t index,
                    const void *bytes, uint32_t length);

// The call that is never made lets the compiler check the format against its arguments.
#define TWAMP_CHECK_FORMAT(...) (false ? static_cast<void>(std::printf(__VA_ARGS__)) : static_cast<void>(0))

/** Log a message: TWAMP_LOG(log, severity, format, arguments...). */
#define TWAMP_LOG(log, kind, ...)                                                                              \
    (TWAMP_CHECK_FORMAT(__VA_ARGS__),                                                                          \
     static_cast<void>(::twamp::report(log, TWAMP_HERE(kind), OLV_STATUS_OK, __VA_ARGS__)))
/** Log a message and the text of a status, and yield the status. */
#define TWAMP_FAIL(log, kind, status, ...)                                                                     \
    (TWAMP_CHECK_FORMAT(__VA_ARGS__), ::twamp::report(log, TWAMP_HERE(kind), status, __VA_ARGS__))
/** Log, from a given site, what the runtime environment refused: its code and text end the format. Yields the
 *  status. */
#define TWAMP_FAIL_RTE_AT(log, site, status, rte, ...)                                                         \
    (TWAMP_CHECK_FORMAT(__VA_ARGS__, rte, ""), ::twamp::report_rte(log, site, status, rte, __VA_ARGS__))
#define TWAMP_FAIL_RTE(log, status, rte, ...)                                                                  \
    TWAMP_FAIL_RTE_AT(log, TWAMP_HERE(error), status, rte, __VA_ARGS__)
/** Log a message without a usable handle. */
#define TWAMP_LOG_UNKNOWN_AT(site, ...)                                                                        \
    (TWAMP_CHECK_FORMAT(__VA_ARGS__), ::twamp::log_unknown(site, __VA_ARGS__))
#define TWAMP_LOG_UNKNOWN(...) TWAMP_LOG_UNKNOWN_AT(TWAMP_HERE(error), __VA_ARGS__)

} // namespace twamp

#endif
