// What the operations pass to the platform: every argument of every call.
#include "bind_rows.hpp"
#include "olv_sim/call_record.hpp"
#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/processor.hpp"

namespace olv_test {
namespace {

using argument_list = std::vector<std::string>;

std::string hexadecimal(std::uint32_t value)
{
    std::array<char, 16> text{};
    (void)std::snprintf(text.data(), text.size(), "0x%x", value);
    return text.data();
}

/** The calls of an operation with their arguments. Numbers that differ from run to run are replaced by RTE,
 *  MODULE, LOCK and NAMESPACE; the wall clock of function lines is left out. */
argument_list passed_by(bench &b, const std::function<std::uint32_t()> &operation)
{
    learn_namespace(b);
    b.set_log_words(0, 0);
    argument_list calls;
    for (const olv_sim::recorded_call &each : b.observe(operation).recorded) {
        std::string text = std::string(olv_sim::call_name(each.which)) + "(" + each.arguments + ")";
        replace_all(text, "rte=" + std::to_string(b.module->rte_handle) + ",", "rte=RTE,");
        replace_all(text, "(module=" + std::to_string(b.module->module_id) + ",", "(module=MODULE,");
        replace_all(text, "=" + hexadecimal(b.module->lock) + ")", "=LOCK)");
        replace_all(text, "namespace=" + hexadecimal(values().namespace_handle) + ",", "namespace=NAMESPACE,");
        calls.push_back(text);
    }
    return calls;
}

const std::string wait = "olv_sys_sem_lock_wait(lock=LOCK)";
const std::string post = "hyx_sem_post(semaphore=LOCK)";

std::string responder_record_size()
{
    return std::to_string(sizeof(twamp_responder_handle));
}

TEST(CallArguments, OfInit)
{
    bench b(known_uninitialised());
    EXPECT_THAT(passed_by(b, [&] { return olv_twamp_init(b.module); }),
                testing::ElementsAre(
                    "hyx_nvm_calloc(count=1, size=124)",
                    "hyx_rsrc_find(rte=RTE, unused=0, name=twamp_responder)",
                    "hyx_rsrc_find(rte=RTE, unused=0, name=twamp_reflector_session)",
                    "hyx_ptn_symbol_get_id(rte=RTE, name=olv_twamp.twamp_to_ip_direct_imc)",
                    "hyx_ptn_symbol_get_id(rte=RTE, name=olv_twamp.twamp_to_ipv6_indirect_imc)",
                    "hyx_ptn_symbol_get_id(rte=RTE, name=olv_twamp.twamp_lli_processing)",
                    "hyx_ptn_symbol_get_id(rte=RTE, name=olv_twamp.twamp_responder_lookup)",
                    "hyx_ptn_symbol_get_id(rte=RTE, name=olv_twamp.twamp_bind_to_next_module)",
                    "olv_module_service_function_register(module=MODULE, table=set, lli=0x505)",
                    "hyx_se_state_set(rte=RTE, namespace=0x7008c1, index=0, bytes=" + std::string(256, '0') +
                        ", length=128)"));
}

TEST(CallArguments, OfShutdownAndUpdate)
{
    bench b(known());
    EXPECT_THAT(passed_by(b, [&] { return olv_twamp_service_function_update(b.module); }),
                testing::ElementsAre(
                    wait, "olv_module_service_function_update(module=MODULE, table=set, lli=0x0)", post));
    EXPECT_THAT(
        passed_by(b, [&] { return olv_twamp_shutdown(b.module); }),
        testing::ElementsAre(wait, "olv_module_service_function_register(module=MODULE, table=empty, lli=0x0)",
                             "hyx_nvm_free(size=124)", post));
}

TEST(CallArguments, OfCreateReadAndDelete)
{
    bench b(known());
    (void)b.create_responder(); // the next one's ID is 2: no other number that is passed
    b.info = {0x1234, 0x5678};
    set_time_of_day(time_of_day{1, 500000});
    const argument_list created =
        passed_by(b, [&] { return olv_twamp_responder_create(b.module, &b.info, &b.responder); });
    set_time_of_day(std::nullopt);
    b.keep(b.responder);
    EXPECT_THAT(
        created,
        testing::ElementsAre(
            wait, "hyx_nvm_calloc(count=1, size=" + responder_record_size() + ")",
            "hyx_rsrc_allocate(namespace=NAMESPACE, count=1)", "hyx_timer_get_timestamp(rte=RTE, timer=0)",
            testing::AllOf(testing::StartsWith("hyx_se_state_set(rte=RTE, namespace=0x000002, index=0, "
                                               "bytes=1234000280005678000000020000000083aa7e817fffffff"),
                           testing::EndsWith("00000000, length=60)")),
            "olv_ptn_new(width=24)", "olv_ptn_extend(key=*/0, value=0x2, width=24)",
            "hyx_ptn_learn(rte=RTE, tree=0x101, key=0x000002/24, action=0x00000000 0x00000000 0x00000000)",
            "olv_ptn_free(key=0x000002/24)", post));

    olv_twamp_responder_stats stats{};
    EXPECT_THAT(
        passed_by(b, [&] { return olv_twamp_responder_stats_get(b.module, b.responder, &stats); }),
        testing::ElementsAre(wait, "hyx_se_state_get(rte=RTE, namespace=0x000002, index=0, length=60)", post));

    EXPECT_THAT(passed_by(b, [&] { return olv_twamp_responder_delete(b.module, b.responder); }),
                testing::ElementsAre(
                    wait, "olv_ptn_new(width=24)", "olv_ptn_extend(key=*/0, value=0x2, width=24)",
                    "hyx_ptn_unlearn(rte=RTE, tree=0x101, key=0x000002/24, key_bits=24, action=0x00000000 "
                    "0x00000000 0x00000000, count=1)",
                    "hyx_rsrc_free(namespace=NAMESPACE, resource=2, count=1)",
                    "hyx_se_state_set(rte=RTE, namespace=0x000002, index=0, bytes=" + std::string(120, '0') +
                        ", length=60)",
                    "olv_ptn_free(key=0x000002/24)", post));
}

TEST(CallArguments, OfTheRollBackOfCreate)
{
    bench b(known());
    (void)b.create_responder();
    olv_sim::faults::set(call::hyx_ptn_learn, {.code = 0x1FF});
    const argument_list calls =
        passed_by(b, [&] { return olv_twamp_responder_create(b.module, &b.info, &b.responder); });
    ASSERT_GE(calls.size(), 4u);
    EXPECT_THAT(argument_list(calls.end() - 4, calls.end()),
                testing::ElementsAre("olv_ptn_free(key=0x000002/24)",
                                     "hyx_rsrc_free(namespace=NAMESPACE, resource=2, count=1)",
                                     "hyx_nvm_free(size=" + responder_record_size() + ")", post));
}

TEST(CallArguments, OfBindAndUnbind)
{
    bench b(known());
    request asked(b);
    asked.key = 0xFFABCDEF;
    EXPECT_THAT(
        passed_by(b, [&] { return olv_twamp_custom_bind(b.framework.system(), &asked.info); }),
        testing::ElementsAre(
            wait, "entry_point_lookup(module=1)", "olv_ptn_new(width=24)",
            "olv_ptn_extend(key=*/0, value=0xffabcdef, width=24)",
            "hyx_ptn_learn(rte=RTE, tree=0x202, key=0xabcdef/24, action=0x00000001 0x00000401 0x00000000)",
            "olv_ptn_free(key=0xabcdef/24)", post));
    EXPECT_THAT(passed_by(b, [&] { return olv_twamp_custom_unbind(b.framework.system(), &asked.info); }),
                testing::ElementsAre(wait, "entry_point_lookup(module=1)", "olv_ptn_new(width=24)",
                                     "olv_ptn_extend(key=*/0, value=0xffabcdef, width=24)",
                                     "hyx_ptn_unlearn(rte=RTE, tree=0x202, key=0xabcdef/24, key_bits=24, "
                                     "action=0x00000001 0x00000401 0x00000000, count=1)",
                                     "olv_ptn_free(key=0xabcdef/24)", post));
}

TEST(CallArguments, OfStatisticsAndDumps)
{
    bench b(known());
    (void)b.create_responder();
    olv_twamp_global_stats stats{};
    EXPECT_THAT(
        passed_by(b, [&] { return olv_twamp_global_stats_get(b.module, &stats); }),
        testing::ElementsAre(wait, "hyx_se_state_get(rte=RTE, namespace=0x7008c1, index=0, length=24)", post));
    EXPECT_THAT(passed_by(b, [&] { return olv_twamp_tables_dump(b.module, 3); }),
                testing::ElementsAre(wait, "hyx_ptn_list_ptns(rte=RTE, tree=0x101)",
                                     "olv_ptn_parse(key=0x000001/24, fields=1)",
                                     "hyx_ptn_list_ptns(rte=RTE, tree=0x202)", post));
}

/** The words that an operation converts. */
argument_list converted_by(bench &b, const std::function<std::uint32_t()> &operation)
{
    argument_list words;
    for (const auto &each :
         b.observe(operation, static_cast<unsigned>(olv_sim::call_kind::byte_order)).recorded) {
        words.push_back(each.arguments);
    }
    return words;
}

/** State bytes of words that are the same in both byte orders: 0x01000001, 0x02000002, ... */
std::vector<std::uint8_t> numbered_words(std::uint8_t count)
{
    std::vector<std::uint8_t> bytes;
    for (std::uint8_t number = 1; number <= count; ++number) {
        bytes.insert(bytes.end(), {number, 0, 0, number});
    }
    return bytes;
}

TEST(CallArguments, OfConversionsFollowTheFieldsOfTheRecordThatIsFilled)
{
    bench b({.module_flags = 0, .system_flags = 0});
    b.set_state_bytes(0x7008C1, numbered_words(6));
    olv_twamp_global_stats global{};
    EXPECT_THAT(converted_by(b, [&] { return olv_twamp_global_stats_get(b.module, &global); }),
                testing::ElementsAre("value=0x1000001", "value=0x2000002", "value=0x3000003", "value=0x4000004",
                                     "value=0x5000005", "value=0x6000006"));

    twamp_responder_handle *const responder = b.create_responder();
    b.set_state_bytes(responder->responder_id, numbered_words(15));
    olv_twamp_responder_stats stats{};
    // Words 9 to 13 of the state entry: the length-check drops stand behind the active sessions there.
    EXPECT_THAT(converted_by(b, [&] { return olv_twamp_responder_stats_get(b.module, responder, &stats); }),
                testing::ElementsAre("value=0x9000009", "value=0xa00000a", "value=0xc00000c", "value=0xb00000b",
                                     "value=0xd00000d"));
}

} // namespace
} // namespace olv_test
