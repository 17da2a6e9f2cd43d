#include "olv_sim/calls.hpp"
#include "olv_sim/processor.hpp"
#include "responder_rows.hpp"

namespace olv_test {
namespace {

#define CREATE_ENTERING OLV_ENTERING("twamp_responder.c", "olv_twamp_responder_create")
#define CREATE_EXITING OLV_EXITING("twamp_responder.c", "olv_twamp_responder_create")
#define CREATE_ERROR(text) OLV_ERROR("twamp_responder.c", text)
#define CREATE_UNKNOWN(text) OLV_UNKNOWN("twamp_responder.c", text)
#define CREATE_FAILED(status_code)                                                                             \
    CREATE_ERROR("TWAMP Failed to create responder") CREATE_ERROR("{status " status_code "}")
#define CREATE_LEARNT(key)                                                                                     \
    "[twamp_log: ptn_learn] twamp_responder.c:LINE olv_twamp.twamp_responder_lookup: " OLV_PRINTED_PATTERN(    \
        key) OLV_PRINTED_ACTION("00000000", "00000000") "\n"
#define CREATE_LEARNT_TRACE                                                                                    \
    learnt("olv_twamp.twamp_responder_lookup " OLV_TRACED_PATTERN " 0x00000000 0x00000000 0x00000000")

constexpr const char *operation_name = "olv_twamp_responder_create";
constexpr const char *invalid_handle = "Invalid TWAMP module handle 0x%08x\n";
constexpr const char *cannot_create = "Failed to create Responder Handle";
constexpr const char *null_argument = "Null Info / Flow Handle Pointer";
constexpr const char *id_refused =
    "Failed to allocate index from namespace handle 0x%0x, RTE error code:0x%x, error string: %s\n";
constexpr const char *state_refused =
    "Failed to reset Responder state, RTE error code:0x%x, error string: %s\n";
constexpr const char *pattern_refused = "Failed to allocate the pattern structure";
constexpr const char *key_refused = "Failed to add the responder flow ID to the pattern";
constexpr const char *learn_refused =
    "Failed to learn the tree entry, treeID = %dRTE error code:0x%x, error string: %s\n";
constexpr const char *not_created = "TWAMP Failed to create responder";

/** A record that no operation may look into. */
twamp_responder_handle untouched{0x00AABBCC, nullptr, 0x43215678, {}};

std::uint32_t create(bench &b)
{
    return olv_twamp_responder_create(b.handle, &b.info, b.slot);
}

void fill_slot(bench &b)
{
    b.responder = &untouched;
}

void slot_is_untouched(bench &b)
{
    EXPECT_EQ(b.responder, &untouched);
    EXPECT_EQ(untouched.responder_id, 0x00AABBCCu);
    EXPECT_EQ(untouched.magic, 0x43215678u);
    b.responder = nullptr;
}

/** The slot is empty and the next responder has the first creation count. */
void nothing_was_counted(bench &b)
{
    EXPECT_EQ(b.responder, nullptr);
    EXPECT_THAT(creation_count(b, b.create_responder()->responder_id), testing::ElementsAre(0, 0, 0, 1));
}

/** The slot is empty, the state entry of the first ID stays written, the next responder has the second
 *  creation count. */
void one_was_counted(bench &b)
{
    EXPECT_EQ(b.responder, nullptr);
    EXPECT_THAT(creation_count(b, 1), testing::ElementsAre(0, 0, 0, 1));
    EXPECT_THAT(creation_count(b, b.create_responder()->responder_id), testing::ElementsAre(0, 0, 0, 2));
}

void responder_lives(bench &b)
{
    ASSERT_NE(b.responder, nullptr);
    b.keep(b.responder);
    EXPECT_EQ(b.responder->responder_id, 1u);
    EXPECT_EQ(b.responder->module, b.module);
    EXPECT_EQ(b.responder->magic, 0x43215678u);
    EXPECT_EQ(b.responder->reserved[0], 0u);
    EXPECT_EQ(b.responder->reserved[1], 0u);
    EXPECT_TRUE(b.processor.is_allocated(responder_namespace, 1));
    const auto action = b.processor.tree(responder_tree)->lookup(1);
    ASSERT_TRUE(action.has_value());
    EXPECT_THAT(action->word, testing::ElementsAre(0, 0, 0));
    EXPECT_THAT(creation_count(b, 1), testing::ElementsAre(0, 0, 0, 1));
}

/** A responder whose record only the slot knows. */
void slot_holds_a_responder(bench &b)
{
    (void)captured_console([&] { EXPECT_EQ(olv_twamp_responder_create(b.module, &b.info, &b.responder), 0u); });
    ASSERT_NE(b.responder, nullptr);
}

void use_the_only_id(bench &b)
{
    learn_namespace(b);
    (void)b.create_responder();
}

const std::vector<std::string> calls_to_the_lock{"hyx_gettime", "olv_sys_sem_lock_wait"};

const table rows{
    operation_name,
    create,
    {
        {.label = "created",
         .setup = known(),
         .status = 0,
         .console = CREATE_ENTERING CREATE_LEARNT("000001") CREATE_EXITING,
         .traces = {entry(operation_name), CREATE_LEARNT_TRACE, exit(operation_name)},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_nvm_calloc", "hyx_rsrc_allocate",
                   "hyx_timer_get_timestamp", "hyx_se_state_set", "olv_ptn_new", "olv_ptn_extend",
                   "hyx_ptn_learn", "olv_ptn_free", "hyx_sem_post", "hyx_gettime"},
         .left = {.responder_ids = 1, .responder_entries = 1, .blocks = 2},
         .check = responder_lives},
        {.label = "created without a lock",
         .setup = known_without_lock(),
         .status = 0,
         .console = CREATE_ENTERING CREATE_LEARNT("000001") CREATE_EXITING,
         .traces = {entry(operation_name), CREATE_LEARNT_TRACE, exit(operation_name)},
         .calls = {"hyx_gettime", "hyx_nvm_calloc", "hyx_rsrc_allocate", "hyx_timer_get_timestamp",
                   "hyx_se_state_set", "olv_ptn_new", "olv_ptn_extend", "hyx_ptn_learn", "olv_ptn_free",
                   "hyx_gettime"},
         .left = {.responder_ids = 1, .responder_entries = 1, .blocks = 2},
         .check = responder_lives},
        {.label = "created although the timer cannot be read",
         .setup = known(),
         .faults = {failing(call::hyx_timer_get_timestamp)},
         .status = 0,
         .console = CREATE_ENTERING CREATE_LEARNT("000001") CREATE_EXITING,
         .traces = {entry(operation_name), CREATE_LEARNT_TRACE, exit(operation_name)},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_nvm_calloc", "hyx_rsrc_allocate",
                   "hyx_timer_get_timestamp", "hyx_se_state_set", "olv_ptn_new", "olv_ptn_extend",
                   "hyx_ptn_learn", "olv_ptn_free", "hyx_sem_post", "hyx_gettime"},
         .left = {.responder_ids = 1, .responder_entries = 1, .blocks = 2},
         .check = responder_lives},
        {.label = "created, what the slot held is overwritten",
         .setup = known(),
         .arrange = fill_slot,
         .status = 0,
         .console = CREATE_ENTERING CREATE_LEARNT("000001") CREATE_EXITING,
         .traces = {entry(operation_name), CREATE_LEARNT_TRACE, exit(operation_name)},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_nvm_calloc", "hyx_rsrc_allocate",
                   "hyx_timer_get_timestamp", "hyx_se_state_set", "olv_ptn_new", "olv_ptn_extend",
                   "hyx_ptn_learn", "olv_ptn_free", "hyx_sem_post", "hyx_gettime"},
         .left = {.responder_ids = 1, .responder_entries = 1, .blocks = 2},
         .check = responder_lives},

        {.label = "null module",
         .setup = known(),
         .arrange =
             [](bench &b) {
                 use_null_handle(b);
                 fill_slot(b);
             },
         .status = 1,
         .console = CREATE_UNKNOWN("Invalid TWAMP module handle 0x00000000")
             CREATE_UNKNOWN("Failed to create Responder Handle"),
         .traces = {forced(invalid_handle), forced(cannot_create)},
         .check = slot_is_untouched},
        {.label = "wrong module magic",
         .setup = known(),
         .arrange =
             [](bench &b) {
                 use_foreign_handle(b);
                 fill_slot(b);
             },
         .status = 1,
         .console = CREATE_UNKNOWN("Invalid TWAMP module handle 0x{module}")
             CREATE_UNKNOWN("Failed to create Responder Handle"),
         .traces = {forced(invalid_handle), forced(cannot_create)},
         .check = slot_is_untouched},
        {.label = "module not initialised",
         .setup = known_uninitialised(),
         .arrange = fill_slot,
         .status = 1,
         .console = CREATE_UNKNOWN("Invalid TWAMP module handle 0x{module}")
             CREATE_UNKNOWN("Failed to create Responder Handle"),
         .traces = {forced(invalid_handle), forced(cannot_create)},
         .left = nothing,
         .check = slot_is_untouched},
        {.label = "wrong context magic",
         .setup = known(),
         .arrange =
             [](bench &b) {
                 break_context(b);
                 fill_slot(b);
             },
         .status = 1,
         .console = CREATE_UNKNOWN("Invalid TWAMP module handle 0x{module}")
             CREATE_UNKNOWN("Failed to create Responder Handle"),
         .traces = {forced(invalid_handle), forced(cannot_create)},
         .left = {.initialised = false},
         .check =
             [](bench &b) {
                 slot_is_untouched(b);
                 repair_context(b);
             }},

        {.label = "lock not taken",
         .setup = known(),
         .arrange = fill_slot,
         .faults = {failing(call::olv_sys_sem_lock_wait)},
         .status = 0x300A5,
         .console = CREATE_ENTERING OLV_LOCK_REFUSED("twamp_responder.c"),
         .traces = {entry(operation_name), error(lock_refused), error_status()},
         .calls = calls_to_the_lock,
         .check = slot_is_untouched},

        {.label = "null info, empty slot",
         .setup = known(),
         .instead = [](bench &b) { return olv_twamp_responder_create(b.handle, nullptr, b.slot); },
         .status = 0x30008,
         .console = CREATE_ENTERING CREATE_ERROR("Null Info / Flow Handle Pointer")
             CREATE_ERROR("{status 0x30008}") CREATE_FAILED("0x30008") CREATE_EXITING,
         .traces = {entry(operation_name), error(null_argument), error_status(), error(not_created),
                    error_status(), exit(operation_name)},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_sem_post", "hyx_gettime"},
         .check = nothing_was_counted},
        {.label = "null info, slot holds a responder: its record is freed, the responder stays",
         .setup = known(),
         .arrange = slot_holds_a_responder,
         .instead = [](bench &b) { return olv_twamp_responder_create(b.handle, nullptr, b.slot); },
         .status = 0x30008,
         .console = CREATE_ENTERING CREATE_ERROR("Null Info / Flow Handle Pointer")
             CREATE_ERROR("{status 0x30008}") CREATE_FAILED("0x30008") CREATE_EXITING,
         .traces = {entry(operation_name), error(null_argument), error_status(), error(not_created),
                    error_status(), exit(operation_name)},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_nvm_free", "hyx_sem_post", "hyx_gettime"},
         .left = {.responder_ids = 1, .responder_entries = 1, .blocks = 1},
         .check =
             [](bench &b) {
                 EXPECT_EQ(b.responder, nullptr);
                 EXPECT_TRUE(b.processor.is_allocated(responder_namespace, 1));
                 EXPECT_TRUE(b.processor.tree(responder_tree)->lookup(1).has_value());
                 EXPECT_THAT(creation_count(b, 1), testing::ElementsAre(0, 0, 0, 1));
             }},
        {.label = "null slot",
         .setup = known(),
         .arrange = [](bench &b) { b.slot = nullptr; },
         .status = 0x30008,
         .console = CREATE_ENTERING CREATE_ERROR("Null Info / Flow Handle Pointer")
             CREATE_ERROR("{status 0x30008}") CREATE_FAILED("0x30008") CREATE_EXITING,
         .traces = {entry(operation_name), error(null_argument), error_status(), error(not_created),
                    error_status(), exit(operation_name)},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_sem_post", "hyx_gettime"},
         .check = nothing_was_counted},
        {.label = "null info and null slot, no lock",
         .setup = known_without_lock(),
         .instead = [](bench &b) { return olv_twamp_responder_create(b.handle, nullptr, nullptr); },
         .status = 0x30008,
         .console = CREATE_ENTERING CREATE_ERROR("Null Info / Flow Handle Pointer")
             CREATE_ERROR("{status 0x30008}") CREATE_FAILED("0x30008") CREATE_EXITING,
         .traces = {entry(operation_name), error(null_argument), error_status(), error(not_created),
                    error_status(), exit(operation_name)},
         .calls = {"hyx_gettime", "hyx_gettime"},
         .check = nothing_was_counted},

        {.label = "no memory for the record",
         .setup = known(),
         .arrange = fill_slot,
         .faults = {failing(call::hyx_nvm_calloc)},
         .status = 0x30012,
         .console = CREATE_ENTERING OLV_FATAL("twamp_responder.c", "Memory allocation failed responder handle")
             OLV_FATAL("twamp_responder.c", "{status 0x30012}") CREATE_FAILED("0x30012") CREATE_EXITING,
         .traces = {entry(operation_name), fatal("Memory allocation failed responder handle"), fatal_status(),
                    error(not_created), error_status(), exit(operation_name)},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_nvm_calloc", "hyx_sem_post", "hyx_gettime"},
         .check = nothing_was_counted},
        {.label = "no ID: the allocation fails",
         .setup = known_and_named(),
         .arrange = learn_namespace,
         .faults = {failing(call::hyx_rsrc_allocate)},
         .instead = named(create),
         .status = 0x3001D,
         .console = CREATE_ENTERING CREATE_ERROR("Failed to allocate index from namespace handle NAMESPACE, "
                                                 "RTE error code:0x1ff, error string: {rte 0x1FF}")
             CREATE_ERROR("{status 0x3001D}") CREATE_FAILED("0x3001D") CREATE_EXITING,
         .traces = {entry(operation_name), error(id_refused), error_status(), error(not_created),
                    error_status(), exit(operation_name)},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_nvm_calloc", "hyx_rsrc_allocate",
                   "hyx_nvm_free", "hyx_sem_post", "hyx_gettime"},
         .check = nothing_was_counted},
        {.label = "no ID: the namespace is exhausted",
         .setup = known_and_named(1),
         .arrange = use_the_only_id,
         .instead = named(create),
         .status = 0x3001D,
         .console = CREATE_ENTERING CREATE_ERROR("Failed to allocate index from namespace handle NAMESPACE, "
                                                 "RTE error code:0x107, error string: {rte 0x107}")
             CREATE_ERROR("{status 0x3001D}") CREATE_FAILED("0x3001D") CREATE_EXITING,
         .traces = {entry(operation_name), error(id_refused), error_status(), error(not_created),
                    error_status(), exit(operation_name)},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_nvm_calloc", "hyx_rsrc_allocate",
                   "hyx_nvm_free", "hyx_sem_post", "hyx_gettime"},
         .left = {.responder_ids = 1, .responder_entries = 1, .blocks = 2},
         .check =
             [](bench &b) {
                 EXPECT_EQ(b.responder, nullptr);
                 EXPECT_THAT(creation_count(b, 1), testing::ElementsAre(0, 0, 0, 1));
             }},
        {.label = "state not written",
         .setup = known(),
         .faults = {failing(call::hyx_se_state_set)},
         .status = 0x3002C,
         .console = CREATE_ENTERING CREATE_ERROR(
             "Failed to reset Responder state, RTE error code:0x1ff, error string: {rte 0x1FF}")
             CREATE_ERROR("{status 0x3002C}") CREATE_FAILED("0x3002C") CREATE_EXITING,
         .traces = {entry(operation_name), error(state_refused), error_status(), error(not_created),
                    error_status(), exit(operation_name)},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_nvm_calloc", "hyx_rsrc_allocate",
                   "hyx_timer_get_timestamp", "hyx_se_state_set", "hyx_rsrc_free", "hyx_nvm_free",
                   "hyx_sem_post", "hyx_gettime"},
         .check =
             [](bench &b) {
                 EXPECT_EQ(b.responder, nullptr);
                 EXPECT_THAT(creation_count(b, 1), testing::ElementsAre(0, 0, 0, 0));
                 EXPECT_THAT(creation_count(b, b.create_responder()->responder_id),
                             testing::ElementsAre(0, 0, 0, 2));
             }},
        {.label = "pattern not made",
         .setup = known(),
         .faults = {{call::olv_ptn_new, {.code = 0x20007}}},
         .status = 0x20007,
         .console = CREATE_ENTERING CREATE_ERROR("Failed to allocate the pattern structure")
             CREATE_ERROR("{status 0x20007}") CREATE_FAILED("0x20007") CREATE_EXITING,
         .traces = {entry(operation_name), error(pattern_refused), error_status(), error(not_created),
                    error_status(), exit(operation_name)},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_nvm_calloc", "hyx_rsrc_allocate",
                   "hyx_timer_get_timestamp", "hyx_se_state_set", "olv_ptn_new", "hyx_rsrc_free",
                   "hyx_nvm_free", "hyx_sem_post", "hyx_gettime"},
         .check = one_was_counted},
        {.label = "key not added",
         .setup = known(),
         .faults = {{call::olv_ptn_extend, {.code = 0x20005}}},
         .status = 0x20005,
         .console = CREATE_ENTERING CREATE_ERROR("Failed to add the responder flow ID to the pattern")
             CREATE_ERROR("{status 0x20005}") CREATE_FAILED("0x20005") CREATE_EXITING,
         .traces = {entry(operation_name), error(key_refused), error_status(), error(not_created),
                    error_status(), exit(operation_name)},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_nvm_calloc", "hyx_rsrc_allocate",
                   "hyx_timer_get_timestamp", "hyx_se_state_set", "olv_ptn_new", "olv_ptn_extend",
                   "olv_ptn_free", "hyx_rsrc_free", "hyx_nvm_free", "hyx_sem_post", "hyx_gettime"},
         .check = one_was_counted},
        {.label = "entry not learnt",
         .setup = known(),
         .faults = {failing(call::hyx_ptn_learn)},
         .status = 0x30040,
         .console = CREATE_ENTERING CREATE_ERROR("Failed to learn the tree entry, treeID = 257RTE error "
                                                 "code:0x1ff, error string: {rte 0x1FF}")
             CREATE_ERROR("{status 0x30040}") CREATE_FAILED("0x30040") CREATE_EXITING,
         .traces = {entry(operation_name), error(learn_refused), error_status(), error(not_created),
                    error_status(), exit(operation_name)},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_nvm_calloc", "hyx_rsrc_allocate",
                   "hyx_timer_get_timestamp", "hyx_se_state_set", "olv_ptn_new", "olv_ptn_extend",
                   "hyx_ptn_learn", "olv_ptn_free", "hyx_rsrc_free", "hyx_nvm_free", "hyx_sem_post",
                   "hyx_gettime"},
         .check = one_was_counted},
        {.label = "entry not learnt, no lock",
         .setup = known_without_lock(),
         .faults = {failing(call::hyx_ptn_learn)},
         .status = 0x30040,
         .console = CREATE_ENTERING CREATE_ERROR("Failed to learn the tree entry, treeID = 257RTE error "
                                                 "code:0x1ff, error string: {rte 0x1FF}")
             CREATE_ERROR("{status 0x30040}") CREATE_FAILED("0x30040") CREATE_EXITING,
         .traces = {entry(operation_name), error(learn_refused), error_status(), error(not_created),
                    error_status(), exit(operation_name)},
         .calls = {"hyx_gettime", "hyx_nvm_calloc", "hyx_rsrc_allocate", "hyx_timer_get_timestamp",
                   "hyx_se_state_set", "olv_ptn_new", "olv_ptn_extend", "hyx_ptn_learn", "olv_ptn_free",
                   "hyx_rsrc_free", "hyx_nvm_free", "hyx_gettime"},
         .check = one_was_counted},
        {.label = "entry not learnt, and the ID cannot be returned: the roll-back's failure is not reported",
         .setup = known(),
         .faults = {failing(call::hyx_ptn_learn), failing(call::hyx_rsrc_free)},
         .status = 0x30040,
         .console = CREATE_ENTERING CREATE_ERROR("Failed to learn the tree entry, treeID = 257RTE error "
                                                 "code:0x1ff, error string: {rte 0x1FF}")
             CREATE_ERROR("{status 0x30040}") CREATE_FAILED("0x30040") CREATE_EXITING,
         .traces = {entry(operation_name), error(learn_refused), error_status(), error(not_created),
                    error_status(), exit(operation_name)},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_nvm_calloc", "hyx_rsrc_allocate",
                   "hyx_timer_get_timestamp", "hyx_se_state_set", "olv_ptn_new", "olv_ptn_extend",
                   "hyx_ptn_learn", "olv_ptn_free", "hyx_rsrc_free", "hyx_nvm_free", "hyx_sem_post",
                   "hyx_gettime"},
         .left = {.responder_ids = 1},
         .check = [](bench &b) { EXPECT_EQ(b.responder, nullptr); }},

        {.label = "lock not released after success: the responder lives",
         .setup = known(),
         .faults = {failing(call::hyx_sem_post)},
         .status = 0x300A5,
         .console =
             CREATE_ENTERING CREATE_LEARNT("000001") OLV_RELEASE_REFUSED("twamp_responder.c") CREATE_EXITING,
         .traces = {entry(operation_name), CREATE_LEARNT_TRACE, error(release_refused), error_status(),
                    exit(operation_name)},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_nvm_calloc", "hyx_rsrc_allocate",
                   "hyx_timer_get_timestamp", "hyx_se_state_set", "olv_ptn_new", "olv_ptn_extend",
                   "hyx_ptn_learn", "olv_ptn_free", "hyx_sem_post", "hyx_gettime"},
         .left = {.responder_ids = 1, .responder_entries = 1, .blocks = 2, .lock_held = 1},
         .check = responder_lives},
        {.label = "lock not released after a failure",
         .setup = known(),
         .faults = {failing(call::hyx_ptn_learn), failing(call::hyx_sem_post)},
         .status = 0x300A5,
         .console = CREATE_ENTERING CREATE_ERROR("Failed to learn the tree entry, treeID = 257RTE error "
                                                 "code:0x1ff, error string: {rte 0x1FF}")
             CREATE_ERROR("{status 0x30040}") CREATE_FAILED("0x30040") OLV_RELEASE_REFUSED("twamp_responder.c")
                 CREATE_EXITING,
         .traces = {entry(operation_name), error(learn_refused), error_status(), error(not_created),
                    error_status(), error(release_refused), error_status(), exit(operation_name)},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "hyx_nvm_calloc", "hyx_rsrc_allocate",
                   "hyx_timer_get_timestamp", "hyx_se_state_set", "olv_ptn_new", "olv_ptn_extend",
                   "hyx_ptn_learn", "olv_ptn_free", "hyx_rsrc_free", "hyx_nvm_free", "hyx_sem_post",
                   "hyx_gettime"},
         .left = {.lock_held = 1},
         .check =
             [](bench &b) {
                 release_lock(b);
                 one_was_counted(b);
             }},
    }};

TEST(ResponderCreate, GoesAsEachRowSays)
{
    run_entry_rows(rows, create);
}

} // namespace
} // namespace olv_test
