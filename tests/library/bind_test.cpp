// Bind and unbind: what they accept, and what they refuse before they have the lock.
#include <cstring>

#include "bind_steps.hpp"
#include "olv_sim/resources.hpp"

namespace olv_test {
namespace {

// Success

/** The default entry point is 16 bits. */
void largest_default_allowed(bench & /*unused*/, request &asked)
{
    asked.info.bind_subtype = 2;
    asked.destination.default_entry_point = 0xFFFF;
}

/** An entry that bind has learnt, and the entries of other keys. */
void bind_tree_is_as_told(bench &b, const outcome &expected)
{
    const auto action = b.processor.tree(bind_tree)->lookup(0xABCDEF);
    ASSERT_EQ(action.has_value(), expected.left.bind_entries == 3);
    if (action) {
        EXPECT_THAT(action->word, testing::ElementsAre(1, 0x401, 0));
    }
    EXPECT_TRUE(b.processor.tree(bind_tree)->lookup(0).has_value());
    EXPECT_TRUE(b.processor.tree(bind_tree)->lookup(0xFFFFFF).has_value());
}

row beside_others(const direction &way)
{
    row each = asking(way, "IPv4, beside other keys", unaltered, succeeds(way, 1, 0x401));
    each.arrange = [&way](bench &b) {
        ready(way)(b);
        b.learn(bind_tree_id, 0, 1, 0x601);
        b.learn(bind_tree_id, 0xFFFFFF, 1, 0x601);
    };
    each.afterwards = bind_tree_is_as_told;
    return each;
}

row_list successes(const direction &way)
{
    return variations_of_first({
        beside_others(way),
        asking(
            way, "IPv6", [](bench &b, request &asked) { asked.info.dst_module = b.framework.ipv6_module(); },
            succeeds(way, 11, 0x601)),
        asking(
            way, "only the low 24 bits of the instance's first word are the key",
            [](bench &, request &asked) { asked.key = 0xFFABCDEF; }, succeeds(way, 1, 0x401, 0xFFABCDEF)),
        asking(
            way, "the rest of the request is not looked at",
            [](bench &, request &asked) {
                asked.info.src_location = 1;
                asked.info.dst_location = 1;
                asked.info.custom_bind = 0x80;
                asked.info.bind_subtype = 0xFFFFFFFF;
            },
            succeeds(way, 1, 0x401)),
        looking_up(way, "no lookup, default entry point allowed", 1, nullptr, default_allowed,
                   succeeds_unasked(way, 0x123)),
        looking_up(way, "lookup that writes nothing, default entry point allowed, IPv6", 11, answer_nothing,
                   largest_default_allowed, succeeds_unasked(way, 0xFFFF)),
        looking_up(way, "lookup that yields 0, default entry point allowed", 1, answer<0>, default_allowed,
                   succeeds_unasked(way, 0x123)),
        // For unbind it is another entry point than at the bind; the platform removes by the key alone.
        looking_up(way, "the lookup's entry point, with all its bits, goes before the default one", 1,
                   answer<0x87654321>, default_allowed, succeeds_unasked(way, 0x87654321)),
    });
}

// Handles

row_list handles(const direction &way)
{
    const teller_of_row invalid = [](const bench &) {
        return says_unknown(bind_file, "Invalid bind Info pointer0x%08x\n", 0u) +
               says_unknown_text(bind_file, binding.invalid_module) + yields(8);
    };
    const teller_of_row refused = [&way](const bench &b) {
        return refuses_module(b, bind_file, way.invalid_module);
    };
    row_list rows{{.label = "null request",
                   .work = [&way](bench &b) { return way.function(b.framework.system(), nullptr); },
                   .tells = invalid},
                  {.label = "null request and null system record",
                   .work = [&way](bench &) { return way.function(nullptr, nullptr); },
                   .tells = invalid},
                  {.label = "null system record: the valid module is shown",
                   .work =
                       [&way](bench &b) {
                           const request asked(b);
                           return way.function(nullptr, &asked.info);
                       },
                   .tells = refused}};
    return rows + unusable_handles({.work = changed(way, unaltered)}, refused);
}

/** The log words are the module's and those of the record that is passed: the one that the module has is not
 *  asked, whether it lets everything through or nothing. */
row_list with_decoys(const direction &way)
{
    row_list rows;
    for (const std::uint32_t word : {everything, 0u}) {
        static olv_system_handle decoy{0, 0, "decoy", {}, 0};
        row each =
            asking(way, word == 0 ? "module with a silent system record" : "module with a loud system record",
                   unaltered, succeeds(way, 1, 0x401));
        each.arrange = [&way, word](bench &b) {
            ready(way)(b);
            decoy.log_flags = word;
            b.module->system = &decoy;
        };
        each.afterwards = [](bench &b, const outcome &) { b.module->system = b.framework.system(); };
        rows.push_back(each);
        each.label += ", refused";
        each.work = changed(way, [](bench &, request &asked) { asked.info.bind_path = 2; });
        each.tells = refuses(way, 0x30008, path_refused);
        rows.push_back(each);
    }
    return rows;
}

const table bind_rows{binding.operation, successes(binding) + handles(binding) + with_decoys(binding)};

const table unbind_rows{unbinding.operation,
                        successes(unbinding) +
                            row_list{asking(unbinding, "custom_bind is not looked at", no_custom_bind,
                                            succeeds(unbinding, 1, 0x401))} +
                            handles(unbinding) + with_decoys(unbinding)};

TEST(CustomBind, GoesAsEachRowSays)
{
    bind_rows.run();
}

TEST(CustomUnbind, GoesAsEachRowSays)
{
    unbind_rows.run();
}

/** The module's private context, as bytes. */
std::vector<std::uint8_t> context_bytes(const bench &b)
{
    std::vector<std::uint8_t> bytes(124);
    std::memcpy(bytes.data(), b.module->ctx, bytes.size());
    return bytes;
}

TEST(CustomBind, StoresNothingInTheModule)
{
    bench b;
    const request asked(b);
    const std::vector<std::uint8_t> before = context_bytes(b);
    for (const direction *way : {&binding, &unbinding}) {
        EXPECT_EQ(quiet([&] { return way->function(b.framework.system(), &asked.info); }), 0u);
        EXPECT_EQ(context_bytes(b), before);
    }
}

/** What the destination's lookup was called with. */
struct lookup_call {
    olv_module_handle *module = nullptr;
    const olv_bind_info *info = nullptr;
    std::uint32_t entry_point = 1;
    std::uint32_t lock_held = 0;
} last_lookup;

std::uint32_t note(olv_module_handle *module, const olv_bind_info *info, std::uint32_t *entry_point)
{
    last_lookup = {module, info, *entry_point, olv_sim::semaphores::held(info->src_module->lock)};
    *entry_point = 0x401;
    return 0;
}

TEST(CustomBind, AsksTheDestinationUnderTheLockOfTheSource)
{
    bench b;
    const replaced_lookup replaced(11, note);
    request asked(b);
    asked.info.dst_module = b.framework.ipv6_module();
    for (const direction *way : {&binding, &unbinding}) {
        last_lookup = {};
        EXPECT_EQ(quiet([&] { return way->function(b.framework.system(), &asked.info); }), 0u);
        EXPECT_EQ(last_lookup.module, b.framework.ipv6_module());
        EXPECT_EQ(last_lookup.info, &asked.info);
        EXPECT_EQ(last_lookup.entry_point, 0u);
        EXPECT_EQ(last_lookup.lock_held, 1u);
    }
}

TEST(CustomBind, AsksThePassedSystemRecordForStatusTexts)
{
    bench b;
    olv_sim::framework other{"other"};
    request asked(b);
    asked.info.bind_path = 2;
    for (const direction *way : {&binding, &unbinding}) {
        const observation seen = b.observe([&] { return way->function(other.system(), &asked.info); },
                                           static_cast<unsigned>(olv_sim::call_kind::text));
        EXPECT_THAT(seen.calls(), testing::ElementsAre("olv_sys_status_get(system=other, status=0x30008)",
                                                       "olv_sys_status_get(system=other, status=0x30008)"));
    }
}

} // namespace
} // namespace olv_test
