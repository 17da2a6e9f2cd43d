// Logging and tracing. Every message goes two ways at once: to the console under the log levels, and always
// to the framework's tracer.
#ifndef TWAMP_LOG_HPP
#define TWAMP_LOG_HPP

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <string_view>

#include "olv.h"
#include "olv_twamp.h"

/** Marks functions on the path of every call: inlined where speed counts, one copy of each where size does. */
#ifdef __OPTIMIZE_SIZE__
#define TWAMP_HOT [[gnu::noinline, gnu::noclone]] inline
#else
#define TWAMP_HOT inline
#endif

namespace twamp {

/** Index into the table of severities. */
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
    /** The same place with a text that no newline follows. */
    [[nodiscard]] constexpr log_site without_newline() const { return log_site(word_ | no_newline); }
    [[nodiscard]] constexpr bool ends_line() const { return (word_ & no_newline) == 0; }
    [[nodiscard]] constexpr uint32_t line() const { return word_ & line_mask; }
    [[nodiscard]] constexpr severity kind() const { return static_cast<severity>(word_ >> kind_shift); }

    [[nodiscard]] constexpr source_file source() const
    {
        return static_cast<source_file>(word_ >> file_shift & file_mask);
    }

  private:
    constexpr explicit log_site(uint32_t word) : word_(word) {}

    static constexpr unsigned file_shift = 16;
    static constexpr unsigned kind_shift = 24;
    static constexpr uint32_t line_mask = (1u << file_shift) - 1;
    static constexpr uint32_t file_mask = 0x7F;
    static constexpr uint32_t no_newline = 1u << 23;

    uint32_t word_;
};

/** Printed name of the file that a message comes from. */
TWAMP_HOT const char *file_name(log_site site)
{
    return printed_name(site.source());
}

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

/** What a severity is on the console and in the trace. Keywords stand in the table itself: no relocations. */
struct severity_row {
    char keyword[12];
    uint8_t trace_level;
    uint8_t mask;      ///< Bits of a log word that count.
    uint8_t threshold; ///< Their least value at which the console shows the message.
};

inline constexpr severity_row severities[] = {
    {"FATAL", 4, OLV_LOG_LEVEL_MASK, 1},
    {"ERROR", 2, OLV_LOG_LEVEL_MASK, 3},
    {"info", 0, OLV_LOG_LEVEL_MASK, 15},
    {"function", 8, OLV_LOG_FUNCTION, OLV_LOG_FUNCTION},
    {"function", 9, OLV_LOG_FUNCTION, OLV_LOG_FUNCTION},
    {"se_write", 27, OLV_LOG_STATE, OLV_LOG_STATE},
    {"ptn_learn", 15, OLV_LOG_PATTERN, OLV_LOG_PATTERN},
    {"ptn_unlearn", 16, OLV_LOG_PATTERN, OLV_LOG_PATTERN},
};
static_assert(std::size(severities) == static_cast<std::size_t>(severity::entry_removed) + 1);

constexpr const severity_row &row(severity kind)
{
    return severities[static_cast<std::size_t>(kind)];
}

/** Whether a log word lets a severity through. Read anew each time: a level change applies at once. */
inline bool passes(severity kind, const uint32_t &log_flags)
{
    // Read without the lock, while olv_twamp_sys_log() may be writing under it.
    return (__atomic_load_n(&log_flags, __ATOMIC_RELAXED) & row(kind).mask) >= row(kind).threshold;
}

/** What module records and the system record begin with alike: all that a message needs to know of either. */
struct [[gnu::may_alias]] record_head {
    uint32_t magic;
    uint32_t log_flags;
    const char *log_name;
    uint32_t reserved[2];
    uint32_t module_id;
};
static_assert(offsetof(record_head, log_flags) == offsetof(olv_module_handle, log_flags));
static_assert(offsetof(record_head, log_name) == offsetof(olv_module_handle, log_name));
static_assert(offsetof(record_head, module_id) == offsetof(olv_module_handle, module_id));
static_assert(offsetof(record_head, log_flags) == offsetof(olv_system_handle, log_flags));
static_assert(offsetof(record_head, log_name) == offsetof(olv_system_handle, log_name));
static_assert(offsetof(record_head, module_id) == offsetof(olv_system_handle, module_id));

/** The records that a message is logged through. Refers to them: no longer-lived than they are. */
class log_context {
  public:
    /** Messages of a module; @p system, which may be NULL, adds its level and is asked for status texts. */
    log_context(const olv_module_handle &module, const olv_system_handle *system)
        : record_(reinterpret_cast<const record_head *>(&module)), system_(system)
    {}
    /** Messages of the system record itself. */
    explicit log_context(const olv_system_handle &system)
        : record_(reinterpret_cast<const record_head *>(&system)), system_(&system)
    {}

    [[nodiscard]] const void *record() const { return record_; }
    [[nodiscard]] const char *status_text(uint32_t status) const { return olv_sys_status_get(system_, status); }

    /** Whether the console shows this severity. */
    [[nodiscard]] TWAMP_HOT bool shows(severity kind) const
    {
        return passes(kind, record_->log_flags) || (system_ != nullptr && passes(kind, system_->log_flags));
    }
    /** Prints "[name_log: KEYWORD]", what begins every console line. */
    void print_name(severity kind) const;
    /** Prints the name, then " file:line ". */
    [[gnu::cold]] void print_prefix(log_site site) const;
    /** Prints the prefix where the console shows the severity. @return Whether it does. */
    [[nodiscard]] TWAMP_HOT bool begin_line(log_site site) const
    {
        const bool shown = shows(site.kind());
        if (shown) {
            print_prefix(site);
        }
        return shown;
    }
    /** The trace function of a severity; NULL where the framework has none. */
    [[nodiscard]] TWAMP_HOT olv_lttng_trace_fn trace_function(severity kind) const
    {
        olv_lttng_trace_fn trace = nullptr;
        olv_lttng_fn_ptr_get(record_->module_id, row(kind).trace_level, &trace);
        return trace;
    }

  private:
    const record_head *record_;
    const olv_system_handle *system_;
};

template <typename... Arguments>
void trace_message(const log_context &log, log_site site, const char *format, const Arguments &...arguments)
{
    if (const olv_lttng_trace_fn trace = log.trace_function(site.kind())) {
        trace(log.record(), site.line(), file_name(site), format, arguments...);
    }
}

/** The low 32 bits of an address: the whole of it on the 32-bit target. */
inline uint32_t address_word(const void *pointer)
{
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pointer));
}

/** Prints a text, which is not empty, less its trailing newline, then the one newline that the site asks for.
 */
[[gnu::cold]] void print_text(log_site site, const char *text);

/** A message without status. Its text is a line of its own, with or without a newline of its own. */
TWAMP_HOT void log_text(const log_context &log, log_site site, const char *text)
{
    if (log.begin_line(site)) {
        print_text(site, text);
    }
    trace_message(log, site, text);
}

/** The line with the framework's text of a status; OLV_STATUS_OK has none. @return The status. */
uint32_t log_status(const log_context &log, log_site site, uint32_t status);

// report(): a message, then from the same source line the text of the status that it leads to, which is
// returned. A message that leads to none comes with OLV_STATUS_OK. Few lists of arguments serve all formats:
// what a format does not ask for is passed as 0 or NULL, and neither printf() nor the tracer looks at it.

/** The text as in log_text(). */
uint32_t report(const log_context &log, log_site site, uint32_t status, const char *text);
uint32_t report(const log_context &log, log_site site, uint32_t status, const char *format, uint32_t first,
                uint32_t second = 0, const char *third = nullptr);
uint32_t report(const log_context &log, log_site site, uint32_t status, const char *format, uint32_t first,
                const char *second);
uint32_t report(const log_context &log, log_site site, uint32_t status, const char *format, const char *first,
                uint32_t second = 0, const char *third = nullptr);

/** As report(), of a call that the runtime environment refused: the format ends in its code and the text of
 *  that code. */
[[gnu::cold]] uint32_t report_rte(const log_context &log, log_site site, uint32_t status, uint32_t rte,
                                  const char *format);
[[gnu::cold]] uint32_t report_rte(const log_context &log, log_site site, uint32_t status, uint32_t rte,
                                  const char *format, uint32_t first);
[[gnu::cold]] uint32_t report_rte(const log_context &log, log_site site, uint32_t status, uint32_t rte,
                                  const char *format, const char *first);

/** A message without a usable handle: printed whatever the levels, traced as a forced error. */
[[gnu::cold]] void log_unknown(log_site site, const char *text);
[[gnu::cold]] void log_unknown(log_site site, const char *format, uint32_t argument);

/** Print a counter unless it is zero. Counters from 2^31 on print negative, as the formats have it. */
void print_counter(const char *format, uint32_t value);

/** The console's line of log_function(). */
[[gnu::cold]] void print_function(const log_context &log, log_site site, const char *operation);

/** The entry or exit line of an operation. */
TWAMP_HOT void log_function(const log_context &log, log_site site, const char *operation)
{
    if (log.shows(site.kind())) {
        print_function(log, site, operation);
    }
    trace_message(log, site, nullptr, operation);
}

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
