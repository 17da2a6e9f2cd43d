#include "harness.hpp"

namespace olv_test {
namespace {

constexpr std::uint32_t context_magic = 0x18496124;

TEST(ValidModuleHandle, AcceptsAnInitialisedModuleWithoutAWord)
{
    bench b;
    const observation seen = b.observe([&] { return olv_twamp_valid_module_handle(b.module); },
                                       static_cast<unsigned>(olv_sim::call_kind::service) |
                                           static_cast<unsigned>(olv_sim::call_kind::trace));
    EXPECT_EQ(seen.status, 1u);
    EXPECT_EQ(seen.console, "");
    EXPECT_THAT(seen.traces, testing::IsEmpty());
    EXPECT_THAT(seen.calls, testing::IsEmpty());
}

TEST(ValidModuleHandle, LooksAtTheContextAlone)
{
    bench b;
    EXPECT_EQ(olv_twamp_valid_module_handle(&b.foreign), 1u) << "the record's own magic is not tested";
}

TEST(ValidModuleHandle, RefusesAModuleWithoutContext)
{
    bench b({.initialised = false});
    EXPECT_EQ(olv_twamp_valid_module_handle(b.module), 0u);
}

TEST(ValidModuleHandle, RefusesEveryOtherContextMagic)
{
    bench b;
    for (const std::uint32_t magic : {0u, 1u, 0x18496125u, 0x24614918u, OLV_MODULE_MAGIC, 0xFFFFFFFFu}) {
        b.set_context_magic(magic);
        EXPECT_EQ(olv_twamp_valid_module_handle(b.module), 0u) << magic;
    }
    b.set_context_magic(context_magic);
    EXPECT_EQ(olv_twamp_valid_module_handle(b.module), 1u);
}

TEST(ValidModuleHandle, RefusesTheContextOfAModuleThatWasShutDown)
{
    bench b;
    twamp_ctx *const stale = b.module->ctx;
    quiet([&] { return olv_twamp_shutdown(b.module); });
    EXPECT_EQ(b.module->ctx, nullptr);
    EXPECT_EQ(olv_twamp_valid_module_handle(b.module), 0u);
    b.module->ctx = stale; // Freed blocks stay mapped; the magic was cleared before the block was freed.
    EXPECT_EQ(olv_twamp_valid_module_handle(b.module), 0u);
    b.module->ctx = nullptr;
}

} // namespace
} // namespace olv_test
