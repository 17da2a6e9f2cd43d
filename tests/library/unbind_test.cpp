#include "bind_rows.hpp"
#include "olv_sim/calls.hpp"

namespace olv_test {
namespace {

#define UNBIND_REMOVED(key, entry_point)                                                                       \
    "[twamp_log: ptn_unlearn]olv_twamp.twamp_bind_to_next_module: " OLV_PRINTED_PATTERN(                       \
        key) "<xsize = 24>" OLV_PRINTED_ACTION("00000001", entry_point) "\n"
#define UNBIND_DONE OLV_INFO("twamp_bind.c", "Custom Un Bind Successfully done.")
#define UNBIND_TRACED(entry_point)                                                                             \
    removed("olv_twamp.twamp_bind_to_next_module " OLV_TRACED_PATTERN " 24 0x00000001 0x" entry_point          \
            " 0x00000000")
/** Console of a failure after the lock was taken: message and status text, then the closing line. */
#define UNBIND_FAILED(message, status_code)                                                                    \
    UNBIND_ENTERING BIND_ERROR(message) BIND_ERROR("{status " status_code "}")                                 \
        UNBIND_NOT_PERFORMED UNBIND_EXITING

#define UNBIND_FAILED_SILENTLY(message)                                                                        \
    UNBIND_ENTERING BIND_ERROR(message)                                                                        \
    UNBIND_NOT_PERFORMED UNBIND_EXITING

constexpr const char *operation_name = "olv_twamp_custom_unbind";

std::vector<trace> failed_with(const char *message)
{
    return {entry(operation_name), error(message), error_status(), forced(unbind_not_performed),
            exit(operation_name)};
}

/** The same without a status text. */
std::vector<trace> failed_silently_with(const char *message)
{
    return {entry(operation_name), error(message), forced(unbind_not_performed), exit(operation_name)};
}

operation unbind_request(change_request change)
{
    return with_request(olv_twamp_custom_unbind, change);
}

operation unbind_lookup(std::uint32_t module_id, olv_entry_point_lookup lookup, change_request change)
{
    return with_lookup(olv_twamp_custom_unbind, module_id, lookup, change);
}

const operation unbind = unbind_request(unchanged);

constexpr remains one_bind{.bind_entries = 1};

const std::vector<std::string> refused_calls{"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_sem_post",
                                             "hyx_gettime"};
const std::vector<std::string> lookup_calls{"hyx_gettime", "olv_sys_sem_lock_wait", "entry_point_lookup",
                                            "hyx_sem_post", "hyx_gettime"};
const std::vector<std::string> all_calls{"hyx_gettime",  "olv_sys_sem_lock_wait", "entry_point_lookup",
                                         "olv_ptn_new",  "olv_ptn_extend",        "hyx_ptn_unlearn",
                                         "olv_ptn_free", "hyx_sem_post",          "hyx_gettime"};
const std::vector<std::string> all_calls_but_lookup{
    "hyx_gettime",     "olv_sys_sem_lock_wait", "olv_ptn_new",  "olv_ptn_extend",
    "hyx_ptn_unlearn", "olv_ptn_free",          "hyx_sem_post", "hyx_gettime"};

/** Have @p binding bind beforehand. */
std::function<void(bench &)> bound_by(operation binding)
{
    return [binding](bench &b) { (void)captured_console([&] { EXPECT_EQ(binding(b), 0u); }); };
}

void still_bound(bench &b)
{
    EXPECT_THAT(bound_to(b, 0xABCDEF), testing::Optional(testing::ElementsAre(1, 0x401, 0)));
}

void to_ipv6(bench &b, request &asked)
{
    asked.info.dst_module = b.framework.ipv6_module();
}

void allow_default(bench &, request &asked)
{
    asked.info.bind_subtype = 2;
    asked.destination.default_entry_point = 0x0123;
}

const table success_rows{
    operation_name, unbind,
    with_system_always({
        {.label = "unbound from IPv4",
         .setup = known(),
         .arrange = bind_quietly,
         .status = 0,
         .console = UNBIND_ENTERING UNBIND_REMOVED("abcdef", "00000401") UNBIND_DONE UNBIND_EXITING,
         .traces = {entry(operation_name), UNBIND_TRACED("00000401"), info(unbind_done), exit(operation_name)},
         .calls = all_calls},
        {.label = "unbound from IPv6",
         .setup = known(),
         .arrange = bound_by(with_request(olv_twamp_custom_bind, to_ipv6)),
         .instead = unbind_request(to_ipv6),
         .status = 0,
         .console = UNBIND_ENTERING UNBIND_REMOVED("abcdef", "00000601") UNBIND_DONE UNBIND_EXITING,
         .traces = {entry(operation_name), UNBIND_TRACED("00000601"), info(unbind_done), exit(operation_name)},
         .calls = all_calls},
        {.label = "unbound without a lock",
         .setup = known_without_lock(),
         .arrange = bind_quietly,
         .status = 0,
         .console = UNBIND_ENTERING UNBIND_REMOVED("abcdef", "00000401") UNBIND_DONE UNBIND_EXITING,
         .traces = {entry(operation_name), UNBIND_TRACED("00000401"), info(unbind_done), exit(operation_name)},
         .calls = {"hyx_gettime", "entry_point_lookup", "olv_ptn_new", "olv_ptn_extend", "hyx_ptn_unlearn",
                   "olv_ptn_free", "hyx_gettime"}},
        {.label = "custom_bind is not looked at",
         .setup = known(),
         .arrange = bind_quietly,
         .instead = unbind_request([](bench &, request &asked) { asked.info.custom_bind = 0; }),
         .status = 0,
         .console = UNBIND_ENTERING UNBIND_REMOVED("abcdef", "00000401") UNBIND_DONE UNBIND_EXITING,
         .traces = {entry(operation_name), UNBIND_TRACED("00000401"), info(unbind_done), exit(operation_name)},
         .calls = all_calls},
        {.label = "only the low 24 bits of the instance's first word are the key",
         .setup = known(),
         .arrange = bind_quietly,
         .instead = unbind_request([](bench &, request &asked) { asked.key = 0xFFABCDEF; }),
         .status = 0,
         .console = UNBIND_ENTERING UNBIND_REMOVED("abcdef", "00000401") UNBIND_DONE UNBIND_EXITING,
         .traces = {entry(operation_name), UNBIND_TRACED("00000401"), info(unbind_done), exit(operation_name)},
         .calls = all_calls},
        {.label = "no lookup, default entry point allowed",
         .setup = known(),
         .arrange = bound_by(with_lookup(olv_twamp_custom_bind, 1, nullptr, allow_default)),
         .instead = unbind_lookup(1, nullptr, allow_default),
         .status = 0,
         .console = UNBIND_ENTERING UNBIND_REMOVED("abcdef", "00000123") UNBIND_DONE UNBIND_EXITING,
         .traces = {entry(operation_name), UNBIND_TRACED("00000123"), info(unbind_done), exit(operation_name)},
         .calls = all_calls_but_lookup},
        {.label = "lookup yields 0, default entry point allowed, IPv6",
         .setup = known(),
         .arrange = bound_by(with_lookup(olv_twamp_custom_bind, 11, answer_zero, allow_default)),
         .instead = unbind_lookup(11, answer_zero, allow_default),
         .status = 0,
         .console = UNBIND_ENTERING UNBIND_REMOVED("abcdef", "00000123") UNBIND_DONE UNBIND_EXITING,
         .traces = {entry(operation_name), UNBIND_TRACED("00000123"), info(unbind_done), exit(operation_name)},
         .calls = all_calls_but_lookup},
        {.label = "the lookup's entry point goes before the default one",
         .setup = known(),
         .arrange = bound_by(with_lookup(olv_twamp_custom_bind, 1, answer_0777, allow_default)),
         .instead = unbind_lookup(1, answer_0777, allow_default),
         .status = 0,
         .console = UNBIND_ENTERING UNBIND_REMOVED("abcdef", "00000777") UNBIND_DONE UNBIND_EXITING,
         .traces = {entry(operation_name), UNBIND_TRACED("00000777"), info(unbind_done), exit(operation_name)},
         .calls = all_calls_but_lookup},
        {.label = "lock not released after success: unbound, and no closing failure line",
         .setup = known(),
         .arrange = bind_quietly,
         .faults = {failing(call::hyx_sem_post)},
         .status = 0x300A5,
         .console = UNBIND_ENTERING UNBIND_REMOVED("abcdef", "00000401")
             UNBIND_DONE OLV_RELEASE_REFUSED("twamp_bind.c") UNBIND_EXITING,
         .traces = {entry(operation_name), UNBIND_TRACED("00000401"), info(unbind_done), error(release_refused),
                    error_status(), exit(operation_name)},
         .calls = all_calls,
         .left = {.lock_held = 1}},
    })};

const table failure_rows{
    operation_name, unbind,
    with_system_always({
        {.label = "null request",
         .setup = known(),
         .instead = [](bench &b) { return olv_twamp_custom_unbind(b.framework.system(), nullptr); },
         .status = 8,
         .console = BIND_UNKNOWN("Invalid bind Info pointer0x00000000")
             BIND_UNKNOWN("Failed to create Custom bind entry "),
         .traces = {forced(null_info), forced(cannot_bind)}},
        {.label = "null request and null system record",
         .setup = known(),
         .instead = [](bench &) { return olv_twamp_custom_unbind(nullptr, nullptr); },
         .status = 8,
         .console = BIND_UNKNOWN("Invalid bind Info pointer0x00000000")
             BIND_UNKNOWN("Failed to create Custom bind entry "),
         .traces = {forced(null_info), forced(cannot_bind)}},
        {.label = "null system record: the valid module is shown",
         .setup = known(),
         .instead =
             [](bench &b) {
                 const request asked(b);
                 return olv_twamp_custom_unbind(nullptr, &asked.info);
             },
         .status = 1,
         .console = BIND_UNKNOWN("Invalid TWAMP module handle 0x{module}")
             BIND_UNKNOWN("Failed to remove Custom bind entry "),
         .traces = {forced(invalid_source), forced(cannot_unbind)}},
        {.label = "null source module",
         .setup = known(),
         .arrange = use_null_handle,
         .status = 1,
         .console = BIND_UNKNOWN("Invalid TWAMP module handle 0x00000000")
             BIND_UNKNOWN("Failed to remove Custom bind entry "),
         .traces = {forced(invalid_source), forced(cannot_unbind)}},
        {.label = "source module with a wrong magic",
         .setup = known(),
         .arrange = use_foreign_handle,
         .status = 1,
         .console = BIND_UNKNOWN("Invalid TWAMP module handle 0x{module}")
             BIND_UNKNOWN("Failed to remove Custom bind entry "),
         .traces = {forced(invalid_source), forced(cannot_unbind)}},
        {.label = "source module not initialised",
         .setup = known_uninitialised(),
         .status = 1,
         .console = BIND_UNKNOWN("Invalid TWAMP module handle 0x{module}")
             BIND_UNKNOWN("Failed to remove Custom bind entry "),
         .traces = {forced(invalid_source), forced(cannot_unbind)},
         .left = nothing},
        {.label = "source module with a wrong context magic",
         .setup = known(),
         .arrange = break_context,
         .status = 1,
         .console = BIND_UNKNOWN("Invalid TWAMP module handle 0x{module}")
             BIND_UNKNOWN("Failed to remove Custom bind entry "),
         .traces = {forced(invalid_source), forced(cannot_unbind)},
         .left = {.initialised = false},
         .check = repair_context},
        {.label = "lock not taken",
         .setup = known(),
         .faults = {failing(call::olv_sys_sem_lock_wait)},
         .status = 0x300A5,
         .console = UNBIND_ENTERING OLV_LOCK_REFUSED("twamp_bind.c"),
         .traces = {entry(operation_name), error(lock_refused), error_status()},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait"}},

        {.label = "path not direct: looked at before the type",
         .setup = known(),
         .instead = unbind_request([](bench &, request &asked) {
             asked.info.bind_path = 2;
             asked.info.bind_type = 5;
             asked.info.custom_bind = 0;
             asked.info.dst_module = nullptr;
         }),
         .status = 0x30008,
         .console = UNBIND_FAILED("Only OLV_BIND_PATH_DIRECT is supported", "0x30008"),
         .traces = failed_with(path_refused),
         .calls = refused_calls},
        {.label = "path 0",
         .setup = known_without_lock(),
         .instead = unbind_request([](bench &, request &asked) { asked.info.bind_path = 0; }),
         .status = 0x30008,
         .console = UNBIND_FAILED("Only OLV_BIND_PATH_DIRECT is supported", "0x30008"),
         .traces = failed_with(path_refused),
         .calls = {"hyx_gettime", "hyx_gettime"}},
        {.label = "type not 2: looked at before the destination",
         .setup = known(),
         .instead = unbind_request([](bench &, request &asked) {
             asked.info.bind_type = 5;
             asked.info.custom_bind = 0;
             asked.info.dst_module = nullptr;
         }),
         .status = 0x30008,
         .console = UNBIND_FAILED("Unsupported Binding Type 5", "0x30008"),
         .traces = failed_with(type_refused),
         .calls = refused_calls},
        {.label = "the type is printed as a signed number",
         .setup = known(),
         .instead = unbind_request([](bench &, request &asked) { asked.info.bind_type = 0xFFFFFFFF; }),
         .status = 0x30008,
         .console = UNBIND_FAILED("Unsupported Binding Type -1", "0x30008"),
         .traces = failed_with(type_refused),
         .calls = refused_calls},
        {.label = "null destination module",
         .setup = known(),
         .instead = unbind_request([](bench &, request &asked) { asked.info.dst_module = nullptr; }),
         .status = 0x30008,
         .console = UNBIND_FAILED("Null Destination Module Pointer", "0x30008"),
         .traces = failed_with("Null Destination Module Pointer"),
         .calls = refused_calls},
        {.label = "lookup fails",
         .setup = known(),
         .faults = {{call::entry_point_lookup, {.code = 0x20002}}},
         .status = 0x3000D,
         .console = UNBIND_FAILED("Failed to get Entry point function for destination module", "0x3000D"),
         .traces = failed_with(entry_point_failed),
         .calls = lookup_calls},
        {.label = "lookup fails: neither its entry point nor the default one is used",
         .setup = known(),
         .instead = unbind_lookup(1, answer_and_fail,
                                  [](bench &, request &asked) {
                                      asked.info.bind_subtype = 2;
                                      asked.destination.default_entry_point = 0x0123;
                                  }),
         .status = 0x3000D,
         .console = UNBIND_FAILED("Failed to get Entry point function for destination module", "0x3000D"),
         .traces = failed_with(entry_point_failed),
         .calls = refused_calls},
        {.label = "no lookup, default entry point not allowed",
         .setup = known(),
         .instead = unbind_lookup(
             1, nullptr, [](bench &, request &asked) { asked.destination.default_entry_point = 0x0123; }),
         .status = 0x3000D,
         .console = UNBIND_FAILED("Invalid Entry point function found for destination module", "0x3000D"),
         .traces = failed_with(no_entry_point),
         .calls = refused_calls},
        {.label = "lookup yields 0, default entry point not allowed",
         .setup = known(),
         .instead = unbind_lookup(
             1, answer_zero, [](bench &, request &asked) { asked.destination.default_entry_point = 0x0123; }),
         .status = 0x3000D,
         .console = UNBIND_FAILED("Invalid Entry point function found for destination module", "0x3000D"),
         .traces = failed_with(no_entry_point),
         .calls = refused_calls},
        {.label = "no lookup, default entry point allowed but 0",
         .setup = known(),
         .instead = unbind_lookup(1, nullptr, [](bench &, request &asked) { asked.info.bind_subtype = 2; }),
         .status = 0x3000D,
         .console = UNBIND_FAILED("Invalid Entry point function found for destination module", "0x3000D"),
         .traces = failed_with(no_entry_point),
         .calls = refused_calls},
        {.label = "module 7 without an entry point: that is found first",
         .setup = known(),
         .instead = unbind_lookup(7, nullptr, unchanged),
         .status = 0x3000D,
         .console = UNBIND_FAILED("Invalid Entry point function found for destination module", "0x3000D"),
         .traces = failed_with(no_entry_point),
         .calls = refused_calls},
        {.label = "module 7 with an entry point: the module's own status",
         .setup = known(),
         .instead = unbind_lookup(7, answer_0777, unchanged),
         .status = 0x30009,
         .console = UNBIND_FAILED(BIND_SUPPORTED, "0x30009"),
         .traces = failed_with(pair_refused),
         .calls = refused_calls},
        {.label = "module 7: looked at before the source instance",
         .setup = known_without_lock(),
         .instead =
             unbind_lookup(7, answer_0777, [](bench &, request &asked) { asked.info.src_instance = nullptr; }),
         .status = 0x30009,
         .console = UNBIND_FAILED(BIND_SUPPORTED, "0x30009"),
         .traces = failed_with(pair_refused),
         .calls = {"hyx_gettime", "hyx_gettime"}},
        {.label = "null source instance",
         .setup = known(),
         .instead = unbind_request([](bench &, request &asked) { asked.info.src_instance = nullptr; }),
         .status = 0x30008,
         .console = UNBIND_FAILED("Null Source Instance Pointer", "0x30008"),
         .traces = failed_with("Null Source Instance Pointer"),
         .calls = lookup_calls},
        {.label = "pattern not made: no status text",
         .setup = known(),
         .faults = {{call::olv_ptn_new, {.code = 0x20007}}},
         .status = 0x30012,
         .console = UNBIND_FAILED_SILENTLY("Failed to allocate the pattern structure"),
         .traces = failed_silently_with(bind_pattern_refused),
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "entry_point_lookup", "olv_ptn_new", "hyx_sem_post",
                   "hyx_gettime"}},
        {.label = "pattern not extended: no status text, always out of memory",
         .setup = known(),
         .faults = {{call::olv_ptn_extend, {.code = 0x20005}}},
         .status = 0x30012,
         .console = UNBIND_FAILED_SILENTLY("Failed to extend the pattern structure"),
         .traces = failed_silently_with(bind_key_refused),
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "entry_point_lookup", "olv_ptn_new",
                   "olv_ptn_extend", "olv_ptn_free", "hyx_sem_post", "hyx_gettime"}},
        {.label = "entry not removed",
         .setup = known(),
         .arrange = bind_quietly,
         .faults = {failing(call::hyx_ptn_unlearn)},
         .status = 0x30041,
         .console = UNBIND_FAILED("Failed to unlearn the tree entry, treeID = 514RTE error code:0x1ff, error "
                                  "string: {rte 0x1FF}",
                                  "0x30041"),
         .traces = failed_with(
             "Failed to unlearn the tree entry, treeID = %dRTE error code:0x%x, error string: %s\n"),
         .calls = all_calls,
         .left = one_bind,
         .check = still_bound},
        {.label = "never bound",
         .setup = known(),
         .status = 0x30041,
         .console = UNBIND_FAILED("Failed to unlearn the tree entry, treeID = 514RTE error code:0x10c, error "
                                  "string: {rte 0x10C}",
                                  "0x30041"),
         .traces = failed_with(
             "Failed to unlearn the tree entry, treeID = %dRTE error code:0x%x, error string: %s\n"),
         .calls = all_calls},
        {.label = "lock not released after a failure",
         .setup = known(),
         .arrange = bind_quietly,
         .faults = {failing(call::hyx_ptn_unlearn), failing(call::hyx_sem_post)},
         .status = 0x300A5,
         .console =
             UNBIND_ENTERING BIND_ERROR("Failed to unlearn the tree entry, treeID = 514RTE error "
                                        "code:0x1ff, error string: {rte 0x1FF}") BIND_ERROR("{status 0x30041}")
                 UNBIND_NOT_PERFORMED OLV_RELEASE_REFUSED("twamp_bind.c") UNBIND_EXITING,
         .traces = {entry(operation_name),
                    error("Failed to unlearn the tree entry, treeID = %dRTE error code:0x%x, error string: "
                          "%s\n"),
                    error_status(), forced(unbind_not_performed), error(release_refused), error_status(),
                    exit(operation_name)},
         .calls = all_calls,
         .left = {.bind_entries = 1, .lock_held = 1},
         .check = still_bound},
    })};

TEST(CustomUnbind, SucceedsAsEachRowSays)
{
    run_entry_rows(success_rows, unbind);
}

TEST(CustomUnbind, FailsAsEachRowSays)
{
    failure_rows.run();
}

} // namespace
} // namespace olv_test
