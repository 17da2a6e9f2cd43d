#include "log.hpp"

#include <cstring>

#include "hyx.h"

namespace twamp {

namespace {

/** What a severity is on the console and in the trace. Keywords stand in the table itself: no relocations. */
struct severity_row {
    char keyword[12];
    uint8_t trace_level;
    uint8_t mask;      ///< Bits of a log word that count.
    uint8_t threshold; ///< Their least value at which the console shows the message.
};

constexpr severity_row severities[] = {
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

} // namespace

bool log_context::shows(severity kind) const
{
    const severity_row &limits = row(kind);
    const auto passes = [&limits](uint32_t flags) { return (flags & limits.mask) >= limits.threshold; };
    return passes(*flags_) || (system_ != nullptr && passes(system_->log_flags));
}

void log_context::print_name(severity kind) const
{
    std::printf("[%s_log: %s]", name_, row(kind).keyword);
}

void log_context::print_prefix(severity kind, log_site site) const
{
    print_name(kind);
    std::printf(" %s:%d ", site.file, static_cast<int>(site.line));
}

olv_lttng_trace_fn log_context::trace_function(severity kind) const
{
    olv_lttng_trace_fn trace = nullptr;
    olv_lttng_fn_ptr_get(module_id_, row(kind).trace_level, &trace);
    return trace;
}

void print_line(const char *text)
{
    const std::size_t length = std::strlen(text);
    const bool terminated = length > 0 && text[length - 1] == '\n';
    std::printf("%.*s\n", static_cast<int>(terminated ? length - 1 : length), text);
}

void print_unknown_prefix(log_site site)
{
    std::printf("[olv_unknown_log: ERROR] %s:%d ", site.file, static_cast<int>(site.line));
}

void log_unterminated(const log_context &log, severity kind, log_site site, const char *text)
{
    if (log.shows(kind)) {
        log.print_prefix(kind, site);
        std::fputs(text, stdout);
    }
    trace_message(log, kind, site, text);
}

void log_unknown_unterminated(log_site site, const char *text)
{
    print_unknown_prefix(site);
    std::fputs(text, stdout);
    olv_lttng_trace_sif_force_error(0, site.line, site.file, text);
}

uint32_t log_status(const log_context &log, severity kind, log_site site, uint32_t status)
{
    if (log.shows(kind)) {
        log.print_prefix(kind, site);
        std::printf("%s\n", log.status_text(status));
    }
    trace_message(log, kind, site, "%s\n", log.status_text(status));
    return status;
}

void log_function(const log_context &log, severity kind, log_site site, const char *operation)
{
    if (log.shows(kind)) {
        hyx_time now = {};
        hyx_gettime(&now);
        log.print_prefix(kind, site);
        std::printf("[%08lu:%08lu] %s %s\n", now.seconds, now.microseconds,
                    kind == severity::entry ? "Entering" : "Exiting", operation);
    }
    trace_message(log, kind, site, nullptr, operation);
}

void log_state_dump(const log_context &log, log_site site, uint32_t namespace_id, uint32_t index,
                    const void *bytes, uint32_t length)
{
    if (log.shows(severity::state_dump)) {
        log.print_prefix(severity::state_dump, site);
        std::printf("NS ID 0x%08x idx %d: ", namespace_id, static_cast<int>(index));
        olv_byte_string_print(bytes, length);
        std::putchar('\n');
    }
    trace_message(log, severity::state_dump, site, nullptr, namespace_id, index, bytes, length);
}

} // namespace twamp
