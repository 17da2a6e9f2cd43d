#include "bind_rows.hpp"

namespace olv_test {
namespace {

#define IMC_ERROR(text) OLV_ERROR("twamp_internal.c", text)
#define IMC_INFO(text) OLV_INFO("twamp_internal.c", text)
#define IMC_UNKNOWN(text) OLV_UNKNOWN("twamp_internal.c", text)

constexpr const char *invalid_module = "Invalid TWAMP module handle 0x%08x\n";
constexpr const char *no_imc = "TWAMP module failed to get IMC function\n";
constexpr const char *on_cpu = "Module location CPU not supported\n";
constexpr const char *unsupported = "Invalid/unsupported bind path\n";

/** The result word of the rows. */
std::uint32_t imc = 0;

void spoil_imc(bench &)
{
    imc = 0xDEADBEEF;
}

void imc_is_untouched(bench &)
{
    EXPECT_EQ(imc, 0xDEADBEEFu);
}

void imc_is_the_direct_one(bench &)
{
    EXPECT_EQ(imc, 0x0303u);
}

/** The lookup with a request that @p change has changed. */
operation lookup_with(change_request change)
{
    return [change](bench &b) {
        request asked(b);
        change(b, asked);
        return olv_twamp_get_imc(b.handle, &asked.info, &imc);
    };
}

const operation lookup = lookup_with([](bench &, request &) {});

const std::vector<std::string> lock_calls{"olv_sys_sem_lock_wait", "hyx_sem_post"};

const table rows{
    "olv_twamp_get_imc",
    lookup,
    {
        {.label = "IPv4 destination",
         .setup = known(),
         .arrange = spoil_imc,
         .status = 0,
         .calls = lock_calls,
         .check = imc_is_the_direct_one},
        {.label = "IPv6 destination: the same tree function",
         .setup = known(),
         .arrange = spoil_imc,
         .instead =
             lookup_with([](bench &b, request &asked) { asked.info.dst_module = b.framework.ipv6_module(); }),
         .status = 0,
         .calls = lock_calls,
         .check = imc_is_the_direct_one},
        {.label = "without a lock",
         .setup = known_without_lock(),
         .arrange = spoil_imc,
         .status = 0,
         .check = imc_is_the_direct_one},
        {.label = "nothing else of the request is looked at",
         .setup = known(),
         .arrange = spoil_imc,
         .instead = lookup_with([](bench &, request &asked) {
             asked.info.bind_type = 9;
             asked.info.bind_path = 9;
             asked.info.custom_bind = 0;
             asked.info.src_module = nullptr;
             asked.info.src_instance = nullptr;
             asked.info.src_location = 0;
             asked.info.dst_location = 0xFFFFFFFF;
         }),
         .status = 0,
         .calls = lock_calls,
         .check = imc_is_the_direct_one},

        {.label = "null module: one message",
         .setup = known(),
         .arrange =
             [](bench &b) {
                 spoil_imc(b);
                 use_null_handle(b);
             },
         .status = 1,
         .console = IMC_UNKNOWN("Invalid TWAMP module handle 0x00000000"),
         .traces = {forced(invalid_module)},
         .check = imc_is_untouched},
        {.label = "wrong module magic: one message",
         .setup = known(),
         .arrange =
             [](bench &b) {
                 spoil_imc(b);
                 use_foreign_handle(b);
             },
         .status = 1,
         .console = IMC_UNKNOWN("Invalid TWAMP module handle 0x{module}"),
         .traces = {forced(invalid_module)},
         .check = imc_is_untouched},
        {.label = "module not initialised: two messages",
         .setup = known_uninitialised(),
         .arrange = spoil_imc,
         .status = 1,
         .console = IMC_UNKNOWN("Invalid TWAMP module handle 0x{module}")
             IMC_UNKNOWN("TWAMP module failed to get IMC function"),
         .traces = {forced(invalid_module), forced(no_imc)},
         .left = nothing,
         .check = imc_is_untouched},
        {.label = "wrong context magic: two messages",
         .setup = known(),
         .arrange =
             [](bench &b) {
                 spoil_imc(b);
                 break_context(b);
             },
         .status = 1,
         .console = IMC_UNKNOWN("Invalid TWAMP module handle 0x{module}")
             IMC_UNKNOWN("TWAMP module failed to get IMC function"),
         .traces = {forced(invalid_module), forced(no_imc)},
         .left = {.initialised = false},
         .check =
             [](bench &b) {
                 imc_is_untouched(b);
                 repair_context(b);
             }},

        {.label = "lock not taken",
         .setup = known(),
         .arrange = spoil_imc,
         .faults = {failing(call::olv_sys_sem_lock_wait)},
         .status = 0x300A5,
         .console = OLV_LOCK_REFUSED("twamp_internal.c"),
         .traces = {error(lock_refused), error_status()},
         .calls = {"olv_sys_sem_lock_wait"},
         .check = imc_is_untouched},
        {.label = "destination on the CPU",
         .setup = known(),
         .arrange = spoil_imc,
         .instead = lookup_with([](bench &, request &asked) { asked.info.dst_location = 1; }),
         .status = 0x3000C,
         .console = IMC_INFO("Module location CPU not supported"),
         .traces = {info(on_cpu)},
         .calls = lock_calls,
         .check = imc_is_untouched,
         .module_word_only = "Module location CPU not supported"},
        {.label = "source on the CPU",
         .setup = known(),
         .arrange = spoil_imc,
         .instead = lookup_with([](bench &, request &asked) { asked.info.src_location = 1; }),
         .status = 0x3000C,
         .console = IMC_INFO("Module location CPU not supported"),
         .traces = {info(on_cpu)},
         .calls = lock_calls,
         .check = imc_is_untouched,
         .module_word_only = "Module location CPU not supported"},
        {.label = "on the CPU: looked at before the destination",
         .setup = known_without_lock(),
         .arrange = spoil_imc,
         .instead = lookup_with([](bench &, request &asked) {
             asked.info.src_location = 1;
             asked.info.dst_module = nullptr;
         }),
         .status = 0x3000C,
         .console = IMC_INFO("Module location CPU not supported"),
         .traces = {info(on_cpu)},
         .check = imc_is_untouched,
         .module_word_only = "Module location CPU not supported"},
        {.label = "destination neither IPv4 nor IPv6",
         .setup = known(),
         .arrange = spoil_imc,
         .instead = lookup_with([](bench &, request &asked) {
             asked.destination.module_id = 7;
             asked.info.dst_module = &asked.destination;
         }),
         .status = 0x3000C,
         .console = IMC_INFO("Invalid/unsupported bind path"),
         .traces = {info(unsupported)},
         .calls = lock_calls,
         .check = imc_is_untouched},
        {.label = "destination neither IPv4 nor IPv6, whatever the path",
         .setup = known(),
         .arrange = spoil_imc,
         .instead = lookup_with([](bench &, request &asked) {
             asked.destination.module_id = 0;
             asked.info.dst_module = &asked.destination;
             asked.info.bind_path = 2;
         }),
         .status = 0x3000C,
         .console = IMC_INFO("Invalid/unsupported bind path"),
         .traces = {info(unsupported)},
         .calls = lock_calls,
         .check = imc_is_untouched},

        {.label = "null request",
         .setup = known(),
         .arrange = spoil_imc,
         .instead = [](bench &b) { return olv_twamp_get_imc(b.handle, nullptr, &imc); },
         .status = 0x30008,
         .console = IMC_ERROR("Null Bind Info / IMC Pointer") IMC_ERROR("{status 0x30008}"),
         .traces = {error("Null Bind Info / IMC Pointer"), error_status()},
         .calls = lock_calls,
         .check = imc_is_untouched},
        {.label = "null destination module",
         .setup = known(),
         .arrange = spoil_imc,
         .instead = lookup_with([](bench &, request &asked) { asked.info.dst_module = nullptr; }),
         .status = 0x30008,
         .console = IMC_ERROR("Null Destination Module Pointer") IMC_ERROR("{status 0x30008}"),
         .traces = {error("Null Destination Module Pointer"), error_status()},
         .calls = lock_calls,
         .check = imc_is_untouched},
        {.label = "null result word",
         .setup = known(),
         .instead =
             [](bench &b) {
                 const request asked(b);
                 return olv_twamp_get_imc(b.handle, &asked.info, nullptr);
             },
         .status = 0x30008,
         .console = IMC_ERROR("Null Bind Info / IMC Pointer") IMC_ERROR("{status 0x30008}"),
         .traces = {error("Null Bind Info / IMC Pointer"), error_status()},
         .calls = lock_calls},
        {.label = "null result word of a refused destination is not looked at",
         .setup = known(),
         .instead =
             [](bench &b) {
                 request asked(b);
                 asked.destination.module_id = 7;
                 asked.info.dst_module = &asked.destination;
                 return olv_twamp_get_imc(b.handle, &asked.info, nullptr);
             },
         .status = 0x3000C,
         .console = IMC_INFO("Invalid/unsupported bind path"),
         .traces = {info(unsupported)},
         .calls = lock_calls},

        {.label = "lock not released after success: the word is written",
         .setup = known(),
         .arrange = spoil_imc,
         .faults = {failing(call::hyx_sem_post)},
         .status = 0x300A5,
         .console = OLV_RELEASE_REFUSED("twamp_internal.c"),
         .traces = {error(release_refused), error_status()},
         .calls = lock_calls,
         .left = {.lock_held = 1},
         .check = imc_is_the_direct_one},
        {.label = "lock not released after a refusal",
         .setup = known(),
         .arrange = spoil_imc,
         .faults = {failing(call::hyx_sem_post)},
         .instead = lookup_with([](bench &, request &asked) { asked.info.dst_location = 1; }),
         .status = 0x300A5,
         .console = IMC_INFO("Module location CPU not supported") OLV_RELEASE_REFUSED("twamp_internal.c"),
         .traces = {info(on_cpu), error(release_refused), error_status()},
         .calls = lock_calls,
         .left = {.lock_held = 1},
         .check = imc_is_untouched,
         .module_word_only = "Module location CPU not supported"},
    }};

TEST(GetImc, GoesAsEachRowSays)
{
    rows.run();
}

TEST(GetImc, CpuRefusalLooksAtTheModulesOwnLevelOnly)
{
    const struct {
        std::uint32_t module;
        std::uint32_t system;
        const char *console;
    } words[] = {{15, 0, IMC_INFO("Module location CPU not supported")},
                 {0, 15, ""},
                 {7, 15, ""},
                 {15, 15, IMC_INFO("Module location CPU not supported")}};
    for (const auto &word : words) {
        SCOPED_TRACE(testing::Message() << word.module << ", " << word.system);
        bench b({.module_flags = word.module, .system_flags = word.system, .program = known_program()});
        const operation refused = lookup_with([](bench &, request &asked) { asked.info.src_location = 1; });
        EXPECT_EQ(b.observe([&] { return refused(b); }).console, word.console);
    }
}

TEST(GetImc, AnswersOverTheRegisteredServiceFunction)
{
    bench b(known());
    const request asked(b);
    std::uint32_t answer = 0;
    EXPECT_EQ(b.observe([&] { return b.framework.get_imc(b.module, asked.info, &answer); }).status, 0u);
    EXPECT_EQ(answer, 0x0303u);
}

} // namespace
} // namespace olv_test
