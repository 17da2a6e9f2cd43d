// Creating responders. What is written into the state entry is looked at in responder_state_test.cpp.
#include <bit>
#include <cstring>

#include "entry_steps.hpp"
#include "interposed.hpp"
#include "olv_sim/resources.hpp"
#include "rows.hpp"

namespace olv_test {
namespace {

constexpr const char *file = "twamp_responder.c";
constexpr const char *no_id =
    "Failed to allocate index from namespace handle 0x%0x, RTE error code:0x%x, error string: %s\n";

std::uint32_t create(bench &b)
{
    b.info = {0x1234, 0x5678};
    return olv_twamp_responder_create(b.handle, &b.info, b.slot);
}

/** The creation of a bench's next responder, in steps. */
class creation {
  public:
    explicit creation(const bench &b)
        : b_(b),
          frame_(b, file, "olv_twamp_responder_create"),
          ns_(b.responder_ns()),
          id_(b.created() + 1),
          entry_(responder_entry(id_))
    {}

    [[nodiscard]] story succeeds() const
    {
        return allocates_record() + allocates_id() +
               calls(call::hyx_timer_get_timestamp, "rte=%u, timer=0", b_.module->rte_handle)
                   .or_else(writes_and_learns("0000000000000000")) +
               writes_and_learns("0123456789abcdef");
    }

    /** @p has_record  Whether the slot's record is freed. */
    [[nodiscard]] story fails_without_arguments(bool has_record) const
    {
        return frame_.begin + fails(file, 0x30008, "Null Info / Flow Handle Pointer") +
               (has_record ? frees_record() : story()) + ends_in(0x30008);
    }

    /** @p code  With which the namespace refuses by itself. */
    [[nodiscard]] story has_no_id(std::uint32_t code) const
    {
        return allocates_record() +
               calls(call::hyx_rsrc_allocate, "namespace=0x%x, count=1", ns_).or_else(lacks_id(injected)) +
               lacks_id(code);
    }

  private:
    [[nodiscard]] story ends_in(std::uint32_t status) const
    {
        return fails(file, status, "TWAMP Failed to create responder") + frame_.end;
    }
    [[nodiscard]] static story frees_record()
    {
        return calls(call::hyx_nvm_free, "size=%zu", sizeof(twamp_responder_handle))
            .then(takes(&remains::blocks));
    }
    /** The roll-back, whose own failure is not told. */
    [[nodiscard]] story rolls_back_to(std::uint32_t status) const
    {
        return calls(call::hyx_rsrc_free, "namespace=0x%x, resource=%u, count=1", ns_, id_)
                   .then(takes(&remains::responder_ids)) +
               frees_record() + ends_in(status);
    }

    [[nodiscard]] story allocates_record() const
    {
        return frame_.begin +
               calls(call::hyx_nvm_calloc, "count=1, size=%zu", sizeof(twamp_responder_handle))
                   .then(adds(&remains::blocks))
                   .or_else(fails_fatally(file, 0x30012, "Memory allocation failed responder handle") +
                            ends_in(0x30012));
    }
    [[nodiscard]] story lacks_id(std::uint32_t code) const
    {
        return fails(file, 0x3001D, no_id, ns_, code, rte_text(code)) + frees_record() + ends_in(0x3001D);
    }
    [[nodiscard]] story allocates_id() const
    {
        return calls(call::hyx_rsrc_allocate, "namespace=0x%x, count=1", ns_)
            .then([](outcome &result) {
                ++result.left.responder_ids;
                ++result.creations;
            })
            .or_else(lacks_id(injected));
    }

    [[nodiscard]] std::string state_entry(const std::string &timer) const
    {
        return "12340002" // first parameter, the constant 2
               "80005678" // second parameter with bit 31
               "0000000" +
               std::to_string(id_) + // creation count
               "00000000"
               "e8fe6f80"
               "7fffffff" + // 1700000000 + 2208988800 seconds, and a half
               timer +
               std::string(40, '0') + // counters
               (std::endian::native == std::endian::little ? "20000000" : "00000020") + "00000000";
    }
    [[nodiscard]] story writes_and_learns(const std::string &timer) const
    {
        const char *const rte = rte_text(injected);
        return calls(call::hyx_se_state_set, "rte=%u, namespace=0x%06x, index=0, bytes=%s, length=60",
                     b_.module->rte_handle, id_, state_entry(timer).c_str())
                   .or_else(fails(file, 0x3002C,
                                  "Failed to reset Responder state, RTE error code:0x%x, error string: %s\n",
                                  injected, rte) +
                            rolls_back_to(0x3002C)) +
               makes_key(
                   entry_, fails(file, injected_in_framework, "Failed to allocate the pattern structure"),
                   fails(file, injected_in_framework, "Failed to add the responder flow ID to the pattern"),
                   rolls_back_to(injected_in_framework)) +
               learns(
                   b_, entry_,
                   fails(file, 0x30040,
                         "Failed to learn the tree entry, treeID = %dRTE error code:0x%x, error string: %s\n",
                         257, injected, rte),
                   rolls_back_to(0x30040)) +
               frees_pattern(entry_) + frame_.end;
    }

    const bench &b_;
    frame frame_;
    std::uint32_t ns_;
    std::uint32_t id_;
    entry entry_;
};

story creates(const bench &b)
{
    return creation(b).succeeds();
}

twamp_responder_handle *first_of_two = nullptr;

void two_responders(bench &b)
{
    first_of_two = b.create_responder();
    b.create_responder();
}

/** A created responder has its record, its ID and its entry; what failed leaves the slot empty. */
void slot_is_filled_or_empty(bench &b, const outcome &expected)
{
    if (expected.left.responder_entries == b.created()) {
        EXPECT_EQ(b.responder, nullptr);
        return;
    }
    ASSERT_NE(b.responder, nullptr);
    EXPECT_EQ(b.responder->responder_id, b.created() + 1);
    EXPECT_EQ(b.responder->module, b.module);
    EXPECT_EQ(b.responder->magic, 0x43215678u);
    EXPECT_THAT(b.responder->reserved, testing::Each(0u));
    EXPECT_TRUE(b.processor.is_allocated(responder_namespace, b.responder->responder_id));
    const auto action = b.processor.tree(responder_tree)->lookup(b.responder->responder_id);
    ASSERT_TRUE(action.has_value());
    EXPECT_THAT(action->word, testing::ElementsAre(0, 0, 0));
}

/** A record that no operation may look into. */
twamp_responder_handle untouched{0x00AABBCC, nullptr, 0x43215678, {}};

void fill_slot(bench &b)
{
    b.responder = &untouched;
}

void slot_is_untouched(bench &b, const outcome & /*unused*/)
{
    EXPECT_EQ(b.responder, &untouched);
    EXPECT_EQ(untouched.responder_id, 0x00AABBCCu);
    EXPECT_EQ(untouched.magic, 0x43215678u);
}

/** The slot alone knows the record of a second responder. */
void slot_with_a_responder(bench &b)
{
    b.create_responder();
    b.responder = b.create_unkept_responder();
}

const table rows{
    "olv_twamp_responder_create",
    row_list{
        {.label = "first responder", .work = create, .tells = creates, .afterwards = slot_is_filled_or_empty},
        {.label = "beside two others",
         .arrange = two_responders,
         .work = create,
         .tells = creates,
         .afterwards = slot_is_filled_or_empty},
        {.label = "no ID left",
         .setup = {.program = bench_program(2)},
         .arrange = two_responders,
         .work = create,
         .tells = [](const bench &b) { return creation(b).has_no_id(0x107); },
         .afterwards =
             [](bench &b, const outcome &) {
                 EXPECT_EQ(b.responder, nullptr);
                 EXPECT_EQ(quiet([&] { return olv_twamp_responder_delete(b.module, first_of_two); }), 0u);
             }},
        {.label = "null info, slot with a responder: its record is freed, nothing else",
         .arrange = slot_with_a_responder,
         .work = [](bench &b) { return olv_twamp_responder_create(b.handle, nullptr, b.slot); },
         .tells = [](const bench &b) { return creation(b).fails_without_arguments(true); }},
        {.label = "null info, empty slot",
         .work = [](bench &b) { return olv_twamp_responder_create(b.handle, nullptr, b.slot); },
         .tells = [](const bench &b) { return creation(b).fails_without_arguments(false); }},
        {.label = "null slot",
         .work = [](bench &b) { return olv_twamp_responder_create(b.handle, &b.info, nullptr); },
         .tells = [](const bench &b) { return creation(b).fails_without_arguments(false); }},
        {.label = "null info and null slot",
         .work = [](bench &b) { return olv_twamp_responder_create(b.handle, nullptr, nullptr); },
         .tells = [](const bench &b) { return creation(b).fails_without_arguments(false); }}} +
        unusable_handles(
            {.arrange = fill_slot, .work = create, .afterwards = slot_is_untouched},
            [](const bench &b) { return refuses_module(b, file, "Failed to create Responder Handle"); })};

TEST(ResponderCreate, GoesAsEachRowSays)
{
    rows.run();
}

TEST(ResponderCreate, LeavesTheSlotAloneWithoutTheLock)
{
    bench b;
    fill_slot(b);
    olv_sim::faults::set(call::olv_sys_sem_lock_wait, {.code = injected});
    EXPECT_EQ(quiet([&] { return create(b); }), 0x300A5u);
    slot_is_untouched(b, {});
}

TEST(ResponderCreate, EmptiesTheSlotBeforeItAllocatesTheRecord)
{
    bench b;
    fill_slot(b);
    const twamp_responder_handle *at_allocation = b.responder;
    interposition between;
    between.after_calloc = [&](void *, std::size_t) { at_allocation = b.responder; };
    EXPECT_EQ(quiet([&] { return create(b); }), 0u);
    EXPECT_EQ(at_allocation, nullptr);
}

TEST(ResponderCreate, ClearsTheRecordBeforeItFreesIt)
{
    bench b;
    twamp_responder_handle freed{1, b.module, 1, {}};
    interposition between;
    between.before_free = [&freed](const void *block) { std::memcpy(&freed, block, sizeof freed); };
    olv_sim::faults::set(call::hyx_ptn_learn, {.code = injected});
    EXPECT_EQ(quiet([&] { return create(b); }), 0x30040u);
    EXPECT_EQ(freed.module, nullptr);
    EXPECT_EQ(freed.magic, 0u);
}

} // namespace
} // namespace olv_test
