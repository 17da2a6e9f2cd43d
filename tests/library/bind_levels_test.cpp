// Log words of bind and unbind, which come from the system record that is passed in, and what the destination's
// entry point lookup sees.
#include "bind_rows.hpp"
#include "olv_sim/calls.hpp"
#include "olv_sim/framework.hpp"
#include "olv_sim/resources.hpp"

namespace olv_test {
namespace {

#define PRINTED_ENTRY(action) OLV_PRINTED_PATTERN("abcdef") action "\n"
#define LEARNT_LINE                                                                                            \
    "[twamp_log: ptn_learn]olv_twamp.twamp_bind_to_next_module: " PRINTED_ENTRY(                               \
        OLV_PRINTED_ACTION("00000001", "00000401"))
#define REMOVED_LINE                                                                                           \
    "[twamp_log: ptn_unlearn]olv_twamp.twamp_bind_to_next_module: " PRINTED_ENTRY(                             \
        "<xsize = 24>" OLV_PRINTED_ACTION("00000001", "00000401"))

/** A bench beside a second framework, whose system record is passed to bind and unbind. */
struct two_systems {
    explicit two_systems(std::uint32_t module_word, std::uint32_t own_system_word, std::uint32_t passed_word)
        : b({.module_flags = module_word, .system_flags = own_system_word, .program = known_program()})
    {
        other.system()->log_flags = passed_word;
    }

    observation run(bind_function work, change_request change, unsigned kinds = 1)
    {
        request asked(b);
        change(b, asked);
        return b.observe([&] { return work(other.system(), &asked.info); }, kinds);
    }

    bench b;
    olv_sim::framework other{"other"};
};

void wrong_path(bench &, request &asked)
{
    asked.info.bind_path = 2;
}

struct levels {
    std::uint32_t module;
    std::uint32_t own_system;
    std::uint32_t passed_system;
    bool printed;
};

// The record that the module itself points to does not count.
constexpr levels error_levels[] = {{0, 15, 0, false}, {0, 0xDF, 1, false}, {1, 15, 1, false}, {0, 0, 3, true},
                                   {0, 0, 7, true},   {0, 0, 15, true},    {3, 0, 0, true},   {7, 0, 1, true}};
constexpr levels info_levels[] = {
    {0, 15, 0, false}, {7, 15, 7, false}, {0, 0, 15, true}, {15, 0, 0, true}, {3, 15, 3, false}};
constexpr levels function_levels[] = {{0, 0x10, 0, false}, {0, 0, 0x10, true}, {0x10, 0, 0, true}};
constexpr levels pattern_levels[] = {{0, 0x40, 0, false}, {0, 0, 0x40, true}, {0x40, 0, 0, true}};

std::string words(const levels &levels)
{
    return std::to_string(levels.module) + ", " + std::to_string(levels.own_system) + ", " +
           std::to_string(levels.passed_system);
}

TEST(BindLevels, ErrorsAreTestedAgainstThePassedSystemRecord)
{
    for (const levels &each : error_levels) {
        SCOPED_TRACE(words(each));
        two_systems both(each.module, each.own_system, each.passed_system);
        const std::string message =
            BIND_ERROR("Only OLV_BIND_PATH_DIRECT is supported") BIND_ERROR("{status 0x30008}");
        EXPECT_EQ(both.run(olv_twamp_custom_bind, wrong_path).console,
                  both.b.expand((each.printed ? message : "") + BIND_NOT_PERFORMED));
        EXPECT_EQ(both.run(olv_twamp_custom_unbind, wrong_path).console,
                  both.b.expand((each.printed ? message : "") + UNBIND_NOT_PERFORMED));
    }
}

TEST(BindLevels, SuccessIsTestedAgainstThePassedSystemRecord)
{
    for (const levels &each : info_levels) {
        SCOPED_TRACE(words(each));
        two_systems both(each.module, each.own_system, each.passed_system);
        EXPECT_EQ(both.run(olv_twamp_custom_bind, unchanged).console,
                  each.printed ? OLV_INFO("twamp_bind.c", "Custom Bind Successfully done.") : "");
        EXPECT_EQ(both.run(olv_twamp_custom_unbind, unchanged).console,
                  each.printed ? OLV_INFO("twamp_bind.c", "Custom Un Bind Successfully done.") : "");
    }
}

TEST(BindLevels, FunctionLinesAreTestedAgainstThePassedSystemRecord)
{
    for (const levels &each : function_levels) {
        SCOPED_TRACE(words(each));
        two_systems both(each.module, each.own_system, each.passed_system);
        EXPECT_EQ(both.run(olv_twamp_custom_bind, unchanged).console,
                  each.printed ? BIND_ENTERING BIND_EXITING : "");
        EXPECT_EQ(both.run(olv_twamp_custom_unbind, unchanged).console,
                  each.printed ? UNBIND_ENTERING UNBIND_EXITING : "");
    }
}

TEST(BindLevels, EntryLinesAreTestedAgainstThePassedSystemRecord)
{
    for (const levels &each : pattern_levels) {
        SCOPED_TRACE(words(each));
        two_systems both(each.module, each.own_system, each.passed_system);
        EXPECT_EQ(both.run(olv_twamp_custom_bind, unchanged).console, each.printed ? LEARNT_LINE : "");
        EXPECT_EQ(both.run(olv_twamp_custom_unbind, unchanged).console, each.printed ? REMOVED_LINE : "");
    }
}

TEST(BindLevels, BothWordsPrintOneLineEach)
{
    two_systems both(0x4F, 0, 0x4F);
    EXPECT_EQ(both.run(olv_twamp_custom_bind, unchanged).console,
              LEARNT_LINE OLV_INFO("twamp_bind.c", "Custom Bind Successfully done."));
    EXPECT_EQ(both.run(olv_twamp_custom_unbind, unchanged).console,
              REMOVED_LINE OLV_INFO("twamp_bind.c", "Custom Un Bind Successfully done."));
}

TEST(BindLevels, ModuleWithoutASystemRecordBindsWithThePassedOne)
{
    options setup = known();
    setup.system = false;
    setup.module_flags = 0;
    setup.system_flags = 15;
    bench b(setup);
    ASSERT_EQ(b.module->system, nullptr);
    const observation bound = b.observe([&] { return with_request(olv_twamp_custom_bind, unchanged)(b); });
    EXPECT_EQ(bound.status, 0u);
    EXPECT_EQ(bound.console, OLV_INFO("twamp_bind.c", "Custom Bind Successfully done."));
    const observation unbound = b.observe([&] { return with_request(olv_twamp_custom_unbind, unchanged)(b); });
    EXPECT_EQ(unbound.status, 0u);
    EXPECT_EQ(unbound.console, OLV_INFO("twamp_bind.c", "Custom Un Bind Successfully done."));
}

TEST(BindLevels, LinesAreTheModulesEvenWhenThePassedSystemLetsThemThrough)
{
    two_systems both(0, 0, 0x0F);
    for (const bind_function work : {olv_twamp_custom_bind, olv_twamp_custom_unbind}) {
        const observation seen = both.run(work, wrong_path);
        ASSERT_EQ(seen.events.size(), 5u);
        EXPECT_EQ(seen.events[0].record, both.b.module);
        EXPECT_EQ(seen.events[1].record, both.b.module);
        EXPECT_EQ(seen.events[2].record, both.b.module);
        EXPECT_EQ(seen.events[3].record, nullptr);
        EXPECT_EQ(seen.events[3].first_word, 0u);
        EXPECT_EQ(seen.events[4].record, both.b.module);
        EXPECT_EQ(seen.events[2].text, both.b.expand("{status 0x30008}\n"));
        for (const auto &event : seen.events) {
            EXPECT_EQ(event.file, "twamp_bind.c");
        }
    }
}

TEST(BindLevels, AtLevelZeroOnlyTheClosingLineIsPrintedAndAllIsTraced)
{
    two_systems both(0, 0, 0);
    const observation bound = both.run(olv_twamp_custom_bind, wrong_path);
    EXPECT_EQ(bound.console, BIND_NOT_PERFORMED);
    EXPECT_THAT(bound.traces,
                testing::ElementsAre(entry("olv_twamp_custom_bind"), error(path_refused), error_status(),
                                     forced(bind_not_performed), exit("olv_twamp_custom_bind")));
    const observation unbound = both.run(olv_twamp_custom_unbind, wrong_path);
    EXPECT_EQ(unbound.console, UNBIND_NOT_PERFORMED);
    EXPECT_THAT(unbound.traces,
                testing::ElementsAre(entry("olv_twamp_custom_unbind"), error(path_refused), error_status(),
                                     forced(unbind_not_performed), exit("olv_twamp_custom_unbind")));
}

// What a lookup of this file was called with, and whether the source module's lock was held.
struct seen_by_lookup {
    olv_module_handle *module;
    const olv_bind_info *info;
    std::uint32_t entry_point;
    std::uint32_t lock_held;
};
seen_by_lookup last_lookup{};

std::uint32_t note(olv_module_handle *module, const olv_bind_info *info, std::uint32_t *entry_point)
{
    last_lookup = {module, info, *entry_point, olv_sim::semaphores::held(info->src_module->lock)};
    *entry_point = 0x12345678;
    return 0;
}

TEST(BindEntryPoint, IsAskedOfTheDestinationUnderTheLockOfTheSource)
{
    bench b({.module_flags = 0, .system_flags = 0, .program = known_program()});
    const replaced_lookup replaced(11, note);
    request asked(b);
    asked.info.dst_module = b.framework.ipv6_module();
    for (const bind_function work : {olv_twamp_custom_bind, olv_twamp_custom_unbind}) {
        last_lookup = {nullptr, nullptr, 1, 0};
        EXPECT_EQ(work(b.framework.system(), &asked.info), 0u);
        EXPECT_EQ(last_lookup.module, b.framework.ipv6_module());
        EXPECT_EQ(last_lookup.info, &asked.info);
        EXPECT_EQ(last_lookup.entry_point, 0u);
        EXPECT_EQ(last_lookup.lock_held, 1u);
    }
}

TEST(BindEntryPoint, AllItsBitsReachTheAction)
{
    bench b({.module_flags = 0, .system_flags = 0, .program = known_program()});
    const replaced_lookup replaced(1, note);
    const request asked(b);
    EXPECT_EQ(olv_twamp_custom_bind(b.framework.system(), &asked.info), 0u);
    EXPECT_THAT(bound_to(b, 0xABCDEF), testing::Optional(testing::ElementsAre(1, 0x12345678, 0)));
    EXPECT_EQ(olv_twamp_custom_unbind(b.framework.system(), &asked.info), 0u);
}

TEST(BindEntryPoint, UnbindAsksAgainAndPassesTheNewOneOn)
{
    bench b({.module_flags = 0, .system_flags = 0, .program = known_program()});
    bind_quietly(b);
    const replaced_lookup replaced(1, note);
    const request asked(b);
    const observation seen =
        b.observe([&] { return olv_twamp_custom_unbind(b.framework.system(), &asked.info); });
    bool unlearnt = false;
    for (const auto &call : seen.recorded) {
        if (call.which == olv_sim::call::hyx_ptn_unlearn) {
            unlearnt = true;
            EXPECT_THAT(call.arguments, testing::HasSubstr("0x00000001 0x12345678 0x00000000"));
            EXPECT_THAT(call.arguments, testing::HasSubstr("0xabcdef/24"));
            EXPECT_THAT(call.arguments, testing::HasSubstr("key_bits=24"));
            EXPECT_THAT(call.arguments, testing::HasSubstr("count=1"));
            EXPECT_EQ(seen.status, call.result == 0 ? 0u : 0x30041u);
        }
    }
    EXPECT_TRUE(unlearnt);
}

TEST(BindEntryPoint, KeysAreBoundAndUnboundByThemselves)
{
    bench b({.module_flags = 0, .system_flags = 0, .program = known_program()});
    for (const std::uint32_t key : {0u, 1u, 0x00FFFFFFu}) {
        request asked(b);
        asked.key = key;
        EXPECT_EQ(olv_twamp_custom_bind(b.framework.system(), &asked.info), 0u);
    }
    EXPECT_EQ(b.left().bind_entries, 3u);
    request asked(b);
    asked.key = 1;
    EXPECT_EQ(olv_twamp_custom_unbind(b.framework.system(), &asked.info), 0u);
    EXPECT_TRUE(bound_to(b, 0).has_value());
    EXPECT_FALSE(bound_to(b, 1).has_value());
    EXPECT_TRUE(bound_to(b, 0x00FFFFFF).has_value());
}

TEST(BindEntryPoint, RequestThatBindRefusesForCustomBindIsUnbound)
{
    bench b({.module_flags = 0, .system_flags = 0, .program = known_program()});
    bind_quietly(b);
    request asked(b);
    asked.info.custom_bind = 0;
    const observation refused =
        b.observe([&] { return olv_twamp_custom_bind(b.framework.system(), &asked.info); });
    EXPECT_EQ(refused.status, 0x30008u);
    EXPECT_EQ(olv_twamp_custom_unbind(b.framework.system(), &asked.info), 0u);
    EXPECT_EQ(b.left().bind_entries, 0u);
}

TEST(BindEntryPoint, StaysThroughTheServiceFunctionsOfTheFramework)
{
    bench b({.module_flags = 0, .system_flags = 0, .program = known_program()});
    const request asked(b);
    EXPECT_EQ(b.framework.bind(asked.info), 0u);
    EXPECT_THAT(bound_to(b, 0xABCDEF), testing::Optional(testing::ElementsAre(1, 0x401, 0)));
    EXPECT_EQ(b.framework.unbind(asked.info), 0u);
    EXPECT_EQ(b.left().bind_entries, 0u);
}

TEST(BindStatusText, IsAskedWithThePassedSystemRecord)
{
    // The level-3 word of the passed record alone prints it; both texts of one status are fetched.
    two_systems both(0, 0, 3);
    const observation seen = both.run(olv_twamp_custom_bind, wrong_path, 2);
    EXPECT_THAT(seen.calls, testing::ElementsAre("olv_sys_status_get", "olv_sys_status_get"));
    for (const auto &call : seen.recorded) {
        EXPECT_EQ(call.arguments, "system=other, status=0x30008");
    }
}

} // namespace
} // namespace olv_test
