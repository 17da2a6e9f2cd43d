#include "olv_sim/call_record.hpp"
#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

using record_of_calls = sim_test;

std::vector<std::string> lines()
{
    std::vector<std::string> result;
    for (const recorded_call &one : call_record::calls()) {
        result.push_back(std::string{call_name(one.which)} + "(" + one.arguments +
                         ") = " + std::to_string(one.result) + (one.injected ? " injected" : ""));
    }
    return result;
}

TEST_F(record_of_calls, arguments_and_results_in_order)
{
    ASSERT_EQ(rte, 1u);
    std::uint32_t space = 0;
    std::uint32_t resource = 0;
    std::uint32_t id = 0;
    std::uint64_t ticks = 0;
    unsigned char bytes[6] = {0, 1, 2, 0xA, 0xB, 0xFF};
    olv_ptn pattern{};
    olv_ptn_action action{{0, 0x401, 7}};
    call_record::start();
    EXPECT_EQ(hyx_rsrc_find(1, 0, "twamp_responder", &space), 0u);
    EXPECT_EQ(hyx_rsrc_allocate(space, 1, &resource), 0u);
    EXPECT_EQ(hyx_ptn_symbol_get_id(1, "nothing", &id), 0x109u);
    EXPECT_EQ(hyx_timer_get_timestamp(1, 0, &ticks), 0u);
    EXPECT_EQ(hyx_se_state_set(1, 1, 0, bytes, 6), 0u);
    EXPECT_EQ(hyx_se_state_get(1, 1, 0, bytes, 6), 0u);
    EXPECT_EQ(olv_ptn_new(24, &pattern), 0u);
    EXPECT_EQ(olv_ptn_extend(&pattern, 1, 24), 0u);
    EXPECT_EQ(hyx_ptn_learn(1, 0x104, &pattern, &action), 0u);
    EXPECT_EQ(hyx_ptn_unlearn(1, 0x104, &pattern, 24, &action, 1), 0u);
    olv_ptn_free(pattern);
    EXPECT_EQ(hyx_rsrc_free(space, 1, 1), 0u);
    void *block = hyx_nvm_calloc(2, 10);
    hyx_nvm_free(block);
    call_record::stop();
    const std::vector<std::string> expected{
        "hyx_rsrc_find(rte=1, unused=0, name=twamp_responder) = 0",
        "hyx_rsrc_allocate(namespace=0x101, count=1) = 0",
        "hyx_ptn_symbol_get_id(rte=1, name=nothing) = 265",
        "hyx_timer_get_timestamp(rte=1, timer=0) = 0",
        "hyx_se_state_set(rte=1, namespace=0x000001, index=0, bytes=0001020a0bff, length=6) = 0",
        "hyx_se_state_get(rte=1, namespace=0x000001, index=0, length=6) = 0",
        "olv_ptn_new(width=24) = 0",
        "olv_ptn_extend(key=*/0, value=0x1, width=24) = 0",
        "hyx_ptn_learn(rte=1, tree=0x104, key=0x000001/24, action=0x00000000 0x00000401 0x00000007) = 0",
        "hyx_ptn_unlearn(rte=1, tree=0x104, key=0x000001/24, key_bits=24, "
        "action=0x00000000 0x00000401 0x00000007, count=1) = 0",
        "olv_ptn_free(key=0x000001/24) = 0",
        "hyx_rsrc_free(namespace=0x101, resource=1, count=1) = 0",
        "hyx_nvm_calloc(count=2, size=10) = 0",
        "hyx_nvm_free(size=20) = 0",
    };
    EXPECT_EQ(lines(), expected);
}

TEST_F(record_of_calls, injected_failures_are_marked)
{
    ASSERT_TRUE(faults::set(call::hyx_nvm_calloc, {}));
    ASSERT_TRUE(faults::set(call::hyx_rsrc_find, {.code = 9}));
    std::uint32_t space = 0;
    call_record::start();
    EXPECT_EQ(hyx_nvm_calloc(1, 1), nullptr);
    EXPECT_EQ(hyx_rsrc_find(rte, 0, "x", &space), 9u);
    EXPECT_EQ(lines(), (std::vector<std::string>{"hyx_nvm_calloc(count=1, size=1) = 0 injected",
                                                 "hyx_rsrc_find(rte=1, unused=0, name=x) = 9 injected"}));
}

TEST_F(record_of_calls, null_arguments)
{
    call_record::start();
    EXPECT_EQ(hyx_ptn_learn(rte, 0x104, nullptr, nullptr), 0x102u);
    EXPECT_EQ(hyx_se_state_set(rte, 1, 0, nullptr, 4), 0x102u);
    hyx_nvm_free(nullptr);
    EXPECT_EQ(lines(), (std::vector<std::string>{
                           "hyx_ptn_learn(rte=1, tree=0x104, key=NULL, action=NULL) = 258",
                           "hyx_se_state_set(rte=1, namespace=0x000001, index=0, bytes=NULL, length=4) = 258",
                           "hyx_nvm_free(block=NULL) = 0"}));
}

TEST_F(record_of_calls, kinds_are_chosen)
{
    const auto make_calls = [] {
        (void)hyx_htons(1);
        (void)hyx_status_get(0);
        hyx_time now{};
        hyx_gettime(&now);
        olv_lttng_trace_fn function = nullptr;
        olv_lttng_fn_ptr_get(3, 8, &function);
    };
    call_record::start();
    make_calls();
    EXPECT_EQ(call_record::names(), (std::vector<std::string>{"hyx_gettime"}));
    call_record::start(static_cast<unsigned>(call_kind::byte_order) | static_cast<unsigned>(call_kind::trace));
    make_calls();
    EXPECT_EQ(lines(), (std::vector<std::string>{"hyx_htons(value=0x1) = 0",
                                                 "olv_lttng_fn_ptr_get(module=3, level=8) = 0"}));
    call_record::stop();
    make_calls();
    EXPECT_EQ(call_record::names().size(), 2u);
}

TEST_F(record_of_calls, calls_made_inside_a_call_come_after_it)
{
    ASSERT_EQ(learn(responder_tree, 5, {{1, 2, 3}}), 0u);
    call_record::start();
    const auto parse = [](void *, void *, const olv_ptn *pattern, const olv_ptn_action *) {
        const std::uint16_t width = 24;
        std::uint32_t value = 0;
        EXPECT_EQ(olv_ptn_parse(pattern, 1, &width, &value), 0u);
    };
    EXPECT_EQ(hyx_ptn_list_ptns(rte, responder_tree, parse, nullptr), 0u);
    EXPECT_EQ(lines(), (std::vector<std::string>{"hyx_ptn_list_ptns(rte=1, tree=0x104) = 0",
                                                 "olv_ptn_parse(key=0x000005/24, fields=1) = 0"}));
}

TEST_F(record_of_calls, starting_anew_forgets)
{
    call_record::start();
    hyx_time now{};
    hyx_gettime(&now);
    call_record::start();
    EXPECT_TRUE(call_record::calls().empty());
}

} // namespace
