#include "olv_sim/call_record.hpp"
#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

class record_of_calls : public sim_test {
  protected:
    record_of_calls() { call_record::start(); }

    static lines recorded()
    {
        lines result;
        for (const recorded_call &one : call_record::calls()) {
            result.push_back(std::string{call_name(one.which)} + "(" + one.arguments +
                             ") = " + std::to_string(one.result) + (one.injected ? " injected" : ""));
        }
        return result;
    }
};

TEST_F(record_of_calls, arguments_and_results_in_order)
{
    const unsigned char bytes[6] = {0, 1, 2, 0xA, 0xB, 0xFF};
    ASSERT_TRUE(faults::set(call::hyx_nvm_calloc, {.skip = 1}));
    ASSERT_TRUE(faults::set(call::hyx_ptn_learn, {.code = 9}));
    EXPECT_EQ(hyx_se_state_set(rte, 1, 0, bytes, 6), 0u);
    EXPECT_EQ(hyx_se_state_set(rte, 1, 0, nullptr, 4), 0x102u);
    EXPECT_EQ(learn(responder_tree, 1, {{0, 0x401, 7}}), 9u);
    hyx_nvm_free(hyx_nvm_calloc(2, 10));
    hyx_nvm_free(hyx_nvm_calloc(1, 1));
    const lines expected{
        "hyx_se_state_set(rte=1, namespace=0x000001, index=0, bytes=0001020a0bff, length=6) = 0",
        "hyx_se_state_set(rte=1, namespace=0x000001, index=0, bytes=NULL, length=4) = 258",
        "olv_ptn_new(width=24) = 0",
        "olv_ptn_extend(key=*/0, value=0x1, width=24) = 0",
        "hyx_ptn_learn(rte=1, tree=0x104, key=0x000001/24, action=0x00000000 0x00000401 0x00000007) = 9 "
        "injected",
        "olv_ptn_free(key=0x000001/24) = 0",
        "hyx_nvm_calloc(count=2, size=10) = 0",
        "hyx_nvm_free(size=20) = 0",
        "hyx_nvm_calloc(count=1, size=1) = 0 injected",
        "hyx_nvm_free(block=NULL) = 0"};
    EXPECT_EQ(recorded(), expected);
}

TEST_F(record_of_calls, kinds_are_chosen_and_starting_anew_forgets)
{
    const auto make_calls = [] {
        (void)hyx_htons(1);
        (void)hyx_status_get(0);
        hyx_gettime(nullptr);
    };
    make_calls();
    EXPECT_EQ(call_record::names(), lines{"hyx_gettime"});
    call_record::start(static_cast<unsigned>(call_kind::byte_order) | static_cast<unsigned>(call_kind::text));
    EXPECT_EQ(recorded(), lines{});
    make_calls();
    EXPECT_EQ(recorded(), (lines{"hyx_htons(value=0x1) = 0", "hyx_status_get(status=0x0) = 0"}));
    call_record::stop();
    make_calls();
    EXPECT_EQ(call_record::names().size(), 2u);
}

TEST_F(record_of_calls, calls_made_inside_a_call_come_after_it)
{
    ASSERT_EQ(learn(responder_tree, 5, {{1, 2, 3}}), 0u);
    call_record::start();
    (void)list(responder_tree);
    EXPECT_EQ(recorded(), (lines{"hyx_ptn_list_ptns(rte=1, tree=0x104) = 0",
                                 "olv_ptn_parse(key=0x000005/24, fields=1) = 0"}));
}

} // namespace
