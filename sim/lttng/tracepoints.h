/**
 * @file tracepoints.h
 * The LTTng-UST provider olv_twamp: its events and their fields, as docs/tracing.md lists them. C, since
 * LTTng-UST's macros are.
 */
#undef LTTNG_UST_TRACEPOINT_PROVIDER
#define LTTNG_UST_TRACEPOINT_PROVIDER olv_twamp

#undef LTTNG_UST_TRACEPOINT_INCLUDE
#define LTTNG_UST_TRACEPOINT_INCLUDE "tracepoints.h"

/* LTTng-UST reads this file several times over, with other meanings of its macros. */
#if !defined(OLV_SIM_LTTNG_TRACEPOINTS_H) || defined(LTTNG_UST_TRACEPOINT_HEADER_MULTI_READ)
#define OLV_SIM_LTTNG_TRACEPOINTS_H

#include <lttng/tracepoint.h>
#include <stdint.h>

#ifndef OLV_SIM_LTTNG_RECORDS
#define OLV_SIM_LTTNG_RECORDS

/** Where an event comes from. */
struct olv_lttng_site {
    uint32_t level;
    const char *module;
    const char *file;
    uint32_t line;
};

struct olv_lttng_state_write {
    uint32_t namespace_id;
    uint32_t index;
    const uint8_t *bytes;
    uint32_t length;
};

struct olv_lttng_entry {
    const char *tree;
    const uint32_t *pattern;
    const uint32_t *action;
    uint32_t key;
    uint32_t key_width;
};

#define OLV_LTTNG_FORCED_ERROR UINT32_MAX

#endif

/* clang-format off: to it, lists of fields are no C */

LTTNG_UST_TRACEPOINT_ENUM(
    olv_twamp, severity,
    LTTNG_UST_TP_ENUM_VALUES(
        lttng_ust_field_enum_value("info", 0) lttng_ust_field_enum_value("error", 2)
            lttng_ust_field_enum_value("fatal", 4) lttng_ust_field_enum_value("entry", 8)
                lttng_ust_field_enum_value("exit", 9) lttng_ust_field_enum_value("learnt", 15)
                    lttng_ust_field_enum_value("removed", 16) lttng_ust_field_enum_value("state", 27)
                        lttng_ust_field_enum_value("forced_error", OLV_LTTNG_FORCED_ERROR)))

#define OLV_LTTNG_SITE_FIELDS                                                                                  \
    lttng_ust_field_enum(olv_twamp, severity, uint32_t, severity, site->level)                                 \
        lttng_ust_field_integer(uint32_t, level, site->level) lttng_ust_field_string(module, site->module)     \
            lttng_ust_field_string(file, site->file) lttng_ust_field_integer(uint32_t, line, site->line)

LTTNG_UST_TRACEPOINT_EVENT(olv_twamp, message,
                           LTTNG_UST_TP_ARGS(const struct olv_lttng_site *, site, const char *, text),
                           LTTNG_UST_TP_FIELDS(OLV_LTTNG_SITE_FIELDS lttng_ust_field_string(text, text)))
LTTNG_UST_TRACEPOINT_LOGLEVEL(olv_twamp, message, LTTNG_UST_TRACEPOINT_LOGLEVEL_INFO)

LTTNG_UST_TRACEPOINT_EVENT_CLASS(olv_twamp, function,
                                 LTTNG_UST_TP_ARGS(const struct olv_lttng_site *, site, const char *, function),
                                 LTTNG_UST_TP_FIELDS(OLV_LTTNG_SITE_FIELDS lttng_ust_field_string(function,
                                                                                                  function)))
LTTNG_UST_TRACEPOINT_EVENT_INSTANCE(olv_twamp, function, olv_twamp, function_entry,
                                    LTTNG_UST_TP_ARGS(const struct olv_lttng_site *, site, const char *,
                                                      function))
LTTNG_UST_TRACEPOINT_LOGLEVEL(olv_twamp, function_entry, LTTNG_UST_TRACEPOINT_LOGLEVEL_DEBUG_FUNCTION)
LTTNG_UST_TRACEPOINT_EVENT_INSTANCE(olv_twamp, function, olv_twamp, function_exit,
                                    LTTNG_UST_TP_ARGS(const struct olv_lttng_site *, site, const char *,
                                                      function))
LTTNG_UST_TRACEPOINT_LOGLEVEL(olv_twamp, function_exit, LTTNG_UST_TRACEPOINT_LOGLEVEL_DEBUG_FUNCTION)

LTTNG_UST_TRACEPOINT_EVENT(
    olv_twamp, state_write,
    LTTNG_UST_TP_ARGS(const struct olv_lttng_site *, site, const struct olv_lttng_state_write *, write),
    LTTNG_UST_TP_FIELDS(
        OLV_LTTNG_SITE_FIELDS lttng_ust_field_integer_hex(uint32_t, namespace_id, write->namespace_id)
            lttng_ust_field_integer(uint32_t, index, write->index)
                lttng_ust_field_sequence_hex(uint8_t, bytes, write->bytes, uint32_t, write->length)))
LTTNG_UST_TRACEPOINT_LOGLEVEL(olv_twamp, state_write, LTTNG_UST_TRACEPOINT_LOGLEVEL_DEBUG_MODULE)

LTTNG_UST_TRACEPOINT_EVENT_CLASS(
    olv_twamp, entry,
    LTTNG_UST_TP_ARGS(const struct olv_lttng_site *, site, const struct olv_lttng_entry *, entry),
    LTTNG_UST_TP_FIELDS(OLV_LTTNG_SITE_FIELDS lttng_ust_field_string(tree, entry->tree)
                            lttng_ust_field_integer_hex(uint32_t, key, entry->key)
                                lttng_ust_field_integer(uint32_t, key_width, entry->key_width)
                                    lttng_ust_field_array_hex(uint32_t, pattern, entry->pattern, 3)
                                        lttng_ust_field_array_hex(uint32_t, action, entry->action, 3)))
LTTNG_UST_TRACEPOINT_EVENT_INSTANCE(olv_twamp, entry, olv_twamp, entry_learnt,
                                    LTTNG_UST_TP_ARGS(const struct olv_lttng_site *, site,
                                                      const struct olv_lttng_entry *, entry))
LTTNG_UST_TRACEPOINT_LOGLEVEL(olv_twamp, entry_learnt, LTTNG_UST_TRACEPOINT_LOGLEVEL_DEBUG_MODULE)
LTTNG_UST_TRACEPOINT_EVENT_INSTANCE(olv_twamp, entry, olv_twamp, entry_removed,
                                    LTTNG_UST_TP_ARGS(const struct olv_lttng_site *, site,
                                                      const struct olv_lttng_entry *, entry))
LTTNG_UST_TRACEPOINT_LOGLEVEL(olv_twamp, entry_removed, LTTNG_UST_TRACEPOINT_LOGLEVEL_DEBUG_MODULE)

LTTNG_UST_TRACEPOINT_EVENT(
    olv_twamp, forced_error,
    LTTNG_UST_TP_ARGS(const struct olv_lttng_site *, site, uint32_t, first_word, const char *, text),
    LTTNG_UST_TP_FIELDS(lttng_ust_field_enum(olv_twamp, severity, uint32_t, severity, site->level)
                            lttng_ust_field_string(file, site->file)
                                lttng_ust_field_integer(uint32_t, line, site->line)
                                    lttng_ust_field_integer_hex(uint32_t, first_word, first_word)
                                        lttng_ust_field_string(text, text)))
LTTNG_UST_TRACEPOINT_LOGLEVEL(olv_twamp, forced_error, LTTNG_UST_TRACEPOINT_LOGLEVEL_ERR)

/* clang-format on */

#endif

#include <lttng/tracepoint-event.h>
