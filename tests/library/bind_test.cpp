#include "bind_rows.hpp"
#include "olv_sim/calls.hpp"

namespace olv_test {
namespace {

#define BIND_LEARNT(key, entry_point)                                                                          \
    "[twamp_log: ptn_learn]olv_twamp.twamp_bind_to_next_module: " OLV_PRINTED_PATTERN(key)                     \
        OLV_PRINTED_ACTION("00000001", entry_point) "\n"
#define BIND_DONE OLV_INFO("twamp_bind.c", "Custom Bind Successfully done.")
#define BIND_TRACED(entry_point)                                                                               \
    learnt("olv_twamp.twamp_bind_to_next_module " OLV_TRACED_PATTERN " 0x00000001 0x" entry_point " 0x0000000" \
           "0")
/** Console and traces of a failure after the lock was taken: message and status text, then the epilogue. */
#define BIND_FAILED(message, status_code)                                                                      \
    BIND_ENTERING BIND_ERROR(message) BIND_ERROR("{status " status_code "}") BIND_NOT_PERFORMED BIND_EXITING

constexpr const char *operation_name = "olv_twamp_custom_bind";

std::vector<trace> failed_with(const char *message)
{
    return {entry(operation_name), error(message), error_status(), forced(bind_not_performed),
            exit(operation_name)};
}

operation bind_request(change_request change)
{
    return with_request(olv_twamp_custom_bind, change);
}

operation bind_lookup(std::uint32_t module_id, olv_entry_point_lookup lookup, change_request change)
{
    return with_lookup(olv_twamp_custom_bind, module_id, lookup, change);
}

const operation bind = bind_request(unchanged);

constexpr remains one_bind{.bind_entries = 1};

const std::vector<std::string> refused_calls{"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_sem_post",
                                             "hyx_gettime"};
const std::vector<std::string> lookup_calls{"hyx_gettime", "olv_sys_sem_lock_wait", "entry_point_lookup",
                                            "hyx_sem_post", "hyx_gettime"};
const std::vector<std::string> all_calls{"hyx_gettime",  "olv_sys_sem_lock_wait", "entry_point_lookup",
                                         "olv_ptn_new",  "olv_ptn_extend",        "hyx_ptn_learn",
                                         "olv_ptn_free", "hyx_sem_post",          "hyx_gettime"};
const std::vector<std::string> all_calls_but_lookup{
    "hyx_gettime",   "olv_sys_sem_lock_wait", "olv_ptn_new",  "olv_ptn_extend",
    "hyx_ptn_learn", "olv_ptn_free",          "hyx_sem_post", "hyx_gettime"};

template <std::uint32_t entry_point> void bound_with(bench &b)
{
    EXPECT_THAT(bound_to(b, 0xABCDEF), testing::Optional(testing::ElementsAre(1, entry_point, 0)));
}

const table success_rows{
    operation_name, bind,
    with_system_always({
        {.label = "bound to IPv4",
         .setup = known(),
         .status = 0,
         .console = BIND_ENTERING BIND_LEARNT("abcdef", "00000401") BIND_DONE BIND_EXITING,
         .traces = {entry(operation_name), BIND_TRACED("00000401"), info(bind_done), exit(operation_name)},
         .calls = all_calls,
         .left = one_bind,
         .check = bound_with<0x401>},
        {.label = "bound to IPv6",
         .setup = known(),
         .instead =
             bind_request([](bench &b, request &asked) { asked.info.dst_module = b.framework.ipv6_module(); }),
         .status = 0,
         .console = BIND_ENTERING BIND_LEARNT("abcdef", "00000601") BIND_DONE BIND_EXITING,
         .traces = {entry(operation_name), BIND_TRACED("00000601"), info(bind_done), exit(operation_name)},
         .calls = all_calls,
         .left = one_bind,
         .check = bound_with<0x601>},
        {.label = "bound without a lock",
         .setup = known_without_lock(),
         .status = 0,
         .console = BIND_ENTERING BIND_LEARNT("abcdef", "00000401") BIND_DONE BIND_EXITING,
         .traces = {entry(operation_name), BIND_TRACED("00000401"), info(bind_done), exit(operation_name)},
         .calls = {"hyx_gettime", "entry_point_lookup", "olv_ptn_new", "olv_ptn_extend", "hyx_ptn_learn",
                   "olv_ptn_free", "hyx_gettime"},
         .left = one_bind,
         .check = bound_with<0x401>},
        {.label = "only the low 24 bits of the instance's first word are the key",
         .setup = known(),
         .instead = bind_request([](bench &, request &asked) { asked.key = 0xFFABCDEF; }),
         .status = 0,
         .console = BIND_ENTERING BIND_LEARNT("abcdef", "00000401") BIND_DONE BIND_EXITING,
         .traces = {entry(operation_name), BIND_TRACED("00000401"), info(bind_done), exit(operation_name)},
         .calls = all_calls,
         .left = one_bind,
         .check = bound_with<0x401>},
        {.label = "locations, the module's own record of its system, and the rest are not looked at",
         .setup = known(),
         .instead = bind_request([](bench &, request &asked) {
             asked.info.src_location = 1;
             asked.info.dst_location = 1;
             asked.info.custom_bind = 0x80;
             asked.info.bind_subtype = 0xFFFFFFFF;
         }),
         .status = 0,
         .console = BIND_ENTERING BIND_LEARNT("abcdef", "00000401") BIND_DONE BIND_EXITING,
         .traces = {entry(operation_name), BIND_TRACED("00000401"), info(bind_done), exit(operation_name)},
         .calls = all_calls,
         .left = one_bind,
         .check = bound_with<0x401>},
        {.label = "no lookup, default entry point allowed",
         .setup = known(),
         .instead = bind_lookup(1, nullptr,
                                [](bench &, request &asked) {
                                    asked.info.bind_subtype = 2;
                                    asked.destination.default_entry_point = 0x0123;
                                }),
         .status = 0,
         .console = BIND_ENTERING BIND_LEARNT("abcdef", "00000123") BIND_DONE BIND_EXITING,
         .traces = {entry(operation_name), BIND_TRACED("00000123"), info(bind_done), exit(operation_name)},
         .calls = all_calls_but_lookup,
         .left = one_bind,
         .check = bound_with<0x123>},
        {.label = "lookup yields 0, default entry point allowed, IPv6",
         .setup = known(),
         .instead = bind_lookup(11, answer_zero,
                                [](bench &, request &asked) {
                                    asked.info.bind_subtype = 2;
                                    asked.destination.default_entry_point = 0xFFFF;
                                }),
         .status = 0,
         .console = BIND_ENTERING BIND_LEARNT("abcdef", "0000ffff") BIND_DONE BIND_EXITING,
         .traces = {entry(operation_name), BIND_TRACED("0000ffff"), info(bind_done), exit(operation_name)},
         .calls = all_calls_but_lookup,
         .left = one_bind,
         .check = bound_with<0xFFFF>},
        {.label = "lookup writes 0, default entry point allowed",
         .setup = known(),
         .instead = bind_lookup(1, write_zero,
                                [](bench &, request &asked) {
                                    asked.info.bind_subtype = 2;
                                    asked.destination.default_entry_point = 0xFFFF;
                                }),
         .status = 0,
         .console = BIND_ENTERING BIND_LEARNT("abcdef", "0000ffff") BIND_DONE BIND_EXITING,
         .traces = {entry(operation_name), BIND_TRACED("0000ffff"), info(bind_done), exit(operation_name)},
         .calls = all_calls_but_lookup,
         .left = one_bind,
         .check = bound_with<0xFFFF>},
        {.label = "the lookup's entry point goes before the default one",
         .setup = known(),
         .instead = bind_lookup(1, answer_0777,
                                [](bench &, request &asked) {
                                    asked.info.bind_subtype = 2;
                                    asked.destination.default_entry_point = 0x0123;
                                }),
         .status = 0,
         .console = BIND_ENTERING BIND_LEARNT("abcdef", "00000777") BIND_DONE BIND_EXITING,
         .traces = {entry(operation_name), BIND_TRACED("00000777"), info(bind_done), exit(operation_name)},
         .calls = all_calls_but_lookup,
         .left = one_bind,
         .check = bound_with<0x777>},
        {.label = "lock not released after success: bound, and no closing failure line",
         .setup = known(),
         .faults = {failing(call::hyx_sem_post)},
         .status = 0x300A5,
         .console = BIND_ENTERING BIND_LEARNT("abcdef", "00000401")
             BIND_DONE OLV_RELEASE_REFUSED("twamp_bind.c") BIND_EXITING,
         .traces = {entry(operation_name), BIND_TRACED("00000401"), info(bind_done), error(release_refused),
                    error_status(), exit(operation_name)},
         .calls = all_calls,
         .left = {.bind_entries = 1, .lock_held = 1},
         .check = bound_with<0x401>},
    })};

const table failure_rows{
    operation_name, bind,
    with_system_always({
        {.label = "null request",
         .setup = known(),
         .instead = [](bench &b) { return olv_twamp_custom_bind(b.framework.system(), nullptr); },
         .status = 8,
         .console = BIND_UNKNOWN("Invalid bind Info pointer0x00000000")
             BIND_UNKNOWN("Failed to create Custom bind entry "),
         .traces = {forced(null_info), forced(cannot_bind)}},
        {.label = "null request and null system record",
         .setup = known(),
         .instead = [](bench &) { return olv_twamp_custom_bind(nullptr, nullptr); },
         .status = 8,
         .console = BIND_UNKNOWN("Invalid bind Info pointer0x00000000")
             BIND_UNKNOWN("Failed to create Custom bind entry "),
         .traces = {forced(null_info), forced(cannot_bind)}},
        {.label = "null system record: the valid module is shown",
         .setup = known(),
         .instead =
             [](bench &b) {
                 const request asked(b);
                 return olv_twamp_custom_bind(nullptr, &asked.info);
             },
         .status = 1,
         .console = BIND_UNKNOWN("Invalid TWAMP module handle 0x{module}")
             BIND_UNKNOWN("Failed to create Custom bind entry "),
         .traces = {forced(invalid_source), forced(cannot_bind)}},
        {.label = "null source module",
         .setup = known(),
         .arrange = use_null_handle,
         .status = 1,
         .console = BIND_UNKNOWN("Invalid TWAMP module handle 0x00000000")
             BIND_UNKNOWN("Failed to create Custom bind entry "),
         .traces = {forced(invalid_source), forced(cannot_bind)}},
        {.label = "source module with a wrong magic",
         .setup = known(),
         .arrange = use_foreign_handle,
         .status = 1,
         .console = BIND_UNKNOWN("Invalid TWAMP module handle 0x{module}")
             BIND_UNKNOWN("Failed to create Custom bind entry "),
         .traces = {forced(invalid_source), forced(cannot_bind)}},
        {.label = "source module not initialised",
         .setup = known_uninitialised(),
         .status = 1,
         .console = BIND_UNKNOWN("Invalid TWAMP module handle 0x{module}")
             BIND_UNKNOWN("Failed to create Custom bind entry "),
         .traces = {forced(invalid_source), forced(cannot_bind)},
         .left = nothing},
        {.label = "source module with a wrong context magic",
         .setup = known(),
         .arrange = break_context,
         .status = 1,
         .console = BIND_UNKNOWN("Invalid TWAMP module handle 0x{module}")
             BIND_UNKNOWN("Failed to create Custom bind entry "),
         .traces = {forced(invalid_source), forced(cannot_bind)},
         .left = {.initialised = false},
         .check = repair_context},
        {.label = "lock not taken",
         .setup = known(),
         .faults = {failing(call::olv_sys_sem_lock_wait)},
         .status = 0x300A5,
         .console = BIND_ENTERING OLV_LOCK_REFUSED("twamp_bind.c"),
         .traces = {entry(operation_name), error(lock_refused), error_status()},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait"}},

        {.label = "path not direct: looked at before type and custom_bind",
         .setup = known(),
         .instead = bind_request([](bench &, request &asked) {
             asked.info.bind_path = 2;
             asked.info.bind_type = 5;
             asked.info.custom_bind = 0;
             asked.info.dst_module = nullptr;
         }),
         .status = 0x30008,
         .console = BIND_FAILED("Only OLV_BIND_PATH_DIRECT is supported", "0x30008"),
         .traces = failed_with(path_refused),
         .calls = refused_calls},
        {.label = "path 0",
         .setup = known_without_lock(),
         .instead = bind_request([](bench &, request &asked) { asked.info.bind_path = 0; }),
         .status = 0x30008,
         .console = BIND_FAILED("Only OLV_BIND_PATH_DIRECT is supported", "0x30008"),
         .traces = failed_with(path_refused),
         .calls = {"hyx_gettime", "hyx_gettime"}},
        {.label = "type not 2: looked at before custom_bind",
         .setup = known(),
         .instead = bind_request([](bench &, request &asked) {
             asked.info.bind_type = 5;
             asked.info.custom_bind = 0;
             asked.info.dst_module = nullptr;
         }),
         .status = 0x30008,
         .console = BIND_FAILED("Unsupported Binding Type 5", "0x30008"),
         .traces = failed_with(type_refused),
         .calls = refused_calls},
        {.label = "the type is printed as a signed number",
         .setup = known(),
         .instead = bind_request([](bench &, request &asked) { asked.info.bind_type = 0xFFFFFFFF; }),
         .status = 0x30008,
         .console = BIND_FAILED("Unsupported Binding Type -1", "0x30008"),
         .traces = failed_with(type_refused),
         .calls = refused_calls},
        {.label = "no custom bind asked for: looked at before the destination",
         .setup = known(),
         .instead = bind_request([](bench &, request &asked) {
             asked.info.custom_bind = 0;
             asked.info.dst_module = nullptr;
         }),
         .status = 0x30008,
         .console = BIND_FAILED("Only custom bind supported", "0x30008"),
         .traces = failed_with(bind_refused),
         .calls = refused_calls},
        {.label = "null destination module",
         .setup = known(),
         .instead = bind_request([](bench &, request &asked) { asked.info.dst_module = nullptr; }),
         .status = 0x30008,
         .console = BIND_FAILED("Null Destination Module Pointer", "0x30008"),
         .traces = failed_with("Null Destination Module Pointer"),
         .calls = refused_calls},
        {.label = "lookup fails",
         .setup = known(),
         .faults = {{call::entry_point_lookup, {.code = 0x20002}}},
         .status = 0x3000D,
         .console = BIND_FAILED("Failed to get Entry point function for destination module", "0x3000D"),
         .traces = failed_with(entry_point_failed),
         .calls = lookup_calls},
        {.label = "lookup fails: neither its entry point nor the default one is used",
         .setup = known(),
         .instead = bind_lookup(1, answer_and_fail,
                                [](bench &, request &asked) {
                                    asked.info.bind_subtype = 2;
                                    asked.destination.default_entry_point = 0x0123;
                                }),
         .status = 0x3000D,
         .console = BIND_FAILED("Failed to get Entry point function for destination module", "0x3000D"),
         .traces = failed_with(entry_point_failed),
         .calls = refused_calls},
        {.label = "no lookup, default entry point not allowed",
         .setup = known(),
         .instead = bind_lookup(
             1, nullptr, [](bench &, request &asked) { asked.destination.default_entry_point = 0x0123; }),
         .status = 0x3000D,
         .console = BIND_FAILED("Invalid Entry point function found for destination module", "0x3000D"),
         .traces = failed_with(no_entry_point),
         .calls = refused_calls},
        {.label = "lookup yields 0, default entry point not allowed",
         .setup = known(),
         .instead = bind_lookup(
             1, answer_zero, [](bench &, request &asked) { asked.destination.default_entry_point = 0x0123; }),
         .status = 0x3000D,
         .console = BIND_FAILED("Invalid Entry point function found for destination module", "0x3000D"),
         .traces = failed_with(no_entry_point),
         .calls = refused_calls},
        {.label = "no lookup, default entry point allowed but 0",
         .setup = known(),
         .instead = bind_lookup(1, nullptr, [](bench &, request &asked) { asked.info.bind_subtype = 2; }),
         .status = 0x3000D,
         .console = BIND_FAILED("Invalid Entry point function found for destination module", "0x3000D"),
         .traces = failed_with(no_entry_point),
         .calls = refused_calls},
        {.label = "module 7 without an entry point: that is found first",
         .setup = known(),
         .instead = bind_lookup(7, nullptr, unchanged),
         .status = 0x3000D,
         .console = BIND_FAILED("Invalid Entry point function found for destination module", "0x3000D"),
         .traces = failed_with(no_entry_point),
         .calls = refused_calls},
        {.label = "module 7 with an entry point: a bare 9",
         .setup = known(),
         .instead = bind_lookup(7, answer_0777, unchanged),
         .status = 9,
         .console = BIND_FAILED(BIND_SUPPORTED, "9"),
         .traces = failed_with(pair_refused),
         .calls = refused_calls},
        {.label = "module 7: looked at before the source instance",
         .setup = known_without_lock(),
         .instead =
             bind_lookup(7, answer_0777, [](bench &, request &asked) { asked.info.src_instance = nullptr; }),
         .status = 9,
         .console = BIND_FAILED(BIND_SUPPORTED, "9"),
         .traces = failed_with(pair_refused),
         .calls = {"hyx_gettime", "hyx_gettime"}},
        {.label = "null source instance",
         .setup = known(),
         .instead = bind_request([](bench &, request &asked) { asked.info.src_instance = nullptr; }),
         .status = 0x30008,
         .console = BIND_FAILED("Null Source Instance Pointer", "0x30008"),
         .traces = failed_with("Null Source Instance Pointer"),
         .calls = lookup_calls},
        {.label = "pattern not made",
         .setup = known(),
         .faults = {{call::olv_ptn_new, {.code = 0x20007}}},
         .status = 0x30012,
         .console = BIND_FAILED("Failed to allocate the pattern structure", "0x30012"),
         .traces = failed_with(bind_pattern_refused),
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "entry_point_lookup", "olv_ptn_new", "hyx_sem_post",
                   "hyx_gettime"}},
        {.label = "pattern not extended: the status becomes the module's own",
         .setup = known(),
         .faults = {{call::olv_ptn_extend, {.code = 0x20005}}},
         .status = 0x30005,
         .console = BIND_FAILED("Failed to extend the pattern structure", "0x30005"),
         .traces = failed_with(bind_key_refused),
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "entry_point_lookup", "olv_ptn_new",
                   "olv_ptn_extend", "olv_ptn_free", "hyx_sem_post", "hyx_gettime"}},
        {.label = "pattern not extended: only the module's number in the status changes",
         .setup = known(),
         .faults = {{call::olv_ptn_extend, {.code = 0xA5FC1234}}},
         .status = 0xA5F31234,
         .console = BIND_FAILED("Failed to extend the pattern structure", "0xA5F31234"),
         .traces = failed_with(bind_key_refused),
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "entry_point_lookup", "olv_ptn_new",
                   "olv_ptn_extend", "olv_ptn_free", "hyx_sem_post", "hyx_gettime"}},
        {.label = "entry not learnt",
         .setup = known(),
         .faults = {failing(call::hyx_ptn_learn)},
         .status = 0x30040,
         .console = BIND_FAILED("Failed to learn the tree entry, treeID = 514\nRTE error code:0x1ff, error "
                                "string: {rte 0x1FF}",
                                "0x30040"),
         .traces = failed_with(
             "Failed to learn the tree entry, treeID = %d\nRTE error code:0x%x, error string: %s\n"),
         .calls = all_calls},
        {.label = "bound before with this key",
         .setup = known(),
         .arrange = bind_quietly,
         .status = 0x30040,
         .console = BIND_FAILED("Failed to learn the tree entry, treeID = 514\nRTE error code:0x10b, error "
                                "string: {rte 0x10B}",
                                "0x30040"),
         .traces = failed_with(
             "Failed to learn the tree entry, treeID = %d\nRTE error code:0x%x, error string: %s\n"),
         .calls = all_calls,
         .left = one_bind,
         .check = bound_with<0x401>},
        {.label = "lock not released after a failure",
         .setup = known(),
         .faults = {failing(call::hyx_ptn_learn), failing(call::hyx_sem_post)},
         .status = 0x300A5,
         .console = BIND_ENTERING BIND_ERROR("Failed to learn the tree entry, treeID = 514\nRTE error "
                                             "code:0x1ff, error string: {rte 0x1FF}")
             BIND_ERROR("{status 0x30040}") BIND_NOT_PERFORMED OLV_RELEASE_REFUSED("twamp_bind.c") BIND_EXITING,
         .traces = {entry(operation_name),
                    error("Failed to learn the tree entry, treeID = %d\nRTE error code:0x%x, error string: "
                          "%s\n"),
                    error_status(), forced(bind_not_performed), error(release_refused), error_status(),
                    exit(operation_name)},
         .calls = all_calls,
         .left = {.lock_held = 1}},
    })};

TEST(CustomBind, SucceedsAsEachRowSays)
{
    run_entry_rows(success_rows, bind);
}

TEST(CustomBind, FailsAsEachRowSays)
{
    failure_rows.run();
}

} // namespace
} // namespace olv_test
