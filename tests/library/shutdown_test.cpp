#include <cstring>

#include "interposed.hpp"
#include "rows.hpp"

namespace olv_test {
namespace {

constexpr const char *file = "twamp.c";

std::uint32_t shutdown(bench &b)
{
    return olv_twamp_shutdown(b.handle);
}

/** What ends the context, with the framework's functions withdrawn or not. */
story frees_context(bool registered)
{
    return calls(call::hyx_nvm_free, "size=124").then([registered](outcome &result) {
        --result.left.blocks;
        result.left.initialised = false;
        result.left.registered = registered;
    });
}

story refused(const bench &b, std::uint32_t status)
{
    return fails(file, status, "Failed to register NULL functions\n") + frees_context(true) +
           fails(file, status, "TWAMP module 0x%08x failed to shutdown\n", low_word(b.handle)) +
           frame(b, file, "").end;
}

/** Neither entry nor exit line. */
story goes_down(const bench &b)
{
    const frame of(b, file, "");
    return of.begin +
           calls(call::olv_module_service_function_register, "module=%u, table=empty, lli=0x0",
                 b.module->module_id)
               .or_else(refused(b, injected_in_framework)) +
           frees_context(false) +
           says(severity::info, file, "TWAMP module 0x%08x shutdown\n", low_word(b.handle)) + of.end;
}

story goes_down_without_withdrawal(const bench &b)
{
    return frame(b, file, "").begin +
           calls(call::olv_module_service_function_register, "module=%u, table=empty, lli=0x0",
                 b.module->module_id) +
           refused(b, 0x10007);
}

story refuses(const bench &b)
{
    return refuses_module(b, file, "TWAMP module failed to shutdown\n");
}

/** With a capital M. */
story refuses_record(const bench &b)
{
    return says_unknown(file, "Invalid TWAMP Module handle 0x%08x\n", low_word(b.handle)) +
           says_unknown(file, "TWAMP module failed to shutdown\n") + yields(1);
}

void context_is_gone(bench &b, const outcome &expected)
{
    EXPECT_EQ(b.module->ctx == nullptr, !expected.left.initialised);
}

const table rows{
    "olv_twamp_shutdown",
    row_list{{.label = "module", .work = shutdown, .tells = goes_down, .afterwards = context_is_gone},
             {.label = "module with a responder, which stays",
              .arrange = [](bench &b) { b.create_responder(); },
              .work = shutdown,
              .tells = goes_down,
              .afterwards = context_is_gone},
             {.label = "withdrawal refused: the status is the framework's own",
              .faults = {{call::olv_module_service_function_register, {.code = 0x10007}}},
              .work = shutdown,
              .tells = goes_down_without_withdrawal,
              .afterwards = context_is_gone}} +
        unusable_handles({.work = shutdown}, refuses, refuses_record)};

TEST(Shutdown, GoesAsEachRowSays)
{
    rows.run();
}

TEST(Shutdown, ClearsTheContextBeforeItFreesIt)
{
    bench b;
    std::uint32_t magic = 1;
    interposition between;
    between.before_free = [&magic](const void *block) { std::memcpy(&magic, block, sizeof magic); };
    EXPECT_EQ(quiet([&] { return shutdown(b); }), 0u);
    EXPECT_EQ(magic, 0u);
}

} // namespace
} // namespace olv_test
