#include "log.hpp"

#include <cstring>

#include "hyx.h"

namespace twamp {

namespace {

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

void log_context::print_name(severity kind) const
{
    std::printf("[%s_log: %s]", record_->log_name, row(kind).keyword);
}

void log_context::print_prefix(log_site site) const
{
    print_name(site.kind());
    std::printf(" %s:%d ", file_name(site), static_cast<int>(site.line()));
}

void print_text(log_site site, const char *text)
{
    const std::size_t length = std::strlen(text);
    const bool terminated = text[length - 1] == '\n';
    std::printf("%.*s", static_cast<int>(terminated ? length - 1 : length), text);
    if (site.ends_line()) {
        std::putchar('\n');
    }
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
    log_text(log, site, text);
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
    print_text(site, text);
    olv_lttng_trace_sif_force_error(0, site.line(), file_name(site), text);
}

void log_unknown(log_site site, const char *format, uint32_t argument)
{
    print_unknown_prefix(site);
    std::printf(format, argument);
    olv_lttng_trace_sif_force_error(0, site.line(), file_name(site), format, argument);
}

void print_counter(const char *format, uint32_t value)
{
    if (value != 0) {
        std::printf(format, static_cast<int>(value));
    }
}

void print_function(const log_context &log, log_site site, const char *operation)
{
    hyx_time now = {};
    hyx_gettime(&now);
    log.print_prefix(site);
    std::printf("[%08lu:%08lu] %s %s\n", now.seconds, now.microseconds,
                site.kind() == severity::entry ? "Entering" : "Exiting", operation);
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
