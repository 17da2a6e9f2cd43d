// Bind, unbind and the inter-module call lookup under every fault.
#include "bind_rows.hpp"
#include "fault_sweep.hpp"

namespace olv_test::sweeping {
namespace {

constexpr const char *source = "twamp_bind.c";
const std::string rte_error = "RTE error code:0x1ff, error string: {rte 0x1FF}";

/** What bind and unbind differ in. */
struct direction {
    std::string operation;
    std::string not_performed;
};

const direction binding{"olv_twamp_custom_bind", "Failed to perform custom binding."};
const direction unbinding{"olv_twamp_custom_unbind", "Failed to perform custom un binding."};

path ends(const direction &way)
{
    return unlocks(source, exits(source, way.operation));
}

/** The last message of a failure, printed whatever the levels. */
path gives_up(const direction &way)
{
    return join({says("[olv_unknown_log: ERROR] twamp_bind.c:LINE " + way.not_performed + "\n",
                      forced(way.not_performed + "\n")),
                 ends(way)});
}

path free_pattern()
{
    return calls(call::olv_ptn_free, takes(&remains::patterns));
}

path free_pattern_and_give_up(const direction &way)
{
    return join({free_pattern(), gives_up(way)});
}

path looks_up_the_entry_point(const direction &way)
{
    return calls(call::entry_point_lookup, {},
                 join({fails(source, "Failed to get Entry point function for destination module",
                             "Failed to get Entry point function for destination module\n", 0x3000D),
                       gives_up(way)}));
}

/** An error without the text of its status. */
path fails_silently(const std::string &text, std::uint32_t status)
{
    return join(
        {says("[twamp_log: ERROR] twamp_bind.c:LINE " + text + "\n", error(text + "\n")), yields(status)});
}

// Bind

path learn_refused(const std::string &error_text)
{
    return join(
        {fails(source, "Failed to learn the tree entry, treeID = 514\n" + error_text,
               "Failed to learn the tree entry, treeID = %d\nRTE error code:0x%x, error string: %s\n", 0x30040),
         free_pattern_and_give_up(binding)});
}

/** Up to the learning, which a key that is there refuses by itself. */
path bind_steps(effect learns, const path &after_learning)
{
    return join({enters(source, binding.operation),
                 locks(source, join({looks_up_the_entry_point(binding),
                                     calls(call::olv_ptn_new, adds(&remains::patterns),
                                           join({fails(source, "Failed to allocate the pattern structure",
                                                       "Failed to allocate the pattern structure\n", 0x30012),
                                                 gives_up(binding)})),
                                     calls(call::olv_ptn_extend, {},
                                           join({fails(source, "Failed to extend the pattern structure",
                                                       "Failed to extend the pattern structure\n", 0x301FF),
                                                 free_pattern_and_give_up(binding)})),
                                     calls(call::hyx_ptn_learn, std::move(learns), learn_refused(rte_error)),
                                     after_learning}))});
}

const operation bind = with_request(olv_twamp_custom_bind, unchanged);

TEST(FaultSweep, Bind)
{
    const path learnt_and_done =
        join({says("[twamp_log: ptn_learn]olv_twamp.twamp_bind_to_next_module: " OLV_PRINTED_PATTERN("abcdef")
                       OLV_PRINTED_ACTION("00000001", "00000401") "\n",
                   learnt("olv_twamp.twamp_bind_to_next_module " OLV_TRACED_PATTERN
                          " 0x00000001 0x00000401 0x00000000")),
              free_pattern(),
              says("[twamp_log: info] twamp_bind.c:LINE Custom Bind Successfully done.\n",
                   info("Custom Bind Successfully done.\n")),
              ends(binding)});
    sweep({.label = "olv_twamp_custom_bind",
           .work = bind,
           .steps = bind_steps(adds(&remains::bind_entries), learnt_and_done),
           .without_system = false,
           .afterwards = [](bench &b, const outcome &expected) {
               EXPECT_EQ(bound_to(b, 0xABCDEF).has_value(), expected.left.bind_entries == 1);
           }});
}

TEST(FaultSweep, BindOfAKeyThatIsBound)
{
    sweep({.label = "olv_twamp_custom_bind, bound before",
           .arrange = bind_quietly,
           .work = bind,
           .steps = bind_steps({}, learn_refused("RTE error code:0x10b, error string: {rte 0x10B}")),
           .before = {.bind_entries = 1},
           .without_system = false});
}

TEST(FaultSweep, BindToAModuleOfNoPair)
{
    const operation to_module_7 = with_lookup(olv_twamp_custom_bind, 7, answer_0777, [](bench &, request &) {});
    sweep({.label = "olv_twamp_custom_bind, destination module 7",
           .work = to_module_7,
           .steps = join({enters(source, binding.operation),
                          locks(source, join({fails(source, BIND_SUPPORTED, BIND_SUPPORTED "\n", 9),
                                              gives_up(binding)}))}),
           .without_system = false});
}

// Unbind

path unlearn_refused(const std::string &error_text)
{
    return join(
        {fails(source, "Failed to unlearn the tree entry, treeID = 514" + error_text,
               "Failed to unlearn the tree entry, treeID = %dRTE error code:0x%x, error string: %s\n", 0x30041),
         free_pattern_and_give_up(unbinding)});
}

path unbind_steps(effect unlearns, const path &after_unlearning)
{
    return join(
        {enters(source, unbinding.operation),
         locks(source, join({looks_up_the_entry_point(unbinding),
                             calls(call::olv_ptn_new, adds(&remains::patterns),
                                   join({fails_silently("Failed to allocate the pattern structure", 0x30012),
                                         gives_up(unbinding)})),
                             calls(call::olv_ptn_extend, {},
                                   join({fails_silently("Failed to extend the pattern structure", 0x30012),
                                         free_pattern_and_give_up(unbinding)})),
                             calls(call::hyx_ptn_unlearn, std::move(unlearns), unlearn_refused(rte_error)),
                             after_unlearning}))});
}

const operation unbind = with_request(olv_twamp_custom_unbind, unchanged);

TEST(FaultSweep, Unbind)
{
    const path unlearnt_and_done =
        join({says("[twamp_log: ptn_unlearn]olv_twamp.twamp_bind_to_next_module: " OLV_PRINTED_PATTERN(
                       "abcdef") "<xsize = 24>" OLV_PRINTED_ACTION("00000001", "00000401") "\n",
                   removed("olv_twamp.twamp_bind_to_next_module " OLV_TRACED_PATTERN
                           " 24 0x00000001 0x00000401 0x00000000")),
              free_pattern(),
              says("[twamp_log: info] twamp_bind.c:LINE Custom Un Bind Successfully done.\n",
                   info("Custom Un Bind Successfully done.\n")),
              ends(unbinding)});
    sweep({.label = "olv_twamp_custom_unbind",
           .arrange = bind_quietly,
           .work = unbind,
           .steps = unbind_steps(takes(&remains::bind_entries), unlearnt_and_done),
           .before = {.bind_entries = 1},
           .without_system = false});
}

TEST(FaultSweep, UnbindOfAKeyThatIsNotBound)
{
    sweep({.label = "olv_twamp_custom_unbind, not bound",
           .work = unbind,
           .steps = unbind_steps({}, unlearn_refused("RTE error code:0x10c, error string: {rte 0x10C}")),
           .without_system = false});
}

TEST(FaultSweep, UnbindWithoutAnEntryPoint)
{
    const operation without_lookup =
        with_lookup(olv_twamp_custom_unbind, 1, nullptr, [](bench &, request &) {});
    sweep(
        {.label = "olv_twamp_custom_unbind, no entry point",
         .arrange = bind_quietly,
         .work = without_lookup,
         .steps = join(
             {enters(source, unbinding.operation),
              locks(source, join({fails(source, "Invalid Entry point function found for destination module",
                                        "Invalid Entry point function found for destination module\n", 0x3000D),
                                  gives_up(unbinding)}))}),
         .before = {.bind_entries = 1},
         .without_system = false});
}

// Inter-module call lookup: neither entry nor exit line.

constexpr const char *lookup_source = "twamp_internal.c";
std::uint32_t imc = 0;

operation ask(change_request change)
{
    return [change](bench &b) {
        request asked(b);
        change(b, asked);
        imc = 0xDEADBEEF;
        return olv_twamp_get_imc(b.module, &asked.info, &imc);
    };
}

TEST(FaultSweep, GetImc)
{
    sweep(
        {.label = "olv_twamp_get_imc, IPv6 module",
         .work = ask([](bench &b, request &asked) { asked.info.dst_module = b.framework.ipv6_module(); }),
         .steps = locks(lookup_source, join({changes([](outcome &result) { result.record_was_written = true; }),
                                             unlocks(lookup_source)})),
         .afterwards = [](bench &, const outcome &expected) {
             EXPECT_EQ(imc, expected.record_was_written ? 0x0303u : 0xDEADBEEFu);
         }});
}

TEST(FaultSweep, GetImcForAModuleOfNoPair)
{
    sweep({.label = "olv_twamp_get_imc, module 7",
           .work = ask([](bench &, request &asked) {
               asked.destination.module_id = 7;
               asked.info.dst_module = &asked.destination;
           }),
           .steps = locks(lookup_source,
                          join({says("[twamp_log: info] twamp_internal.c:LINE Invalid/unsupported bind path\n",
                                     info("Invalid/unsupported bind path\n")),
                                yields(0x3000C), unlocks(lookup_source)})),
           .afterwards = [](bench &, const outcome &) { EXPECT_EQ(imc, 0xDEADBEEFu); }});
}

} // namespace
} // namespace olv_test::sweeping
