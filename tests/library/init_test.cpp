// Initialisation: its steps, and what it writes into the context.
#include <cstring>

#include "interposed.hpp"
#include "olv_sim/resources.hpp"
#include "rows.hpp"

namespace olv_test {
namespace {

constexpr const char *file = "twamp.c";
constexpr const char *operation_name = "olv_twamp_init";

std::uint32_t init(bench &b)
{
    return olv_twamp_init(b.handle);
}

/** Frees the context. */
story gives_up()
{
    return calls(call::hyx_nvm_free, "size=124").then(takes(&remains::blocks)) + exits(file, operation_name);
}

constexpr const char *no_responder_ns =
    "Failed to get the handle for TWAMP responder name space %s, RTE error code:0x%x, error string: %s\n";
constexpr const char *no_session_ns = "Failed to get the handle for TWAMP reflector session name space %s, RTE "
                                      "error code:0x%x, error string: %s\n";

story lacks_session_ns(std::uint32_t code)
{
    return fails(file, 0x30019, no_session_ns, "twamp_reflector_session", code, rte_text(code)) + gives_up();
}

/** Up to the look-up of the second namespace. */
story finds_responder_ns(const bench &b)
{
    return enters(file, operation_name) +
           calls(call::hyx_nvm_calloc, "count=1, size=124")
               .then([](outcome &result) {
                   ++result.left.blocks;
                   result.result_written = true; // the module's `ctx`
               })
               .or_else(fails_fatally(file, 0x30012, "Fail to allocate memory\n").said_by(voice::system) +
                        exits(file, operation_name)) +
           calls(call::hyx_rsrc_find, "rte=%u, unused=0, name=twamp_responder", b.module->rte_handle)
               .or_else(fails(file, 0x30019, no_responder_ns, "twamp_responder", injected, rte_text(injected)) +
                        gives_up()) +
           calls(call::hyx_rsrc_find, "rte=%u, unused=0, name=twamp_reflector_session", b.module->rte_handle)
               .or_else(lacks_session_ns(injected));
}

story finds_tree_functions(const bench &b)
{
    story steps;
    for (const char *const name : {"olv_twamp.twamp_to_ip_direct_imc", "olv_twamp.twamp_to_ipv6_indirect_imc",
                                   "olv_twamp.twamp_lli_processing", "olv_twamp.twamp_responder_lookup",
                                   "olv_twamp.twamp_bind_to_next_module"}) {
        steps += calls(call::hyx_ptn_symbol_get_id, "rte=%u, name=%s", b.module->rte_handle, name)
                     .or_else(fails(file, 0x3003F,
                                    "Failed to get ID for the QMT tree function %s, RTE error code:0x%x, error "
                                    "string: %s\n",
                                    name, injected, rte_text(injected)) +
                              gives_up());
    }
    return steps;
}

story not_registered(std::uint32_t status)
{
    return fails_fatally(file, status, "Failed to register the service functions\n").said_by(voice::system) +
           gives_up();
}

story registers(const bench &b)
{
    return calls(call::olv_module_service_function_register, "module=%u, table=set, lli=0x505",
                 b.module->module_id)
        .then([](outcome &result) { result.left.registered = true; })
        .or_else(not_registered(0x301FF));
}

story comes_up(const bench &b)
{
    const std::string zeros(256, '0');
    return finds_responder_ns(b) + finds_tree_functions(b) + registers(b) + dumps_zeros(file, 0x7008C1, 128) +
           calls(call::hyx_se_state_set, "rte=%u, namespace=0x7008c1, index=0, bytes=%s, length=128",
                 b.module->rte_handle, zeros.c_str())
               .then([](outcome &result) { result.left.initialised = true; })
               .or_else(fails_fatally(file, 0x1002C, "Failed to clear global stats, RTE Error: %s\n",
                                      rte_text(injected)) +
                        gives_up()) +
           says(severity::info, file, "Profile - OLV_KORVA_PROFILE_2\n") +
           says(severity::info, file, "Succefully initialized TWAMP module") + exits(file, operation_name);
}

story refuses(const bench &b)
{
    return says_unknown(file, "Invalid TWAMP module handle 0x%08X\n", low_word(b.handle)) +
           says_unknown(file, "TWAMP module failed to initilize\n") + yields(1);
}

void shut_down(bench &b)
{
    EXPECT_EQ(quiet([&] { return olv_twamp_shutdown(b.module); }), 0u);
}

const twamp_ctx *context_before = nullptr;

/** An init that cannot clear the statistics leaves the module with the address of a freed block. */
void failed_before(bench &b)
{
    olv_sim::faults::set(call::hyx_se_state_set, {.code = injected});
    EXPECT_EQ(quiet([&] { return olv_twamp_init(b.module); }), 0x1002Cu);
    olv_sim::faults::clear_all();
    EXPECT_EQ(olv_twamp_valid_module_handle(b.module), 0u);
    context_before = b.module->ctx;
    EXPECT_NE(context_before, nullptr);
}

/** `ctx` is the new block, freed or not; without one it is as it was. */
void points_at_the_last_block(bench &b, const outcome &expected)
{
    if (!expected.result_written) {
        EXPECT_EQ(b.module->ctx, context_before);
    } else {
        EXPECT_NE(b.module->ctx, nullptr);
        EXPECT_EQ(olv_sim::memory::is_live(b.module->ctx), expected.left.initialised);
    }
}

void new_module(bench &)
{
    context_before = nullptr;
}

options without_session_ns()
{
    options setup{.initialised = false};
    std::erase_if(setup.program.namespaces, [](const auto &each) { return each.name == session_namespace; });
    return setup;
}

const table rows{operation_name,
                 {{.label = "new module",
                   .setup = {.initialised = false},
                   .arrange = new_module,
                   .work = init,
                   .tells = comes_up,
                   .afterwards = points_at_the_last_block},
                  {.label = "after an init that could not clear the statistics",
                   .setup = {.initialised = false},
                   .arrange = failed_before,
                   .work = init,
                   .tells = comes_up,
                   .afterwards = points_at_the_last_block},
                  {.label = "after a shutdown", .arrange = shut_down, .work = init, .tells = comes_up},
                  {.label = "program without the session namespace",
                   .setup = without_session_ns(),
                   .work = init,
                   .tells = [](const bench &b) { return finds_responder_ns(b) + lacks_session_ns(0x106); },
                   .usable_afterwards = false},
                  {.label = "registration refused: the status becomes the module's own",
                   .setup = {.initialised = false},
                   .faults = {{call::olv_module_service_function_register, {.code = 0x10007}}},
                   .work = init,
                   .tells =
                       [](const bench &b) {
                           return finds_responder_ns(b) + finds_tree_functions(b) +
                                  calls(call::olv_module_service_function_register,
                                        "module=%u, table=set, lli=0x505", b.module->module_id) +
                                  not_registered(0x30007);
                       }},
                  {.label = "already initialised",
                   .arrange = [](bench &b) { context_before = b.module->ctx; },
                   .work = init,
                   .tells =
                       [](const bench &b) {
                           return says_unknown(file, "TWAMP Module handle 0x%08x is already initialized\n",
                                               low_word(b.handle));
                       },
                   .afterwards = [](bench &b, const outcome &) { EXPECT_EQ(b.module->ctx, context_before); }},
                  {.label = "null handle",
                   .setup = {.initialised = false},
                   .arrange = [](bench &b) { b.handle = nullptr; },
                   .work = init,
                   .tells = refuses},
                  {.label = "record that is no module's",
                   .setup = {.initialised = false},
                   .arrange = [](bench &b) { b.handle = &b.foreign; },
                   .work = init,
                   .tells = refuses,
                   .afterwards = [](bench &b, const outcome &) { EXPECT_EQ(b.foreign.ctx, nullptr); }},
                  {.label = "record of an initialised module with a lower magic",
                   .arrange =
                       [](bench &b) {
                           b.foreign.magic = 0x53248790;
                           b.handle = &b.foreign;
                       },
                   .work = init,
                   .tells = refuses}}};

TEST(Init, GoesAsEachRowSays)
{
    rows.run();
}

TEST(Init, RegisteredServiceFunctionsDoTheirWork)
{
    bench b;
    const std::uint32_t key = 0xABCDEF;
    const olv_bind_info asked = olv_sim::make_bind_info(b.module, b.framework.ipv4_module(), &key);
    std::uint32_t imc = 0;
    EXPECT_EQ(quiet([&] { return b.framework.get_imc(b.module, asked, &imc); }), 0u);
    EXPECT_EQ(imc, ip_direct_imc_id);
    EXPECT_EQ(quiet([&] { return b.framework.bind(asked); }), 0u);
    EXPECT_EQ(b.left().bind_entries, 1u);
    EXPECT_EQ(quiet([&] { return b.framework.unbind(asked); }), 0u);
    EXPECT_EQ(b.left().bind_entries, 0u);
    EXPECT_EQ(quiet([&] { return b.framework.shutdown(b.module); }), 0u);
    EXPECT_FALSE(b.left().initialised);
}

/** The framework refuses a system record that it does not know. */
TEST(Init, ServiceFunctionsAreHandedOverWithTheModulesSystemRecord)
{
    olv_system_handle stranger{0, 0, "stranger", {}, 0};
    bench b;
    b.module->system = &stranger;
    EXPECT_EQ(quiet([&] { return olv_twamp_service_function_update(b.module); }), 0x20001u);
    EXPECT_EQ(quiet([&] { return olv_twamp_shutdown(b.module); }), 0x20001u);
    EXPECT_EQ(quiet([&] { return olv_twamp_init(b.module); }), 0x30001u);
}

// The context, in a block that is not zeroed.

constexpr std::uint8_t unwritten_byte = 0xA5;
constexpr std::uint32_t unwritten = 0xA5A5A5A5;

/** A context's words, by their places in it. The formats are single bytes: the first of words 13 and 24. */
struct context_words {
    std::uint32_t word[31];
    std::uint8_t responder_format;
    std::uint8_t bind_format;

    explicit context_words(const void *context)
    {
        std::memcpy(word, context, sizeof word);
        std::memcpy(&responder_format, static_cast<const char *>(context) + 52, 1);
        std::memcpy(&bind_format, static_cast<const char *>(context) + 96, 1);
    }
    [[nodiscard]] std::vector<std::uint32_t> words(std::size_t first, std::size_t count) const
    {
        return {word + first, word + first + count};
    }
};

class InitContext : public testing::Test {
  protected:
    InitContext()
    {
        interposition between;
        between.after_calloc = [](void *block, std::size_t size) { std::memset(block, unwritten_byte, size); };
        between.before_symbol_lookup = [this] { at_lookup_.emplace_back(b_.module->ctx); };
        EXPECT_EQ(quiet([&] { return olv_twamp_init(b_.module); }), 0u);
    }

    bench b_{{.initialised = false}};
    std::vector<context_words> at_lookup_; ///< As it was each time that a tree function was asked for.
};

using testing::Each;
using testing::ElementsAre;

TEST_F(InitContext, HasEveryFieldThatIsFilledAndNoOther)
{
    const context_words context(b_.module->ctx);
    EXPECT_EQ(context.word[0], 0x18496124u);
    EXPECT_EQ(context.word[1], unwritten);
    EXPECT_THAT(context.words(2, 3), ElementsAre(lli_processing_id, ip_direct_imc_id, ipv6_indirect_imc_id));

    EXPECT_THAT(context.words(5, 8),
                ElementsAre(responder_tree_id, 24, unwritten, unwritten, unwritten, 0, 0, 0));
    EXPECT_EQ(context.responder_format, 1);
    EXPECT_EQ(context.word[15], 1u);

    EXPECT_THAT(context.words(16, 8), ElementsAre(bind_tree_id, 24, unwritten, unwritten, unwritten, 0, 0, 0));
    EXPECT_EQ(context.bind_format, 0);
    EXPECT_EQ(context.word[26], 2u);

    EXPECT_EQ(context.word[27], b_.responder_ns());
    EXPECT_THAT(context.words(28, 1), Each(testing::Not(testing::AnyOf(unwritten, b_.responder_ns()))));
    EXPECT_THAT(context.words(29, 2), Each(unwritten)); // the count of creations is not written
}

TEST_F(InitContext, DescribesTheResponderTreeBeforeItAsksForTheBindTree)
{
    ASSERT_EQ(at_lookup_.size(), 5u);
    const context_words &before = at_lookup_.back();
    EXPECT_EQ(before.word[0], unwritten) << "the magic is written last";
    EXPECT_THAT(before.words(5, 8),
                ElementsAre(responder_tree_id, 24, unwritten, unwritten, unwritten, 0, 0, 0));
    EXPECT_EQ(before.responder_format, 1);
    EXPECT_EQ(before.word[15], 1u);
    EXPECT_THAT(before.words(16, 11), Each(unwritten));
    EXPECT_THAT(at_lookup_.at(3).words(5, 11), Each(unwritten)) << "its own ID comes first";
}

} // namespace
} // namespace olv_test
