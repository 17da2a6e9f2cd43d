// Deleting responders.
#include "entry_steps.hpp"
#include "olv_sim/resources.hpp"
#include "rows.hpp"

namespace olv_test {
namespace {

constexpr const char *file = "twamp_responder.c";

std::uint32_t remove(bench &b)
{
    return olv_twamp_responder_delete(b.handle, b.responder);
}

/** The deletion of the bench's responder, in steps. */
class deletion {
  public:
    explicit deletion(const bench &b)
        : b_(b),
          frame_(b, file, "olv_twamp_responder_delete"),
          id_(b.responder->responder_id),
          entry_(responder_entry(id_))
    {}

    [[nodiscard]] story succeeds() const
    {
        return makes_pattern() + removes(b_, entry_, not_removed(injected), frame_.end) + returns_id() +
               clears_state() + ends();
    }

    /** The tree has no such entry. */
    [[nodiscard]] story finds_no_entry() const
    {
        return makes_pattern() + asks_to_remove(b_, entry_).or_else(not_removed(injected) + ends()) +
               not_removed(0x10C) + ends();
    }

    /** The namespace refuses the ID, by a fault of the row's own. */
    [[nodiscard]] story keeps_id() const
    {
        return makes_pattern() + removes(b_, entry_, not_removed(injected), frame_.end) + frees_id() +
               not_returned();
    }

  private:
    [[nodiscard]] story ends() const { return frees_pattern(entry_) + frame_.end; }

    [[nodiscard]] story makes_pattern() const
    {
        return frame_.begin +
               makes_key(
                   entry_, fails(file, injected_in_framework, "Failed to allocate the pattern structure"),
                   fails(file, injected_in_framework, "Failed to add the responder flow ID to the pattern"),
                   frame_.end);
    }

    /** Creation's words and status. */
    [[nodiscard]] static story not_removed(std::uint32_t code)
    {
        return fails(file, 0x30040,
                     "Failed to learn the tree entry, treeID = %dRTE error code:0x%x, error string: %s\n", 257,
                     code, rte_text(code));
    }

    [[nodiscard]] story frees_id() const
    {
        return calls(call::hyx_rsrc_free, "namespace=0x%x, resource=%u, count=1", b_.responder_ns(), id_);
    }
    [[nodiscard]] story not_returned() const
    {
        return fails(
                   file, 0x3001E,
                   "Failed to free resource to namespace handle 0x%0x, RTE error code:0x%x, error string: %s\n",
                   b_.responder_ns(), injected, rte_text(injected)) +
               ends();
    }
    [[nodiscard]] story returns_id() const
    {
        return frees_id().then(takes(&remains::responder_ids)).or_else(not_returned());
    }

    [[nodiscard]] story clears_state() const
    {
        return calls(call::hyx_se_state_set, "rte=%u, namespace=0x%06x, index=0, bytes=%s, length=60",
                     b_.module->rte_handle, id_, std::string(120, '0').c_str())
            .then(writes_result())
            .or_else(fails(file, 0x3002C,
                           "Failed to reset Responder state, RTE error code:0x%x, error string: %s\n", injected,
                           rte_text(injected)) +
                     ends());
    }

    const bench &b_;
    frame frame_;
    std::uint32_t id_;
    entry entry_;
};

story deletes(const bench &b)
{
    return deletion(b).succeeds();
}

story refuses(const bench &b)
{
    return refuses_module(b, file, "Failed to delete Responder Handle");
}

story refuses_responder(const bench &b)
{
    return says_unknown(file, "Invalid TWAMP Responder handle 0x%08x\n", low_word(b.responder)) +
           says_unknown(file, "Failed to delete Responder Handle") + yields(1);
}

void one_responder(bench &b)
{
    b.responder = b.create_responder(0x1234, 0x5678);
}

/** Whose record has another magic. */
std::function<void(bench &)> spoilt_responder(std::uint32_t magic)
{
    return [magic](bench &b) {
        one_responder(b);
        b.responder->magic = magic;
    };
}

/** Whatever becomes of the responder, its record stays; the state is kept until it is cleared. */
void record_is_unchanged(bench &b, const outcome &expected)
{
    EXPECT_TRUE(olv_sim::memory::is_live(b.responder));
    EXPECT_EQ(b.responder->responder_id, 1u);
    EXPECT_EQ(b.responder->module, b.module);
    EXPECT_EQ(b.responder->magic, 0x43215678u);
    const auto bytes = b.state_bytes(1);
    EXPECT_EQ(bytes == std::vector<std::uint8_t>(60, 0), expected.result_written);
}

/** Another responder has the ID of a deleted one, whose handle is used again. IDs are handed out in turn. */
void successor_of_a_deleted_one(bench &b)
{
    one_responder(b);
    EXPECT_EQ(quiet([&] { return remove(b); }), 0u);
    twamp_responder_handle *next = nullptr;
    while ((next = b.create_responder())->responder_id != b.responder->responder_id) {
        EXPECT_EQ(quiet([&] { return olv_twamp_responder_delete(b.module, next); }), 0u);
    }
}

const table rows{
    "olv_twamp_responder_delete",
    row_list{{.label = "responder",
              .arrange = one_responder,
              .work = remove,
              .tells = deletes,
              .afterwards = record_is_unchanged},
             {.label = "responder beside another, which stays",
              .arrange =
                  [](bench &b) {
                      b.create_responder();
                      b.responder = b.create_responder();
                  },
              .work = remove,
              .tells = deletes},
             {.label = "deleted before: the record still passes",
              .arrange =
                  [](bench &b) {
                      one_responder(b);
                      EXPECT_EQ(quiet([&] { return remove(b); }), 0u);
                  },
              .work = remove,
              .tells = [](const bench &b) { return deletion(b).finds_no_entry(); }},
             {.label = "deleted before, the ID in use again",
              .setup = {.program = bench_program(3)},
              .arrange = successor_of_a_deleted_one,
              .work = remove,
              .tells = deletes},
             {.label = "the module of the record is not looked at",
              .arrange =
                  [](bench &b) {
                      one_responder(b);
                      b.responder->module = nullptr;
                  },
              .work = remove,
              .tells = deletes},
             {.label = "only the low 24 bits of the ID are the key",
              .arrange =
                  [](bench &b) {
                      one_responder(b);
                      b.responder->responder_id = 0xFF000001;
                  },
              .faults = {{call::hyx_rsrc_free, {.code = injected}}},
              .work = remove,
              .tells = [](const bench &b) { return deletion(b).keeps_id(); }},
             {.label = "null responder", .work = remove, .tells = refuses_responder},
             {.label = "responder with a cleared magic",
              .arrange = spoilt_responder(0),
              .work = remove,
              .tells = refuses_responder},
             {.label = "responder with a magic that is wrong by one bit",
              .arrange = spoilt_responder(0x43215679),
              .work = remove,
              .tells = refuses_responder},
             {.label = "null responder of a module that is not initialised",
              .setup = {.initialised = false},
              .work = remove,
              .tells = refuses}} +
        unusable_handles({.arrange = one_responder, .work = remove, .afterwards = record_is_unchanged},
                         refuses)};

TEST(ResponderDelete, GoesAsEachRowSays)
{
    rows.run();
}

} // namespace
} // namespace olv_test
