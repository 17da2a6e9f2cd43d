#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/resources.hpp"
#include "responder_rows.hpp"

namespace olv_test {
namespace {

#define DELETE_ENTERING OLV_ENTERING("twamp_responder.c", "olv_twamp_responder_delete")
#define DELETE_EXITING OLV_EXITING("twamp_responder.c", "olv_twamp_responder_delete")
#define DELETE_ERROR(text) OLV_ERROR("twamp_responder.c", text)
#define DELETE_UNKNOWN(text) OLV_UNKNOWN("twamp_responder.c", text)
#define DELETE_REMOVED                                                                                         \
    "[twamp_log: ptn_unlearn] twamp_responder.c:LINE olv_twamp.twamp_responder_lookup: " OLV_PRINTED_PATTERN(  \
        "000001") "<xsize = 24>" OLV_PRINTED_ACTION("00000000", "00000000") "\n"
#define DELETE_REMOVED_TRACE                                                                                   \
    removed("olv_twamp.twamp_responder_lookup " OLV_TRACED_PATTERN " 24 0x00000000 0x00000000 0x00000000")

constexpr const char *operation_name = "olv_twamp_responder_delete";
constexpr const char *invalid_module = "Invalid TWAMP module handle 0x%08x\n";
constexpr const char *invalid_responder = "Invalid TWAMP Responder handle 0x%08x\n";
constexpr const char *cannot_delete = "Failed to delete Responder Handle";
constexpr const char *pattern_refused = "Failed to allocate the pattern structure";
constexpr const char *key_refused = "Failed to add the responder flow ID to the pattern";
constexpr const char *unlearn_refused =
    "Failed to learn the tree entry, treeID = %dRTE error code:0x%x, error string: %s\n";
constexpr const char *id_refused =
    "Failed to free resource to namespace handle 0x%0x, RTE error code:0x%x, error string: %s\n";
constexpr const char *state_refused =
    "Failed to reset Responder state, RTE error code:0x%x, error string: %s\n";

/** One responder that lives. */
constexpr remains everything_kept{.responder_ids = 1, .responder_entries = 1, .blocks = 2};

std::uint32_t delete_it(bench &b)
{
    return olv_twamp_responder_delete(b.handle, b.responder);
}

void with_responder(bench &b)
{
    learn_namespace(b);
    b.responder = b.create_responder(0x1234, 0x5678);
}

void record_is_unchanged(bench &b)
{
    ASSERT_NE(b.responder, nullptr);
    EXPECT_TRUE(olv_sim::memory::is_live(b.responder));
    EXPECT_EQ(b.responder->responder_id, 1u);
    EXPECT_EQ(b.responder->module, b.module);
    EXPECT_EQ(b.responder->magic, 0x43215678u);
}

void state_is_kept(bench &b)
{
    record_is_unchanged(b);
    const auto bytes = b.state_bytes(1);
    ASSERT_EQ(bytes.size(), 60u);
    EXPECT_EQ(bytes[0], 0x12);
    EXPECT_EQ(bytes[1], 0x34);
    EXPECT_THAT(creation_count(b, 1), testing::ElementsAre(0, 0, 0, 1));
}

void state_is_cleared(bench &b)
{
    record_is_unchanged(b);
    EXPECT_EQ(b.state_bytes(1), std::vector<std::uint8_t>(60, 0));
    EXPECT_FALSE(b.processor.tree(responder_tree)->lookup(1).has_value());
}

const table rows{
    operation_name,
    delete_it,
    {
        {.label = "deleted",
         .setup = known(),
         .arrange = with_responder,
         .status = 0,
         .console = DELETE_ENTERING DELETE_REMOVED DELETE_EXITING,
         .traces = {entry(operation_name), DELETE_REMOVED_TRACE, exit(operation_name)},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "olv_ptn_new", "olv_ptn_extend", "hyx_ptn_unlearn",
                   "hyx_rsrc_free", "hyx_se_state_set", "olv_ptn_free", "hyx_sem_post", "hyx_gettime"},
         .left = {.blocks = 2},
         .check = state_is_cleared},
        {.label = "deleted without a lock",
         .setup = known_without_lock(),
         .arrange = with_responder,
         .status = 0,
         .console = DELETE_ENTERING DELETE_REMOVED DELETE_EXITING,
         .traces = {entry(operation_name), DELETE_REMOVED_TRACE, exit(operation_name)},
         .calls = {"hyx_gettime", "olv_ptn_new", "olv_ptn_extend", "hyx_ptn_unlearn", "hyx_rsrc_free",
                   "hyx_se_state_set", "olv_ptn_free", "hyx_gettime"},
         .left = {.blocks = 2},
         .check = state_is_cleared},

        {.label = "null module",
         .setup = known(),
         .arrange =
             [](bench &b) {
                 with_responder(b);
                 use_null_handle(b);
             },
         .status = 1,
         .console = DELETE_UNKNOWN("Invalid TWAMP module handle 0x00000000")
             DELETE_UNKNOWN("Failed to delete Responder Handle"),
         .traces = {forced(invalid_module), forced(cannot_delete)},
         .left = everything_kept,
         .check = state_is_kept},
        {.label = "wrong module magic",
         .setup = known(),
         .arrange =
             [](bench &b) {
                 with_responder(b);
                 use_foreign_handle(b);
             },
         .status = 1,
         .console = DELETE_UNKNOWN("Invalid TWAMP module handle 0x{module}")
             DELETE_UNKNOWN("Failed to delete Responder Handle"),
         .traces = {forced(invalid_module), forced(cannot_delete)},
         .left = everything_kept,
         .check = state_is_kept},
        {.label = "module not initialised: looked at before the responder",
         .setup = known_uninitialised(),
         .status = 1,
         .console = DELETE_UNKNOWN("Invalid TWAMP module handle 0x{module}")
             DELETE_UNKNOWN("Failed to delete Responder Handle"),
         .traces = {forced(invalid_module), forced(cannot_delete)},
         .left = nothing},
        {.label = "wrong context magic",
         .setup = known(),
         .arrange =
             [](bench &b) {
                 with_responder(b);
                 break_context(b);
             },
         .status = 1,
         .console = DELETE_UNKNOWN("Invalid TWAMP module handle 0x{module}")
             DELETE_UNKNOWN("Failed to delete Responder Handle"),
         .traces = {forced(invalid_module), forced(cannot_delete)},
         .left = {.responder_ids = 1, .responder_entries = 1, .blocks = 2, .initialised = false},
         .check =
             [](bench &b) {
                 state_is_kept(b);
                 repair_context(b);
             }},
        {.label = "null responder",
         .setup = known(),
         .status = 1,
         .console = DELETE_UNKNOWN("Invalid TWAMP Responder handle 0x00000000")
             DELETE_UNKNOWN("Failed to delete Responder Handle"),
         .traces = {forced(invalid_responder), forced(cannot_delete)}},
        {.label = "responder magic cleared",
         .setup = known_and_named(),
         .arrange =
             [](bench &b) {
                 with_responder(b);
                 b.responder->magic = 0;
             },
         .instead = named(delete_it),
         .status = 1,
         .console = DELETE_UNKNOWN("Invalid TWAMP Responder handle RESPONDER")
             DELETE_UNKNOWN("Failed to delete Responder Handle"),
         .traces = {forced(invalid_responder), forced(cannot_delete)},
         .left = everything_kept,
         .check =
             [](bench &b) {
                 EXPECT_EQ(b.responder->magic, 0u);
                 b.responder->magic = 0x43215678;
                 state_is_kept(b);
             }},
        {.label = "responder magic wrong by one bit",
         .setup = known_and_named(),
         .arrange =
             [](bench &b) {
                 with_responder(b);
                 b.responder->magic = 0x43215679;
             },
         .instead = named(delete_it),
         .status = 1,
         .console = DELETE_UNKNOWN("Invalid TWAMP Responder handle RESPONDER")
             DELETE_UNKNOWN("Failed to delete Responder Handle"),
         .traces = {forced(invalid_responder), forced(cannot_delete)},
         .left = everything_kept},

        {.label = "lock not taken",
         .setup = known(),
         .arrange = with_responder,
         .faults = {failing(call::olv_sys_sem_lock_wait)},
         .status = 0x300A5,
         .console = DELETE_ENTERING OLV_LOCK_REFUSED("twamp_responder.c"),
         .traces = {entry(operation_name), error(lock_refused), error_status()},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait"},
         .left = everything_kept,
         .check = state_is_kept},
        {.label = "pattern not made",
         .setup = known(),
         .arrange = with_responder,
         .faults = {{call::olv_ptn_new, {.code = 0x20007}}},
         .status = 0x20007,
         .console = DELETE_ENTERING DELETE_ERROR("Failed to allocate the pattern structure")
             DELETE_ERROR("{status 0x20007}") DELETE_EXITING,
         .traces = {entry(operation_name), error(pattern_refused), error_status(), exit(operation_name)},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "olv_ptn_new", "hyx_sem_post", "hyx_gettime"},
         .left = everything_kept,
         .check = state_is_kept},
        {.label = "key not added",
         .setup = known(),
         .arrange = with_responder,
         .faults = {{call::olv_ptn_extend, {.code = 0x20005}}},
         .status = 0x20005,
         .console = DELETE_ENTERING DELETE_ERROR("Failed to add the responder flow ID to the pattern")
             DELETE_ERROR("{status 0x20005}") DELETE_EXITING,
         .traces = {entry(operation_name), error(key_refused), error_status(), exit(operation_name)},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "olv_ptn_new", "olv_ptn_extend", "olv_ptn_free",
                   "hyx_sem_post", "hyx_gettime"},
         .left = everything_kept,
         .check = state_is_kept},
        {.label = "entry not removed: told as a learn failure",
         .setup = known(),
         .arrange = with_responder,
         .faults = {failing(call::hyx_ptn_unlearn)},
         .status = 0x30040,
         .console = DELETE_ENTERING DELETE_ERROR("Failed to learn the tree entry, treeID = 257RTE error "
                                                 "code:0x1ff, error string: {rte 0x1FF}")
             DELETE_ERROR("{status 0x30040}") DELETE_EXITING,
         .traces = {entry(operation_name), error(unlearn_refused), error_status(), exit(operation_name)},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "olv_ptn_new", "olv_ptn_extend", "hyx_ptn_unlearn",
                   "olv_ptn_free", "hyx_sem_post", "hyx_gettime"},
         .left = everything_kept,
         .check = state_is_kept},
        {.label = "deleted before: the record still passes, the entry is absent",
         .setup = known(),
         .arrange =
             [](bench &b) {
                 with_responder(b);
                 (void)captured_console([&] { EXPECT_EQ(delete_it(b), 0u); });
             },
         .status = 0x30040,
         .console = DELETE_ENTERING DELETE_ERROR("Failed to learn the tree entry, treeID = 257RTE error "
                                                 "code:0x10c, error string: {rte 0x10C}")
             DELETE_ERROR("{status 0x30040}") DELETE_EXITING,
         .traces = {entry(operation_name), error(unlearn_refused), error_status(), exit(operation_name)},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "olv_ptn_new", "olv_ptn_extend", "hyx_ptn_unlearn",
                   "olv_ptn_free", "hyx_sem_post", "hyx_gettime"},
         .left = {.blocks = 2},
         .check = state_is_cleared},
        {.label = "ID not returned",
         .setup = known_and_named(),
         .arrange = with_responder,
         .faults = {failing(call::hyx_rsrc_free)},
         .instead = named(delete_it),
         .status = 0x3001E,
         .console = DELETE_ENTERING DELETE_REMOVED DELETE_ERROR(
             "Failed to free resource to namespace handle NAMESPACE, RTE error code:0x1ff, error string: "
             "{rte 0x1FF}") DELETE_ERROR("{status 0x3001E}") DELETE_EXITING,
         .traces = {entry(operation_name), DELETE_REMOVED_TRACE, error(id_refused), error_status(),
                    exit(operation_name)},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "olv_ptn_new", "olv_ptn_extend", "hyx_ptn_unlearn",
                   "hyx_rsrc_free", "olv_ptn_free", "hyx_sem_post", "hyx_gettime"},
         .left = {.responder_ids = 1, .blocks = 2},
         .check = state_is_kept},
        {.label = "state not cleared",
         .setup = known(),
         .arrange = with_responder,
         .faults = {failing(call::hyx_se_state_set)},
         .status = 0x3002C,
         .console = DELETE_ENTERING DELETE_REMOVED DELETE_ERROR(
             "Failed to reset Responder state, RTE error code:0x1ff, error string: {rte 0x1FF}")
             DELETE_ERROR("{status 0x3002C}") DELETE_EXITING,
         .traces = {entry(operation_name), DELETE_REMOVED_TRACE, error(state_refused), error_status(),
                    exit(operation_name)},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "olv_ptn_new", "olv_ptn_extend", "hyx_ptn_unlearn",
                   "hyx_rsrc_free", "hyx_se_state_set", "olv_ptn_free", "hyx_sem_post", "hyx_gettime"},
         .left = {.blocks = 2},
         .check = state_is_kept},

        {.label = "lock not released after success",
         .setup = known(),
         .arrange = with_responder,
         .faults = {failing(call::hyx_sem_post)},
         .status = 0x300A5,
         .console = DELETE_ENTERING DELETE_REMOVED OLV_RELEASE_REFUSED("twamp_responder.c") DELETE_EXITING,
         .traces = {entry(operation_name), DELETE_REMOVED_TRACE, error(release_refused), error_status(),
                    exit(operation_name)},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "olv_ptn_new", "olv_ptn_extend", "hyx_ptn_unlearn",
                   "hyx_rsrc_free", "hyx_se_state_set", "olv_ptn_free", "hyx_sem_post", "hyx_gettime"},
         .left = {.blocks = 2, .lock_held = 1},
         .check = state_is_cleared},
        {.label = "lock not released after a failure",
         .setup = known(),
         .arrange = with_responder,
         .faults = {failing(call::hyx_ptn_unlearn), failing(call::hyx_sem_post)},
         .status = 0x300A5,
         .console = DELETE_ENTERING DELETE_ERROR("Failed to learn the tree entry, treeID = 257RTE error "
                                                 "code:0x1ff, error string: {rte 0x1FF}")
             DELETE_ERROR("{status 0x30040}") OLV_RELEASE_REFUSED("twamp_responder.c") DELETE_EXITING,
         .traces = {entry(operation_name), error(unlearn_refused), error_status(), error(release_refused),
                    error_status(), exit(operation_name)},
         .calls = {"hyx_gettime", "olv_sys_sem_lock_wait", "olv_ptn_new", "olv_ptn_extend", "hyx_ptn_unlearn",
                   "olv_ptn_free", "hyx_sem_post", "hyx_gettime"},
         .left = {.responder_ids = 1, .responder_entries = 1, .blocks = 2, .lock_held = 1},
         .check = state_is_kept},
    }};

TEST(ResponderDelete, GoesAsEachRowSays)
{
    run_entry_rows(rows, delete_it);
}

TEST(ResponderDelete, UnlearnsWithTheKeyWidthAndACountOfOne)
{
    bench b(known());
    with_responder(b);
    const observation seen = b.observe([&] { return delete_it(b); });
    bool unlearnt = false;
    for (const auto &call : seen.recorded) {
        if (call.which == olv_sim::call::hyx_ptn_unlearn) {
            unlearnt = true;
            EXPECT_THAT(call.arguments, testing::HasSubstr("0x000001/24"));
            EXPECT_THAT(call.arguments, testing::HasSubstr("tree=0x101"));
            EXPECT_THAT(call.arguments, testing::HasSubstr("key_bits=24"));
            EXPECT_THAT(call.arguments, testing::HasSubstr("count=1"));
        }
    }
    EXPECT_TRUE(unlearnt);
}

TEST(ResponderDelete, LeavesOtherRespondersAlone)
{
    bench b(known());
    auto *first = b.create_responder(0x1111);
    const auto *second = b.create_responder(0x2222);
    (void)captured_console([&] { EXPECT_EQ(olv_twamp_responder_delete(b.module, first), 0u); });
    EXPECT_FALSE(b.processor.tree(responder_tree)->lookup(1).has_value());
    EXPECT_TRUE(b.processor.tree(responder_tree)->lookup(2).has_value());
    EXPECT_TRUE(b.processor.is_allocated(responder_namespace, 2));
    EXPECT_EQ(second->responder_id, 2u);
    EXPECT_EQ(b.state_bytes(2)[0], 0x22);
}

TEST(ResponderDelete, DoesNotCompareTheModuleOfTheRecord)
{
    bench b(known());
    with_responder(b);
    b.responder->module = nullptr;
    (void)captured_console([&] { EXPECT_EQ(delete_it(b), 0u); });
    EXPECT_EQ(b.responder->module, nullptr);
    EXPECT_EQ(b.processor.allocated(responder_namespace), 0u);
}

TEST(ResponderDelete, UsesOnlyTheLow24BitsOfTheIdAsKey)
{
    bench b(known());
    with_responder(b);
    b.responder->responder_id = 0xFF000001;
    ASSERT_TRUE(olv_sim::faults::set(call::hyx_rsrc_free, {.code = 0x1FF}));
    (void)captured_console([&] { EXPECT_EQ(delete_it(b), 0x3001Eu); });
    EXPECT_EQ(b.processor.tree(responder_tree)->size(), 0u);
}

TEST(ResponderDelete, RemovesOnlyTheEntryOfAReusedId)
{
    // A stale record names the same ID as the responder that was created after it.
    bench b(known_with_responders(1));
    with_responder(b);
    auto *stale = b.responder;
    (void)captured_console([&] { EXPECT_EQ(delete_it(b), 0u); });
    const auto *successor = b.create_responder();
    EXPECT_EQ(successor->responder_id, 1u);
    (void)captured_console([&] { EXPECT_EQ(olv_twamp_responder_delete(b.module, stale), 0u); });
    EXPECT_EQ(b.processor.allocated(responder_namespace), 0u);
    EXPECT_EQ(b.processor.tree(responder_tree)->size(), 0u);
}

TEST(ResponderDelete, PrintsOneRemovedLineForThePatternBitInEitherWord)
{
    const struct {
        std::uint32_t module;
        std::uint32_t system;
        const char *console;
    } words[] = {{0x40, 0, DELETE_REMOVED},
                 {0, 0x40, DELETE_REMOVED},
                 {0x40, 0x40, DELETE_REMOVED},
                 {0x8F, 0x8F, ""},
                 {0, 0, ""}};
    for (const auto &word : words) {
        SCOPED_TRACE(testing::Message() << word.module << ", " << word.system);
        bench b({.module_flags = word.module, .system_flags = word.system, .program = known_program()});
        with_responder(b);
        EXPECT_EQ(b.observe([&] { return delete_it(b); }).console, word.console);
    }
}

TEST(ResponderDelete, ResponderAddressGoesToTheTracerToo)
{
    bench b({.module_flags = 0, .system_flags = 0, .program = known_program()});
    with_responder(b);
    b.responder->magic = 0;
    const observation seen = b.observe([&] { return delete_it(b); });
    ASSERT_EQ(seen.events.size(), 2u);
    EXPECT_EQ(seen.events[0].text, "Invalid TWAMP Responder handle " + low_word(b.responder) + "\n");
    EXPECT_EQ(seen.events[0].first_word, 0u);
    EXPECT_EQ(seen.events[1].text, "Failed to delete Responder Handle");
}

} // namespace
} // namespace olv_test
