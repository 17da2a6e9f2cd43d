#include "log.hpp"

#include <cstring>
#include <iterator>

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

/** Prints a text, which is not empty, less its trailing newline, then one newline. */
void print_line(const char *text)
{
    const std::size_t length = std::strlen(text);
    const bool terminated = text[length - 1] == '\n';
    std::printf("%.*s\n", static_cast<int>(terminated ? length - 1 : length), text);
}

void print_unknown_prefix(log_site site)
{
    std::printf("[olv_unknown_log: ERROR] %s:%d ", file_name(site), static_cast<int>(site.line()));
}

template <typename... Arguments>
uint32_t report_arguments(const log_context &log, log_site site, uint32_t status, const char *format,
                          Arguments... arguments)
{
    if (log.begin_line(site)) {
        std::printf(format, arguments...);
    }
    trace_message(log, site, format, arguments...);
    return log_status(log, site, status);
}

} // namespace

const char *file_name(log_site site)
{
    return printed_name(site.source());
}

log_context::log_context(const olv_module_handle &module, const olv_system_handle *system)
    : record_(&module),
      flags_(&module.log_flags),
      name_(module.log_name),
      module_id_(module.module_id),
      system_(system)
{}

log_context::log_context(const olv_system_handle &system)
    : record_(&system),
      flags_(&system.log_flags),
      name_(system.log_name),
      module_id_(system.module_id),
      system_(&system)
{}

bool log_context::shows(severity kind) const
{
    const severity_row &limits = row(kind);
    // Read without the lock, while olv_twamp_sys_log() may be writing under it.
    const auto passes = [&limits](const uint32_t *flags) {
        return (__atomic_load_n(flags, __ATOMIC_RELAXED) & limits.mask) >= limits.threshold;
    };
    return passes(flags_) || (system_ != nullptr && passes(&system_->log_flags));
}

void log_context::print_name(severity kind) const
{
    std::printf("[%s_log: %s]", name_, row(kind).keyword);
}

void log_context::print_prefix(log_site site) const
{
    print_name(site.kind());
    std::printf(" %s:%d ", file_name(site), static_cast<int>(site.line()));
}

bool log_context::begin_line(log_site site) const
{
    const bool shown = shows(site.kind());
    if (shown) {
        print_prefix(site);
    }
    return shown;
}

olv_lttng_trace_fn log_context::trace_function(log_site site) const
{
    olv_lttng_trace_fn trace = nullptr;
    olv_lttng_fn_ptr_get(module_id_, row(site.kind()).trace_level, &trace);
    return trace;
}

void log_as_it_stands(const log_context &log, log_site site, const char *text)
{
    if (log.begin_line(site)) {
        std::printf("%s", text);
    }
    trace_message(log, site, text);
}

uint32_t log_status(const log_context &log, log_site site, uint32_t status)
{
    if (status == OLV_STATUS_OK) {
        return status;
    }
    if (log.begin_line(site)) {
        std::printf("%s\n", log.status_text(status));
    }
    trace_message(log, site, "%s\n", log.status_text(status));
    return status;
}

uint32_t report(const log_context &log, log_site site, uint32_t status, const char *text)
{
    if (log.begin_line(site)) {
        print_line(text);
    }
    trace_message(log, site, text);
    return log_status(log, site, status);
}

uint32_t report(const log_context &log, log_site site, uint32_t status, const char *format, uint32_t first,
                uint32_t second, const char *third)
{
    return report_arguments(log, site, status, format, first, second, third);
}

uint32_t report(const log_context &log, log_site site, uint32_t status, const char *format, uint32_t first,
                const char *second)
{
    return report_arguments(log, site, status, format, first, second);
}

uint32_t report(const log_context &log, log_site site, uint32_t status, const char *format, const char *first,
                uint32_t second, const char *third)
{
    return report_arguments(log, site, status, format, first, second, third);
}

uint32_t report_rte(const log_context &log, log_site site, uint32_t status, uint32_t rte, const char *format)
{
    return report(log, site, status, format, rte, hyx_status_get(rte));
}

uint32_t report_rte(const log_context &log, log_site site, uint32_t status, uint32_t rte, const char *format,
                    uint32_t first)
{
    return report(log, site, status, format, first, rte, hyx_status_get(rte));
}

uint32_t report_rte(const log_context &log, log_site site, uint32_t status, uint32_t rte, const char *format,
                    const char *first)
{
    return report(log, site, status, format, first, rte, hyx_status_get(rte));
}

void log_unknown(log_site site, const char *text)
{
    print_unknown_prefix(site);
    print_line(text);
    olv_lttng_trace_sif_force_error(0, site.line(), file_name(site), text);
}

void log_unknown(log_site site, const char *format, uint32_t argument)
{
    print_unknown_prefix(site);
    std::printf(format, argument);
    olv_lttng_trace_sif_force_error(0, site.line(), file_name(site), format, argument);
}

void log_unknown_as_it_stands(log_site site, const char *text)
{
    print_unknown_prefix(site);
    std::printf("%s", text);
    olv_lttng_trace_sif_force_error(0, site.line(), file_name(site), text);
}

void print_counter(const char *format, uint32_t value)
{
    if (value != 0) {
        std::printf(format, static_cast<int>(value));
    }
}

void log_function(const log_context &log, log_site site, const char *operation)
{
    if (log.shows(site.kind())) {
        hyx_time now = {};
        hyx_gettime(&now);
        log.print_prefix(site);
        std::printf("[%08lu:%08lu] %s %s\n", now.seconds, now.microseconds,
                    site.kind() == severity::entry ? "Entering" : "Exiting", operation);
    }
    trace_message(log, site, nullptr, operation);
}

void log_state_dump(const log_context &log, log_site site, uint32_t namespace_id, uint32_t index,
                    const void *bytes, uint32_t length)
{
    if (log.begin_line(site)) {
        std::printf("NS ID 0x%08x idx %d: ", namespace_id, static_cast<int>(index));
        olv_byte_string_print(bytes, length);
        std::putchar('\n');
    }
    trace_message(log, site, nullptr, namespace_id, index, bytes, length);
}

} // namespace twamp
