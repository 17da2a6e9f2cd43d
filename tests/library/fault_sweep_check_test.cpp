// The sweep can fail: an operation that differs from its steps in one thing, under one fault, is noticed.
#include "gtest/gtest-spi.h"

#include "fault_sweep.hpp"

namespace olv_test::sweeping {
namespace {

constexpr const char *source = "twamp.c";
const std::string operation_name = "olv_twamp_service_function_update";

subject update_with(const path &after_a_refusal)
{
    const path ends = unlocks(source, exits(source, operation_name));
    return {.label = "a subject of its own",
            .work = [](bench &b) { return olv_twamp_service_function_update(b.module); },
            .steps = join({enters(source, operation_name),
                           locks(source, join({calls(call::olv_module_service_function_update, {},
                                                     join({after_a_refusal, ends})),
                                               ends}))})};
}

path refused(const std::string &text, std::uint32_t status)
{
    return fails(source, text, "Failed to update service functions", status);
}

/** How many failures a sweep reports. */
int failures_of(const subject &under_test)
{
    testing::TestPartResultArray failures;
    {
        const testing::ScopedFakeTestPartResultReporter reporter(
            testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &failures);
        quietly([&] { sweep(under_test); });
    }
    return failures.size();
}

TEST(FaultSweepCheck, AcceptsTheTruth)
{
    EXPECT_EQ(failures_of(update_with(refused("Failed to update service functions", 0x201FF))), 0);
}

TEST(FaultSweepCheck, NoticesAnotherStatus)
{
    EXPECT_GT(failures_of(
                  update_with(join({refused("Failed to update service functions", 0x201FF), yields(0x301FF)}))),
              0);
}

TEST(FaultSweepCheck, NoticesAnotherLetter)
{
    EXPECT_GT(failures_of(update_with(refused("Failed to update service function", 0x201FF))), 0);
}

TEST(FaultSweepCheck, NoticesAMissingCall)
{
    EXPECT_GT(failures_of(update_with(
                  join({refused("Failed to update service functions", 0x201FF), calls(call::hyx_nvm_free)}))),
              0);
}

TEST(FaultSweepCheck, NoticesWhatIsLeftBehind)
{
    EXPECT_GT(failures_of(update_with(join(
                  {refused("Failed to update service functions", 0x201FF), changes(adds(&remains::blocks))}))),
              0);
}

TEST(FaultSweepCheck, NoticesAnotherStateEntry)
{
    subject changed = update_with(refused("Failed to update service functions", 0x201FF));
    changed.at_last = [](outcome &result) { result.state = "5a"; };
    EXPECT_GT(failures_of(changed), 0);
}

TEST(FaultSweepCheck, NoticesAnotherCreationCount)
{
    subject changed = update_with(refused("Failed to update service functions", 0x201FF));
    changed.creations_before = 1;
    EXPECT_GT(failures_of(changed), 0);
}

} // namespace
} // namespace olv_test::sweeping
